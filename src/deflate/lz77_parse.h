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

// The chained greedy parse; `plain` is the lazy finder's fallback walk.
NuxStatus greedy_chained(const Lz77Call& c, int32_t pos0, bool plain);

}  // namespace nux::deflate
