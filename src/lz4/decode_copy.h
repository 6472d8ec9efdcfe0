// Exact match copies shared by both decoder loops. An LZ4 match copies
// byte by byte from `offset` bytes back, so when the offset is shorter than
// the length the copy repeats its own output: every routine here gives the
// result of that front-to-back byte copy and writes no byte past the end.
#pragma once

#include <cstring>

#include "lz4/decode.h"
#include "lz4/lz4_common.h"

namespace nux::lz4 {

// n bytes from `from` to `to`, front to back, where `from` may lie less than
// n bytes before `to` (the overlap repeats the pattern).
inline void copy_forward_exact(uint8_t* to, const uint8_t* from, size_t n) {
    const size_t off = size_t(to - from);
    if (to <= from || off >= n) {
        if (to != from) std::memmove(to, from, n);
        return;
    }
    if (off >= 8) {
        while (n >= 8) {
            store64(to, load64(from));
            to += 8;
            from += 8;
            n -= 8;
        }
        while (n--) *to++ = *from++;
        return;
    }
    // Offsets 1 to 7: the period laid out once in a register, stored at
    // steps of the largest multiple of the period that fits in 8 bytes.
    uint8_t pattern[8];
    for (size_t i = 0; i < 8; ++i) pattern[i] = from[i % off];
    const size_t step = 8 - 8 % off;
    uint64_t word;
    std::memcpy(&word, pattern, 8);
    while (n >= 8) {
        store64(to, word);
        to += step;
        n -= step;
    }
    std::memcpy(to, pattern, n);
}

// n bytes of a match that starts below c.dict_limit in the separate-
// dictionary model: the part below the limit comes from the dictionary, the
// rest continues with the destination buffer from the limit on. False when
// that continuation would read bytes not decoded yet (only possible when the
// output starts inside the dictionary's range, dstIdx < dictSize).
inline bool copy_dict_match(uint8_t* op, const uint8_t* match, size_t n, const DecodeCursor& c) {
    const size_t in_dict = size_t(c.dict_limit - match);
    const uint8_t* d = c.dict + (match - c.low);
    const size_t head = n < in_dict ? n : in_dict;
    if (n > head && c.dict_limit > op + head) return false;
    // The dictionary is the caller's buffer; if it overlaps the output the
    // copy is done byte by byte, front to back.
    if (d + head <= op || op + head <= d) std::memcpy(op, d, head);
    else
        for (size_t i = 0; i < head; ++i) op[i] = d[i];
    if (n > head) copy_forward_exact(op + head, c.dict_limit, n - head);
    return true;
}

}  // namespace nux::lz4
