// Decoding-table layouts shared by the Inflate table builder and the block
// decoder. Deflate sends Huffman codes most-significant bit first while the
// bit buffer is consumed from its least significant end, so every table is
// indexed by the bit-reversed code: a code of length n fills every index whose
// low n bits are its reversed code.
//
// Short layout (kind 2): literal/length table of 2^Lmax 16-bit entries at
// offset 0:
//   bits 0-3   n, the bits to consume
//   bits 4-7   kind: 0 literal, 8 + e length symbol with e extra bits,
//              15 end of block, 2 invalid (the hole of a lone one-bit code)
//   bits 8-15  literal byte, or length base - 3
// distance byte table ((extra << 4) | n, 0 = no code) at kShortDistByteOffset;
// distance base table (16-bit) at kShortDistBaseOffset.
//
// General layout (kind 1, and the fixed codes): literal/length table of
// 16-bit entries, a first level of 2048 entries (11 bits) followed by its
// second-level tables; distance table of 32-bit entries at kGeneralDistOffset,
// a first level of 256 entries (8 bits) followed by its second-level tables.
// Literal/length entries:
//   bit 7       literal: bits 0-3 n, the code length; bits 8-15 the byte
//   bit 6       special, bits 4-5 its kind: 1 a second-level reference (bits
//               0-3 its index width, bits 8-15 its offset in entries after
//               the first level divided by two), 2 end of block (bits 0-3 n),
//               3 a length whose extra bits did not fit (bits 0-3 n, bits
//               8-12 the length code = symbol - 257, bits 13-15 the
//               extra-bit count), 0 an invalid code (a hole of a lone
//               one-bit code, symbol 286/287)
//   neither     length: bits 0-4 t, the code length plus the extra bits
//               folded in; bits 8-15 the finished length - 3. A length code
//               with extra bits has one entry per value of them while t fits
//               the first level (11 bits), so that the entry is the length.
// In literal and length entries bit 5 is clear: the low six bits are the
// bits the symbol takes, so the decoder can shift by the entry itself.
// Distance entries:
//   bit 15 set     second-level reference: bits 0-3 index width, bits 16-31
//                  offset in entries after the first level
//   otherwise      bits 0-4 t, the bits to consume (code length + extra
//                  bits), bits 8-11 n, the code length, bits 16-31 the base.
//                  The distance is base + ((low t bits) >> n) for every
//                  entry: codes whose extra bits fit into the first level
//                  have them folded in (one entry per extra value, base =
//                  the finished distance, n = t). 0: no code here, which
//                  decodes as distance 0.
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

// Sizes: a complete code of 288 symbols with an 11-bit first level needs at
// most 2342 entries in all, one of 32 symbols with an 8-bit first level at
// most 402 (the worst cases over all complete canonical codes of lengths
// <= 15: long codes take the end of the code space in order of length). The
// literal/length capacity keeps every second-level offset below 512, so that
// it fits its entry as offset / 2 in 8 bits.
inline constexpr unsigned kLitRootBits = 11, kDistRootBits = 8;
inline constexpr size_t kLitRootEntries = size_t(1) << kLitRootBits;
inline constexpr size_t kDistRootEntries = size_t(1) << kDistRootBits;
inline constexpr size_t kGeneralLitLenEntries = 2342;
inline constexpr size_t kGeneralDistOffset = 2 * kGeneralLitLenEntries;              // 4684
inline constexpr size_t kGeneralDistEntries = (kTableBytes - kGeneralDistOffset) / 4;  // 621
static_assert(kGeneralDistEntries >= 402 && kGeneralDistOffset % 4 == 0);
static_assert(kGeneralLitLenEntries - kLitRootEntries < 512);

// A distance entry: `total` bits consumed, `n` of them the code, `base`.
constexpr uint32_t dist_entry(uint32_t base, unsigned n, unsigned total) {
    return (base << 16) | (n << 8) | total;
}

// Extra bits of distance `symbol` folded into its entries when its code is n
// bits long: all of them when they fit the first level with the code.
constexpr unsigned general_dist_fold(unsigned symbol, unsigned n) {
    const unsigned extra = rfc1951::kDistExtra[symbol];
    return n + extra <= kDistRootBits ? extra : 0;
}

// Distance entry of `symbol` with code length n, for the value v of its
// `fold` folded extra bits.
constexpr uint32_t general_dist_entry(unsigned symbol, unsigned n, unsigned fold = 0, unsigned v = 0) {
    if (fold) return dist_entry(rfc1951::kDistBase[symbol] + v, n + fold, n + fold);
    return dist_entry(rfc1951::kDistBase[symbol], n, n + rfc1951::kDistExtra[symbol]);
}
inline constexpr uint32_t kDistSubTable = 0x8000;

// Short-layout literal/length entry kinds (bits 4-7).
inline constexpr uint32_t kKindLiteral = 0, kKindInvalid = 2, kKindLengthBase = 8, kKindEnd = 15;

// General-layout literal/length flags and special kinds (bits 4-7).
inline constexpr uint32_t kLitFlag = 0x80, kSpecialFlag = 0x40;
inline constexpr uint32_t kSpecialInvalid = 0x40, kSpecialSubTable = 0x50, kSpecialEnd = 0x60, kSpecialLength = 0x70;

// The header words that the decoder keeps its sub-state in.
static_assert(offsetof(NuxInflateHuffTable, kind) == 12 && offsetof(NuxInflateHuffTable, subState) == 24 &&
              offsetof(NuxInflateHuffTable, maxLitLenBits) == 40 && offsetof(NuxInflateHuffTable, table) == 48);

// Short-layout literal/length entry of `symbol` with code length n. Symbols
// 286 and 287 never occur in valid data; their entries hold only their length.
constexpr uint16_t short_litlen_entry(unsigned symbol, unsigned n) {
    if (symbol < 256) return uint16_t(n | (kKindLiteral << 4) | (symbol << 8));
    if (symbol == 256) return uint16_t(n | (kKindEnd << 4));
    if (symbol < 286) {
        const unsigned i = symbol - 257;
        return uint16_t(n | ((kKindLengthBase + rfc1951::kLengthExtra[i]) << 4) |
                        ((rfc1951::kLengthBase[i] - 3u) << 8));
    }
    return uint16_t(n);
}

// Extra bits of a length symbol folded into its general-layout entries when
// its code is n bits long: all of them when they fit the first level with
// the code, else none.
constexpr unsigned general_length_fold(unsigned symbol, unsigned n) {
    if (symbol <= 256 || symbol >= 286) return 0;
    const unsigned extra = rfc1951::kLengthExtra[symbol - 257];
    return n + extra <= kLitRootBits ? extra : 0;
}

// General-layout literal/length entry of `symbol` with code length n, for
// the value v of its `fold` folded extra bits; symbols 286 and 287 are
// invalid.
constexpr uint16_t general_litlen_entry(unsigned symbol, unsigned n, unsigned fold = 0, unsigned v = 0) {
    if (symbol < 256) return uint16_t((symbol << 8) | kLitFlag | n);
    if (symbol == 256) return uint16_t(kSpecialEnd | n);
    if (symbol < 286) {
        const unsigned code = symbol - 257, extra = rfc1951::kLengthExtra[code];
        if (extra && !fold) return uint16_t((extra << 13) | (code << 8) | kSpecialLength | n);
        return uint16_t(((rfc1951::kLengthBase[code] + v - 3) << 8) | (n + fold));
    }
    return uint16_t(kSpecialInvalid | n);
}
inline constexpr uint16_t kGeneralInvalid = kSpecialInvalid | 1;

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
    uint32_t dist[kDistRootEntries];         // kGeneralDistOffset bytes after litlen
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
    // Every code is in the first level: each symbol fills the entries whose
    // low n + fold bits are its reversed code and a value of its folded bits.
    auto place = [](auto* table, uint32_t size, uint32_t r, unsigned n, unsigned fold, auto entry) {
        for (uint32_t v = 0; v < (1u << fold); ++v)
            for (uint32_t i = r | (v << n); i < size; i += 1u << (n + fold)) table[i] = entry(v);
    };
    for (unsigned s = 0; s < 288; ++s) {
        const unsigned n = unsigned(rfc1951::fixed_litlen_length(int(s)));
        const unsigned fold = general_length_fold(s, n);
        place(t.litlen, kLitRootEntries, reverse_bits(next[n]++, n), n, fold,
              [&](uint32_t v) { return general_litlen_entry(s, n, fold, v); });
    }
    for (unsigned s = 0; s < 30; ++s) {  // 30 and 31 get no entry: holes, refused by the decoder
        const unsigned n = unsigned(rfc1951::kFixedDistLength);
        const unsigned fold = general_dist_fold(s, n);
        place(t.dist, kDistRootEntries, reverse_bits(s, n), n, fold,
              [&](uint32_t v) { return general_dist_entry(s, n, fold, v); });
    }
    return t;
}

inline constexpr FixedTables kFixedTables = make_fixed_tables();
static_assert(kFixedTables.litlen[0] == general_litlen_entry(256, 7));  // code 0000000 is symbol 256
static_assert(kFixedTables.dist[0] == dist_entry(1, 5, 5));

// The block decoder behind nuxsInflate_8u, after its argument checks, with
// its fast loop compiled for BMI2 or without; the export picks the loop by
// the processor's features, and the tests run both.
enum class FastLoop { kPlain, kBmi2 };
NuxStatus inflate_block(FastLoop loop, const Nux8u** ppSrc, Nux32u* pSrcLen, Nux32u* pCode, Nux32u* pCodeLenBits,
                        Nux32u winIdx, Nux8u** ppDst, Nux32u* pDstLen, Nux32u dstIdx, Nux32u* pMode,
                        NuxInflateHuffTable* st);

}  // namespace nux::inflate
