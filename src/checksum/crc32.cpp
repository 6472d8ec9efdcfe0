// CRC-32 (ISO-HDLC: zlib, gzip, PNG), reflected polynomial 0xEDB88320, on the
// raw register: slicing-by-8 and 128-bit carry-less folding.
#include <cstring>

#include "checksum/clmul.h"
#include "checksum/kernels.h"
#include "checksum/tables.h"

namespace nux::checksum {
namespace {

using crc::kCrc32Tables;
constexpr auto& T = kCrc32Tables;

inline Nux32u byte_step(Nux32u c, Nux8u b) { return (c >> 8) ^ T[0][(c ^ b) & 0xFF]; }

inline Nux32u bytes_unrolled(Nux32u c, const Nux8u* p, size_t n) {
    for (; n >= 8; n -= 8, p += 8)
        for (int i = 0; i < 8; ++i) c = byte_step(c, p[i]);
    for (; n; --n) c = byte_step(c, *p++);
    return c;
}

}  // namespace

Nux32u crc32_slice8(Nux32u c, const Nux8u* p, size_t n) {
    if (n >= 15) {
        for (; reinterpret_cast<uintptr_t>(p) & 7; --n) c = byte_step(c, *p++);
        for (; n >= 8; n -= 8, p += 8) {
            const Nux64u w = load64(p);
            const Nux32u x = Nux32u(w) ^ c;
            c = T[7][x & 0xFF] ^ T[6][(x >> 8) & 0xFF] ^ T[5][(x >> 16) & 0xFF] ^ T[4][x >> 24] ^
                T[3][(w >> 32) & 0xFF] ^ T[2][(w >> 40) & 0xFF] ^ T[1][(w >> 48) & 0xFF] ^ T[0][w >> 56];
        }
    }
    for (; n; --n) c = byte_step(c, *p++);
    return c;
}

// Reflected 128-bit folding. Leading zero bytes leave a zero register
// unchanged, so the register is XORed into the first message bytes and the
// message is extended down to the aligned block with zeros: every load after
// that is aligned and no head loop is needed.
NUX_TARGET_PCLMUL Nux32u crc32_pclmul(Nux32u c, const Nux8u* p, size_t n) {
    using namespace crc;
    const size_t a = reinterpret_cast<uintptr_t>(p) & 15;
    if (n < 32 - a) return bytes_unrolled(c, p, n);

    const Nux8u* q = p - a;
    size_t rem = n + a - 32;  // bytes after the first two blocks
    alignas(16) Nux8u reg[32] = {};
    std::memcpy(reg + a, &c, 4);
    const __m128i mask = _mm_loadu_si128(reinterpret_cast<const __m128i*>(kHeadMask + 16 - a));
    __m128i x0 = _mm_xor_si128(_mm_and_si128(load_first_block(q), mask),
                               _mm_load_si128(reinterpret_cast<const __m128i*>(reg)));
    __m128i x1 = _mm_xor_si128(_mm_load_si128(reinterpret_cast<const __m128i*>(q + 16)),
                               _mm_load_si128(reinterpret_cast<const __m128i*>(reg + 16)));
    q += 32;
    auto next = [&q]() {
        const __m128i v = _mm_load_si128(reinterpret_cast<const __m128i*>(q));
        q += 16;
        return v;
    };
    const __m128i k128 = refl_fold_consts<128, kPolyCrc32>();
    const __m128i k256 = refl_fold_consts<256, kPolyCrc32>();
    static_assert(refl_lo(512, kPolyCrc32) == 0x154442BD4 && refl_hi(512, kPolyCrc32) == 0x1C6E41596);
    static_assert(refl_lo(128, kPolyCrc32) == 0x1751997D0 && refl_hi(128, kPolyCrc32) == 0xCCAA009E);

    if (rem >= 32) {
        __m128i x2 = next(), x3 = next();
        rem -= 32;
        if (rem >= 64) {
            const __m128i k512 = refl_fold_consts<512, kPolyCrc32>();
            for (; rem > 256; rem -= 256)
                for (int i = 0; i < 4; ++i) {
                    x0 = _mm_xor_si128(fold128(x0, k512), next());
                    x1 = _mm_xor_si128(fold128(x1, k512), next());
                    x2 = _mm_xor_si128(fold128(x2, k512), next());
                    x3 = _mm_xor_si128(fold128(x3, k512), next());
                }
            for (; rem >= 64; rem -= 64) {
                x0 = _mm_xor_si128(fold128(x0, k512), next());
                x1 = _mm_xor_si128(fold128(x1, k512), next());
                x2 = _mm_xor_si128(fold128(x2, k512), next());
                x3 = _mm_xor_si128(fold128(x3, k512), next());
            }
        }
        x0 = _mm_xor_si128(fold128(x0, k256), x2);
        x1 = _mm_xor_si128(fold128(x1, k256), x3);
        if (rem >= 32) {
            x0 = _mm_xor_si128(fold128(x0, k256), next());
            x1 = _mm_xor_si128(fold128(x1, k256), next());
            rem -= 32;
        }
    }
    x0 = _mm_xor_si128(fold128(x0, k128), x1);
    if (rem >= 16) {
        x0 = _mm_xor_si128(fold128(x0, k128), next());
        rem -= 16;
    }
    const __m128i kred = refl_reduce_consts<kPolyCrc32>();
    static_assert(fold_reflected(64, kPolyCrc32) == 0x163CD6124);
    Nux64u v = reduce_reflected(x0, kred);
    if (rem >= 8) {
        v = reduce_reflected(_mm_set_epi64x(static_cast<long long>(load64(q)), static_cast<long long>(v)), kred);
        q += 8;
        rem -= 8;
    }
    return bytes_unrolled(finish_reflected(v, T[0]), q, rem);
}

}  // namespace nux::checksum
