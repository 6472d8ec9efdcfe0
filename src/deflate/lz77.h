// Internal interface of the Deflate LZ77 engine: the call record shared by
// the finders, the two hash functions and the byte-comparison kernels.
//
// Positions are signed 32-bit and grow across calls. The byte at position p
// lives in the current input when p >= srcPos and in the history in front of
// the window pointer otherwise. A caller that keeps its history directly in
// front of the input passes the input pointer as the window pointer; then
// every position is one contiguous array and no comparison has to be split at
// the input start.
#pragma once

#include <nmmintrin.h>

#include <cstdint>
#include <cstring>

#include "core/unaligned.h"
#include "deflate/rfc1951.h"
#include "nuxzo.h"

namespace nux::deflate {

// The arguments of one finder call, as the exports receive them.
struct Lz77Call {
    const Nux8u** ppSrc;
    Nux32u* pSrcLen;
    Nux32u* pSrcPos;
    const Nux8u* pWindow;
    Nux32u winSize;
    Nux32s* pHashHead;
    Nux32s* pHashChain;
    Nux32u hashSize;
    NuxDeflateCode* pLitFreq;
    NuxDeflateCode* pDistFreq;
    Nux8u* pLitDst;
    Nux16u* pDistDst;
    Nux32u* pSlotsLeft;
    NuxDeflateMatchParams params;
    Nux32s flush;
};

// Units digit 0: one shift-hash probe; 1..4 greedy; 5..9 lazy. The decades
// trade differently between search depth and how many positions inside a
// match are hashed. Rows 11 and 15..17 shorten below 8 on purpose.
inline constexpr NuxDeflateMatchParams kLevelParams[30] = {
    {0, 0, 0, 0},        {4, 8, 8, 8},        {4, 16, 16, 9},      {4, 16, 16, 12},
    {48, 32, 32, 16},    {32, 8, 32, 16},     {128, 8, 256, 16},   {144, 8, 256, 16},
    {192, 32, 258, 128}, {256, 32, 258, 258}, {0, 0, 0, 0},        {3, 7, 8, 258},
    {3, 8, 16, 258},     {5, 8, 16, 258},     {16, 32, 32, 258},   {24, 6, 32, 16},
    {120, 7, 256, 16},   {140, 7, 256, 16},   {192, 32, 258, 128}, {512, 32, 258, 258},
    {0, 0, 0, 0},        {4, 8, 8, 258},      {4, 16, 16, 258},    {4, 16, 16, 258},
    {16, 32, 32, 258},   {32, 8, 32, 16},     {128, 8, 256, 16},   {144, 8, 256, 16},
    {192, 32, 258, 128}, {512, 32, 258, 258},
};

inline constexpr bool is_lazy_level(int level) { return level % 10 >= 5; }

inline bool same_params(const NuxDeflateMatchParams& a, const NuxDeflateMatchParams& b) {
    return a.chainDepth == b.chainDepth && a.shortenLength == b.shortenLength && a.enoughLength == b.enoughLength &&
           a.lazyInsertLimit == b.lazyInsertLimit;
}

NuxStatus lz77_greedy(const Lz77Call& call);
NuxStatus lz77_lazy(const Lz77Call& call);
void dictionary_set(const Nux8u* pDict, int dictLen, Nux32s* pHashHead, Nux32u hashSize,
                    Nux32s* pHashChain, Nux8u* pWindow, Nux32u winSize, int level);
void update_hash(const Nux8u* pSrc, Nux32u srcPos, Nux32u srcLen, Nux32s* pHashHead,
                 Nux32u hashSize, Nux32s* pHashChain, Nux32u winSize, int level);

// Empty table entries saturate here; anything this old is out of every window.
inline constexpr int32_t kEmptyPos = -32768;

// Three-byte shift hash of the single-probe levels 0, 10 and 20.
inline uint32_t shift_hash(const uint8_t* p, uint32_t mask) {
    return ((uint32_t(p[0]) << 10) ^ (uint32_t(p[1]) << 5) ^ p[2]) & mask;
}

// Four-byte hash of every chained level: one CRC-32C step of the CRC32
// instruction over the little-endian word, initial value 0. It mixes all 32
// input bits into every output bit, so any mask gives a usable hash.
inline uint32_t crc_hash(const uint8_t* p, uint32_t mask) {
    return _mm_crc32_u32(0, load32(p)) & mask;
}

// Insertion of position `pos` with hash h: the chain entry keeps the
// previous head, and the previous head is returned as the first candidate.
inline int32_t insert_hashed(uint32_t h, int32_t pos, int32_t* head, int32_t* chain, uint32_t win_mask) {
    const int32_t old = head[h];
    chain[uint32_t(pos) & win_mask] = old;
    head[h] = pos;
    return old;
}

// CRC-hash insertion of position `pos` (bytes at p).
inline int32_t insert_crc(const uint8_t* p, int32_t pos, int32_t* head, int32_t* chain,
                          uint32_t hash_mask, uint32_t win_mask) {
    return insert_hashed(crc_hash(p, hash_mask), pos, head, chain, win_mask);
}

// Number of equal leading bytes of a and b, at most `limit`. Sixteen bytes per
// step; the first difference is the lowest clear bit of the equality mask. Never
// reads at or beyond a + limit or b + limit.
inline int common_prefix(const uint8_t* a, const uint8_t* b, int limit) {
    int n = 0;
    while (n + 16 <= limit) {
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a + n));
        const __m128i y = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + n));
        const unsigned diff = ~unsigned(_mm_movemask_epi8(_mm_cmpeq_epi8(x, y))) & 0xFFFFu;
        if (diff) return n + __builtin_ctz(diff);
        n += 16;
    }
    if (n + 8 <= limit) {
        uint64_t x, y;
        std::memcpy(&x, a + n, 8);
        std::memcpy(&y, b + n, 8);
        if (x != y) return n + (__builtin_ctzll(x ^ y) >> 3);
        n += 8;
    }
    while (n < limit && a[n] == b[n]) ++n;
    return n;
}

// Where the bytes of each position are. `split` is the first position of the
// current input when the history is a separate buffer, or INT32_MIN when the
// history lies directly in front of the input.
struct History {
    const uint8_t* src;  // position base
    const uint8_t* win;  // window pointer (marks position base as well)
    int32_t base;
    int32_t split;

    History(const uint8_t* s, const uint8_t* w, int32_t b)
        : src(s), win(w), base(b), split(s == w ? INT32_MIN : b) {}

    const uint8_t* at(int32_t pos) const {
        return (pos >= base ? src : win) + (int64_t(pos) - base);
    }
    // The four candidate bytes at pos + off, possibly straddling the input start.
    uint32_t word(int32_t pos, int off) const {
        const int32_t p = pos + off;
        if (pos >= split || p + 4 <= base || p >= base) return load32(at(p));
        uint32_t v = 0;
        for (int k = 3; k >= 0; --k) v = (v << 8) | *at(p + k);
        return v;
    }
    // Match length of candidate `cand` against the bytes at `cur`, at most limit.
    int match(const uint8_t* cur, int32_t cand, int limit) const {
        const uint8_t* c = at(cand);
        if (cand >= split || int64_t(cand) + limit <= base) return common_prefix(cur, c, limit);
        const int seg = base - cand;
        const int n = common_prefix(cur, c, seg);
        if (n < seg) return n;
        return seg + common_prefix(cur + seg, src, limit - seg);
    }
};

// The common case of History: the history lies directly in front of the
// input (the window pointer is the input pointer), so every position is one
// array and no test for the input start is needed.
struct ContiguousHistory {
    const uint8_t* origin;  // where position 0 would be

    ContiguousHistory(const uint8_t* src, int32_t base) : origin(src - int64_t(base)) {}
    const uint8_t* at(int32_t pos) const { return origin + pos; }
    uint32_t word(int32_t pos, int off) const { return load32(at(pos) + off); }
    int match(const uint8_t* cur, int32_t cand, int limit) const { return common_prefix(cur, at(cand), limit); }
};

// Stores symbols while the slots last and counts the frequencies. The array
// pointers are copied out of the call record into restrict-qualified members:
// the symbol bytes are char stores, which may alias anything, and would
// otherwise force a reload of every pointer of the record after each symbol.
struct SymbolWriter {
    Nux8u* __restrict lit;
    Nux16u* __restrict dist;
    NuxDeflateCode* __restrict lit_freq;
    NuxDeflateCode* __restrict dist_freq;
    Nux8u* const lit_start;
    Nux8u* const lit_end;

    explicit SymbolWriter(const Lz77Call& c)
        : lit(c.pLitDst), dist(c.pDistDst), lit_freq(c.pLitFreq), dist_freq(c.pDistFreq), lit_start(c.pLitDst),
          lit_end(c.pLitDst + *c.pSlotsLeft) {}

    bool full() const { return lit == lit_end; }
    bool has_room(uint32_t symbols) const { return uint32_t(lit_end - lit) >= symbols; }
    uint32_t count() const { return uint32_t(lit - lit_start); }

    void literal(uint8_t byte) {
        *lit++ = byte;
        *dist++ = 0;
        ++lit_freq[byte].code;
    }
    void match(int len, int d) {
        *lit++ = uint8_t(len - 3);
        *dist++ = uint16_t(d);
        ++lit_freq[257 + rfc1951::kLengthCode[len - 3]].code;
        ++dist_freq[dist_code_index(d)].code;
    }

    // rfc1951::dist_code without its branch: whether a distance is above 256
    // follows the data and is mispredicted often enough to show in the parse.
    static unsigned dist_code_index(int d) {
        const uint32_t dm1 = uint32_t(d) - 1, far = dm1 > 255;
        return rfc1951::kDistCode[(dm1 >> (far * 7)) + (far << 8)];
    }
};

// Moves every table entry down by srcPos - winSize when the positions of this
// call could approach 2^31, so that positions start over just above the window.
// Returns the (possibly new) position of the first input byte.
int32_t rebase_if_needed(const Lz77Call& c, bool touch_chain);

// After a call with flush >= 2, the last bytes went out as literals without
// being hashed; their chain slots must not lead a later search astray.
void clear_tail_links(const Lz77Call& c, int32_t first, int32_t end, int32_t input_start);

}  // namespace nux::deflate
