// Every checksum kernel, reachable by the tests. The exports (exports.cpp)
// condition the caller's running value and pick one kernel per call.
//
// Conventions: Adler kernels take and return the RFC 1950 value (s2 << 16 |
// s1) and always return it reduced modulo 65521. CRC kernels take and return
// the raw register (no inversion): reflected for CRC-32 and CRC-32C, normal
// (MSB-first) for the bzip2 CRC. Kernels with a target attribute may only run
// when the named features are present.
#pragma once

#include <cstddef>

#include "nuxzo.h"

namespace nux::checksum {

// ---- Adler-32 ----
Nux32u adler32_bytes(Nux32u adler, const Nux8u* p, size_t n);   // plain byte loop
Nux32u adler32_vec16(Nux32u adler, const Nux8u* p, size_t n);   // 16-byte vectors, 5536-byte chunks
Nux32u adler32_avx2(Nux32u adler, const Nux8u* p, size_t n);    // kFeatureAvx2
Nux32u adler32_avx512vnni(Nux32u adler, const Nux8u* p, size_t n);  // kFeatureAvx512Vnni
// Lengths from which the wide Adler kernels leave the 16-byte path.
inline constexpr size_t kAdlerAvx2Min = 128;
inline constexpr size_t kAdlerAvx512Min = 256;

// ---- CRC-32 (reflected 0xEDB88320) ----
Nux32u crc32_slice8(Nux32u c, const Nux8u* p, size_t n);
Nux32u crc32_pclmul(Nux32u c, const Nux8u* p, size_t n);   // kFeaturePclmul
Nux32u crc32_vpclmul(Nux32u c, const Nux8u* p, size_t n);  // kFeatureVpclmul | kFeaturePclmul

// ---- CRC-32C (reflected 0x82F63B78) ----
Nux32u crc32c_slice4(Nux32u c, const Nux8u* p, size_t n);
Nux32u crc32c_hw_table(Nux32u c, const Nux8u* p, size_t n);  // CRC32 instruction
Nux32u crc32c_hw_clmul(Nux32u c, const Nux8u* p, size_t n);  // + kFeaturePclmul
Nux32u crc32c_vpclmul(Nux32u c, const Nux8u* p, size_t n);   // + kFeatureVpclmul

// ---- bzip2 CRC (normal 0x04C11DB7) ----
Nux32u bzip2_slice8(Nux32u c, const Nux8u* p, size_t n);
Nux32u bzip2_pclmul(Nux32u c, const Nux8u* p, size_t n);   // kFeaturePclmul
Nux32u bzip2_vpclmul(Nux32u c, const Nux8u* p, size_t n);  // kFeatureVpclmul | kFeaturePclmul

// The 512-bit folding kernels hand inputs shorter than this to the 128-bit
// kernel (or the CRC32-instruction kernel for CRC-32C) whole.
inline constexpr size_t kWideFoldMin = 256;
// From this length they also run a scalar stream beside the folding.
inline constexpr size_t kHybridMin = 2048;

}  // namespace nux::checksum
