// LZ4 block encoder internals: one search-and-emit kernel instantiated per
// table width, search schedule, history model and output discipline.
#pragma once

#include <cstdint>

#include "nuxzo.h"

namespace nux::lz4 {

enum class Search {
    kDefault,  // one-by-one probing first, then growing steps (two phases)
    kFast,     // groups of three probes at a step set by the acceleration
};

enum class Source {
    kPlain,    // the block alone
    kPrefix,   // history lies in the same buffer just before the data
    kExtDict,  // history is a separate dictionary buffer
};

struct EncodeJob {
    const uint8_t* src = nullptr;  // first byte to encode
    int len = 0;                   // bytes to encode (>= 1)
    int src_idx = 0;               // history position of src[0] (dictionary forms)
    const uint8_t* dict = nullptr; // kExtDict: the dictionary, history positions 0 ..
    int dict_size = 0;
    uint8_t* dst = nullptr;
    int cap = 0;    // limited forms: output capacity (>= 1)
    void* table = nullptr;
    int accel = 1;  // kFast: initial step
};

struct EncodeResult {
    int consumed;  // source bytes that the block encodes
    int written;   // block bytes
};

// Encodes one block. Table entries are history positions (for kPlain the
// offset from src), 16-bit for sources below 64 KiB, else 32-bit.
// Unlimited forms need the worst-case capacity len + len/255 + 16.
template <typename Entry, unsigned HashBits, Search S, Source M, bool Limited>
EncodeResult encode_block(const EncodeJob& job);

// Hash-table positions are distances from a history start: uint16_t tables
// serve sources below 65536 bytes, int32_t tables the rest.
constexpr int kShortSourceLimit = 65536;

}  // namespace nux::lz4
