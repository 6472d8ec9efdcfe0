// LZ4 block format facts and the small helpers shared by the LZ4 encoders
// and decoders.
//
// A block is a series of sequences. Each sequence is a token byte (high
// nibble: literal count, low nibble: match length - 4), literal-length
// extension bytes when the high nibble is 15, the literals, a 16-bit
// little-endian offset and match-length extension bytes when the low nibble
// is 15. An extension adds its bytes to the length; a 255 means that another
// byte follows. The last sequence of a block holds literals only.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/unaligned.h"
#include "nuxzo.h"

namespace nux::lz4 {

constexpr int kMinMatch = 4;
constexpr int kMaxDistance = 65535;
// No match search starts 28 bytes or fewer before the end of the source, and
// no match runs into its last 5 bytes: every block ends in a literal run,
// which lets decoders copy ahead near the end without checks.
constexpr int kSearchEndMargin = 28;
constexpr int kLastLiterals = 5;
// Size of the caller's hash table for every encoder.
constexpr int kHashTableBytes = 16384;

inline __m128i load128(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
inline void store128(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }
inline void copy16(void* d, const void* s) { store128(d, load128(s)); }

// The match-finder hash: one CRC-32C step over the four bytes at p with the
// fifth byte as the initial value, so five bytes decide the bucket.
inline uint32_t hash5(const uint8_t* p, uint32_t mask) { return _mm_crc32_u32(p[4], load32(p)) & mask; }

// Number of equal leading bytes of p and ref, comparing no byte at or past
// `limit` on p's side. Eight bytes first (most matches are short), then
// sixteen at a time.
inline size_t count_equal(const uint8_t* p, const uint8_t* ref, const uint8_t* limit) {
    const uint8_t* const start = p;
    if (p + 8 <= limit) {
        const uint64_t x = load64(p) ^ load64(ref);
        if (x) return size_t(__builtin_ctzll(x) >> 3);
        p += 8;
        ref += 8;
        while (p + 16 <= limit) {
            const unsigned neq =
                unsigned(_mm_movemask_epi8(_mm_cmpeq_epi8(load128(p), load128(ref)))) ^ 0xFFFFu;
            if (neq) return size_t(p - start) + unsigned(__builtin_ctz(neq));
            p += 16;
            ref += 16;
        }
        if (p + 8 <= limit) {
            const uint64_t y = load64(p) ^ load64(ref);
            if (y) return size_t(p - start) + size_t(__builtin_ctzll(y) >> 3);
            p += 8;
            ref += 8;
        }
    }
    while (p < limit && *p == *ref) {
        ++p;
        ++ref;
    }
    return size_t(p - start);
}

// count_equal for p at least 8 bytes before limit.
inline size_t count_equal_far(const uint8_t* p, const uint8_t* ref, const uint8_t* limit) {
    const uint64_t x = load64(p) ^ load64(ref);
    if (x) return size_t(__builtin_ctzll(x) >> 3);
    return 8 + count_equal(p + 8, ref + 8, limit);
}

}  // namespace nux::lz4
