// Exported LZ4 block decoders.
#include <cstdint>

#include "core/args.h"
#include "lz4/decode.h"

namespace nux::lz4 {
namespace {

template <History H>
NuxStatus run(const Nux8u* pSrc, int srcLen, Nux8u* out, int* pDstLen, const Nux8u* low, const Nux8u* dict,
              const Nux8u* dict_limit, int* consumed) {
    DecodeCursor c{pSrc, pSrc + srcLen, out, out + *pDstLen, low, dict, dict_limit};
    int used = 0, produced = 0;
    const NuxStatus status = decode_block<H>(c, &used, &produced);
    if (status < 0) return status;
    *pDstLen = produced;
    if (consumed) *consumed = used;
    return status;
}

// Plain decoder: back-references may reach only into this call's output.
NuxStatus decode_plain(const Nux8u* pSrc, int* pSrcLen, Nux8u* pDst, Nux8u* out, int* pDstLen) {
    NUX_CHECK_PTRS(pSrc, pSrcLen, pDst, pDstLen);
    NUX_CHECK_SIZE(*pSrcLen >= 1);
    NUX_CHECK_SIZE(*pDstLen >= 1);
    return run<History::kPlain>(pSrc, *pSrcLen, out, pDstLen, out, nullptr, nullptr, pSrcLen);
}

}  // namespace
}  // namespace nux::lz4

using namespace nux::lz4;

extern "C" NUX_API NuxStatus nuxsDecodeLZ4_8u(const Nux8u* pSrc, int srcLen, Nux8u* pDst, int* pDstLen) {
    int len = srcLen;  // consumed length is not reported
    return decode_plain(pSrc, &len, pDst, pDst, pDstLen);
}

extern "C" NUX_API NuxStatus nuxsDecodeLZ4Dict_8u(const Nux8u* pSrc, int* pSrcLen, Nux8u* pDst, int dstIdx,
                                                   int* pDstLen, const Nux8u* pDict, int dictSize) {
    // The decoder is chosen before anything is checked. Addresses are
    // compared as integers: pDst may be null here.
    const uintptr_t out_addr = uintptr_t(pDst) + uintptr_t(intptr_t(dstIdx));
    Nux8u* const out = reinterpret_cast<Nux8u*>(out_addr);
    if (pDict == nullptr || dictSize == 0) return decode_plain(pSrc, pSrcLen, pDst, out, pDstLen);
    if (uintptr_t(pDict) + uintptr_t(intptr_t(dictSize)) == out_addr) {
        // The dictionary lies just in front of the output: read it in place.
        NUX_CHECK_PTRS(pSrc, pSrcLen, pDst, pDstLen);
        NUX_CHECK_SIZE(*pSrcLen >= 1);
        NUX_CHECK_SIZE(*pDstLen >= 1);
        // (A negative size here would put the history start after the
        // output start; then the output alone is history.)
        return run<History::kPrefix>(pSrc, *pSrcLen, out, pDstLen, dictSize > 0 ? pDict : out, nullptr, nullptr,
                                     pSrcLen);
    }
    NUX_CHECK_PTRS(pSrc, pSrcLen, pDst, pDstLen);
    NUX_CHECK_SIZE(*pSrcLen >= 1);
    NUX_CHECK_SIZE(*pDstLen >= 1);
    NUX_CHECK_SIZE(dictSize >= 1);
    // The dictionary stands for pDst[0 .. dictSize): nothing before pDst is
    // history, and positions below pDst + dictSize read the dictionary.
    return run<History::kExtDict>(pSrc, *pSrcLen, out, pDstLen, pDst, pDict, pDst + dictSize, pSrcLen);
}
