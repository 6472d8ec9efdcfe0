// Pieces shared by the greedy and the lazy parse loops.
#pragma once

#include <iterator>
#include <utility>

#include "deflate/lz77.h"

namespace nux::deflate {

// Which positions of the input one call may search.
struct Span {
    int64_t n;         // input bytes
    int64_t code_end;  // positions below this offset are hashed and searched
    bool single;       // exactly 261 bytes without flush: that one position only
};

// A search needs 261 bytes from its position on (the longest match plus the
// three bytes that hashing its last covered position reads), so without flush
// a call stops with at least 261 bytes left for the next call. A call given
// exactly 261 bytes still handles its first position, so that a caller feeding
// the minimum always makes progress. With flush the search goes on while four
// bytes remain (the CRC hash reads four); the last three are literals.
inline constexpr int64_t kLookahead = rfc1951::kMaxMatch + 3;

inline Span span_of(uint32_t len, int32_t flush) {
    Span s{int64_t(len), 0, false};
    if (flush >= 2) s.code_end = len >= 4 ? int64_t(len) - 3 : 0;
    else if (len == kLookahead) s.code_end = 1, s.single = true;
    else if (len > kLookahead) s.code_end = int64_t(len) - kLookahead;
    return s;
}

inline void finish_call(const Lz77Call& c, int64_t consumed, uint32_t symbols) {
    *c.ppSrc += consumed;
    *c.pSrcLen -= uint32_t(consumed);
    *c.pSrcPos = *c.pSrcPos + uint32_t(consumed);
    *c.pSlotsLeft -= symbols;
}

// Ends a chained parse at input offset i: with flush, once every searchable
// position is done, the last bytes go out as literals while slots last, and
// their chain links are cleared so no later search follows a stale one.
inline NuxStatus finish_chained(const Lz77Call& c, const Span& sp, int32_t pos0, int64_t i, SymbolWriter& sym) {
    const uint8_t* src = *c.ppSrc;
    if (c.flush >= 2 && i >= sp.code_end) {
        const int64_t tail_start = i;
        while (i < sp.n && !sym.full()) sym.literal(src[i++]);
        clear_tail_links(c, pos0 + int32_t(tail_start), pos0 + int32_t(i), pos0);
    }
    finish_call(c, i, sym.count());
    return NuxStatusOk;
}

// The search parameters of a parse. A row of the level table is compiled in
// as constants (FixedRow), which frees registers in the parse loops and folds
// the tests against them; parameter records of the caller's own use the same
// loops with the values at run time (RuntimeRow).
struct RuntimeRow {
    int depth, shorten, enough, insert_limit;
};
template <int Depth, int Shorten, int Enough, int InsertLimit>
struct FixedRow {
    static constexpr int depth = Depth, shorten = Shorten, enough = Enough, insert_limit = InsertLimit;
};

namespace detail {
template <bool Lazy, size_t L, typename Run>
bool run_if_row(const NuxDeflateMatchParams& m, Run& run) {
    constexpr NuxDeflateMatchParams r = kLevelParams[L];
    if constexpr (r.chainDepth == 0 || is_lazy_level(int(L)) != Lazy) {
        return false;
    } else {
        if (!same_params(m, r)) return false;
        run(FixedRow<r.chainDepth, r.shortenLength, r.enoughLength, r.lazyInsertLimit>{});
        return true;
    }
}
template <bool Lazy, typename Run, size_t... L>
bool run_if_any_row(const NuxDeflateMatchParams& m, Run& run, std::index_sequence<L...>) {
    return (run_if_row<Lazy, L>(m, run) || ...);
}
}  // namespace detail

// Calls run(FixedRow<...>{}) when `m` is a row of the level table that the
// lazy (or the greedy chained) finder serves; false when it is none.
template <bool Lazy, typename Run>
bool run_level_row(const NuxDeflateMatchParams& m, Run run) {
    return detail::run_if_any_row<Lazy>(m, run, std::make_index_sequence<std::size(kLevelParams)>{});
}

struct Match {
    int len, dist;
};

// Walks the hash chain from `cand` for a match longer than `best`, trying at
// most `budget` candidates within the window. A candidate must first repeat
// the four bytes at offsets best-3..best (the end of a would-be longer match),
// which rejects most of them before any comparison loop. When the best first
// reaches `shorten`, the remaining budget is quartered; at `enough`, or at
// the limit, the walk stops. A tie keeps the nearer candidate. Returns
// {best, 0} when nothing longer turned up.
// Always inlined, so that the constants of a compiled level row fold in.
template <typename Hist>
__attribute__((always_inline)) inline Match walk_chain(const Hist& hist, const int32_t* chain, uint32_t wmask,
                                                       uint32_t win, const uint8_t* cur, int32_t p, int32_t cand,
                                                       int budget, int limit, int shorten, int enough, int best) {
    Match m{best, 0};
    uint32_t tail = load32(cur + best - 3);
    while (uint32_t(p) - uint32_t(cand) - 1u < win - 1u && budget-- > 0) {
        if (hist.word(cand, m.len - 3) == tail) {
            const int len = hist.match(cur, cand, limit);
            if (len > m.len) {
                if (len >= shorten && m.len < shorten) budget >>= 2;
                m = {len, p - cand};
                if (len >= enough || len >= limit) break;
                tail = load32(cur + len - 3);
            }
        }
        cand = chain[uint32_t(cand) & wmask];
    }
    return m;
}

// The chained greedy parse; `plain` is the lazy finder's fallback walk.
NuxStatus greedy_chained(const Lz77Call& c, int32_t pos0, bool plain);

}  // namespace nux::deflate
