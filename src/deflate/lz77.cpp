// Exports of the Deflate LZ77 engine: argument checks in the library's fixed
// order, then one worker each.
#include "core/args.h"
#include "deflate/lz77.h"

namespace {

using nux::deflate::Lz77Call;

bool window_sizes_ok(Nux32u winSize, Nux32u hashSize) {
    return winSize >= 256 && winSize <= 32768 && hashSize >= 256 && hashSize <= 65536;
}

// Pointers, sizes and the parameter record, then the finder.
NuxStatus run_finder(const Nux8u** ppSrc, Nux32u* pSrcLen, Nux32u* pSrcPos, const Nux8u* pWindow,
                     Nux32u winSize, Nux32s* pHashHead, Nux32s* pHashChain, Nux32u hashSize,
                     NuxDeflateCode* pLitFreq, NuxDeflateCode* pDistFreq, Nux8u* pLitDst,
                     Nux16u* pDistDst, Nux32u* pSlotsLeft, const NuxDeflateMatchParams* pParams,
                     Nux32s flush, bool lazy) {
    NUX_CHECK_PTRS(ppSrc, pSrcLen, pSrcPos, pWindow, pHashHead, pHashChain, pLitFreq, pDistFreq, pLitDst,
                   pDistDst, pSlotsLeft, pParams);
    NUX_CHECK_PTRS(*ppSrc);
    NUX_CHECK_SIZE(window_sizes_ok(winSize, hashSize));
    const NuxDeflateMatchParams& m = *pParams;
    NUX_CHECK_MODE(lazy ? m.chainDepth >= 1 : m.chainDepth >= 0);
    NUX_CHECK_MODE(m.chainDepth == 0 || (m.shortenLength >= 4 && m.enoughLength >= 4 && m.lazyInsertLimit >= 4));
    const Lz77Call call{ppSrc,     pSrcLen,  pSrcPos,    pWindow, winSize, pHashHead, pHashChain, hashSize,
                        pLitFreq,  pDistFreq, pLitDst,   pDistDst, pSlotsLeft, m,      flush};
    return lazy ? nux::deflate::lz77_lazy(call) : nux::deflate::lz77_greedy(call);
}

}  // namespace

extern "C" {

NUX_API NuxStatus nuxsDeflateLZ77_8u(const Nux8u** ppSrc, Nux32u* pSrcLen, Nux32u* pSrcPos,
                                     const Nux8u* pWindow, Nux32u winSize, Nux32s* pHashHead,
                                     Nux32s* pHashChain, Nux32u hashSize, NuxDeflateCode* pLitFreq,
                                     NuxDeflateCode* pDistFreq, Nux8u* pLitDst, Nux16u* pDistDst,
                                     Nux32u* pSlotsLeft, Nux32u level, Nux32s flush) {
    // The level is tested before any pointer: it indexes the row table.
    NUX_CHECK_SIZE(level <= 29);
    return run_finder(ppSrc, pSrcLen, pSrcPos, pWindow, winSize, pHashHead, pHashChain, hashSize, pLitFreq,
                      pDistFreq, pLitDst, pDistDst, pSlotsLeft, &nux::deflate::kLevelParams[level], flush,
                      nux::deflate::is_lazy_level(int(level)));
}

NUX_API NuxStatus nuxsDeflateLZ77Fast_8u(const Nux8u** ppSrc, Nux32u* pSrcLen, Nux32u* pSrcPos,
                                         const Nux8u* pWindow, Nux32u winSize, Nux32s* pHashHead,
                                         Nux32s* pHashChain, Nux32u hashSize, NuxDeflateCode* pLitFreq,
                                         NuxDeflateCode* pDistFreq, Nux8u* pLitDst, Nux16u* pDistDst,
                                         Nux32u* pSlotsLeft, const NuxDeflateMatchParams* pParams,
                                         Nux32s flush) {
    return run_finder(ppSrc, pSrcLen, pSrcPos, pWindow, winSize, pHashHead, pHashChain, hashSize, pLitFreq,
                      pDistFreq, pLitDst, pDistDst, pSlotsLeft, pParams, flush, false);
}

NUX_API NuxStatus nuxsDeflateLZ77Slow_8u(const Nux8u** ppSrc, Nux32u* pSrcLen, Nux32u* pSrcPos,
                                         const Nux8u* pWindow, Nux32u winSize, Nux32s* pHashHead,
                                         Nux32s* pHashChain, Nux32u hashSize, NuxDeflateCode* pLitFreq,
                                         NuxDeflateCode* pDistFreq, Nux8u* pLitDst, Nux16u* pDistDst,
                                         Nux32u* pSlotsLeft, const NuxDeflateMatchParams* pParams,
                                         Nux32s flush) {
    return run_finder(ppSrc, pSrcLen, pSrcPos, pWindow, winSize, pHashHead, pHashChain, hashSize, pLitFreq,
                      pDistFreq, pLitDst, pDistDst, pSlotsLeft, pParams, flush, true);
}

NUX_API NuxStatus nuxsDeflateDictionarySet_8u(const Nux8u* pDict, int dictLen, Nux32s* pHashHead,
                                              Nux32u hashSize, Nux32s* pHashChain, Nux8u* pWindow,
                                              Nux32u winSize, int level) {
    NUX_CHECK_PTRS(pDict, pHashHead, pHashChain, pWindow);
    NUX_CHECK_SIZE(window_sizes_ok(winSize, hashSize));
    if (dictLen < (level == 0 ? 3 : 4)) return NuxStatusOk;  // too short to matter: nothing changes
    nux::deflate::dictionary_set(pDict, dictLen, pHashHead, hashSize, pHashChain, pWindow, winSize, level);
    return NuxStatusOk;
}

NUX_API NuxStatus nuxsDeflateUpdateHash_8u(const Nux8u* pSrc, Nux32u srcPos, Nux32u srcLen,
                                           Nux32s* pHashHead, Nux32u hashSize, Nux32s* pHashChain,
                                           Nux32u winSize, int level) {
    NUX_CHECK_PTRS(pSrc, pHashHead, pHashChain);
    NUX_CHECK_SIZE(window_sizes_ok(winSize, hashSize));
    if (srcLen < (level == 0 ? 3u : 4u)) return NuxStatusOk;
    nux::deflate::update_hash(pSrc, srcPos, srcLen, pHashHead, hashSize, pHashChain, winSize, level);
    return NuxStatusOk;
}

}  // extern "C"
