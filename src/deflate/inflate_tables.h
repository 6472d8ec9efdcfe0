// Decoding-table layouts shared by the Inflate table builder and the block
// decoder. Deflate sends Huffman codes most-significant bit first while the
// bit buffer is consumed from its least significant end, so every table is
// indexed by the bit-reversed code: a code of length n fills every index whose
// low n bits are its reversed code.
//
// Literal/length entries (16 bits, both layouts):
//   bits 0-3   n, the bits to consume (the whole code length, also for
//              entries of a second-level table)
//   bits 4-7   kind: 0 literal, 8 + e length symbol with e extra bits,
//              15 end of block, 1 second-level reference (general layout
//              only), 2 invalid (a hole of an incomplete set, or symbol
//              286/287 in the general and fixed tables)
//   bits 8-15  literal byte, or length base - 3; for a reference the offset
//              of the second-level table in units of two entries (every
//              second-level table has at least two entries, so offsets are
//              even) with bits 0-3 holding its index width.
//
// Short layout (kind 2): literal/length table of 2^Lmax entries at offset 0;
// distance byte table ((extra << 4) | n, 0 = no code) at kShortDistByteOffset;
// distance base table (16-bit) at kShortDistBaseOffset.
//
// General layout (kind 1): literal/length first level of 1024 entries at
// offset 0 followed by its second-level tables; distance first level of 1024
// entries at kGeneralDistOffset followed by its second-level tables. Distance
// entries (16 bits):
//   bit 15 set     finished distance: bits 0-3 code length + extra bits,
//                  bits 4-14 the distance (the extra bits are folded in;
//                  length + extra <= 10 implies distance <= 1280)
//   bit 14 set     second-level reference: bits 0-3 index width, bits 4-13
//                  offset in entries after the first level
//   otherwise      bits 0-3 code length n (0: no code here), bits 4-7 extra
//                  bit count e, bits 8-9 the leading bits m of the symbol's
//                  base: base = (m << e) + 1 (RFC 1951 distance codes 2k+4
//                  and 2k+5 start at 2^(k+1) + 1 and 3 * 2^k + 1; codes 0-3
//                  have no extra bits and m = code)
#pragma once

#include <cstddef>
#include <cstdint>

#include "deflate/rfc1951.h"
#include "nuxzo.h"

namespace nux::inflate {

inline constexpr uint32_t kLayoutFixed = 0, kLayoutGeneral = 1, kLayoutShort = 2;

inline constexpr unsigned kShortMaxLitLenBits = 11, kShortMaxDistBits = 10;
inline constexpr size_t kShortDistByteOffset = 2u << kShortMaxLitLenBits;           // 4096
inline constexpr size_t kShortDistBaseOffset = kShortDistByteOffset + (1u << kShortMaxDistBits);  // 5120
inline constexpr size_t kTableBytes = sizeof(NuxInflateHuffTable::table);
static_assert(kShortDistBaseOffset + (2u << kShortMaxDistBits) <= kTableBytes);

inline constexpr unsigned kRootBits = 10;
inline constexpr size_t kRootEntries = size_t(1) << kRootBits;
inline constexpr size_t kGeneralDistOffset = 3072;
inline constexpr size_t kGeneralLitLenEntries = kGeneralDistOffset / 2;           // 1536
inline constexpr size_t kGeneralDistEntries = (6912 - kGeneralDistOffset) / 2;    // 1920
static_assert(kGeneralDistOffset + 2 * kGeneralDistEntries <= kTableBytes);

// Leading bits of the base of distance code `symbol` (see above).
constexpr uint32_t dist_base_lead(unsigned symbol) { return symbol < 4 ? symbol : 2 | (symbol & 1); }

// A distance entry without folded extra bits.
constexpr uint16_t dist_entry(unsigned symbol, unsigned n) {
    return uint16_t(n | (rfc1951::kDistExtra[symbol] << 4) | (dist_base_lead(symbol) << 8));
}

// Literal/length entry kinds (bits 4-7).
inline constexpr uint32_t kKindLiteral = 0, kKindSubTable = 1, kKindInvalid = 2, kKindLengthBase = 8,
                          kKindEnd = 15;

inline constexpr uint16_t kDistFinished = 0x8000, kDistSubTable = 0x4000;

// The header words that the decoder keeps its sub-state in.
static_assert(offsetof(NuxInflateHuffTable, kind) == 12 && offsetof(NuxInflateHuffTable, subState) == 24 &&
              offsetof(NuxInflateHuffTable, maxLitLenBits) == 40 && offsetof(NuxInflateHuffTable, table) == 48);

// Literal/length entry of `symbol` with code length n. Symbols 286 and 287
// never occur in valid data; `strict` makes their entries invalid (general
// and fixed tables), otherwise they hold only their length (short layout).
constexpr uint16_t litlen_entry(unsigned symbol, unsigned n, bool strict) {
    if (symbol < 256) return uint16_t(n | (kKindLiteral << 4) | (symbol << 8));
    if (symbol == 256) return uint16_t(n | (kKindEnd << 4));
    if (symbol < 286) {
        const unsigned i = symbol - 257;
        return uint16_t(n | ((kKindLengthBase + rfc1951::kLengthExtra[i]) << 4) |
                        ((rfc1951::kLengthBase[i] - 3u) << 8));
    }
    return uint16_t(n | (strict ? kKindInvalid << 4 : 0));
}

// Reverses the low n bits of `code` (n <= 15).
constexpr uint32_t reverse_bits(uint32_t code, unsigned n) {
    uint32_t r = 0;
    for (unsigned i = 0; i < n; ++i) r |= ((code >> i) & 1u) << (n - 1 - i);
    return r;
}

// The fixed codes of RFC 1951 section 3.2.6 in the general layout: every code
// is at most 9 bits long, so the first levels are the whole tables. Symbols
// 286/287 and distances 30/31 have codes but are invalid in data.
struct FixedTables {
    uint16_t litlen[kGeneralLitLenEntries];  // the first level only is used
    uint16_t dist[kRootEntries];             // kGeneralDistOffset bytes after litlen
};
static_assert(offsetof(FixedTables, dist) == kGeneralDistOffset);

constexpr FixedTables make_fixed_tables() {
    FixedTables t{};
    unsigned count[16] = {}, next[16] = {};
    for (unsigned s = 0; s < 288; ++s) ++count[rfc1951::fixed_litlen_length(int(s))];
    unsigned code = 0;
    for (unsigned n = 1; n < 16; ++n) {
        code = (code + count[n - 1]) << 1;
        next[n] = code;
    }
    next[0] = 0;
    for (unsigned s = 0; s < 288; ++s) {
        const unsigned n = unsigned(rfc1951::fixed_litlen_length(int(s)));
        const uint32_t r = reverse_bits(next[n]++, n);
        for (uint32_t i = r; i < kRootEntries; i += 1u << n) t.litlen[i] = litlen_entry(s, n, true);
    }
    for (unsigned s = 0; s < 32; ++s) {
        const unsigned n = unsigned(rfc1951::kFixedDistLength);
        const uint32_t r = reverse_bits(s, n);
        if (s >= 30) continue;  // no entry: a hole, refused by the decoder
        const unsigned extra = rfc1951::kDistExtra[s];
        if (n + extra <= kRootBits) {
            for (uint32_t v = 0; v < (1u << extra); ++v)
                for (uint32_t i = r | (v << n); i < kRootEntries; i += 1u << (n + extra))
                    t.dist[i] = uint16_t(kDistFinished | ((rfc1951::kDistBase[s] + v) << 4) | (n + extra));
        } else {
            for (uint32_t i = r; i < kRootEntries; i += 1u << n) t.dist[i] = dist_entry(s, n);
        }
    }
    return t;
}

inline constexpr FixedTables kFixedTables = make_fixed_tables();
static_assert(kFixedTables.litlen[0] == litlen_entry(256, 7, true));  // code 0000000 is symbol 256
static_assert(kFixedTables.dist[0] == (kDistFinished | (1 << 4) | 5));

}  // namespace nux::inflate
