// The checksum exports: argument checks, conditioning of the running value,
// and the choice of kernel through the processor-feature query.
#include "core/args.h"
#include "core/cpu.h"
#include "checksum/kernels.h"

namespace nux::checksum {
namespace {

Nux32u adler32(Nux32u adler, const Nux8u* p, size_t n) {
    if (ownGetFeature(kFeatureAvx512Vnni)) return adler32_avx512vnni(adler, p, n);
    if (ownGetFeature(kFeatureAvx2)) return adler32_avx2(adler, p, n);
    return adler32_vec16(adler, p, n);
}

// The carry-less-multiply feature picks folding over tables; the 512-bit
// form of the instruction, when present as well, picks the wide folding
// (asked first, so the common case costs one query).
Nux32u crc32(Nux32u c, const Nux8u* p, size_t n) {
    if (ownGetFeature(kFeaturePclmul | kFeatureVpclmul)) return crc32_vpclmul(c, p, n);
    if (ownGetFeature(kFeaturePclmul)) return crc32_pclmul(c, p, n);
    return crc32_slice8(c, p, n);
}

// Carry-less multiply: the three-stream CRC32-instruction kernel with
// multiply recombination (the build assumes the instruction itself); else
// the CRC32 instruction with table recombination; else slicing-by-4.
Nux32u crc32c(Nux32u c, const Nux8u* p, size_t n) {
    if (ownGetFeature(kFeaturePclmul | kFeatureVpclmul | kFeatureSse42Crc)) return crc32c_vpclmul(c, p, n);
    if (ownGetFeature(kFeaturePclmul)) return crc32c_hw_clmul(c, p, n);
    if (ownGetFeature(kFeatureSse42Crc)) return crc32c_hw_table(c, p, n);
    return crc32c_slice4(c, p, n);
}

Nux32u bzip2(Nux32u c, const Nux8u* p, size_t n) {
    if (ownGetFeature(kFeaturePclmul | kFeatureVpclmul)) return bzip2_vpclmul(c, p, n);
    if (ownGetFeature(kFeaturePclmul)) return bzip2_pclmul(c, p, n);
    return bzip2_slice8(c, p, n);
}

}  // namespace
}  // namespace nux::checksum

using namespace nux::checksum;

// A null source is the deliberate way to start a stream; a length of zero or
// below folds nothing but still returns the value reduced.
extern "C" NUX_API NuxStatus nuxsAdler32_8u(const Nux8u* pSrc, int len, Nux32u* pAdler) {
    NUX_CHECK_PTRS(pAdler);
    if (pSrc == nullptr) {
        *pAdler = 1;
        return NuxStatusOk;
    }
    *pAdler = adler32(*pAdler, pSrc, len > 0 ? size_t(len) : 0);
    return NuxStatusOk;
}

// Finished value in and out: the register is the inverted value.
extern "C" NUX_API NuxStatus nuxsCRC32_8u(const Nux8u* pSrc, int len, Nux32u* pCRC) {
    NUX_CHECK_PTRS(pSrc, pCRC);
    NUX_CHECK_SIZE(len >= 1);
    *pCRC = ~crc32(~*pCRC, pSrc, size_t(len));
    return NuxStatusOk;
}

// Raw register in and out; only an empty piece is refused.
extern "C" NUX_API NuxStatus nuxsCRC32C_8u(const Nux8u* pSrc, Nux32u len, Nux32u* pCRC) {
    NUX_CHECK_PTRS(pSrc, pCRC);
    NUX_CHECK_SIZE(len != 0);
    *pCRC = crc32c(*pCRC, pSrc, len);
    return NuxStatusOk;
}

extern "C" NUX_API NuxStatus nuxsCRC32_BZ2_8u(const Nux8u* pSrc, int len, Nux32u* pCRC) {
    NUX_CHECK_PTRS(pSrc, pCRC);
    NUX_CHECK_SIZE(len >= 1);
    *pCRC = ~bzip2(~*pCRC, pSrc, size_t(len));
    return NuxStatusOk;
}
