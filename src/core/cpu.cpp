#include "cpu.h"

#include <cpuid.h>
#include <initializer_list>
#include <unistd.h>

namespace nux {
namespace {

Nux64u xgetbv0() {
    Nux32u lo, hi;
    __asm__ volatile("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
    return (Nux64u(hi) << 32) | lo;
}

// Largest data or unified cache over the deterministic cache-parameter leaves:
// leaf 4 on Intel, 0x8000001D on AMD; the OS's figure when neither answers.
Nux32u detect_max_cache_size() {
    Nux64u best = 0;
    unsigned a, b, c, d;
    for (unsigned leaf : {4u, 0x8000001Du}) {
        if (unsigned(__get_cpuid_max(leaf & 0x80000000u, nullptr)) < leaf) continue;
        for (unsigned i = 0; i < 16; ++i) {
            __cpuid_count(leaf, i, a, b, c, d);
            if ((a & 0x1F) == 0) break;  // no more caches
            Nux64u ways = ((b >> 22) & 0x3FF) + 1, parts = ((b >> 12) & 0x3FF) + 1;
            Nux64u line = (b & 0xFFF) + 1, sets = Nux64u(c) + 1;
            Nux64u size = ways * parts * line * sets;
            if (size > best) best = size;
        }
    }
    if (best == 0) {
        long os = sysconf(_SC_LEVEL3_CACHE_SIZE);
        if (os <= 0) os = sysconf(_SC_LEVEL2_CACHE_SIZE);
        if (os > 0) best = Nux64u(os);
    }
    return best > 0xFFFFFFFFu ? 0xFFFFFFFFu : Nux32u(best);
}

}  // namespace

Nux64u detect_features() {
    unsigned a, b, c, d;
    Nux64u f = 0;
    if (!__get_cpuid(1, &a, &b, &c, &d)) return 0;
    if (c & bit_SSE4_2) f |= kFeatureSse42Crc;
    if (c & bit_PCLMUL) f |= kFeaturePclmul;
    const bool osxsave = c & bit_OSXSAVE;
    const Nux64u xcr0 = osxsave ? xgetbv0() : 0;
    const bool ymm_saved = (xcr0 & 0x6) == 0x6;
    const bool zmm_saved = (xcr0 & 0xE6) == 0xE6;
    if (__get_cpuid_max(0, nullptr) >= 7) {
        __cpuid_count(7, 0, a, b, c, d);
        if (b & bit_BMI2) f |= kFeatureBmi2;
        if (ymm_saved && (b & bit_AVX2)) f |= kFeatureAvx2;
        const unsigned avx512 = bit_AVX512F | bit_AVX512BW | bit_AVX512VL;
        if (zmm_saved && (b & avx512) == avx512) {
            f |= kFeatureAvx512;
            if (c & bit_VPCLMULQDQ) f |= kFeatureVpclmul;
            if (c & bit_AVX512VNNI) f |= kFeatureAvx512Vnni;
        }
    }
    return f;
}

namespace {
// Read-only after load: dynamic initialisation runs when the library loads.
const Nux64u g_features = detect_features();
const Nux32u g_max_cache_size = detect_max_cache_size();
}  // namespace

int ownGetFeature(Nux64u mask) { return (g_features & mask) == mask; }

NuxStatus nuxGetMaxCacheSizeB(Nux32u* pSize) {
    if (!pSize) return NuxStatusNullPtr;
    if (g_max_cache_size == 0) return NuxStatusFail;
    *pSize = g_max_cache_size;
    return NuxStatusOk;
}

}  // namespace nux
