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
    SymbolWriter sym(c);
    int64_t i = 0;
    // The hash of position i, found one position ahead (see the chained parse).
    uint32_t h = sp.code_end > 0 ? shift_hash(src, hmask) : 0;
    while (i < sp.code_end && !sym.full()) {
        const int32_t p = pos0 + int32_t(i);
        const uint8_t* cur = src + i;
        const int32_t cand = head[h];
        head[h] = p;
        if (i + 1 < sp.code_end) {
            h = shift_hash(cur + 1, hmask);
            __builtin_prefetch(head + h);
        }
        int len = 0;
        if (uint32_t(p) - uint32_t(cand) - 1u < win - 1u)
            len = hist.match(cur, cand, int(std::min<int64_t>(rfc1951::kMaxMatch, sp.n - i)));
        if (len >= 3) {
            sym.match(len, p - cand);
            if (i + len < sp.code_end) {
                h = shift_hash(src + i + len, hmask);
                __builtin_prefetch(head + h);
            }
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
        while (i < sp.n && !sym.full()) sym.literal(src[i++]);
    finish_call(c, i, sym.count());
    return NuxStatusOk;
}

// The table sizes of a chained parse: at run time, or the usual ones (64 Ki
// hash heads, a 32 KiB window) compiled in with a level row, which frees
// the registers that the masks and the window size would take.
struct RuntimeSizes {
    uint32_t hmask, win, wmask;
    explicit RuntimeSizes(const Lz77Call& c) : hmask(c.hashSize - 1), win(c.winSize), wmask(c.winSize - 1) {}
};
struct UsualSizes {
    static constexpr uint32_t hash = 65536, window = 32768;
    static constexpr uint32_t hmask = hash - 1, win = window, wmask = window - 1;
};

template <typename Hist, typename Row, typename Sizes>
NuxStatus chained(const Lz77Call& c, int32_t pos0, Hist hist, Row row, int max_len, Sizes sizes) {  // by value: a local the symbol stores cannot alias
    const uint8_t* src = *c.ppSrc;
    const Span sp = span_of(*c.pSrcLen, c.flush);
    const uint32_t hmask = sizes.hmask, win = sizes.win, wmask = sizes.wmask;
    int32_t* head = c.pHashHead;
    int32_t* chain = c.pHashChain;
    SymbolWriter sym(c);
    // The hash of the position to parse next, while it is below code_end.
    uint32_t h = sp.code_end > 0 ? crc_hash(src, hmask) : 0;
    auto hash_at = [&](int64_t i) { return i < sp.code_end ? crc_hash(src + i, hmask) : 0; };
    // Parses the position at offset i and returns the offset after its
    // symbol. With `full` the position has the whole lookahead, so the match
    // limit is the constant maximum and no covered position reaches the end.
    auto step = [&](int64_t i, auto full) -> int64_t {
        const int32_t p = pos0 + int32_t(i);
        const uint8_t* cur = src + i;
        const int32_t cand = insert_hashed(h, p, head, chain, wmask);
        // The next position's hash and head entry, which a literal here
        // needs next (its four bytes exist only with the whole lookahead).
        uint32_t next = 0;
        if (full) {
            next = crc_hash(cur + 1, hmask);
            __builtin_prefetch(head + next);
        }
        const int limit = full ? rfc1951::kMaxMatch : int(std::min<int64_t>(max_len, sp.n - i));
        const Match m = walk_chain(hist, chain, wmask, win, cur, p, cand, row.depth, limit, row.shorten, row.enough, 3);
        if (m.len < 4) {
            sym.literal(*cur);
            h = full ? next : hash_at(i + 1);
            return i + 1;
        }
        // The position after the match: its head entry arrives while the
        // covered positions are inserted.
        h = hash_at(i + m.len);
        __builtin_prefetch(head + h);
        sym.match(m.len, m.dist);
        // Covered positions: all of them for short matches. A match that
        // overlaps itself (a run with period m.dist) only needs its last few
        // positions hashed, and only when the period is short enough.
        int64_t from = i + 1;
        bool insert = m.len <= row.insert_limit;
        if (m.dist < m.len) {
            from = i + std::max(m.len - m.dist, 4) - 3;
            insert = m.dist <= row.insert_limit;
        }
        if (insert) {
            const int64_t last = full ? i + m.len - 1 : std::min<int64_t>(i + m.len - 1, sp.n - 4);
            for (int64_t q = from; q <= last; ++q) insert_crc(src + q, pos0 + int32_t(q), head, chain, hmask, wmask);
        }
        return i + m.len;
    };
    const int64_t full_end = max_len == rfc1951::kMaxMatch ? std::min(sp.code_end, sp.n - kLookahead + 1) : 0;
    int64_t i = 0;
    while (i < full_end && !sym.full()) i = step(i, std::true_type{});
    while (i < sp.code_end && !sym.full()) i = step(i, std::false_type{});
    return finish_chained(c, sp, pos0, i, sym);
}

}  // namespace

NuxStatus greedy_chained(const Lz77Call& c, int32_t pos0, bool plain) {
    const NuxDeflateMatchParams& m = c.params;
    RuntimeRow row{m.chainDepth, m.shortenLength, m.enoughLength, m.lazyInsertLimit};
    int max_len = rfc1951::kMaxMatch;
    const bool single = span_of(*c.pSrcLen, c.flush).single;
    if (plain) {
        // The lazy finder's fallback: the whole chain, no cut, every covered
        // position inserted.
        row = {m.chainDepth, INT32_MAX, INT32_MAX, rfc1951::kMaxMatch};
        if (single) max_len = rfc1951::kMaxMatch - 1;
    } else if (single) {
        row.insert_limit = std::min(row.insert_limit, rfc1951::kMaxMatch - 1);
    }
    const bool contiguous = *c.ppSrc == c.pWindow;
    const bool usual = c.hashSize == UsualSizes::hash && c.winSize == UsualSizes::window;
    NuxStatus status;
    if (contiguous && usual && !plain && !single && run_level_row<false>(m, [&](auto fixed) {
            status = chained(c, pos0, ContiguousHistory(*c.ppSrc, pos0), fixed, rfc1951::kMaxMatch, UsualSizes{});
        }))
        return status;
    if (contiguous) return chained(c, pos0, ContiguousHistory(*c.ppSrc, pos0), row, max_len, RuntimeSizes(c));
    return chained(c, pos0, History(*c.ppSrc, c.pWindow, pos0), row, max_len, RuntimeSizes(c));
}

NuxStatus lz77_greedy(const Lz77Call& c) {
    const int32_t pos0 = rebase_if_needed(c, c.params.chainDepth != 0);
    if (c.params.chainDepth == 0) {
        if (*c.ppSrc == c.pWindow) return single_probe(c, pos0, ContiguousHistory(*c.ppSrc, pos0));
        return single_probe(c, pos0, History(*c.ppSrc, c.pWindow, pos0));
    }
    return greedy_chained(c, pos0, false);
}

}  // namespace nux::deflate
