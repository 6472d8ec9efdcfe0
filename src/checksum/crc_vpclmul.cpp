// 512-bit carry-less folding (VPCLMULQDQ) for CRC-32, CRC-32C and the bzip2
// CRC. One body serves all three: each 128-bit lane folds exactly as in the
// 128-bit kernels (clmul.h), four registers (256 bytes) per round so that the
// multiplier latency is hidden. CRC-32C folds with the Castagnoli constants,
// which gives the same register as its CRC32-instruction kernels.
//
// Inputs shorter than kWideFoldMin go whole to the 128-bit kernel. Longer ones
// fold their largest multiple of 64 bytes here, reduce it to a register, and
// pass the remaining 0..63 bytes on to that kernel.
// GCC 12's 512-bit intrinsic headers build vectors from a self-initialised
// "undefined" value (broadcast, insert, extract), which -Wmaybe-uninitialized
// reports once they are inlined here. The warning is a false positive.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

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

// Per-lane constants: lane i gets the multipliers for `b[i]` bits.
template <bool Reflected, Nux32u Poly, unsigned B0, unsigned B1, unsigned B2, unsigned B3>
NUX_TARGET_VPCLMUL inline __m512i lanes() {
    __m512i z = _mm512_castsi128_si512(lane_consts<Reflected, Poly, B0>());
    z = _mm512_inserti32x4(z, lane_consts<Reflected, Poly, B1>(), 1);
    z = _mm512_inserti32x4(z, lane_consts<Reflected, Poly, B2>(), 2);
    return _mm512_inserti32x4(z, lane_consts<Reflected, Poly, B3>(), 3);
}

NUX_TARGET_VPCLMUL inline __m512i fold512(__m512i x, __m512i k, __m512i data) {
    return _mm512_ternarylogic_epi64(_mm512_clmulepi64_epi128(x, k, 0x00), _mm512_clmulepi64_epi128(x, k, 0x11),
                                     data, 0x96);
}

// Folds n bytes (a multiple of 64, at least 256) starting from register c and
// returns the 128-bit remainder block that stands for them.
template <bool Reflected, Nux32u Poly>
NUX_TARGET_VPCLMUL __m128i fold_bulk(Nux32u c, const Nux8u* p, size_t n) {
    const __m512i rev = _mm512_broadcast_i32x4(
        _mm_setr_epi8(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0));
    const auto load = [rev](const Nux8u* at) NUX_TARGET_VPCLMUL {
        const __m512i v = _mm512_loadu_si512(at);
        if constexpr (Reflected) return v;
        else return _mm512_shuffle_epi8(v, rev);
    };
    __m512i z0 = load(p), z1 = load(p + 64), z2 = load(p + 128), z3 = load(p + 192);
    // The register meets the first four message bytes: the low dword in the
    // reflected layout, the top dword of the reversed first block otherwise.
    if constexpr (Reflected) z0 = _mm512_xor_si512(z0, _mm512_zextsi128_si512(_mm_cvtsi32_si128(int(c))));
    else z0 = _mm512_xor_si512(z0, _mm512_zextsi128_si512(_mm_set_epi32(int(c), 0, 0, 0)));
    p += 256;
    n -= 256;
    const __m512i k2048 = wide_consts<Reflected, Poly>();
    for (; n >= 256; n -= 256, p += 256) {
        z0 = fold512(z0, k2048, load(p));
        z1 = fold512(z1, k2048, load(p + 64));
        z2 = fold512(z2, k2048, load(p + 128));
        z3 = fold512(z3, k2048, load(p + 192));
    }
    const __m512i k1536 = _mm512_broadcast_i32x4(lane_consts<Reflected, Poly, 1536>());
    const __m512i k1024 = _mm512_broadcast_i32x4(lane_consts<Reflected, Poly, 1024>());
    const __m512i k512 = _mm512_broadcast_i32x4(lane_consts<Reflected, Poly, 512>());
    __m512i z = fold512(z0, k1536, fold512(z1, k1024, fold512(z2, k512, z3)));
    for (; n >= 64; n -= 64, p += 64) z = fold512(z, k512, load(p));
    // Lanes 0..2 move 384, 256 and 128 bits forward onto lane 3.
    const __m512i kl = lanes<Reflected, Poly, 384, 256, 128, 0>();
    const __m512i t = _mm512_xor_si512(_mm512_clmulepi64_epi128(z, kl, 0x00), _mm512_clmulepi64_epi128(z, kl, 0x11));
    const __m256i t2 = _mm256_xor_si256(_mm512_castsi512_si256(t), _mm512_extracti64x4_epi64(t, 1));
    return _mm_ternarylogic_epi64(_mm256_castsi256_si128(t2), _mm256_extracti128_si256(t2, 1),
                                  _mm512_extracti32x4_epi32(z, 3), 0x96);
}

}  // namespace

NUX_TARGET_VPCLMUL Nux32u crc32_vpclmul(Nux32u c, const Nux8u* p, size_t n) {
    if (n < kWideFoldMin) return crc32_pclmul(c, p, n);
    const size_t bulk = n & ~size_t(63);
    const __m128i x = fold_bulk<true, kPolyCrc32>(c, p, bulk);
    c = finish_reflected(reduce_reflected(x, refl_reduce_consts<kPolyCrc32>()), kCrc32Tables[0]);
    return n > bulk ? crc32_pclmul(c, p + bulk, n - bulk) : c;
}

NUX_TARGET_VPCLMUL Nux32u crc32c_vpclmul(Nux32u c, const Nux8u* p, size_t n) {
    if (n < kWideFoldMin) return crc32c_hw_clmul(c, p, n);
    const size_t bulk = n & ~size_t(63);
    const __m128i x = fold_bulk<true, kPolyCrc32c>(c, p, bulk);
    // The CRC32 instruction over the reduced word is the eight byte steps.
    c = Nux32u(_mm_crc32_u64(0, reduce_reflected(x, refl_reduce_consts<kPolyCrc32c>())));
    return n > bulk ? crc32c_hw_clmul(c, p + bulk, n - bulk) : c;
}

NUX_TARGET_VPCLMUL Nux32u bzip2_vpclmul(Nux32u c, const Nux8u* p, size_t n) {
    if (n < kWideFoldMin) return bzip2_pclmul(c, p, n);
    const size_t bulk = n & ~size_t(63);
    const __m128i x = fold_bulk<false, kPolyBzip2>(c, p, bulk);
    c = finish_normal(reduce_normal(x, normal_reduce_consts<kPolyBzip2>()), kBzip2Table);
    return n > bulk ? bzip2_pclmul(c, p + bulk, n - bulk) : c;
}

}  // namespace nux::checksum
