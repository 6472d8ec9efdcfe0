// Adler-32 (RFC 1950, section 8.2): s1 = 1 + sum of bytes, s2 = sum of the
// s1 values after each byte, both modulo 65521, stored as s2 << 16 | s1.
//
// The modulo is the expensive part, so it is deferred: starting from values
// below 65536, 5552 bytes of 0xFF are the most that keep s2 below 2^32
// (255 n (n + 1) / 2 + (n + 1) 65535 < 2^32). The vector path reduces every
// 346 vectors (5536 bytes, the largest multiple of 16 under that limit; the
// unreduced head of up to 15 bytes still fits).
#include <immintrin.h>

#include "checksum/kernels.h"

namespace nux::checksum {
namespace {

constexpr Nux32u kMod = 65521;
constexpr size_t kChunkVectors = 346;
static_assert(kChunkVectors * 16 + 15 <= 5552 && (kChunkVectors + 1) * 16 + 15 > 5552);  // head included

// s1 += b, s2 += s1 over n bytes with no reduction.
inline void byte_loop(Nux32u& s1, Nux32u& s2, const Nux8u* p, size_t n) {
    for (; n >= 8; n -= 8, p += 8) {
        s1 += p[0]; s2 += s1;
        s1 += p[1]; s2 += s1;
        s1 += p[2]; s2 += s1;
        s1 += p[3]; s2 += s1;
        s1 += p[4]; s2 += s1;
        s1 += p[5]; s2 += s1;
        s1 += p[6]; s2 += s1;
        s1 += p[7]; s2 += s1;
    }
    for (; n; --n) {
        s1 += *p++;
        s2 += s1;
    }
}

inline Nux32u hsum_epi32(__m128i v) {
    v = _mm_add_epi32(v, _mm_shuffle_epi32(v, _MM_SHUFFLE(1, 0, 3, 2)));
    v = _mm_add_epi32(v, _mm_shuffle_epi32(v, _MM_SHUFFLE(2, 3, 0, 1)));
    return Nux32u(_mm_cvtsi128_si32(v));
}

// Folds `vectors` aligned 16-byte vectors into s1, s2 and reduces both.
// Per vector: s2 += 16 s1 + sum b[i] (16 - i), s1 += sum b[i]. The 16 s1
// terms are collected as the running byte sum before each vector.
inline void vector_chunk(Nux32u& s1, Nux32u& s2, const Nux8u* p, size_t vectors) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i w_lo = _mm_setr_epi16(16, 15, 14, 13, 12, 11, 10, 9);
    const __m128i w_hi = _mm_setr_epi16(8, 7, 6, 5, 4, 3, 2, 1);
    __m128i v_s1 = zero, v_s1_before = zero, v_s2 = zero;
    for (size_t i = 0; i < vectors; ++i, p += 16) {
        const __m128i d = _mm_load_si128(reinterpret_cast<const __m128i*>(p));
        v_s1_before = _mm_add_epi32(v_s1_before, v_s1);
        v_s1 = _mm_add_epi32(v_s1, _mm_sad_epu8(d, zero));
        v_s2 = _mm_add_epi32(v_s2, _mm_madd_epi16(_mm_unpacklo_epi8(d, zero), w_lo));
        v_s2 = _mm_add_epi32(v_s2, _mm_madd_epi16(_mm_unpackhi_epi8(d, zero), w_hi));
    }
    const Nux64u s2_total = Nux64u(s2) + Nux64u(vectors) * 16 * s1 + 16 * Nux64u(hsum_epi32(v_s1_before)) +
                            hsum_epi32(v_s2);
    s1 = (s1 + hsum_epi32(v_s1)) % kMod;
    s2 = Nux32u(s2_total % kMod);
}

}  // namespace

Nux32u adler32_bytes(Nux32u adler, const Nux8u* p, size_t n) {
    Nux32u s1 = adler & 0xFFFF, s2 = adler >> 16;
    while (n) {
        const size_t k = n < 5552 ? n : 5552;
        byte_loop(s1, s2, p, k);
        s1 %= kMod;
        s2 %= kMod;
        p += k;
        n -= k;
    }
    return (s2 % kMod) << 16 | (s1 % kMod);
}

Nux32u adler32_vec16(Nux32u adler, const Nux8u* p, size_t n) {
    Nux32u s1 = adler & 0xFFFF, s2 = adler >> 16;
    if (n < 31) {
        byte_loop(s1, s2, p, n);
    } else {
        const size_t head = (16 - (reinterpret_cast<uintptr_t>(p) & 15)) & 15;
        byte_loop(s1, s2, p, head);
        p += head;
        n -= head;
        size_t vectors = n / 16;
        while (vectors >= kChunkVectors) {
            vector_chunk(s1, s2, p, kChunkVectors);
            p += kChunkVectors * 16;
            vectors -= kChunkVectors;
        }
        if (vectors) vector_chunk(s1, s2, p, vectors);
        byte_loop(s1, s2, p + vectors * 16, n % 16);
    }
    return (s2 % kMod) << 16 | (s1 % kMod);
}

}  // namespace nux::checksum
