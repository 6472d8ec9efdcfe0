// Exported LZ4 dictionary encoders: the table is kept between blocks of one
// stream, and history positions count from the dictionary's (or prefix's)
// first byte.
#include "core/args.h"
#include "core/memory.h"
#include "lz4/encode.h"
#include "lz4/lz4_common.h"

namespace nux::lz4 {
namespace {

constexpr int kDictEntries = 4096;

// Before a block, no entry may point at or past the data about to be
// encoded. The two encoders keep different limits (srcIdx - 1 and srcIdx);
// either way a candidate is validated by comparing bytes, so the limit only
// chooses which stale entries survive as harmless candidates.
void prepare_table(int32_t* table, int srcIdx, int limit) {
    if (srcIdx <= 0) {
        zero_bytes(table, kDictEntries * 4);
        return;
    }
    for (int i = 0; i < kDictEntries; ++i) {
        int32_t e = table[i];
        if (e > limit) e = limit;
        if (e < 0) e = 0;
        table[i] = e;
    }
}

template <bool Limited>
NuxStatus encode_dict(const Nux8u* pSrc, int srcIdx, int* pSrcLen, Nux8u* pDst, int* pDstLen, Nux8u* pHashTable,
                      const Nux8u* pDict, int dictSize) {
    NUX_CHECK_PTRS(pHashTable);
    prepare_table(reinterpret_cast<int32_t*>(pHashTable), srcIdx, Limited ? srcIdx : srcIdx - 1);
    const bool prefix = pDict == nullptr || dictSize == 0 || (dictSize == srcIdx && pDict + srcIdx == pSrc);
    if (!prefix) NUX_CHECK_SIZE(dictSize >= 0);
    NUX_CHECK_PTRS(pSrc, pDst, pDstLen, pHashTable, pSrcLen);
    NUX_CHECK_SIZE(*pSrcLen >= 1);
    if (Limited) NUX_CHECK_SIZE(*pDstLen >= 1);
    NUX_CHECK_MODE(srcIdx >= 0);

    EncodeJob job;
    job.src = pSrc;
    job.len = *pSrcLen;
    job.src_idx = srcIdx;
    job.dst = pDst;
    job.cap = Limited ? *pDstLen : 0;
    job.table = pHashTable;
    EncodeResult r;
    if (prefix) {
        r = encode_block<int32_t, 12, Search::kDefault, Source::kPrefix, Limited>(job);
    } else {
        job.dict = pDict;
        job.dict_size = dictSize;
        r = encode_block<int32_t, 12, Search::kDefault, Source::kExtDict, Limited>(job);
    }
    const bool all = r.consumed == *pSrcLen;
    if (Limited) *pSrcLen = r.consumed;
    *pDstLen = r.written;
    return all ? NuxStatusOk : NuxStatusDstFull;
}

}  // namespace
}  // namespace nux::lz4

using namespace nux::lz4;

extern "C" NUX_API NuxStatus nuxsEncodeLZ4DictHashTableInit_8u(Nux8u* pHashTable, int srcLen) {
    NUX_CHECK_PTRS(pHashTable);
    NUX_CHECK_SIZE(srcLen >= 1);
    nux::zero_bytes(pHashTable, kHashTableBytes);
    return NuxStatusOk;
}

extern "C" NUX_API NuxStatus nuxsEncodeLZ4LoadDict_8u(Nux8u* pHashTable, const Nux8u* pDict, int dictSize) {
    NUX_CHECK_PTRS(pHashTable, pDict);
    NUX_CHECK_SIZE(dictSize >= 1);
    // Every third position while more than 8 bytes remain: the five hashed
    // bytes and a little more are always inside the dictionary.
    int32_t* const table = reinterpret_cast<int32_t*>(pHashTable);
    for (int off = 0; dictSize - off > 8; off += 3) table[hash5(pDict + off, kDictEntries - 1)] = off;
    return NuxStatusOk;
}

extern "C" NUX_API NuxStatus nuxsEncodeLZ4Dict_8u(const Nux8u* pSrc, int srcIdx, int srcLen, Nux8u* pDst,
                                                   int* pDstLen, Nux8u* pHashTable, const Nux8u* pDict,
                                                   int dictSize) {
    return encode_dict<false>(pSrc, srcIdx, &srcLen, pDst, pDstLen, pHashTable, pDict, dictSize);
}

extern "C" NUX_API NuxStatus nuxsEncodeLZ4DictSafe_8u(const Nux8u* pSrc, int srcIdx, int* pSrcLen, Nux8u* pDst,
                                                       int* pDstLen, Nux8u* pHashTable, const Nux8u* pDict,
                                                       int dictSize) {
    return encode_dict<true>(pSrc, srcIdx, pSrcLen, pDst, pDstLen, pHashTable, pDict, dictSize);
}
