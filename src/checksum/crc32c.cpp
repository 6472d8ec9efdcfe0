// CRC-32C (Castagnoli, iSCSI), reflected polynomial 0x82F63B78, on the raw
// register: slicing-by-4, and the SSE4.2 CRC32 instruction in three
// interleaved streams recombined by tables or by carry-less multiplication.
//
// The CRC32 instruction has a latency of three cycles and a throughput of one
// per cycle, so three independent streams keep it busy. Streams B and C start
// from a zero register; afterwards A's register stands 2L bytes and B's L
// bytes too early. A 32-bit register s moved over d bytes is s(x) x^(8d) mod
// P; written as a 64-bit word U with U(x) x^32 = s(x) x^(8d), it can simply be
// XORed into the last word of stream C before that word goes through the
// instruction.
#include <cstring>

#include "checksum/clmul.h"
#include "checksum/kernels.h"
#include "checksum/tables.h"

namespace nux::checksum {
namespace {

using namespace crc;
constexpr auto& T = kCrc32cTables;

inline Nux32u byte_step(Nux32u c, Nux8u b) { return (c >> 8) ^ T[0][(c ^ b) & 0xFF]; }

inline Nux32u word_step(Nux32u c, Nux32u w) {
    const Nux32u x = c ^ w;
    return T[3][x & 0xFF] ^ T[2][(x >> 8) & 0xFF] ^ T[1][(x >> 16) & 0xFF] ^ T[0][x >> 24];
}

inline Nux32u hw64(Nux32u c, const Nux8u* p) { return Nux32u(_mm_crc32_u64(c, load64(p))); }

// Bytes through the byte form until p is 8-byte aligned (all of them when
// fewer than 8 are given).
inline Nux32u hw_head(Nux32u c, const Nux8u*& p, size_t& n) {
    if (n < 8) {
        for (; n; --n) c = _mm_crc32_u8(c, *p++);
        return c;
    }
    for (; reinterpret_cast<uintptr_t>(p) & 7; --n) c = _mm_crc32_u8(c, *p++);
    return c;
}

// Three streams of `words` 8-byte words from p; stream C's last word is left
// for the caller. Returns A's and B's registers in a and b.
struct Streams {
    Nux32u a, b, c;
    Nux64u last;
};
inline Streams three_streams(Nux32u c, const Nux8u* p, size_t words) {
    const size_t len = words * 8;
    Streams s{c, 0, 0, 0};
    for (size_t i = 0; i + 1 < words; ++i) {
        s.a = hw64(s.a, p + 8 * i);
        s.b = hw64(s.b, p + len + 8 * i);
        s.c = hw64(s.c, p + 2 * len + 8 * i);
    }
    s.a = hw64(s.a, p + len - 8);
    s.b = hw64(s.b, p + 2 * len - 8);
    s.last = load64(p + 3 * len - 8);
    return s;
}

inline Nux64u shift_by_table(Nux32u s, const std::array<Nux64u, 256>& t) {
    return t[s & 0xFF] ^ (t[(s >> 8) & 0xFF] << 8) ^ (t[(s >> 16) & 0xFF] << 16) ^ (t[s >> 24] << 24);
}

// Table blocks: stream length in bytes and the shift tables for 2L and L.
inline Nux32u table_block(Nux32u c, const Nux8u* p, size_t stream_bytes, int table_2l) {
    const Streams s = three_streams(c, p, stream_bytes / 8);
    const Nux64u u = shift_by_table(s.a, kCrc32cShiftTables[table_2l]) ^
                     shift_by_table(s.b, kCrc32cShiftTables[table_2l + 1]);
    return Nux32u(_mm_crc32_u64(s.c, s.last ^ u));
}

// Carry-less multipliers for streams of k words (k = 1..128): low half
// x^(128k - 32) for the 2L shift, high half x^(64k - 32) for the L shift.
struct Pair {
    Nux64u twice, once;
};
constexpr std::array<Pair, 129> make_stream_pairs() {
    std::array<Pair, 129> t{};
    std::array<Nux64u, 257> pow{};  // pow[m] = fold_reflected(64m - 32)
    Nux32u r = xpow_reflected(32, kPolyCrc32c);
    for (unsigned m = 1; m <= 256; ++m) {
        pow[m] = Nux64u(r) << 1;
        for (int i = 0; i < 64; ++i) r = (r >> 1) ^ ((r & 1) ? kPolyCrc32c : 0);
    }
    for (unsigned k = 1; k <= 128; ++k) t[k] = {pow[2 * k], pow[k]};
    return t;
}
constexpr auto kStreamPairs = make_stream_pairs();
static_assert(kStreamPairs[128].once == fold_reflected(8 * 1024 - 32, kPolyCrc32c));
static_assert(kStreamPairs[5].twice == fold_reflected(8 * 80 - 32, kPolyCrc32c));

NUX_TARGET_PCLMUL inline Nux32u clmul_block(Nux32u c, const Nux8u* p, size_t words) {
    const Streams s = three_streams(c, p, words);
    const Pair& k = kStreamPairs[words];
    const __m128i prod = fold128(_mm_set_epi64x(s.b, s.a), consts(k.twice, k.once));
    return Nux32u(_mm_crc32_u64(s.c, s.last ^ Nux64u(_mm_cvtsi128_si64(prod))));
}

// floor(r / 24) as (r * 2731) >> 16, exact below 3072.
constexpr bool div24_exact() {
    for (Nux32u r = 0; r < 3072; ++r)
        if ((r * 2731) >> 16 != r / 24) return false;
    return true;
}
static_assert(div24_exact());

}  // namespace

Nux32u crc32c_slice4(Nux32u c, const Nux8u* p, size_t n) {
    if (n >= 11) {
        for (; reinterpret_cast<uintptr_t>(p) & 3; --n) c = byte_step(c, *p++);
        for (; n >= 8; n -= 8, p += 8) c = word_step(word_step(c, load32(p)), load32(p + 4));
        if (n >= 4) {
            c = word_step(c, load32(p));
            p += 4;
            n -= 4;
        }
    }
    for (; n >= 8; n -= 8, p += 8)
        for (int i = 0; i < 8; ++i) c = byte_step(c, p[i]);
    for (; n; --n) c = byte_step(c, *p++);
    return c;
}

Nux32u crc32c_hw_table(Nux32u c, const Nux8u* p, size_t n) {
    c = hw_head(c, p, n);
    for (; n >= 1728; n -= 1728, p += 1728) c = table_block(c, p, 576, 0);
    // At most one block each of 864, 432 and 216 bytes: the remainder's bits.
    for (int i = 0; i < 3; ++i) {
        const size_t block = size_t(864) >> i;
        if (n >= block) {
            c = table_block(c, p, block / 3, i + 1);
            p += block;
            n -= block;
        }
    }
    // Below 216 bytes: one stream, by the binary digits of the length.
    for (size_t chunk = 128; chunk >= 8; chunk /= 2)
        if (n & chunk)
            for (size_t i = 0; i < chunk; i += 8, p += 8) c = hw64(c, p);
    if (n & 4) {
        c = _mm_crc32_u32(c, load32(p));
        p += 4;
    }
    if (n & 2) {
        Nux16u h;
        std::memcpy(&h, p, 2);
        c = _mm_crc32_u16(c, h);
        p += 2;
    }
    if (n & 1) c = _mm_crc32_u8(c, *p);
    return c;
}

NUX_TARGET_PCLMUL Nux32u crc32c_hw_clmul(Nux32u c, const Nux8u* p, size_t n) {
    c = hw_head(c, p, n);
    for (; n >= 3072; n -= 3072, p += 3072) c = clmul_block(c, p, 128);
    const size_t words = (n * 2731) >> 16;  // floor(n / 24): words per stream
    if (words) {
        c = clmul_block(c, p, words);
        p += 24 * words;
        n -= 24 * words;
    }
    for (; n >= 8; n -= 8, p += 8) c = hw64(c, p);
    for (; n; --n) c = _mm_crc32_u8(c, *p++);
    return c;
}

}  // namespace nux::checksum
