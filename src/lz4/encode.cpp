// Exported LZ4 block encoders with a caller-owned hash table.
#include "core/args.h"
#include "core/memory.h"
#include "lz4/encode.h"
#include "lz4/lz4_common.h"

namespace nux::lz4 {
namespace {

// The default and safe encoders use 4096 entries: 16-bit below 64 KiB of
// source, 32-bit from there on.
void clear_default_table(Nux8u* table, int srcLen) {
    zero_bytes(table, srcLen < kShortSourceLimit ? 4096 * 2 : 4096 * 4);
}

EncodeResult encode_default(const EncodeJob& job) {
    if (job.len < kShortSourceLimit)
        return encode_block<uint16_t, 12, Search::kDefault, Source::kPlain, false>(job);
    return encode_block<int32_t, 12, Search::kDefault, Source::kPlain, false>(job);
}

}  // namespace
}  // namespace nux::lz4

using namespace nux::lz4;

extern "C" NUX_API NuxStatus nuxsEncodeLZ4HashTableGetSize_8u(int* pHashTableSize) {
    NUX_CHECK_PTRS(pHashTableSize);
    *pHashTableSize = kHashTableBytes;
    return NuxStatusOk;
}

extern "C" NUX_API NuxStatus nuxsEncodeLZ4HashTableInit_8u(Nux8u* pHashTable, int srcLen) {
    NUX_CHECK_PTRS(pHashTable);
    NUX_CHECK_SIZE(srcLen >= 1);
    nux::zero_bytes(pHashTable, srcLen < kShortSourceLimit ? kHashTableBytes / 2 : kHashTableBytes);
    return NuxStatusOk;
}

extern "C" NUX_API NuxStatus nuxsEncodeLZ4_8u(const Nux8u* pSrc, int srcLen, Nux8u* pDst, int* pDstLen,
                                               Nux8u* pHashTable) {
    // Every block starts from a clean table, cleared before anything else.
    NUX_CHECK_PTRS(pHashTable);
    clear_default_table(pHashTable, srcLen);
    NUX_CHECK_PTRS(pSrc, pDst, pDstLen, pHashTable);
    NUX_CHECK_SIZE(srcLen >= 1);
    EncodeJob job;
    job.src = pSrc;
    job.len = srcLen;
    job.dst = pDst;
    job.table = pHashTable;
    *pDstLen = encode_default(job).written;
    return NuxStatusOk;
}

extern "C" NUX_API NuxStatus nuxsEncodeLZ4Safe_8u(const Nux8u* pSrc, int* pSrcLen, Nux8u* pDst, int* pDstLen,
                                                   Nux8u* pHashTable) {
    NUX_CHECK_PTRS(pSrcLen);
    NUX_CHECK_PTRS(pHashTable);
    clear_default_table(pHashTable, *pSrcLen);
    NUX_CHECK_PTRS(pSrc, pDst, pDstLen, pHashTable);
    NUX_CHECK_SIZE(*pSrcLen >= 1);
    NUX_CHECK_SIZE(*pDstLen >= 1);
    EncodeJob job;
    job.src = pSrc;
    job.len = *pSrcLen;
    job.dst = pDst;
    job.cap = *pDstLen;
    job.table = pHashTable;
    const EncodeResult r = job.len < kShortSourceLimit
                               ? encode_block<uint16_t, 12, Search::kDefault, Source::kPlain, true>(job)
                               : encode_block<int32_t, 12, Search::kDefault, Source::kPlain, true>(job);
    const bool all = r.consumed == *pSrcLen;
    *pSrcLen = r.consumed;
    *pDstLen = r.written;
    return all ? NuxStatusOk : NuxStatusDstFull;
}

extern "C" NUX_API NuxStatus nuxsEncodeLZ4Fast_8u(const Nux8u* pSrc, int srcLen, Nux8u* pDst, int* pDstLen,
                                                   Nux8u* pHashTable, int acceleration) {
    // Acceleration 1 is the default encoder, checks and all.
    if (acceleration == 1) return nuxsEncodeLZ4_8u(pSrc, srcLen, pDst, pDstLen, pHashTable);
    NUX_CHECK_PTRS(pSrc, pDst, pDstLen, pHashTable);
    NUX_CHECK_SIZE(srcLen >= 1);
    NUX_CHECK(acceleration > 0, NuxStatusBadAcceleration);
    // 8192 16-bit entries (13-bit hash) or 4096 32-bit entries: 16 KiB either way.
    nux::zero_bytes(pHashTable, kHashTableBytes);
    EncodeJob job;
    job.src = pSrc;
    job.len = srcLen;
    job.dst = pDst;
    job.table = pHashTable;
    job.accel = acceleration;
    *pDstLen = srcLen < kShortSourceLimit
                   ? encode_block<uint16_t, 13, Search::kFast, Source::kPlain, false>(job).written
                   : encode_block<int32_t, 12, Search::kFast, Source::kPlain, false>(job).written;
    return NuxStatusOk;
}
