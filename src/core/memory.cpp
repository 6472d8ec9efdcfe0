#include "memory.h"

#include <immintrin.h>

#include <cstdint>

#include "cpu.h"

namespace nux {
namespace {

using u8 = unsigned char;

inline __m256i load32(const u8* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
inline void store32(u8* p, __m256i v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v); }

// Below 256 bytes: two possibly overlapping moves cover every size class, so
// there is no byte loop.
void copy_small(const u8* s, u8* d, size_t n) {
    if (n >= 32) {
        const u8* s_end = s + n - 32;
        u8* d_end = d + n - 32;
        const __m256i last = load32(s_end);
        while (s < s_end) {
            store32(d, load32(s));
            s += 32;
            d += 32;
        }
        store32(d_end, last);
    } else if (n >= 16) {
        __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s));
        __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + n - 16));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d), a);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d + n - 16), b);
    } else if (n >= 8) {
        uint64_t a, b;
        __builtin_memcpy(&a, s, 8);
        __builtin_memcpy(&b, s + n - 8, 8);
        __builtin_memcpy(d, &a, 8);
        __builtin_memcpy(d + n - 8, &b, 8);
    } else if (n >= 4) {
        uint32_t a, b;
        __builtin_memcpy(&a, s, 4);
        __builtin_memcpy(&b, s + n - 4, 4);
        __builtin_memcpy(d, &a, 4);
        __builtin_memcpy(d + n - 4, &b, 4);
    } else if (n > 0) {
        const u8 a = s[0], b = s[n / 2], c = s[n - 1];
        d[0] = a;
        d[n / 2] = b;
        d[n - 1] = c;
    }
}

// 256..32767 bytes: the first 32 bytes unaligned, then 128-byte rounds to
// 32-byte-aligned destination addresses, the last 32 bytes unaligned again.
// From 16384 bytes the rounds also prefetch the source ahead.
template <bool kPrefetch>
void copy_medium(const u8* s, u8* d, size_t n) {
    const __m256i head = load32(s), tail = load32(s + n - 32);
    u8* const d_start = d;
    u8* const d_end = d + n;
    const size_t skew = 32 - (reinterpret_cast<uintptr_t>(d) & 31);
    s += skew;
    d += skew;
    while (d + 128 <= d_end - 32) {
        if (kPrefetch) _mm_prefetch(reinterpret_cast<const char*>(s + 512), _MM_HINT_T0);
        const __m256i a = load32(s), b = load32(s + 32), c = load32(s + 64), e = load32(s + 96);
        _mm256_store_si256(reinterpret_cast<__m256i*>(d), a);
        _mm256_store_si256(reinterpret_cast<__m256i*>(d + 32), b);
        _mm256_store_si256(reinterpret_cast<__m256i*>(d + 64), c);
        _mm256_store_si256(reinterpret_cast<__m256i*>(d + 96), e);
        s += 128;
        d += 128;
    }
    while (d < d_end - 32) {
        _mm256_store_si256(reinterpret_cast<__m256i*>(d), load32(s));
        s += 32;
        d += 32;
    }
    store32(d_end - 32, tail);
    store32(d_start, head);
}

// Above 32767 bytes the string instructions win: align the destination with
// 1-, 2- and 4-byte moves, then REP MOVSQ, then the tail. The direction flag is
// forced forward and the caller's flags are restored afterwards.
void copy_large(const u8* s, u8* d, size_t n) {
    __asm__ volatile(
        "pushfq\n\t"
        "cld\n\t"
        "testq $1, %%rdi\n\t"
        "jz 1f\n\t"
        "movsb\n\t"
        "decq %%rdx\n"
        "1:\n\t"
        "testq $2, %%rdi\n\t"
        "jz 2f\n\t"
        "movsw\n\t"
        "subq $2, %%rdx\n"
        "2:\n\t"
        "testq $4, %%rdi\n\t"
        "jz 3f\n\t"
        "movsl\n\t"
        "subq $4, %%rdx\n"
        "3:\n\t"
        "movq %%rdx, %%rcx\n\t"
        "shrq $3, %%rcx\n\t"
        "rep movsq\n\t"
        "movq %%rdx, %%rcx\n\t"
        "andq $7, %%rcx\n\t"
        "rep movsb\n\t"
        "popfq\n\t"
        : "+S"(s), "+D"(d), "+d"(n)
        :
        : "rcx", "memory", "cc");
}

void zero_tail(u8* d, size_t n) {
    const __m256i z = _mm256_setzero_si256();
    if (n & 128) {
        for (int i = 0; i < 4; ++i) store32(d + 32 * i, z);
        d += 128;
    }
    if (n & 64) {
        store32(d, z);
        store32(d + 32, z);
        d += 64;
    }
    if (n & 32) {
        store32(d, z);
        d += 32;
    }
    if (n & 16) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm256_castsi256_si128(z));
        d += 16;
    }
    if (n & 8) {
        __builtin_memset(d, 0, 8);
        d += 8;
    }
    if (n & 4) {
        __builtin_memset(d, 0, 4);
        d += 4;
    }
    if (n & 2) {
        __builtin_memset(d, 0, 2);
        d += 2;
    }
    if (n & 1) *d = 0;
}

void zero_large(u8* d, size_t n) {
    __asm__ volatile(
        "pushfq\n\t"
        "cld\n\t"
        "xorl %%eax, %%eax\n\t"
        "rep stosb\n\t"
        "popfq\n\t"
        : "+D"(d), "+c"(n)
        :
        : "rax", "memory", "cc");
}

}  // namespace

void* copy_bytes(const void* src, void* dst, int len) {
    if (len <= 0) return dst;
    const u8* s = static_cast<const u8*>(src);
    u8* d = static_cast<u8*>(dst);
    const size_t n = size_t(len);
    if (n < 256)
        copy_small(s, d, n);
    else if (n < 16384)
        copy_medium<false>(s, d, n);
    else if (n <= 32767)
        copy_medium<true>(s, d, n);
    else
        copy_large(s, d, n);
    return dst;
}

void* zero_bytes(void* dst, int len) {
    if (len <= 0) return dst;
    u8* d = static_cast<u8*>(dst);
    size_t n = size_t(len);
    if (n > 32768) {
        zero_large(d, n);
        return dst;
    }
    if (n >= 256) {
        const __m256i z = _mm256_setzero_si256();
        store32(d, z);
        const size_t skew = 32 - (reinterpret_cast<uintptr_t>(d) & 31);
        d += skew;
        n -= skew;
        for (; n >= 256; n -= 256, d += 256)
            for (int i = 0; i < 8; ++i) _mm256_store_si256(reinterpret_cast<__m256i*>(d + 32 * i), z);
    }
    zero_tail(d, n);
    return dst;
}

void fill32_cached(Nux32u value, Nux32u* dst, int count) {
    if (count <= 0) return;
    const __m256i v = _mm256_set1_epi32(int(value));
    int i = 0;
    for (; i + 8 <= count; i += 8) _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i), v);
    for (; i < count; ++i) dst[i] = value;
}

void fill32_streaming(Nux32u value, Nux32u* dst, int count) {
    int i = 0;
    while (i < count && (reinterpret_cast<uintptr_t>(dst + i) & 63) != 0) dst[i++] = value;
    const __m256i v = _mm256_set1_epi32(int(value));
    for (; i + 8 <= count; i += 8) _mm256_stream_si256(reinterpret_cast<__m256i*>(dst + i), v);
    _mm_sfence();
    for (; i < count; ++i) dst[i] = value;
}

void fill32(Nux32u value, Nux32u* dst, int count) {
    Nux32u cache = 0;
    if (count >= 524289 && (reinterpret_cast<uintptr_t>(dst) & 3) == 0 &&
        nuxGetMaxCacheSizeB(&cache) == NuxStatusOk && cache > 0 &&
        Nux64u(count) * 4 > cache) {
        fill32_streaming(value, dst, count);
        return;
    }
    fill32_cached(value, dst, count);
}

NuxStatus copy_checked(const void* src, void* dst, int len) {
    if (!src || !dst) return NuxStatusNullPtr;
    if (len < 1) return NuxStatusSize;
    copy_bytes(src, dst, len);
    return NuxStatusOk;
}

}  // namespace nux
