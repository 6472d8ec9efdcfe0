// Hash-table maintenance of the LZ77 engine: the level rows, position
// rebasing, the preset-dictionary loader and hash insertion without parsing.
#include <algorithm>

#include "core/memory.h"
#include "deflate/lz77.h"

namespace nux::deflate {

namespace {

void shift_entries(int32_t* t, uint32_t count, int64_t delta) {
    for (uint32_t k = 0; k < count; ++k) {
        const int64_t e = std::max<int64_t>(t[k], kEmptyPos) + delta;
        t[k] = int32_t(std::max<int64_t>(e, kEmptyPos));
    }
}

}  // namespace

// Positions are signed 32-bit; once this call's positions could come near
// 2^31 the tables are moved so that the input starts at winSize. Everything
// the window still reaches keeps its distance; older entries saturate at the
// empty value.
int32_t rebase_if_needed(const Lz77Call& c, bool touch_chain) {
    const int64_t pos = *c.pSrcPos, len = *c.pSrcLen, win = c.winSize;
    if (pos + win + len >= int64_t(0x7FFFFFFF) - len && pos > win) {
        const int64_t delta = win - pos;
        shift_entries(c.pHashHead, c.hashSize, delta);
        if (touch_chain) {
            shift_entries(c.pHashChain, c.winSize, delta);
            // The chain is indexed by position modulo winSize; unless the old
            // positions were a multiple of winSize away from the new ones, the
            // links must move with their positions or every walk would follow
            // the link of some other position.
            const uint32_t shift = uint32_t(delta) & (c.winSize - 1);
            std::rotate(c.pHashChain, c.pHashChain + ((c.winSize - shift) & (c.winSize - 1)), c.pHashChain + c.winSize);
        }
        *c.pSrcPos = c.winSize;
    }
    return int32_t(*c.pSrcPos);
}

void clear_tail_links(const Lz77Call& c, int32_t first, int32_t end, int32_t input_start) {
    if (c.params.chainDepth == 0) return;
    const uint32_t wmask = c.winSize - 1;
    for (int32_t q = first; q < end; ++q) {
        int32_t& e = c.pHashChain[uint32_t(q) & wmask];
        if (e >= q || e < input_start) e = -int32_t(c.winSize);
    }
}

// Positions 0..n-258 of the dictionary go into the tables; the last 257 are
// left out because a search there could not have its full lookahead.
void dictionary_set(const Nux8u* pDict, int dictLen, Nux32s* pHashHead, Nux32u hashSize,
                    Nux32s* pHashChain, Nux8u* pWindow, Nux32u winSize, int level) {
    const int n = std::min<int64_t>(dictLen, winSize);
    nux::copy_bytes(pDict + (dictLen - n), pWindow, n);
    if (n < rfc1951::kMaxMatch) return;
    const uint32_t hmask = hashSize - 1, wmask = winSize - 1;
    const int last = n - rfc1951::kMaxMatch;
    if (level < 1) {
        for (int q = 0; q <= last; ++q) pHashHead[shift_hash(pWindow + q, hmask)] = q;
    } else {
        for (int q = 0; q <= last; ++q) insert_crc(pWindow + q, q, pHashHead, pHashChain, hmask, wmask);
    }
}

// Level exactly 0 selects the shift hash here, while the loader above uses it
// for every level below 1: a caller passing a negative level gets the shift
// hash from the loader but the CRC hash from this function.
void update_hash(const Nux8u* pSrc, Nux32u srcPos, Nux32u srcLen, Nux32s* pHashHead,
                 Nux32u hashSize, Nux32s* pHashChain, Nux32u winSize, int level) {
    const uint32_t hmask = hashSize - 1, wmask = winSize - 1;
    const int32_t pos = int32_t(srcPos);
    if (level == 0) {
        const int64_t last = int64_t(srcLen) - 3;
        for (int64_t q = 0; q <= last; ++q) pHashHead[shift_hash(pSrc + q, hmask)] = pos + int32_t(q);
    } else {
        const int64_t last = int64_t(srcLen) - 4;
        for (int64_t q = 0; q <= last; ++q)
            insert_crc(pSrc + q, pos + int32_t(q), pHashHead, pHashChain, hmask, wmask);
    }
}

}  // namespace nux::deflate
