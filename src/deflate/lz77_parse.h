// Pieces shared by the greedy and the lazy parse loops.
#pragma once

#include "deflate/lz77.h"

namespace nux::deflate {

// Which positions of the input one call may search.
struct Span {
    int64_t n;         // input bytes
    int64_t code_end;  // positions below this offset are hashed and searched
    bool single;       // exactly 261 bytes without flush: that one position only
};

// A search needs 261 bytes after its position (the longest match plus the
// three bytes that hashing its last covered position reads), so without flush
// a call stops with at least 261 bytes left for the next call. A call given
// exactly 261 bytes still handles its first position, so that a caller feeding
// the minimum always makes progress. With flush the search goes on while four
// bytes remain (the CRC hash reads four); the last three are literals.
inline Span span_of(uint32_t len, int32_t flush) {
    Span s{int64_t(len), 0, false};
    if (flush >= 2) s.code_end = len >= 4 ? int64_t(len) - 3 : 0;
    else if (len == 261) s.code_end = 1, s.single = true;
    else if (len > 261) s.code_end = int64_t(len) - 261;
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
inline NuxStatus finish_chained(const Lz77Call& c, const Span& sp, int32_t pos0, int64_t i, SymbolWriter& sym,
                                uint32_t slots) {
    const uint8_t* src = *c.ppSrc;
    if (c.flush >= 2 && i >= sp.code_end) {
        const int64_t tail_start = i;
        while (i < sp.n && sym.count < slots) sym.literal(src[i++]);
        clear_tail_links(c, pos0 + int32_t(tail_start), pos0 + int32_t(i), pos0);
    }
    finish_call(c, i, sym.count);
    return NuxStatusOk;
}

// Inserts each searched position into the CRC-hash tables and returns the
// previous head, the first chain candidate. The next position's hash is
// computed at once so its head entry can be prefetched, and reused when the
// parse moves on by one byte.
struct PrefetchingInserter {
    int32_t* head;
    int32_t* chain;
    uint32_t hmask, wmask;
    int64_t end;  // positions at or past this offset are never searched
    int64_t hashed = -1;
    uint32_t next_hash = 0;

    int32_t insert(int64_t i, const uint8_t* cur, int32_t p) {
        const uint32_t h = hashed == i ? next_hash : crc_hash(cur, hmask);
        const int32_t cand = head[h];
        chain[uint32_t(p) & wmask] = cand;
        head[h] = p;
        if (i + 1 < end) {
            next_hash = crc_hash(cur + 1, hmask);
            hashed = i + 1;
            __builtin_prefetch(head + next_hash);
        }
        return cand;
    }
};

// Walks the hash chain from `cand` for a match longer than `best`, trying at
// most `budget` candidates within the window. A candidate must first repeat
// the four bytes at offsets best-3..best (the end of a would-be longer match),
// which rejects most of them before any comparison loop. Once the best
// reaches `shorten`, the remaining budget is quartered (once); at `enough`,
// or at the input limit, the walk stops. A tie keeps the nearer candidate.
struct ChainSearch {
    const int32_t* chain;
    uint32_t wmask, win;
    int shorten, enough;

    template <typename Hist>
    __attribute__((always_inline)) void run(const Hist& hist, const uint8_t* cur, int32_t p, int32_t cand,
                                            int budget, int limit, int& best, int& best_dist) const {
        bool shortened = false;
        uint32_t tail = load32(cur + best - 3);
        while (uint32_t(p) - uint32_t(cand) - 1u < win - 1u && budget-- > 0) {
            if (hist.word(cand, best - 3) == tail) {
                const int len = hist.match(cur, cand, limit);
                if (len > best) {
                    best = len;
                    best_dist = p - cand;
                    if (best >= enough || best >= limit) break;
                    tail = load32(cur + best - 3);
                    if (!shortened && best >= shorten) {
                        budget >>= 2;
                        shortened = true;
                    }
                }
            }
            cand = chain[uint32_t(cand) & wmask];
        }
    }
};

// The chained greedy parse; `plain` is the lazy finder's fallback walk.
NuxStatus greedy_chained(const Lz77Call& c, int32_t pos0, bool plain);

}  // namespace nux::deflate
