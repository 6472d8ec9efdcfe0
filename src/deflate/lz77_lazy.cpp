// Lazy LZ77 parse: the match found at p - 1 is held back for one position and
// sent only when p offers nothing strictly longer; otherwise the byte at p - 1
// becomes a literal and the longer match is carried instead. This is what
// levels with units digit 5..9 use; it finds the parse that a greedy choice of
// a slightly shorter earlier match would miss.
//
// Invariant of the loop: `pending` says that the byte at offset i - 1 has been
// searched but not yet sent; `prev_len`/`prev_dist` hold its match (prev_len <
// 4: no usable match). Each turn sends at most one symbol, and the pending
// symbol after the loop one more, so the loop runs while two slots are free.
#include <algorithm>

#include "deflate/lz77_parse.h"

namespace nux::deflate {

namespace {

template <typename Hist>
NuxStatus lazy(const Lz77Call& c, int32_t pos0, Hist hist) {  // by value: a local the symbol stores cannot alias
    const uint8_t* src = *c.ppSrc;
    const Span sp = span_of(*c.pSrcLen, c.flush);
    const uint32_t hmask = c.hashSize - 1, win = c.winSize, wmask = win - 1;
    int32_t* head = c.pHashHead;
    int32_t* chain = c.pHashChain;
    const int depth = c.params.chainDepth, shorten = c.params.shortenLength;
    const int enough = c.params.enoughLength, no_search = c.params.lazyInsertLimit;

    auto insert_range = [&](int64_t from, int64_t last) {
        last = std::min<int64_t>(last, sp.n - 4);
        for (int64_t q = from; q <= last; ++q) insert_crc(src + q, pos0 + int32_t(q), head, chain, hmask, wmask);
    };

    SymbolWriter sym(c);
    int64_t i = 0;
    bool pending = false;
    int prev_len = 0, prev_dist = 0;
    // The hash of position i: found one position ahead, where it also serves
    // the prefetch, whenever the parse moves on by one.
    uint32_t h = sp.code_end > 0 ? crc_hash(src, hmask) : 0;
    while (i < sp.code_end && sym.has_room(2)) {
        const int32_t p = pos0 + int32_t(i);
        const uint8_t* cur = src + i;
        const int32_t cand = insert_hashed(h, p, head, chain, wmask);
        if (i + 1 < sp.code_end) {
            h = crc_hash(cur + 1, hmask);
            __builtin_prefetch(head + h);
        }
        const int limit = int(std::min<int64_t>(rfc1951::kMaxMatch, sp.n - i));
        const int start = prev_len >= 4 ? prev_len : 3;
        int best = start, best_dist = 0;
        if (prev_len < no_search && start < limit) {
            // The lazy parse sets its budget per position and never cuts it mid-walk.
            const int budget = prev_len >= shorten ? depth >> 2 : depth;
            const Match m = walk_chain(hist, chain, wmask, win, cur, p, cand, budget, limit, INT32_MAX, enough, start);
            best = m.len, best_dist = m.dist;
        }
        if (pending && prev_len >= 4 && best == start) {
            // Nothing longer here: the held match from i - 1 goes out.
            sym.match(prev_len, prev_dist);
            if (i + prev_len - 1 < sp.code_end) {
                h = crc_hash(src + i + prev_len - 1, hmask);
                __builtin_prefetch(head + h);
            }
            insert_range(i + 1, i + prev_len - 2);
            i += prev_len - 1;
            pending = false;
            prev_len = 0;
            continue;
        }
        if (pending) sym.literal(src[i - 1]);
        pending = true;
        prev_len = best > start ? best : 0;
        prev_dist = best_dist;
        ++i;
    }
    if (pending) {
        if (prev_len >= 4) {
            sym.match(prev_len, prev_dist);
            insert_range(i + 1, i + prev_len - 2);
            i += prev_len - 1;
        } else {
            sym.literal(src[i - 1]);
        }
    }
    return finish_chained(c, sp, pos0, i, sym);
}

}  // namespace

NuxStatus lz77_lazy(const Lz77Call& c) {
    const int32_t pos0 = rebase_if_needed(c, true);
    // Without a position that has the full lookahead, or without room for a
    // deferred decision, the call falls back to a plain greedy walk.
    if (*c.pSlotsLeft < 2 || *c.pSrcLen <= kLookahead) return greedy_chained(c, pos0, true);
    if (*c.ppSrc == c.pWindow) return lazy(c, pos0, ContiguousHistory(*c.ppSrc, pos0));
    return lazy(c, pos0, History(*c.ppSrc, c.pWindow, pos0));
}

}  // namespace nux::deflate
