// 512-bit carry-less folding (VPCLMULQDQ) for CRC-32, CRC-32C and the bzip2
// CRC. One body serves all three: each 128-bit lane folds exactly as in the
// 128-bit kernels (clmul.h), four registers (256 bytes) per round so that the
// multiplier latency is hidden. CRC-32C folds with the Castagnoli constants,
// which gives the same register as its CRC32-instruction kernels.
//
// Inputs shorter than kWideFoldMin go whole to the 128-bit kernel (CRC-32C:
// the CRC32-instruction kernel). Longer ones are folded here to the last 16-
// and 8-byte pieces; fewer than 8 bytes go through the byte table.
//
// Folding is bound by the multiplier's throughput. CRC-32C additionally runs
// a CRC32-instruction stream over the tail of long inputs on the otherwise
// idle integer ports (the hybrid split below); a slicing-by-8 side stream for
// CRC-32 and the bzip2 CRC measured slower than folding alone, so they do not.

// GCC 12's 512-bit intrinsic headers build vectors from a self-initialised
// "undefined" value (broadcast, insert, extract), which -W(maybe-)uninitialized
// reports once they are inlined here. The warning is a false positive.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wuninitialized"
#endif

#include <cstring>
#include <type_traits>

#include "checksum/clmul.h"
#include "checksum/kernels.h"
#include "checksum/tables.h"

#define NUX_TARGET_VPCLMUL __attribute__((target("avx512f,avx512bw,avx512vl,vpclmulqdq,pclmul")))

namespace nux::checksum {
namespace {

using namespace crc;

template <bool Reflected, Nux32u Poly>
NUX_TARGET_VPCLMUL inline __m512i wide_consts() {
    // Distance 2048 bits: one 256-byte round.
    if constexpr (Reflected) return _mm512_broadcast_i32x4(refl_fold_consts<2048, Poly>());
    else return _mm512_broadcast_i32x4(normal_fold_consts<2048, Poly>());
}

template <bool Reflected, Nux32u Poly, unsigned Bits>
NUX_TARGET_VPCLMUL inline __m128i lane_consts() {
    if constexpr (Bits == 0) return _mm_setzero_si128();
    else if constexpr (Reflected) return refl_fold_consts<Bits, Poly>();
    else return normal_fold_consts<Bits, Poly>();
}

NUX_TARGET_VPCLMUL inline __m512i fold512(__m512i x, __m512i k, __m512i data) {
    return _mm512_ternarylogic_epi64(_mm512_clmulepi64_epi128(x, k, 0x00), _mm512_clmulepi64_epi128(x, k, 0x11),
                                     data, 0x96);
}

// Per-lane multipliers for the final fold: entry d, lane l moves a lane by
// d * 512 + (3 - l) * 128 bits; entry 0 lane 3 (the last lane, which stays)
// is zero.
template <bool Reflected, Nux32u Poly>
constexpr std::array<std::array<Nux64u, 8>, 7> final_consts() {
    std::array<std::array<Nux64u, 8>, 7> t{};
    for (unsigned d = 0; d < 7; ++d)
        for (unsigned l = 0; l < 4; ++l) {
            const unsigned bits = d * 512 + (3 - l) * 128;
            if (bits == 0) continue;
            t[d][2 * l] = Reflected ? refl_lo(bits, Poly) : xpow_normal(bits, Poly);
            t[d][2 * l + 1] = Reflected ? refl_hi(bits, Poly) : xpow_normal(bits + 64, Poly);
        }
    return t;
}

// Folds N blocks (the last one's lane 3 stays) onto one 128-bit value.
template <size_t N, typename Table>
NUX_TARGET_VPCLMUL inline __m128i fold_final(const __m512i (&b)[N], const Table& k) {
    __m512i t = _mm512_setzero_si512();
#pragma GCC unroll 7
    for (size_t i = 0; i < N; ++i) t = fold512(b[i], _mm512_load_si512(k[N - 1 - i].data()), t);
    const __m256i t2 = _mm256_xor_si256(_mm512_castsi512_si256(t), _mm512_extracti64x4_epi64(t, 1));
    return _mm_ternarylogic_epi64(_mm256_castsi256_si128(t2), _mm256_extracti128_si256(t2, 1),
                                  _mm512_extracti32x4_epi32(b[N - 1], 3), 0x96);
}

// The result of folding: a 64-bit word congruent to everything before `rest`
// (its CRC from a zero register is the register there), and fewer than 8
// bytes still to go.
struct Folded {
    Nux64u v;
    const Nux8u* rest;
    size_t rest_len;
};

// Folds n >= 256 bytes from register c. The first 64-byte block is the
// aligned one holding p[0], loaded with the bytes before p masked off (a
// masked load touches nothing there): leading zeros leave a zero register
// unchanged, so every later load is aligned. The register meets the first
// four message bytes, wherever they sit.
//
// `side` runs in each of the first `side_rounds` 256-byte rounds: the hybrid
// kernels below give it a scalar CRC stream over another part of the input,
// which uses execution ports that the folding leaves idle. It works on a
// local copy (kept in registers) that is handed back at the end.
struct NoSide {
    void operator()() const {}
};

template <bool Reflected, Nux32u Poly, typename Side = NoSide>
NUX_TARGET_VPCLMUL __attribute__((always_inline)) inline Folded fold_wide(Nux32u c, const Nux8u* p, size_t n,
                                                                         Side* side_state = nullptr,
                                                                         size_t side_rounds = 0) {
    Side side = side_state ? *side_state : Side();
    const __m512i rev = _mm512_broadcast_i32x4(
        _mm_setr_epi8(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0));
    const auto order = [&rev](__m512i v) NUX_TARGET_VPCLMUL {
        if constexpr (Reflected) {
            static_cast<void>(rev);
            return v;
        } else {
            return _mm512_shuffle_epi8(v, rev);
        }
    };
    const auto load = [&order](const Nux8u* at) NUX_TARGET_VPCLMUL { return order(_mm512_load_si512(at)); };

    const size_t a = reinterpret_cast<uintptr_t>(p) & 63;
    const Nux8u* q = p - a;
    size_t rem = n + a - 256;
    // The register's four bytes at offset a: one or two 64-bit lanes, the
    // second possibly in the next block. Built in registers, not through
    // memory, so no store has to be forwarded into the first vector load.
    const Nux32u first = Reflected ? c : bswap32(c);  // in message byte order
    const unsigned lane = unsigned(a >> 3), shift = unsigned(a & 7) * 8;
    const Nux64u lo = Nux64u(first) << shift, hi = shift > 32 ? Nux64u(first) >> (64 - shift) : 0;
    __m512i reg0 = _mm512_maskz_set1_epi64(__mmask8(1u << lane), static_cast<long long>(lo));
    __m512i reg1 = _mm512_setzero_si512();
    if (lane < 7) reg0 = _mm512_mask_set1_epi64(reg0, __mmask8(1u << (lane + 1)), static_cast<long long>(hi));
    else reg1 = _mm512_maskz_set1_epi64(1, static_cast<long long>(hi));
    __m512i z0 = order(_mm512_xor_si512(_mm512_maskz_loadu_epi8(~0ull << a, q), reg0));
    __m512i z1 = order(_mm512_xor_si512(_mm512_load_si512(q + 64), reg1));
    __m512i z2 = load(q + 128), z3 = load(q + 192);
    q += 256;
    const __m512i k2048 = wide_consts<Reflected, Poly>();
    const auto round = [&](const Nux8u* at) NUX_TARGET_VPCLMUL {
        if constexpr (!std::is_same_v<Side, NoSide>) {
            if (side_rounds) {
                side();
                --side_rounds;
            }
        }
        z0 = fold512(z0, k2048, load(at));
        z1 = fold512(z1, k2048, load(at + 64));
        z2 = fold512(z2, k2048, load(at + 128));
        z3 = fold512(z3, k2048, load(at + 192));
    };
    for (; rem >= 1024; rem -= 1024, q += 1024) {  // four rounds per branch
        round(q);
        round(q + 256);
        round(q + 512);
        round(q + 768);
    }
    for (; rem >= 256; rem -= 256, q += 256) round(q);
    // The four registers and the 0..3 whole blocks left are folded onto the
    // last lane in one step: lane l of a block d blocks before the last one
    // moves d * 512 + (3 - l) * 128 bits. All multiplies are independent.
    alignas(64) static constexpr auto kFinal = final_consts<Reflected, Poly>();
    __m128i x;
    switch (rem / 64) {
        case 0: x = fold_final<4>({z0, z1, z2, z3}, kFinal); break;
        case 1: x = fold_final<5>({z0, z1, z2, z3, load(q)}, kFinal); break;
        case 2: x = fold_final<6>({z0, z1, z2, z3, load(q), load(q + 64)}, kFinal); break;
        default: x = fold_final<7>({z0, z1, z2, z3, load(q), load(q + 64), load(q + 128)}, kFinal); break;
    }
    q += rem / 64 * 64;
    rem %= 64;
    // The last 16-byte blocks one at a time, then one 8-byte word.
    const __m128i k128 = lane_consts<Reflected, Poly, 128>();
    for (; rem >= 16; rem -= 16, q += 16) {
        __m128i d = _mm_load_si128(reinterpret_cast<const __m128i*>(q));
        if constexpr (!Reflected) d = _mm_shuffle_epi8(d, _mm512_castsi512_si128(rev));
        x = _mm_xor_si128(fold128(x, k128), d);
    }
    Nux64u v, w = 0;
    const bool word = rem >= 8;
    if (word) std::memcpy(&w, q, 8);
    if constexpr (Reflected) {
        const __m128i kred = refl_reduce_consts<Poly>();
        v = reduce_reflected(x, kred);
        if (word) v = reduce_reflected(_mm_set_epi64x(static_cast<long long>(w), static_cast<long long>(v)), kred);
    } else {
        const __m128i kred = normal_reduce_consts<Poly>();
        v = reduce_normal(x, kred);
        if (word)
            v = reduce_normal(_mm_set_epi64x(static_cast<long long>(v), static_cast<long long>(__builtin_bswap64(w))),
                              kred);
    }
    if (word) {
        q += 8;
        rem -= 8;
    }
    if (side_state) *side_state = side;
    return {v, q, rem};
}

// The register for a reduced word: its eight bytes through the slicing
// tables from a zero register, as eight independent lookups.
template <typename Tables>
inline Nux32u slice8_from_zero(Nux64u w, const Tables& t) {
    const Nux32u x = Nux32u(w);
    return t[7][x & 0xFF] ^ t[6][(x >> 8) & 0xFF] ^ t[5][(x >> 16) & 0xFF] ^ t[4][x >> 24] ^
           t[3][(w >> 32) & 0xFF] ^ t[2][(w >> 40) & 0xFF] ^ t[1][(w >> 48) & 0xFF] ^ t[0][w >> 56];
}

// Hybrid split: the input is A then B. A is folded; B, running from a zero
// register, is taken `side` bytes per folding round by a scalar stream. Then
//   crc(c, A B) = crc(c, A) * x^(8 |B|) + crc(0, B)   (mod P),
// the shift being one carry-less multiply by x^(8|B| - 32) mod P (crc_math.h:
// a register s times that constant is a word whose CRC from zero is s moved
// over |B| bytes). That power depends on the length only; it is computed
// before the folding starts, so the processor overlaps the two.
struct Split {
    size_t a_len, b_len, rounds;
};
inline Split split(const Nux8u* p, size_t n, size_t side) {
    const size_t a = reinterpret_cast<uintptr_t>(p) & 63;
    // A keeps at least 256 bytes for the first load plus one round per side
    // step; its leftover below a round is folded by A's own tail code.
    const size_t rounds = (n + a - 256) / (256 + side);
    return {n - side * rounds, side * rounds, rounds};
}

// Multipliers for x^(8 * 2^j) mod P, j = 2..31, in the layout of `Reflected`
// (the shift by 2^j bytes; fold form for reflected CRCs).
template <bool Reflected, Nux32u Poly>
constexpr std::array<Nux64u, 32> make_power_table() {
    std::array<Nux64u, 32> t{};
    const Nux32u normal_poly = Reflected ? bitrev32(Poly) : Poly;
    for (int j = 2; j < 32; ++j) {
        const Nux32u v = xpow_normal_fast((Nux64u(8) << j) - 32, normal_poly);
        t[j] = Reflected ? Nux64u(bitrev32(v)) << 1 : v;
    }
    return t;
}

NUX_TARGET_VPCLMUL inline Nux64u clmul32(Nux32u r, Nux64u k) {
    const __m128i prod =
        _mm_clmulepi64_si128(_mm_cvtsi32_si128(int(r)), _mm_cvtsi64_si128(static_cast<long long>(k)), 0);
    return Nux64u(_mm_cvtsi128_si64(prod));
}

// The shift constant for moving a register over `bytes` (4 to 2^32 - 1) bytes:
// x^(8 bytes - 32) mod P, built from the powers of two of (bytes - 4).
// `crc0` maps a 64-bit word to its CRC from a zero register, `byte0` moves a
// register over one zero byte.
template <bool Reflected, Nux32u Poly, typename Crc0, typename Byte0>
NUX_TARGET_VPCLMUL Nux64u shift_constant(size_t bytes, Crc0 crc0, Byte0 byte0) {
    static constexpr auto kPowers = make_power_table<Reflected, Poly>();
    const size_t e = bytes - 4;
    Nux32u r = Reflected ? 0x80000000u : 1u;  // x^0
    if (e & 1) r = byte0(r);
    if (e & 2) r = byte0(byte0(r));
    for (int j = 2; (e >> j) != 0; ++j)
        if ((e >> j) & 1) r = crc0(clmul32(r, kPowers[j]));
    return Reflected ? Nux64u(r) << 1 : r;
}

// CRC-32C side stream: five 8-byte CRC32 instructions (one dependency chain
// of 15 cycles) per 256-byte folding round; measured best of 4..6.
struct Crc32cSide {
    static constexpr size_t kBytes = 40;
    const Nux8u* b;
    Nux32u r;
    void operator()() {
        for (size_t i = 0; i < kBytes; i += 8) r = Nux32u(_mm_crc32_u64(r, load64(b + i)));
        b += kBytes;
    }
};

}  // namespace

NUX_TARGET_VPCLMUL Nux32u crc32_vpclmul(Nux32u c, const Nux8u* p, size_t n) {
    if (n < kWideFoldMin) return crc32_pclmul(c, p, n);
    const Folded f = fold_wide<true, kPolyCrc32>(c, p, n);
    c = slice8_from_zero(f.v, kCrc32Tables);
    for (size_t i = 0; i < f.rest_len; ++i) c = (c >> 8) ^ kCrc32Tables[0][(c ^ f.rest[i]) & 0xFF];
    return c;
}

NUX_TARGET_VPCLMUL Nux32u crc32c_vpclmul(Nux32u c, const Nux8u* p, size_t n) {
    if (n < kWideFoldMin) return crc32c_hw_clmul(c, p, n);
    if (n >= kHybridMin && (n >> 32) == 0) {
        const Split s = split(p, n, Crc32cSide::kBytes);
        const auto crc0 = [](Nux64u w) { return Nux32u(_mm_crc32_u64(0, w)); };
        const auto byte0 = [](Nux32u r) { return Nux32u(_mm_crc32_u8(r, 0)); };
        const Nux64u k = shift_constant<true, kPolyCrc32c>(s.b_len, crc0, byte0);
        Crc32cSide side{p + s.a_len, 0};
        const Folded f = fold_wide<true, kPolyCrc32c>(c, p, s.a_len, &side, s.rounds);
        Nux32u ra = crc0(f.v);
        for (size_t i = 0; i < f.rest_len; ++i) ra = _mm_crc32_u8(ra, f.rest[i]);
        return crc0(clmul32(ra, k)) ^ side.r;
    }
    const Folded f = fold_wide<true, kPolyCrc32c>(c, p, n);
    // The CRC32 instruction over the reduced word is the eight byte steps.
    c = Nux32u(_mm_crc32_u64(0, f.v));
    for (size_t i = 0; i < f.rest_len; ++i) c = _mm_crc32_u8(c, f.rest[i]);
    return c;
}

NUX_TARGET_VPCLMUL Nux32u bzip2_vpclmul(Nux32u c, const Nux8u* p, size_t n) {
    if (n < kWideFoldMin) return bzip2_pclmul(c, p, n);
    const Folded f = fold_wide<false, kPolyBzip2>(c, p, n);
    // Big-endian message bytes through the byte-swapped tables.
    c = bswap32(slice8_from_zero(__builtin_bswap64(f.v), kBzip2SwappedTables));
    for (size_t i = 0; i < f.rest_len; ++i) c = (c << 8) ^ kBzip2Table[(c >> 24) ^ f.rest[i]];
    return c;
}

}  // namespace nux::checksum
