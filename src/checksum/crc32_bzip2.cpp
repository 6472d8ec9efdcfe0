// The bzip2 CRC: polynomial 0x04C11DB7, most significant bit first, on the
// raw (normal-order) register: byte-swapped slicing-by-8 and 128-bit
// carry-less folding.
#include <cstring>

#include "checksum/clmul.h"
#include "checksum/kernels.h"
#include "checksum/tables.h"

namespace nux::checksum {
namespace {

using namespace crc;
constexpr auto& S = kBzip2SwappedTables;

// Swapped-register byte step, and the MSB-first one on the plain register.
inline Nux32u swapped_step(Nux32u c, Nux8u b) { return (c >> 8) ^ S[0][(c ^ b) & 0xFF]; }
inline Nux32u msb_step(Nux32u c, Nux8u b) { return (c << 8) ^ kBzip2Table[(c >> 24) ^ b]; }

inline Nux32u msb_bytes(Nux32u c, const Nux8u* p, size_t n) {
    for (; n >= 8; n -= 8, p += 8)
        for (int i = 0; i < 8; ++i) c = msb_step(c, p[i]);
    for (; n; --n) c = msb_step(c, *p++);
    return c;
}

}  // namespace

Nux32u bzip2_slice8(Nux32u reg, const Nux8u* p, size_t n) {
    Nux32u c = bswap32(reg);
    if (n >= 11) {
        for (; reinterpret_cast<uintptr_t>(p) & 7; --n) c = swapped_step(c, *p++);
        for (; n >= 8; n -= 8, p += 8) {
            const Nux64u w = load64(p);
            const Nux32u x = Nux32u(w) ^ c;
            c = S[7][x & 0xFF] ^ S[6][(x >> 8) & 0xFF] ^ S[5][(x >> 16) & 0xFF] ^ S[4][x >> 24] ^
                S[3][(w >> 32) & 0xFF] ^ S[2][(w >> 40) & 0xFF] ^ S[1][(w >> 48) & 0xFF] ^ S[0][w >> 56];
        }
        for (; n >= 4; n -= 4, p += 4) {
            Nux32u w;
            std::memcpy(&w, p, 4);
            const Nux32u x = w ^ c;
            c = S[3][x & 0xFF] ^ S[2][(x >> 8) & 0xFF] ^ S[1][(x >> 16) & 0xFF] ^ S[0][x >> 24];
        }
    }
    for (; n >= 8; n -= 8, p += 8)
        for (int i = 0; i < 8; ++i) c = swapped_step(c, p[i]);
    for (; n; --n) c = swapped_step(c, *p++);
    return bswap32(c);
}

// Normal-order folding: every 16-byte block is byte-reversed on loading so
// that bit k of the 128-bit value is the coefficient of x^k; otherwise the
// same shape as the reflected CRC-32 folding (crc32.cpp).
NUX_TARGET_PCLMUL Nux32u bzip2_pclmul(Nux32u c, const Nux8u* p, size_t n) {
    const size_t a = reinterpret_cast<uintptr_t>(p) & 15;
    if (n < 32 - a) return msb_bytes(c, p, n);

    const __m128i rev = _mm_setr_epi8(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0);
    const Nux8u* q = p - a;
    size_t rem = n + a - 32;
    alignas(16) Nux8u reg[32] = {};
    const Nux32u swapped = bswap32(c);  // the register's top byte meets the first message byte
    std::memcpy(reg + a, &swapped, 4);
    const __m128i mask = _mm_loadu_si128(reinterpret_cast<const __m128i*>(kHeadMask + 16 - a));
    __m128i x0 = _mm_shuffle_epi8(_mm_xor_si128(_mm_and_si128(load_first_block(q), mask),
                                                _mm_load_si128(reinterpret_cast<const __m128i*>(reg))),
                                  rev);
    __m128i x1 = _mm_shuffle_epi8(_mm_xor_si128(_mm_load_si128(reinterpret_cast<const __m128i*>(q + 16)),
                                                _mm_load_si128(reinterpret_cast<const __m128i*>(reg + 16))),
                                  rev);
    q += 32;
    auto next = [&q, rev]() {
        const __m128i v = _mm_shuffle_epi8(_mm_load_si128(reinterpret_cast<const __m128i*>(q)), rev);
        q += 16;
        return v;
    };
    static_assert(xpow_normal(512, kPolyBzip2) == 0xE6228B11 && xpow_normal(576, kPolyBzip2) == 0x8833794C);
    static_assert(xpow_normal(256, kPolyBzip2) == 0x75BE46B7 && xpow_normal(320, kPolyBzip2) == 0x569700E5);
    static_assert(xpow_normal(128, kPolyBzip2) == 0xE8A45605 && xpow_normal(192, kPolyBzip2) == 0xC5B9CD4C);
    const __m128i k128 = normal_fold_consts<128, kPolyBzip2>(), k256 = normal_fold_consts<256, kPolyBzip2>();

    if (rem >= 32) {
        __m128i x2 = next(), x3 = next();
        rem -= 32;
        if (rem >= 64) {
            const __m128i k512 = normal_fold_consts<512, kPolyBzip2>();
            for (; rem > 256; rem -= 256)
                for (int i = 0; i < 4; ++i) {
                    x0 = _mm_xor_si128(crc::fold128(x0, k512), next());
                    x1 = _mm_xor_si128(crc::fold128(x1, k512), next());
                    x2 = _mm_xor_si128(crc::fold128(x2, k512), next());
                    x3 = _mm_xor_si128(crc::fold128(x3, k512), next());
                }
            for (; rem >= 64; rem -= 64) {
                x0 = _mm_xor_si128(crc::fold128(x0, k512), next());
                x1 = _mm_xor_si128(crc::fold128(x1, k512), next());
                x2 = _mm_xor_si128(crc::fold128(x2, k512), next());
                x3 = _mm_xor_si128(crc::fold128(x3, k512), next());
            }
        }
        x0 = _mm_xor_si128(crc::fold128(x0, k256), x2);
        x1 = _mm_xor_si128(crc::fold128(x1, k256), x3);
        if (rem >= 32) {
            x0 = _mm_xor_si128(crc::fold128(x0, k256), next());
            x1 = _mm_xor_si128(crc::fold128(x1, k256), next());
            rem -= 32;
        }
    }
    x0 = _mm_xor_si128(crc::fold128(x0, k128), x1);
    if (rem >= 16) {
        x0 = _mm_xor_si128(crc::fold128(x0, k128), next());
        rem -= 16;
    }
    static_assert(xpow_normal(96, kPolyBzip2) == 0xF200AA66 && xpow_normal(64, kPolyBzip2) == 0x490D678D);
    const __m128i kred = normal_reduce_consts<kPolyBzip2>();
    Nux64u v = reduce_normal(x0, kred);
    if (rem >= 8) {
        const Nux64u w = __builtin_bswap64(load64(q));
        v = reduce_normal(_mm_set_epi64x(static_cast<long long>(v), static_cast<long long>(w)), kred);
        q += 8;
        rem -= 8;
    }
    return msb_bytes(finish_normal(v, kBzip2Table), q, rem);
}

}  // namespace nux::checksum
