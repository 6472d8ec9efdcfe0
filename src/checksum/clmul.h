// 128-bit folding steps shared by the carry-less-multiply CRC kernels.
//
// A folding constant vector holds one multiplier per 64-bit half (see
// crc_math.h for their derivation):
//   reflected: low half  x^(D+32) mod P (fold_reflected), high half x^(D-32);
//   normal:    low half  x^D mod P, high half x^(D+64) (after the bytes of
//              each 16-byte block are reversed, the high half comes first).
// In both layouts fold(x, k) = lo(x) * lo(k) xor hi(x) * hi(k) moves the block
// D bits forward, ready to be XORed into the block D bits later.
#pragma once

#include <immintrin.h>

#include "checksum/crc_math.h"
#include "core/unaligned.h"

#define NUX_TARGET_PCLMUL __attribute__((target("pclmul")))

namespace nux::crc {

// A 16-byte mask read at kHeadMask + 16 - a: zero below byte a, 0xFF from a on.
alignas(16) inline constexpr Nux8u kHeadMask[32] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                                    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
                                                    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

// The aligned block holding the first message byte. Its bytes before the
// message belong to the caller's memory (never another page) and are masked
// off after the load, so the sanitizer is told not to flag the read.
__attribute__((no_sanitize_address)) inline __m128i load_first_block(const Nux8u* aligned) {
    return _mm_load_si128(reinterpret_cast<const __m128i*>(aligned));
}

NUX_TARGET_PCLMUL inline __m128i fold128(__m128i x, __m128i k) {
    return _mm_xor_si128(_mm_clmulepi64_si128(x, k, 0x00), _mm_clmulepi64_si128(x, k, 0x11));
}

inline __m128i consts(Nux64u lo, Nux64u hi) {
    return _mm_set_epi64x(static_cast<long long>(hi), static_cast<long long>(lo));
}

// Reflected folding multipliers for a distance of `bits`.
constexpr Nux64u refl_lo(unsigned bits, Nux32u poly) { return fold_reflected(bits + 32, poly); }
constexpr Nux64u refl_hi(unsigned bits, Nux32u poly) { return fold_reflected(bits - 32, poly); }

// The constant vectors, evaluated at compile time.
template <unsigned Bits, Nux32u Poly>
inline __m128i refl_fold_consts() {
    constexpr Nux64u lo = refl_lo(Bits, Poly), hi = refl_hi(Bits, Poly);
    return consts(lo, hi);
}
template <unsigned Bits, Nux32u Poly>
inline __m128i normal_fold_consts() {
    constexpr Nux64u lo = xpow_normal(Bits, Poly), hi = xpow_normal(Bits + 64, Poly);
    return consts(lo, hi);
}
template <Nux32u Poly>
inline __m128i refl_reduce_consts() {
    constexpr Nux64u lo = fold_reflected(96, Poly), hi = fold_reflected(64, Poly);
    return consts(lo, hi);
}
template <Nux32u Poly>
inline __m128i normal_reduce_consts() {
    constexpr Nux64u lo = xpow_normal(96, Poly), hi = xpow_normal(64, Poly);
    return consts(lo, hi);
}

// A reflected 128-bit block reduced to a 64-bit word congruent to it modulo
// P: the low half (the earlier 64 bits) splits into its first 32 bits, which
// stand at x^96 relative to the end, and its next 32 bits at x^64.
// `k` holds fold_reflected(96) low and fold_reflected(64) high.
NUX_TARGET_PCLMUL inline Nux64u reduce_reflected(__m128i x, __m128i k) {
    const __m128i first = _mm_clmulepi64_si128(_mm_and_si128(x, _mm_set_epi32(0, 0, 0, -1)), k, 0x00);
    const __m128i second = _mm_clmulepi64_si128(_mm_srli_epi64(x, 32), k, 0x10);
    return Nux64u(_mm_cvtsi128_si64(_mm_xor_si128(_mm_xor_si128(first, second), _mm_srli_si128(x, 8))));
}

// The normal-order counterpart: the high half comes first; its top 32 bits
// stand at x^96, its low 32 bits at x^64. `k` holds x^96 mod P low and
// x^64 mod P high (plain 32-bit values).
NUX_TARGET_PCLMUL inline Nux64u reduce_normal(__m128i x, __m128i k) {
    const __m128i hi = _mm_srli_si128(x, 8);
    const __m128i first = _mm_clmulepi64_si128(_mm_srli_epi64(hi, 32), k, 0x00);
    const __m128i second = _mm_clmulepi64_si128(_mm_and_si128(hi, _mm_set_epi32(0, 0, 0, -1)), k, 0x10);
    return Nux64u(_mm_cvtsi128_si64(_mm_xor_si128(_mm_xor_si128(first, second), x)));
}

}  // namespace nux::crc

namespace nux::crc {

// A 64-bit reduced value v stands for the message v; its CRC from a zero
// register is v(x) x^32 mod P, eight byte steps through the byte table.
inline Nux32u finish_reflected(Nux64u v, const std::array<Nux32u, 256>& t0) {
    Nux32u c = Nux32u(v);
    for (int i = 0; i < 4; ++i) c = (c >> 8) ^ t0[c & 0xFF];
    c ^= Nux32u(v >> 32);
    for (int i = 0; i < 4; ++i) c = (c >> 8) ^ t0[c & 0xFF];
    return c;
}

inline Nux32u finish_normal(Nux64u v, const std::array<Nux32u, 256>& msb) {
    Nux32u c = Nux32u(v >> 32);
    for (int i = 0; i < 4; ++i) c = (c << 8) ^ msb[c >> 24];
    c ^= Nux32u(v);
    for (int i = 0; i < 4; ++i) c = (c << 8) ^ msb[c >> 24];
    return c;
}

}  // namespace nux::crc
