// A stream-reader source that hands the fuzz input out in pseudo-random
// pieces of 1..max_piece bytes, so that every resumption point of the
// decoder is reached.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "streams/inflate_stream.h"

struct PieceSource : nuxzo::inflate::Source {
    PieceSource(const uint8_t* d, size_t n, uint32_t seed, size_t max_piece)
        : data(d), size(n), max(max_piece), state(seed | 1) {}
    size_t read(uint8_t* buf, size_t n) override {
        state = state * 1103515245u + 12345u;
        const size_t k = std::min({n, size - at, size_t(1 + (state >> 16) % max)});
        if (k) std::memcpy(buf, data + at, k);
        at += k;
        return k;
    }
    const uint8_t* data;
    size_t size, max, at = 0;
    uint32_t state;
};
