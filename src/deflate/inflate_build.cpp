// Builds the decoding tables of one dynamic Deflate block from its code
// lengths (RFC 1951 section 3.2.7). The layouts are described in
// inflate_tables.h.
#include <array>
#include <cstring>

#include "core/args.h"
#include "core/memory.h"
#include "deflate/inflate_tables.h"

namespace nux::inflate {
namespace {

struct CodeSet {
    unsigned count[16] = {};  // codes of each length; count[0]: absent symbols
    unsigned firstHalf[16] = {};  // the same for the symbols below half = n / 2
    unsigned half = 0;
    unsigned maxLen = 0;
    unsigned used = 0;
};

// Counts the lengths and checks that the code is neither over-subscribed nor
// incomplete. Deflate encoders emit a single one-bit code when an alphabet
// has only one symbol in use, so that one incomplete set is accepted.
// `allowEmpty`: a set without any code passes (distances of a block without
// matches). The two halves of the symbols are counted apart: two chains of
// increments through memory instead of one, and the halves' counts let the
// canonical sort run as two chains too.
bool check_set(const Nux16u* lens, unsigned n, bool allowEmpty, CodeSet& s) {
    unsigned second[16] = {}, bad = 0;
    s.half = n / 2;
    for (unsigned i = 0; i < s.half; ++i) {
        const unsigned a = lens[i], b = lens[s.half + i];
        bad |= a | b;
        ++s.firstHalf[a & 15];
        ++second[b & 15];
    }
    if (n & 1) {
        bad |= lens[n - 1];
        ++second[lens[n - 1] & 15];
    }
    if (bad > 15) return false;
    for (unsigned len = 0; len < 16; ++len) {
        s.count[len] = s.firstHalf[len] + second[len];
        if (len && s.count[len]) s.maxLen = len;
    }
    s.used = n - s.count[0];
    if (s.used == 0) return allowEmpty;
    // left = code space used at depth n, in units of 2^-n.
    uint32_t left = 0;
    for (unsigned len = 1; len <= s.maxLen; ++len) {
        left = 2 * left + s.count[len];
        if (left > (1u << len)) return false;  // over-subscribed
    }
    if (left == (1u << s.maxLen)) return true;
    return s.used == 1 && s.maxLen == 1;
}

// First canonical code of each length (RFC 1951 section 3.2.2, step 2).
void first_codes(const CodeSet& s, uint32_t next[16]) {
    uint32_t code = 0;
    next[0] = 0;
    for (unsigned len = 1; len < 16; ++len) {
        code = (code + (len > 1 ? s.count[len - 1] : 0)) << 1;
        next[len] = code;
    }
}

constexpr std::array<uint8_t, 256> kReverseByte = [] {
    std::array<uint8_t, 256> t{};
    for (uint32_t i = 0; i < 256; ++i) t[i] = uint8_t(reverse_bits(i, 8));
    return t;
}();

inline uint32_t reversed(uint32_t code, unsigned len) {
    const uint32_t r16 = (uint32_t(kReverseByte[code & 0xFF]) << 8) | kReverseByte[code >> 8];
    return r16 >> (16 - len);
}

// Writes `entry` at every index < size whose low `len` bits equal `index`.
template <typename T>
inline void replicate(T* t, uint32_t index, unsigned len, uint32_t size, T entry) {
    const uint32_t step = 1u << len;
    uint32_t i = index;
    for (; i + 3 * step < size; i += 4 * step) {
        t[i] = entry;
        t[i + step] = entry;
        t[i + 2 * step] = entry;
        t[i + 3 * step] = entry;
    }
    for (; i < size; i += step) t[i] = entry;
}

void build_short(const Nux16u* lens, unsigned nLitLen, unsigned nDist, const CodeSet& lit, const CodeSet& dist,
                 Nux8u* area) {
    uint16_t* litTable = reinterpret_cast<uint16_t*>(area);
    const uint32_t litSize = 1u << lit.maxLen;
    uint32_t next[16];
    first_codes(lit, next);
    if (lit.used == 1)  // the lone one-bit code: index 1 is no code
        litTable[1] = uint16_t(1 | (kKindInvalid << 4));
    for (unsigned s = 0; s < nLitLen; ++s) {
        const unsigned len = lens[s];
        if (len) replicate(litTable, reversed(next[len]++, len), len, litSize, short_litlen_entry(s, len));
    }
    if (dist.used == 0) return;
    uint8_t* distBytes = area + kShortDistByteOffset;
    uint16_t* distBase = reinterpret_cast<uint16_t*>(area + kShortDistBaseOffset);
    const uint32_t distSize = 1u << dist.maxLen;
    first_codes(dist, next);
    if (dist.used == 1) {
        distBytes[1] = 0;
        distBase[1] = 0;
    }
    for (unsigned s = 0; s < nDist; ++s) {
        const unsigned len = lens[nLitLen + s];
        if (!len) continue;
        const uint32_t r = reversed(next[len]++, len);
        const uint8_t b = uint8_t((rfc1951::kDistExtra[s] << 4) | len);
        for (uint32_t i = r; i < distSize; i += 1u << len) {
            distBytes[i] = b;
            distBase[i] = rfc1951::kDistBase[s];
        }
    }
}

// Copies the first `half` entries behind themselves, 32 bytes at a time.
template <typename T>
inline void double_filled(T* t, size_t half) {
    constexpr size_t kPer32 = 32 / sizeof(T);
    if (half < kPer32) {
        for (size_t i = 0; i < half; ++i) t[half + i] = t[i];
        return;
    }
    for (size_t i = 0; i < half; i += kPer32) std::memcpy(t + half + i, t + i, 32);
}

// Fills one alphabet of the general layout: a first level of 2^kRoot
// entries followed by second-level tables, one per kRoot-bit prefix of the
// longer codes, each as wide as the longest code below its prefix.
// `fold(s, len)` is the number of extra bits of symbol s folded into its
// first-level entries, `leaf(s, len, fold, v)` its entry for the value v of
// them, `ref` the reference entry of a second-level table. The first level
// is filled by doubling: after the entries of length n are placed, the 2^n
// entries filled so far are copied behind themselves (an index's bits above
// n do not change its code), so each short code is written once; a symbol
// with folded bits counts as 2^fold codes of length n + fold. Returns false
// if the second levels do not fit (impossible for the complete sets that
// reach here, see the capacities in inflate_tables.h).
template <unsigned kRoot, typename T, typename Ref, typename Fold, typename Leaf>
bool build_general_alphabet(const Nux16u* lens, unsigned n, const CodeSet& set, T* t, size_t capacity, Ref ref,
                            Fold fold, Leaf leaf) {
    constexpr uint32_t kEntries = 1u << kRoot;
    // Symbols in canonical order (by length, then by symbol) and their codes.
    // Absent symbols are sorted behind all others; each half of the symbols
    // has its own insertion points.
    uint16_t order[288];
    uint32_t codes[288];
    unsigned start[16], atFirst[16], atSecond[16];
    start[1] = 0;
    for (unsigned len = 1; len < 15; ++len) start[len + 1] = start[len] + set.count[len];
    start[0] = set.used;
    for (unsigned len = 0; len < 16; ++len) {
        atFirst[len] = start[len];
        atSecond[len] = start[len] + set.firstHalf[len];
    }
    for (unsigned i = 0; i < set.half; ++i) {
        order[atFirst[lens[i]]++] = uint16_t(i);
        order[atSecond[lens[set.half + i]]++] = uint16_t(set.half + i);
    }
    if (n & 1) order[atSecond[lens[n - 1]]++] = uint16_t(n - 1);
    uint32_t first[16];
    first_codes(set, first);
    for (unsigned k = 0; k < set.used; ++k) {
        const unsigned len = lens[order[k]];
        codes[k] = first[len] + (k - start[len]);
    }

    // Symbols with folded bits wait for the length they fill at (at most the
    // 26 distance codes with extra bits).
    struct Folded {
        uint16_t symbol;
        uint8_t len, fold;
        uint32_t index;
    } folded[32];
    unsigned nFolded = 0;
    unsigned k = 0;
    for (unsigned len = 1; len <= kRoot; ++len) {
        if (len > 1) double_filled(t, size_t(1) << (len - 1));
        for (; k < set.used && lens[order[k]] == len; ++k) {
            const unsigned s = order[k], f = fold(s, len);
            const uint32_t r = reversed(codes[k], len);
            if (f) folded[nFolded++] = {uint16_t(s), uint8_t(len), uint8_t(f), r};
            else t[r] = leaf(s, len, 0, 0);
        }
        for (unsigned i = 0; i < nFolded; ++i) {
            const Folded& f = folded[i];
            if (f.len + f.fold != len) continue;
            for (uint32_t v = 0; v < (1u << f.fold); ++v) t[f.index | (v << f.len)] = leaf(f.symbol, f.len, f.fold, v);
        }
    }
    // Longer codes follow in canonical order; consecutive ones that share
    // their first kRoot bits make up one second-level table, as wide as the
    // last of them is long.
    size_t used = kEntries;
    while (k < set.used) {
        const auto prefix = [&](unsigned i) { return codes[i] >> (lens[order[i]] - kRoot); };
        unsigned end = k + 1;
        while (end < set.used && prefix(end) == prefix(k)) ++end;
        const unsigned width = lens[order[end - 1]] - kRoot;
        if (used + (size_t(1) << width) > capacity) return false;
        t[reversed(prefix(k), kRoot)] = ref(uint32_t(used - kEntries), width);
        T* sub = t + used;
        for (; k < end; ++k) {
            const unsigned len = lens[order[k]];
            const T e = leaf(order[k], len, 0, 0);
            for (uint32_t i = reversed(codes[k], len) >> kRoot; i < (1u << width); i += 1u << (len - kRoot)) sub[i] = e;
        }
        used += size_t(1) << width;
    }
    return true;
}

bool build_general(const Nux16u* lens, unsigned nLitLen, unsigned nDist, const CodeSet& lit, const CodeSet& dist,
                   Nux8u* area) {
    zero_bytes(area, kTableBytes);
    uint16_t* litTable = reinterpret_cast<uint16_t*>(area);
    uint32_t* distTable = reinterpret_cast<uint32_t*>(area + kGeneralDistOffset);
    // The lone one-bit code: index 1, and all it is copied to, is no code.
    litTable[0] = litTable[1] = kGeneralInvalid;
    const bool litOk = build_general_alphabet<kLitRootBits>(
        lens, nLitLen, lit, litTable, kGeneralLitLenEntries,
        [](uint32_t offset, uint32_t width) { return uint16_t(((offset / 2) << 8) | kSpecialSubTable | width); },
        general_length_fold, general_litlen_entry);
    if (!litOk) return false;
    return build_general_alphabet<kDistRootBits>(
        lens + nLitLen, nDist, dist, distTable, kGeneralDistEntries,
        [](uint32_t offset, uint32_t width) { return (offset << 16) | kDistSubTable | width; }, general_dist_fold,
        general_dist_entry);
}

NuxStatus build_huff_table(const Nux16u* lens, unsigned nLitLen, unsigned nDist, NuxInflateHuffTable* table) {
    CodeSet lit, dist;
    if (!check_set(lens, nLitLen, false, lit)) return NuxStatusBadStream;
    if (!check_set(lens + nLitLen, nDist, true, dist)) return NuxStatusBadStream;
    if (lit.maxLen <= kShortMaxLitLenBits && dist.maxLen <= kShortMaxDistBits) {
        table->kind = kLayoutShort;
        table->maxLitLenBits = lit.maxLen;
        table->maxDistBits = dist.maxLen;
        // The short decoder relies on the end-of-block code being present.
        if (nLitLen < 257 || lens[rfc1951::kEndOfBlock] == 0) return NuxStatusBadStream;
        build_short(lens, nLitLen, nDist, lit, dist, table->table);
        return NuxStatusOk;
    }
    table->kind = kLayoutGeneral;
    if (!build_general(lens, nLitLen, nDist, lit, dist, table->table)) return NuxStatusBadStream;
    return NuxStatusOk;
}

}  // namespace
}  // namespace nux::inflate

extern "C" NUX_API NuxStatus nuxsInflateBuildHuffTable(const Nux16u* pCodeLens, unsigned int nLitLen,
                                                       unsigned int nDist, NuxInflateHuffTable* pTable) {
    NUX_CHECK_PTRS(pCodeLens, pTable);
    NUX_CHECK_SIZE(nLitLen <= 288 && nDist <= 30);
    return nux::inflate::build_huff_table(pCodeLens, nLitLen, nDist, pTable);
}
