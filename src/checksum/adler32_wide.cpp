// Adler-32 with 256- and 512-bit vectors, for processors that have them.
//
// Both kernels run four vector streams: step t loads vectors 4t+0..4t+3.
// For a vector at global index g holding bytes b[0..V-1] (V = vector width):
//   s2 += V * (sum of all bytes before vector g) + sum b[i] (V - i)
// Summed over a run of steps, with S_u the byte sum of stream u and SS_u the
// sum over steps of stream u's running total at the start of the step, the
// bytes before vector 4t+v are the four running totals plus the vectors
// u < v of the same step, so
//   s2 += V * (4 (SS_0 + SS_1 + SS_2 + SS_3) + 3 S_0 + 2 S_1 + S_2) + dots.
// Lanes stay far from overflow for 512 steps; the horizontal sums are taken
// in 64 bits and reduced once per run, so the modulo is rare.
#include <immintrin.h>

#include "checksum/kernels.h"

namespace nux::checksum {
namespace {

constexpr Nux32u kMod = 65521;
constexpr size_t kMaxSteps = 512;

struct Sums {
    Nux64u ss, s0, s1, s2, s3, dots;
};

inline void fold_run(Nux32u& a1, Nux32u& a2, size_t bytes, size_t width, const Sums& s) {
    const Nux64u s2 = a2 + Nux64u(bytes) * a1 + width * (4 * s.ss + 3 * s.s0 + 2 * s.s1 + s.s2) + s.dots;
    a1 = Nux32u((a1 + s.s0 + s.s1 + s.s2 + s.s3) % kMod);
    a2 = Nux32u(s2 % kMod);
}

__attribute__((target("avx2"))) inline Nux64u hsum_u32(__m256i v) {
    const __m256i w = _mm256_add_epi64(_mm256_cvtepu32_epi64(_mm256_castsi256_si128(v)),
                                       _mm256_cvtepu32_epi64(_mm256_extracti128_si256(v, 1)));
    const __m128i x = _mm_add_epi64(_mm256_castsi256_si128(w), _mm256_extracti128_si256(w, 1));
    return Nux64u(_mm_cvtsi128_si64(x)) + Nux64u(_mm_extract_epi64(x, 1));
}

// Through memory: once per run, and it avoids GCC 12's false
// maybe-uninitialized warnings in the 512-bit extract intrinsics.
__attribute__((target("avx512f"))) inline Nux64u hsum_u32(__m512i v) {
    alignas(64) Nux32u lanes[16];
    _mm512_store_si512(lanes, v);
    Nux64u sum = 0;
    for (Nux32u x : lanes) sum += x;
    return sum;
}

}  // namespace

__attribute__((target("avx2"))) Nux32u adler32_avx2(Nux32u adler, const Nux8u* p, size_t n) {
    if (n < kAdlerAvx2Min) return adler32_vec16(adler, p, n);
    const size_t head = (32 - (reinterpret_cast<uintptr_t>(p) & 31)) & 31;
    if (head) adler = adler32_vec16(adler, p, head);
    p += head;
    n -= head;
    Nux32u a1 = adler & 0xFFFF, a2 = adler >> 16;
    const __m256i zero = _mm256_setzero_si256();
    const __m256i ones16 = _mm256_set1_epi16(1);
    const __m256i mults = _mm256_setr_epi8(32, 31, 30, 29, 28, 27, 26, 25, 24, 23, 22, 21, 20, 19, 18, 17,
                                           16, 15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1);
    while (n >= 128) {
        const size_t steps = n / 128 < kMaxSteps ? n / 128 : kMaxSteps;
        __m256i t0 = zero, t1 = zero, t2 = zero, t3 = zero;  // running byte sums
        __m256i ss = zero, d01 = zero, d23 = zero;
        for (size_t i = 0; i < steps; ++i, p += 128) {
            const __m256i v0 = _mm256_load_si256(reinterpret_cast<const __m256i*>(p));
            const __m256i v1 = _mm256_load_si256(reinterpret_cast<const __m256i*>(p + 32));
            const __m256i v2 = _mm256_load_si256(reinterpret_cast<const __m256i*>(p + 64));
            const __m256i v3 = _mm256_load_si256(reinterpret_cast<const __m256i*>(p + 96));
            ss = _mm256_add_epi32(ss, _mm256_add_epi32(_mm256_add_epi32(t0, t1), _mm256_add_epi32(t2, t3)));
            t0 = _mm256_add_epi32(t0, _mm256_sad_epu8(v0, zero));
            t1 = _mm256_add_epi32(t1, _mm256_sad_epu8(v1, zero));
            t2 = _mm256_add_epi32(t2, _mm256_sad_epu8(v2, zero));
            t3 = _mm256_add_epi32(t3, _mm256_sad_epu8(v3, zero));
            const __m256i p0 = _mm256_add_epi16(_mm256_maddubs_epi16(v0, mults), _mm256_maddubs_epi16(v1, mults));
            const __m256i p1 = _mm256_add_epi16(_mm256_maddubs_epi16(v2, mults), _mm256_maddubs_epi16(v3, mults));
            d01 = _mm256_add_epi32(d01, _mm256_madd_epi16(p0, ones16));
            d23 = _mm256_add_epi32(d23, _mm256_madd_epi16(p1, ones16));
        }
        Sums s{hsum_u32(ss), hsum_u32(t0), hsum_u32(t1), hsum_u32(t2), hsum_u32(t3),
               hsum_u32(_mm256_add_epi32(d01, d23))};
        fold_run(a1, a2, steps * 128, 32, s);
        n -= steps * 128;
    }
    return adler32_vec16(a2 << 16 | a1, p, n);
}

__attribute__((target("avx512f,avx512bw,avx512vnni"))) Nux32u adler32_avx512vnni(Nux32u adler,
                                                                                   const Nux8u* p, size_t n) {
    if (n < kAdlerAvx512Min) return adler32_vec16(adler, p, n);
    const size_t head = (64 - (reinterpret_cast<uintptr_t>(p) & 63)) & 63;
    if (head) adler = adler32_vec16(adler, p, head);
    p += head;
    n -= head;
    Nux32u a1 = adler & 0xFFFF, a2 = adler >> 16;
    alignas(64) static constexpr Nux8u kWeights[64] = {
        64, 63, 62, 61, 60, 59, 58, 57, 56, 55, 54, 53, 52, 51, 50, 49, 48, 47, 46, 45, 44, 43,
        42, 41, 40, 39, 38, 37, 36, 35, 34, 33, 32, 31, 30, 29, 28, 27, 26, 25, 24, 23, 22, 21,
        20, 19, 18, 17, 16, 15, 14, 13, 12, 11, 10, 9,  8,  7,  6,  5,  4,  3,  2,  1};
    const __m512i mults = _mm512_load_si512(kWeights);
    const __m512i ones = _mm512_set1_epi8(1);
    const __m512i zero = _mm512_setzero_si512();
    while (n >= 256) {
        const size_t steps = n / 256 < kMaxSteps ? n / 256 : kMaxSteps;
        __m512i t0 = zero, t1 = zero, t2 = zero, t3 = zero;
        __m512i ss0 = zero, ss1 = zero, d0 = zero, d1 = zero, d2 = zero, d3 = zero;
        for (size_t i = 0; i < steps; ++i, p += 256) {
            const __m512i v0 = _mm512_load_si512(p);
            const __m512i v1 = _mm512_load_si512(p + 64);
            const __m512i v2 = _mm512_load_si512(p + 128);
            const __m512i v3 = _mm512_load_si512(p + 192);
            ss0 = _mm512_add_epi32(ss0, _mm512_add_epi32(t0, t1));
            ss1 = _mm512_add_epi32(ss1, _mm512_add_epi32(t2, t3));
            t0 = _mm512_dpbusd_epi32(t0, v0, ones);
            t1 = _mm512_dpbusd_epi32(t1, v1, ones);
            t2 = _mm512_dpbusd_epi32(t2, v2, ones);
            t3 = _mm512_dpbusd_epi32(t3, v3, ones);
            d0 = _mm512_dpbusd_epi32(d0, v0, mults);
            d1 = _mm512_dpbusd_epi32(d1, v1, mults);
            d2 = _mm512_dpbusd_epi32(d2, v2, mults);
            d3 = _mm512_dpbusd_epi32(d3, v3, mults);
        }
        Sums s{hsum_u32(ss0) + hsum_u32(ss1), hsum_u32(t0), hsum_u32(t1), hsum_u32(t2), hsum_u32(t3),
               hsum_u32(_mm512_add_epi32(_mm512_add_epi32(d0, d1), _mm512_add_epi32(d2, d3)))};
        fold_run(a1, a2, steps * 256, 64, s);
        n -= steps * 256;
    }
    return adler32_vec16(a2 << 16 | a1, p, n);
}

}  // namespace nux::checksum
