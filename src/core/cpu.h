// Processor features and cache size, detected once when the library loads.
//
// The feature masks of the carry-less multiply and CRC32 instructions are the
// ones every dispatching function passes; the wider ones select the optional
// faster kernels. A wide-vector bit is reported only when the OS saves the
// corresponding register state (XGETBV), so a kernel never faults on a kernel
// that does not context-switch ZMM registers.
#pragma once

#include "nuxzo.h"

namespace nux {

enum : Nux64u {
    kFeatureSse42Crc = 0x80,       // CRC32 instruction (SSE4.2)
    kFeaturePclmul = 0x800,        // PCLMULQDQ
    kFeatureAvx2 = 1ull << 32,     // AVX2 with OS-saved YMM state
    kFeatureAvx512 = 1ull << 33,   // AVX-512 F, BW, VL with OS-saved ZMM state
    kFeatureVpclmul = 1ull << 34,  // VPCLMULQDQ on 512-bit registers (needs kFeatureAvx512)
    kFeatureAvx512Vnni = 1ull << 35,  // AVX-512 VNNI
    kFeatureBmi2 = 1ull << 36,
};

// Non-zero when every feature of `mask` is present.
int ownGetFeature(Nux64u mask);

// Largest cache size in bytes; NuxStatusFail when it cannot be determined.
NuxStatus nuxGetMaxCacheSizeB(Nux32u* pSize);

// The raw detection, for tests; ownGetFeature reads a copy made at load.
Nux64u detect_features();

}  // namespace nux
