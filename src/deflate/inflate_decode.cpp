// Resumable decoder of one Deflate block body (RFC 1951 section 3.2.5):
// literal/length symbols, their extra bits, distance symbols and their extra
// bits, and the copies they describe, up to the end-of-block code.
//
// Why it is fast:
//  - the bit buffer is 64 bits wide inside a call and is refilled with one
//    unaligned 8-byte load while at least 8 input bytes remain: after a refill
//    it holds 56..63 bits, enough for the longest symbol (15 + 5 length bits,
//    15 + 13 distance bits);
//  - table entries carry everything a symbol needs (bits to consume, kind,
//    literal; in the general layout the finished length, and the finished
//    distance of the short distance codes), and a general-layout entry's low
//    six bits are its bit count, so the buffer is shifted by the entry
//    itself: the chain from one symbol's lookup to the next holds no masking;
//  - the lookups that follow a symbol are issued before the branch on its
//    kind (the next literal/length entry and the distance entry), so that a
//    mispredicted branch does not wait for a load;
//  - while at least kFastRoom bytes of output room remain, matches are copied
//    in 32-, 16- or 8-byte words that may run past the match end (into room
//    that the next symbols overwrite).
// Near the ends of the input or the output, one symbol at a time is decoded
// exactly, so that a call can stop at any symbol (input ran out: mode 1) or
// inside one (output full: mode 2).
#include <immintrin.h>

#include <cstring>

#include "core/args.h"
#include "core/cpu.h"
#include "deflate/inflate_tables.h"

#define NUX_INLINE [[gnu::always_inline]] inline

namespace nux::inflate {
namespace {

// Sub-states kept in the state block when the output filled inside a symbol.
enum SubState : uint32_t { kSubNone = 0, kSubLiteral = 1, kSubMatch = 2 };

constexpr uint32_t kModeEndOfBlock = 0, kModeNeedInput = 1, kModeOutputFull = 2;

// Two literals, the longest match and the widest over-copy of the word-wise
// match copy (a short match is written as 64 bytes): the output room one
// fast-loop iteration may touch.
constexpr ptrdiff_t kFastRoom = rfc1951::kMaxMatch + 3 + 64;

// The two entry codings behind one interface, so that one decoder serves
// both layouts. An entry is one of: a literal, a length symbol (in the
// general layout with its extra bits in the entry, or outside it: a long
// length), or special (end of block, second-level reference, invalid code).
struct ShortTables {
    const uint16_t* lit;
    uint32_t litMask;
    const uint8_t* distBytes;
    const uint16_t* distBase;
    uint32_t distMask;

    static constexpr bool kSubTables = false, kLengthInEntry = false;
    NUX_INLINE uint32_t first(uint64_t bits) const { return lit[uint32_t(bits) & litMask]; }
    NUX_INLINE uint32_t second(uint32_t e, uint64_t) const { return e; }
    NUX_INLINE static bool is_literal(uint32_t e) { return (e & 0xF0) == (kKindLiteral << 4); }
    NUX_INLINE static bool is_length(uint32_t e) { return ((e >> 4) & 15) - kKindLengthBase <= 5; }
    NUX_INLINE static bool is_sub(uint32_t) { return false; }
    NUX_INLINE static bool is_end(uint32_t e) { return ((e >> 4) & 15) == kKindEnd; }
    // Bits of a literal or end-of-block entry, and the amount the fast loop
    // subtracts from its bit count for them (see fast_loop_body).
    NUX_INLINE static uint32_t bits_of(uint32_t e) { return e & 15; }
    NUX_INLINE static uint32_t end_bits(uint32_t e) { return e & 15; }
    NUX_INLINE static uint32_t charge(uint32_t e) { return e & 15; }
    NUX_INLINE static uint8_t literal(uint32_t e) { return uint8_t(e >> 8); }
    // The match length; in `used` the code and extra bits it takes, in
    // `charge` the amount the fast loop subtracts from its bit count.
    NUX_INLINE static uint32_t length(uint32_t e, uint64_t bits, uint32_t& used, uint32_t& charge) {
        const uint32_t n = e & 15, extra = ((e >> 4) & 15) - kKindLengthBase;
        used = charge = n + extra;
        return (e >> 8) + 3 + (uint32_t(bits >> n) & ((1u << extra) - 1));
    }
    // Lengths whose extra bits are outside the entry's bit count: every
    // short-layout length is one (it is always decoded by `length`).
    NUX_INLINE static bool is_long_length(uint32_t) { return false; }
    NUX_INLINE static uint32_t long_length(uint32_t e, uint64_t bits, uint32_t& used, uint32_t& charge) {
        return length(e, bits, used, charge);
    }
    // The distance entry of the next bits, and the distance it gives with
    // them (in `used` the code and extra bits it takes); distance 0 when no
    // code matches (a hole of a lone one-bit code, or no distance codes).
    NUX_INLINE uint32_t dist_first(uint64_t bits) const {
        const uint32_t i = uint32_t(bits) & distMask;
        return distBytes[i] | (uint32_t(distBase[i]) << 16);
    }
    NUX_INLINE uint32_t dist_value(uint32_t d, uint64_t bits, uint32_t& used, uint32_t& charge) const {
        const uint32_t n = d & 15, extra = (d >> 4) & 15;
        used = charge = n + extra;
        return (d >> 16) + (uint32_t(bits >> n) & ((1u << extra) - 1));
    }
    NUX_INLINE uint32_t dist(uint64_t bits, uint32_t& used, uint32_t& charge) const {
        return dist_value(dist_first(bits), bits, used, charge);
    }
};

struct GeneralTables {
    const uint16_t* lit;  // the distance table follows at kGeneralDistOffset

    static constexpr bool kSubTables = true, kLengthInEntry = true;
    NUX_INLINE uint32_t first(uint64_t bits) const { return lit[uint32_t(bits) & (kLitRootEntries - 1)]; }
    // Resolves a second-level reference, which the fast loop meets only off
    // its literal path.
    NUX_INLINE uint32_t second(uint32_t e, uint64_t bits) const {
        return lit[kLitRootEntries + ((e >> 8) << 1) + ((uint32_t(bits) >> kLitRootBits) & ((1u << (e & 15)) - 1))];
    }
    NUX_INLINE static bool is_literal(uint32_t e) { return e & kLitFlag; }
    NUX_INLINE static bool is_length(uint32_t e) { return !(e & (kLitFlag | kSpecialFlag)); }
    NUX_INLINE static bool is_sub(uint32_t e) { return (e & 0xF0) == kSpecialSubTable; }
    NUX_INLINE static bool is_end(uint32_t e) { return (e & 0xF0) == kSpecialEnd; }
    NUX_INLINE static bool is_long_length(uint32_t e) { return (e & 0xF0) == kSpecialLength; }
    // Bits of a literal entry, and of an end-of-block entry.
    NUX_INLINE static uint32_t bits_of(uint32_t e) { return e & 63; }
    NUX_INLINE static uint32_t end_bits(uint32_t e) { return e & 15; }
    // The low six bits of a literal or length entry are its bit count:
    // subtracting the whole entry leaves the low six bits of the fast loop's
    // bit count right.
    NUX_INLINE static uint32_t charge(uint32_t e) { return e; }
    NUX_INLINE static uint8_t literal(uint32_t e) { return uint8_t(e >> 8); }
    NUX_INLINE static uint32_t length(uint32_t e, uint64_t, uint32_t& used, uint32_t& charge) {
        used = e & 63;
        charge = e;
        return (e >> 8) + 3;
    }
    NUX_INLINE static uint32_t long_length(uint32_t e, uint64_t bits, uint32_t& used, uint32_t& charge) {
        const uint32_t n = e & 15, extra = e >> 13;
        used = charge = n + extra;
        return rfc1951::kLengthBase[(e >> 8) & 31] + (uint32_t(bits >> n) & ((1u << extra) - 1));
    }
    // Indexed from the literal/length base with a constant offset, so that
    // the loop needs no register of its own for the distance table.
    NUX_INLINE uint32_t dist_first(uint64_t bits) const {
        return reinterpret_cast<const uint32_t*>(lit)[kGeneralDistOffset / 4 + (uint32_t(bits) & (kDistRootEntries - 1))];
    }
    NUX_INLINE uint32_t dist(uint64_t bits, uint32_t& used, uint32_t& charge) const {
        return dist_value(dist_first(bits), bits, used, charge);
    }
    NUX_INLINE uint32_t dist_value(uint32_t e, uint64_t bits, uint32_t& used, uint32_t& charge) const {
        constexpr size_t kD = kGeneralDistOffset / 4;
        const uint32_t* d = reinterpret_cast<const uint32_t*>(lit);
        if (e & kDistSubTable) [[unlikely]]
            e = d[kD + kDistRootEntries + (e >> 16) +
                  ((uint32_t(bits) >> kDistRootBits) & ((1u << (e & 15)) - 1))];
        // One formula for folded and plain entries alike (which of the two a
        // distance hits is as good as random): the low t bits hold the code
        // and the extra bits, the code's n bits are shifted out.
        const uint32_t total = e & 31, n = (e >> 8) & 15;
        used = total;
        charge = e;
        return (e >> 16) + uint32_t((bits & ((uint64_t(1) << total) - 1)) >> n);
    }
};

struct Stream {
    const uint8_t* in;
    const uint8_t* inStart;
    const uint8_t* inEnd;
    // Invariant: `bits` valid bits at the bottom of `buf`; the bits above
    // them are zero or the stream's next bits, never anything else, so that
    // a refill may OR the same bits in again.
    uint64_t buf;
    uint32_t bits;
    uint8_t* out;
    uint8_t* outStart;
    uint8_t* outEnd;
    uint64_t dstIdx;
    const uint8_t* win;
    uint32_t winSize, winIdx;

    void consume(uint32_t n) {
        buf >>= n;
        bits -= n;
    }
};

// Copies a match of `len` bytes at distance `dist`, all of which fit into the
// output room. The part that lies before the destination's start comes from
// the circular window. False (nothing written) if the distance reaches before
// all history.
bool copy_match_exact(Stream& s, uint32_t len, uint32_t dist) {
    uint8_t* out = s.out;
    const uint64_t avail = s.dstIdx + uint64_t(out - s.outStart);
    if (dist > avail) {
        const uint64_t back = dist - avail;
        if (!s.win || back > s.winSize) return false;
        uint32_t pos = back <= s.winIdx ? s.winIdx - uint32_t(back) : s.winIdx + s.winSize - uint32_t(back);
        uint32_t k = len < back ? len : uint32_t(back);
        len -= k;
        while (k) {
            if (pos == s.winSize) pos = 0;
            const uint32_t chunk = k < s.winSize - pos ? k : s.winSize - pos;
            std::memcpy(out, s.win + pos, chunk);
            out += chunk;
            pos += chunk;
            k -= chunk;
        }
    }
    const uint8_t* src = out - dist;
    if (dist >= len) {
        std::memcpy(out, src, len);
    } else {
        for (uint32_t i = 0; i < len; ++i) out[i] = src[i];  // overlapping: repeats the pattern
    }
    s.out = out + len;
    return true;
}

// Word-wise copy of a match wholly inside the destination; may write up to
// 31 bytes past the match end. Written out rather than with intrinsics: a
// function without 256-bit values in C++ keeps its stack frame unaligned, so
// GCC leaves it a register more, which the fast loop is short of (its exits
// clear the upper state with VZEROUPPER themselves).
NUX_INLINE void copy32(uint8_t* out, const uint8_t* src) {
    asm("vmovdqu %1, %%ymm0\n\tvmovdqu %%ymm0, %0"
        : "=m"(*reinterpret_cast<uint8_t(*)[32]>(out))
        : "m"(*reinterpret_cast<const uint8_t(*)[32]>(src))
        : "xmm0");
}

NUX_INLINE void copy16(uint8_t* out, const uint8_t* src) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_loadu_si128(reinterpret_cast<const __m128i*>(src)));
}

NUX_INLINE void copy8(uint8_t* out, const uint8_t* src) {
    uint64_t v;
    std::memcpy(&v, src, 8);
    std::memcpy(out, &v, 8);
}

// The first multiple of the distance (1..7) that is at least 8: the pattern
// of a short-distance match also repeats at that distance.
constexpr uint8_t kPeriodAtLeast8[8] = {0, 8, 8, 9, 8, 10, 12, 14};

NUX_INLINE void copy_match_fast(uint8_t* out, uint32_t len, uint32_t dist) {
    const uint8_t* src = out - dist;
    uint8_t* const end = out + len;
    if (dist >= 32) {
        // Most matches are short: two 32-byte words cover them.
        copy32(out, src);
        copy32(out + 32, src + 32);
        out += 64;
        src += 64;
        while (out < end) {
            copy32(out, src);
            out += 32;
            src += 32;
        }
    } else if (dist >= 16) {
        copy16(out, src);
        copy16(out + 16, src + 16);
        out += 32;
        src += 32;
        while (out < end) {
            copy16(out, src);
            out += 16;
            src += 16;
        }
    } else if (dist >= 8) {
        copy8(out, src);
        copy8(out + 8, src + 8);
        out += 16;
        src += 16;
        while (out < end) {
            copy8(out, src);
            out += 8;
            src += 8;
        }
    } else if (dist == 1) {
        const __m128i v = _mm_set1_epi8(char(*src));
        do {
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out), v);
            out += 16;
        } while (out < end);
    } else {
        // Distances 2..7: eight bytes one at a time (each may read a byte
        // written just before), then 8-byte words from a period d >= 8 back.
        out[0] = src[0];
        out[1] = src[1];
        out[2] = src[2];
        out[3] = src[3];
        out[4] = src[4];
        out[5] = src[5];
        out[6] = src[6];
        out[7] = src[7];
        out += 8;
        src = out - kPeriodAtLeast8[dist];
        while (out < end) {
            copy8(out, src);
            out += 8;
            src += 8;
        }
    }
}

enum class FastExit { kSlow, kEnd };

// Decodes symbols while at least kFastIn input bytes (three word refills)
// and kFastRoom bytes of output room remain. The state lives in locals so
// that it stays in registers. Anything unusual -- a match reaching into the
// window, an invalid code -- ends the loop at the start of that symbol, and
// the exact path takes it from there.
template <typename Tables>
NUX_INLINE FastExit fast_loop_body(const Tables& tables, Stream& s) {
    // An iteration takes at most 21 input bytes in at most three refills
    // (each reads 8 bytes and keeps at least one back) and writes at most two
    // literals, 258 bytes and the over-copy.
    constexpr ptrdiff_t kFastIn = 22;
    if (s.inEnd - s.in < kFastIn || s.outEnd - s.out < kFastRoom) return FastExit::kSlow;
    // A local copy: the byte stores through `out` could alias the caller's
    // copy and force the table pointers to be reloaded after every literal.
    const Tables t = tables;
    const uint8_t* in = s.in;
    uint64_t buf = s.buf;
    // Only the low six bits of `bits` are the count of valid bits (at most
    // 63): symbols are charged by subtracting their whole general-layout
    // entry, whose low six bits are their bit count, so that shifts can take
    // the entry as it is (a 64-bit shift uses the low six bits of its count).
    uint32_t bits = s.bits;
    uint8_t* out = s.out;
    // Bytes of history in the destination before `out`: out - histBase.
    const uintptr_t histBase = uintptr_t(s.outStart) - uintptr_t(s.dstIdx);
    FastExit exit = FastExit::kSlow;

    auto refill = [&] {
        uint64_t word;
        std::memcpy(&word, in, 8);
        buf |= word << (bits & 63);
        in += ((bits & 63) ^ 63) >> 3;
        bits |= 56;
    };

    // Loop invariant: at least 56 bits in `buf`, and `e` is the table entry
    // of the next symbol.
    const uint8_t* const inLimit = s.inEnd - kFastIn;
    uint8_t* const outLimit = s.outEnd - kFastRoom;
    refill();
    uint32_t e = t.first(buf);
    // The lookups that may follow `e`, issued before the branch on its kind:
    // `next` after a literal, `distEntry` after a length. The empty asm keeps
    // the compiler from sinking each into its own branch.
    uint64_t after;
    uint32_t next, distEntry;
    auto look_ahead = [&] {
        after = buf >> Tables::bits_of(e);
        next = t.first(after);
        distEntry = t.dist_first(after);
        asm("" : "+r"(after), "+r"(next), "+r"(distEntry));
    };
    auto take_literal = [&] {
        *out++ = Tables::literal(e);
        buf = after;
        bits -= Tables::charge(e);
        e = next;
    };
    while (in <= inLimit && out <= outLimit) {
        look_ahead();
        if (Tables::is_literal(e)) {
            // Up to three literals, then a refill: a literal found in the
            // first level takes at most 11 bits, so 56 bits cover three of
            // them and the next symbol's lookup. A symbol after one or two
            // literals that is not one goes to the length straight away.
            take_literal();
            look_ahead();
            if (!Tables::is_literal(e)) goto length;
            take_literal();
            look_ahead();
            if (!Tables::is_literal(e)) goto length;
            take_literal();
            refill();  // keeps the low bits: `e` stays valid
            continue;
        }
    length:
        uint32_t len, lenBits, lenCharge;
        uint64_t rest;
        if (Tables::kLengthInEntry && Tables::is_length(e)) {
            len = Tables::length(e, buf, lenBits, lenCharge);
            rest = after;
        } else {
            refill();
            if (Tables::kSubTables && Tables::is_sub(e)) {
                e = t.second(e, buf);
                if (Tables::is_literal(e)) {
                    *out++ = Tables::literal(e);
                    buf >>= Tables::bits_of(e);
                    bits -= Tables::charge(e);
                    refill();
                    e = t.first(buf);
                    continue;
                }
            }
            if (Tables::is_length(e)) {
                len = Tables::length(e, buf, lenBits, lenCharge);
            } else if (Tables::is_long_length(e)) {
                len = Tables::long_length(e, buf, lenBits, lenCharge);
            } else {
                if (Tables::is_end(e)) {
                    buf >>= Tables::end_bits(e);
                    bits -= Tables::end_bits(e);
                    exit = FastExit::kEnd;
                }
                goto done;
            }
            rest = buf >> lenBits;
            distEntry = t.dist_first(rest);
        }
        // `rest` holds at least 23 bits (56 less two literals and a length
        // from the first level), enough for the distance entry; refilled, it
        // holds the distance's up to 28 bits. The refill is committed only
        // once the distance is known to be valid, so that the loop can end
        // at the start of the length.
        const uint32_t afterLen = bits - lenCharge;
        uint64_t word;
        std::memcpy(&word, in, 8);
        rest |= word << (afterLen & 63);
        const uint8_t* const inAfter = in + (((afterLen & 63) ^ 63) >> 3);
        uint32_t used, distCharge;
        const uint32_t dist = t.dist_value(distEntry, rest, used, distCharge);
        // One test for both: dist 0 (no code) wraps to the largest value.
        if (uint64_t(dist) - 1 >= uint64_t(uintptr_t(out) - histBase)) goto done;
        in = inAfter;
        bits = afterLen | 56;
        // At least 28 bits remain after the distance: enough for the next
        // symbol's lookup, which a refill then tops up. The lookup comes
        // after the copy in the program only: the processor runs it as early
        // either way, and `e` is not held in a register across the copy,
        // where GCC would spill it onto the chain from symbol to symbol.
        buf = rest >> (distCharge & 63);  // the whole entry, see `bits`
        bits -= distCharge;
        copy_match_fast(out, len, dist);
        out += len;
        e = t.first(buf);
        refill();
    }
done:
    _mm256_zeroupper();
    s.in = in;
    s.buf = buf;
    s.bits = bits & 63;
    s.out = out;
    return exit;
}

// The same loop compiled twice: BMI2's flag-free variable shifts and
// bit-field extraction (SHRX, SHLX, BZHI) save several instructions per
// symbol; the choice is made per call from the feature set read at load.
template <typename Tables>
[[gnu::noinline]] FastExit fast_loop_plain(const Tables& t, Stream& s) {
    return fast_loop_body(t, s);
}

template <typename Tables>
[[gnu::noinline, gnu::target("bmi,bmi2")]] FastExit fast_loop_bmi2(const Tables& t, Stream& s) {
    return fast_loop_body(t, s);
}

template <typename Tables>
NuxStatus decode(const Tables& t, Stream& s, NuxInflateHuffTable* st, uint32_t& mode, FastLoop loop) {
    const bool bmi2 = loop == FastLoop::kBmi2;
    const bool resume = mode == kModeOutputFull;
    mode = kModeNeedInput;
    // Symbol start, for a partial symbol handed back (mode 1) or a fault.
    const uint8_t* snapIn;
    uint64_t snapBuf;
    uint32_t snapBits;

    if (resume) {
        const uint32_t sub = st->subState;
        if (sub == kSubLiteral) {
            if (s.out == s.outEnd) {
                mode = kModeOutputFull;
                return NuxStatusOk;
            }
            *s.out++ = uint8_t(st->saved[0]);
        } else if (sub == kSubMatch) {
            const uint32_t len = st->saved[0], dist = st->saved[1];
            const uint32_t room = uint32_t(s.outEnd - s.out);
            const uint32_t k = len < room ? len : room;
            if (len > rfc1951::kMaxMatch || dist == 0 || dist > rfc1951::kWindowSize || !copy_match_exact(s, k, dist))
                return NuxStatusBadStream;
            if (k < len) {
                st->saved[0] = len - k;
                mode = kModeOutputFull;
                return NuxStatusOk;
            }
        } else if (sub != kSubNone) {
            return NuxStatusBadStream;
        }
        st->subState = kSubNone;
    }

    for (;;) {
        if ((bmi2 ? fast_loop_bmi2(t, s) : fast_loop_plain(t, s)) == FastExit::kEnd) {
            mode = kModeEndOfBlock;
            return NuxStatusOk;
        }

        // One symbol, exactly.
        while (s.bits < 56 && s.in < s.inEnd) {
            s.buf |= uint64_t(*s.in++) << s.bits;
            s.bits += 8;
        }
        snapIn = s.in;
        snapBuf = s.buf;
        snapBits = s.bits;
        // A lookup with too few valid bits may see zeros for the missing
        // ones, but any entry whose length fits into the valid bits is the
        // right one, since an entry depends on its own code bits only.
        uint32_t e = t.first(s.buf);
        if (Tables::kSubTables && Tables::is_sub(e)) e = t.second(e, s.buf);
        if (Tables::is_literal(e)) {
            const uint32_t n = Tables::bits_of(e);
            if (n > s.bits) goto need_input;
            s.consume(n);
            if (s.out == s.outEnd) {
                st->subState = kSubLiteral;
                st->saved[0] = Tables::literal(e);
                mode = kModeOutputFull;
                return NuxStatusOk;
            }
            *s.out++ = Tables::literal(e);
            continue;
        }
        if (Tables::is_end(e)) {
            if (Tables::end_bits(e) > s.bits) goto need_input;
            s.consume(Tables::end_bits(e));
            mode = kModeEndOfBlock;
            return NuxStatusOk;
        }
        if (!Tables::is_length(e) && !Tables::is_long_length(e)) goto bad;
        {
            uint32_t lenBits, used, charge;
            const uint32_t len = Tables::is_length(e) ? Tables::length(e, s.buf, lenBits, charge)
                                                      : Tables::long_length(e, s.buf, lenBits, charge);
            if (lenBits > s.bits) goto need_input;
            if (len < uint32_t(rfc1951::kMinMatch) || len > uint32_t(rfc1951::kMaxMatch)) goto bad;
            const uint32_t dist = t.dist(s.buf >> lenBits, used, charge);
            if (dist == 0) goto bad;
            if (lenBits + used > s.bits) goto need_input;
            s.consume(lenBits + used);
            const uint32_t room = uint32_t(s.outEnd - s.out);
            const uint32_t k = len < room ? len : room;
            if (!copy_match_exact(s, k, dist)) goto bad;
            if (k < len) {
                st->subState = kSubMatch;
                st->saved[0] = len - k;
                st->saved[1] = dist;
                mode = kModeOutputFull;
                return NuxStatusOk;
            }
        }
    }

need_input:
    // Only reached with the input used up: the refill above stops early only
    // once 56 bits (more than any symbol needs) are held; so at most 63.
    s.in = snapIn;
    s.buf = snapBuf;
    s.bits = snapBits;
    mode = kModeNeedInput;
    return NuxStatusOk;

bad:
    s.in = snapIn;
    s.buf = snapBuf;
    s.bits = snapBits;
    return NuxStatusBadStream;
}

const uint8_t kNoDistBytes[1] = {0};
const uint16_t kNoDistBase[1] = {0};

}  // namespace

NuxStatus inflate_block(FastLoop loop, const Nux8u** ppSrc, Nux32u* pSrcLen, Nux32u* pCode, Nux32u* pCodeLenBits, Nux32u winIdx,
                        Nux8u** ppDst, Nux32u* pDstLen, Nux32u dstIdx, Nux32u* pMode, NuxInflateHuffTable* st) {
    Stream s;
    s.in = s.inStart = *ppSrc;
    s.inEnd = s.in + *pSrcLen;
    s.bits = *pCodeLenBits;
    s.buf = s.bits ? *pCode & (~0u >> (32 - s.bits)) : 0;
    s.out = s.outStart = *ppDst;
    s.outEnd = s.out + *pDstLen;
    s.dstIdx = dstIdx;
    s.win = st->pWindow;
    s.winSize = st->winSize;
    s.winIdx = winIdx;
    uint32_t mode = *pMode;

    NuxStatus status;
    if (st->kind == kLayoutShort) {
        const uint32_t lmax = st->maxLitLenBits, dmax = st->maxDistBits;
        if (lmax < 1 || lmax > kShortMaxLitLenBits || dmax > kShortMaxDistBits) return NuxStatusBadStream;
        ShortTables t;
        t.lit = reinterpret_cast<const uint16_t*>(st->table);
        t.litMask = (1u << lmax) - 1;
        t.distBytes = dmax ? st->table + kShortDistByteOffset : kNoDistBytes;
        t.distBase = dmax ? reinterpret_cast<const uint16_t*>(st->table + kShortDistBaseOffset) : kNoDistBase;
        t.distMask = (1u << dmax) - 1;
        status = decode(t, s, st, mode, loop);
    } else if (st->kind == kLayoutGeneral) {
        GeneralTables t{reinterpret_cast<const uint16_t*>(st->table)};
        status = decode(t, s, st, mode, loop);
    } else {
        GeneralTables t{kFixedTables.litlen};
        status = decode(t, s, st, mode, loop);
    }

    // Hand back whole unused bytes held in the bit buffer, so that the
    // returned count is at most 32 (and below 8 when possible): only bytes
    // taken in this call can go back, the caller's own bits cannot.
    const uint32_t taken = uint32_t(s.in - s.inStart);
    const uint32_t back = (s.bits >> 3) < taken ? (s.bits >> 3) : taken;
    s.in -= back;
    s.bits -= 8 * back;
    *ppSrc = s.in;
    *pSrcLen = uint32_t(s.inEnd - s.in);
    *pCode = uint32_t(s.buf & ((uint64_t(1) << s.bits) - 1));
    *pCodeLenBits = s.bits;
    *ppDst = s.out;
    *pDstLen = uint32_t(s.outEnd - s.out);
    if (status == NuxStatusOk) *pMode = mode;
    return status;
}

}  // namespace nux::inflate

extern "C" NUX_API NuxStatus nuxsInflate_8u(const Nux8u** ppSrc, Nux32u* pSrcLen, Nux32u* pCode,
                                            Nux32u* pCodeLenBits, Nux32u winIdx, Nux8u** ppDst, Nux32u* pDstLen,
                                            Nux32u dstIdx, Nux32u* pMode, NuxInflateHuffTable* pState) {
    NUX_CHECK_PTRS(ppSrc, pSrcLen, pCode, pCodeLenBits, ppDst, pDstLen, pMode, pState);
    NUX_CHECK_PTRS(*ppSrc, *ppDst);
    NUX_CHECK_SIZE(*pCodeLenBits <= 32);
    NUX_CHECK_SIZE(winIdx <= pState->winSize);
    NUX_CHECK(pState->kind <= nux::inflate::kLayoutShort, NuxStatusBadStream);
    const auto loop = nux::ownGetFeature(nux::kFeatureBmi2) ? nux::inflate::FastLoop::kBmi2 : nux::inflate::FastLoop::kPlain;
    return nux::inflate::inflate_block(loop, ppSrc, pSrcLen, pCode, pCodeLenBits, winIdx, ppDst, pDstLen, dstIdx, pMode,
                                       pState);
}
