// Greedy LZ77 parse: every position takes the best match found there at once.
//
// Two modes. With chainDepth 0 (levels 0, 10, 20) one three-byte shift-hash
// probe per position and only the head table: the cheapest parse that still
// finds runs and repeats. Otherwise the four-byte CRC hash with a chain walk
// of up to chainDepth candidates; a candidate must first pass a four-byte
// test at the end of the would-be match (offsets best-3..best), which rejects
// nearly all candidates that cannot beat the current best before any
// comparison loop runs. The minimum match of the chained mode is therefore 4.
#include <algorithm>

#include "deflate/lz77_parse.h"

namespace nux::deflate {

namespace {

template <typename Hist>
NuxStatus single_probe(const Lz77Call& c, int32_t pos0, Hist hist) {  // by value: a local the symbol stores cannot alias
    const uint8_t* src = *c.ppSrc;
    const Span sp = span_of(*c.pSrcLen, c.flush);
    const uint32_t hmask = c.hashSize - 1, win = c.winSize;
    int32_t* head = c.pHashHead;
    const uint32_t slots = *c.pSlotsLeft;
    SymbolWriter sym(c);
    int64_t i = 0;
    while (i < sp.code_end && sym.count < slots) {
        const int32_t p = pos0 + int32_t(i);
        const uint8_t* cur = src + i;
        const uint32_t h = shift_hash(cur, hmask);
        const int32_t cand = head[h];
        head[h] = p;
        if (i + 1 < sp.code_end) __builtin_prefetch(head + shift_hash(cur + 1, hmask));
        int len = 0;
        if (uint32_t(p) - uint32_t(cand) - 1u < win - 1u)
            len = hist.match(cur, cand, int(std::min<int64_t>(rfc1951::kMaxMatch, sp.n - i)));
        if (len >= 3) {
            sym.match(len, p - cand);
            // Every covered position that still has three bytes goes into the head.
            const int64_t last = std::min<int64_t>(i + len - 1, sp.n - 3);
            for (int64_t q = i + 1; q <= last; ++q) head[shift_hash(src + q, hmask)] = pos0 + int32_t(q);
            i += len;
        } else {
            sym.literal(*cur);
            ++i;
        }
    }
    if (c.flush >= 2)
        while (i < sp.n && sym.count < slots) sym.literal(src[i++]);
    finish_call(c, i, sym.count);
    return NuxStatusOk;
}

}  // namespace

namespace {

template <typename Hist>
NuxStatus chained(const Lz77Call& c, int32_t pos0, bool plain, Hist hist) {  // by value: a local the symbol stores cannot alias
    const uint8_t* src = *c.ppSrc;
    const Span sp = span_of(*c.pSrcLen, c.flush);
    const uint32_t hmask = c.hashSize - 1, win = c.winSize, wmask = win - 1;
    int32_t* head = c.pHashHead;
    int32_t* chain = c.pHashChain;
    const int depth = c.params.chainDepth;
    int max_len = rfc1951::kMaxMatch;
    int shorten = c.params.shortenLength, enough = c.params.enoughLength;
    int insert_limit = c.params.lazyInsertLimit;
    if (plain) {
        // The lazy finder's fallback: the whole chain, no cut, every covered
        // position inserted.
        shorten = enough = INT32_MAX;
        insert_limit = rfc1951::kMaxMatch;
        if (sp.single) max_len = rfc1951::kMaxMatch - 1;
    } else if (sp.single) {
        insert_limit = std::min(insert_limit, rfc1951::kMaxMatch - 1);
    }
    const uint32_t slots = *c.pSlotsLeft;
    SymbolWriter sym(c);
    PrefetchingInserter inserter{head, chain, hmask, wmask, sp.code_end};
    const ChainSearch search{chain, wmask, win, shorten, enough};
    int64_t i = 0;
    while (i < sp.code_end && sym.count < slots) {
        const int32_t p = pos0 + int32_t(i);
        const uint8_t* cur = src + i;
        int32_t cand = inserter.insert(i, cur, p);
        const int limit = int(std::min<int64_t>(max_len, sp.n - i));
        int best = 3, best_dist = 0;
        search.run(hist, cur, p, cand, depth, limit, best, best_dist);
        if (best < 4) {
            sym.literal(*cur);
            ++i;
            continue;
        }
        sym.match(best, best_dist);
        // Covered positions: all of them for short matches. A match that
        // overlaps itself (a run with period best_dist) only needs its last
        // few positions hashed, and only when the period is short enough.
        int64_t from = i + 1;
        bool insert = best <= insert_limit;
        if (best_dist < best) {
            from = i + std::max(best - best_dist, 4) - 3;
            insert = best_dist <= insert_limit;
        }
        if (insert) {
            const int64_t last = std::min<int64_t>(i + best - 1, sp.n - 4);
            for (int64_t q = from; q <= last; ++q) insert_crc(src + q, pos0 + int32_t(q), head, chain, hmask, wmask);
        }
        i += best;
    }
    return finish_chained(c, sp, pos0, i, sym, slots);
}

}  // namespace

NuxStatus greedy_chained(const Lz77Call& c, int32_t pos0, bool plain) {
    if (*c.ppSrc == c.pWindow) return chained(c, pos0, plain, ContiguousHistory{*c.ppSrc, pos0});
    return chained(c, pos0, plain, History(*c.ppSrc, c.pWindow, pos0));
}

NuxStatus lz77_greedy(const Lz77Call& c) {
    const int32_t pos0 = rebase_if_needed(c, c.params.chainDepth != 0);
    if (c.params.chainDepth == 0) {
        if (*c.ppSrc == c.pWindow) return single_probe(c, pos0, ContiguousHistory{*c.ppSrc, pos0});
        return single_probe(c, pos0, History(*c.ppSrc, c.pWindow, pos0));
    }
    return greedy_chained(c, pos0, false);
}

}  // namespace nux::deflate
