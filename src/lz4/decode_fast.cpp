// The LZ4 decoder's fast loop: no per-byte bound tests, wild copies inside a
// 33-byte source and 64-byte destination margin.
//
// Invariants at the top of every iteration: iend - ip > 33 and
// oend - op > 64. A sequence is decoded here only when, after it, those
// margins still cover every over-read and over-write of its wild copies;
// otherwise the loop leaves with the cursor on the sequence's token and the
// careful loop takes over from the same point. Literals that the abandoned
// sequence already stored are stored again, identically, by the careful loop.
#include <tmmintrin.h>

#include "lz4/decode.h"
#include "lz4/decode_copy.h"
#include "lz4/lz4_common.h"

namespace nux::lz4 {
namespace {

// Byte-shuffle indices i % offset: one period repeated across 16 bytes.
struct PatternTable {
    alignas(16) uint8_t index[16][16];
    uint8_t step[16];  // largest multiple of the offset that fits in 16
    constexpr PatternTable() : index(), step() {
        for (int off = 1; off < 16; ++off) {
            for (int i = 0; i < 16; ++i) index[off][i] = uint8_t(i % off);
            step[off] = uint8_t(16 - 16 % off);
        }
    }
};
constexpr PatternTable kPattern;

// Copies a match of length n whose offset is below 16 and below n. Stores
// may run up to 15 bytes past the end; the destination margin covers them.
inline void copy_short_offset(uint8_t* op, const uint8_t* match, size_t off, size_t n) {
    // Only bytes below `op` are read meaningfully: the shuffle picks indices
    // i % off < off. The other loaded bytes lie inside the destination margin.
    const __m128i pattern =
        _mm_shuffle_epi8(load128(match), _mm_load_si128(reinterpret_cast<const __m128i*>(kPattern.index[off])));
    const size_t step = kPattern.step[off];
    uint8_t* const end = op + n;
    do {
        store128(op, pattern);
        op += step;
    } while (op < end);
}

// A match whose offset is at least 16, or not below its length: 16-byte
// blocks never read a byte that this match still has to write. Two blocks
// per pass and a single loop: one exit branch to predict per match (the
// stepped 64/16-byte tail mispredicted about twice as often). Stores may run
// up to 31 bytes past the end, inside the destination margin.
inline void copy_long_offset(uint8_t* op, const uint8_t* match, size_t n) {
    uint8_t* const end = op + n;
    do {
        // Each block is loaded after the previous one is stored, so an
        // offset of 16..31 reads bytes this match has just written.
        copy16(op, match);
        copy16(op + 16, match + 16);
        op += 32;
        match += 32;
    } while (op < end);
}

}  // namespace

template <History H>
void decode_fast(DecodeCursor& c) {
    if (c.iend - c.ip <= kFastSrcMargin || c.oend - c.op <= kFastDstMargin) return;
    const uint8_t* ip = c.ip;
    uint8_t* op = c.op;
    const uint8_t* const ilimit = c.iend - kFastSrcMargin;
    uint8_t* const olimit = c.oend - kFastDstMargin;
    const uint8_t* const low = c.low;

    while (ip < ilimit && op < olimit) {
        const uint8_t* const seq = ip;
        uint8_t* const seq_op = op;
        const unsigned token = *ip++;
        size_t lit = token >> 4;
        if (lit < 15) {
            // ip + 16 and op + 16 are inside the margins.
            copy16(op, ip);
        } else {
            unsigned b;
            do {
                if (ip >= ilimit) goto leave;
                b = *ip++;
                lit += b;
            } while (b == 255);
            // The literals must end inside both margins, so that the copy
            // rounded up to 32-byte blocks and the offset read stay inside.
            if (lit > size_t(ilimit - ip) || lit > size_t(olimit - op)) goto leave;
            copy16(op, ip);
            copy16(op + 16, ip + 16);
            if (lit > 32) {
                size_t done = 32;
                while (done + 96 < lit) {
                    copy16(op + done, ip + done);
                    copy16(op + done + 16, ip + done + 16);
                    copy16(op + done + 32, ip + done + 32);
                    copy16(op + done + 48, ip + done + 48);
                    copy16(op + done + 64, ip + done + 64);
                    copy16(op + done + 80, ip + done + 80);
                    copy16(op + done + 96, ip + done + 96);
                    copy16(op + done + 112, ip + done + 112);
                    done += 128;
                }
                while (done < lit) {
                    copy16(op + done, ip + done);
                    copy16(op + done + 16, ip + done + 16);
                    done += 32;
                }
            }
        }
        ip += lit;
        op += lit;

        {
            const size_t off = load16(ip);
            ip += 2;
            // The match start op - off, compared without forming a pointer
            // in front of the buffer.
            if (op - low < ptrdiff_t(off)) goto leave;
            const uint8_t* const match = op - off;
            size_t len = token & 15;
            // The common case: a short match from at least 8 bytes back.
            // Three 8-byte words copied front to back cover its at most 18
            // bytes (each word reads only bytes already final; from 16 bytes
            // back, two 16-byte moves would do, but the one path for offsets
            // 8 and up measured faster than splitting it); they end at most
            // 38 bytes past olimit (op may stand 14 past it after short
            // literals), inside the margin, and the loop test then hands the
            // next sequence to the careful loop.
            if (len != 15 && off >= 8 && (H != History::kExtDict || match >= c.dict_limit)) {
                store64(op, load64(match));
                store64(op + 8, load64(match + 8));
                store64(op + 16, load64(match + 16));
                op += len + kMinMatch;
                continue;
            }
            if (len == 15) {
                unsigned b;
                do {
                    if (ip >= c.iend) goto leave;
                    b = *ip++;
                    len += b;
                } while (b == 255);
            }
            len += kMinMatch;
            // Short literals may already have taken op past olimit.
            if (ptrdiff_t(len) > olimit - op) goto leave;

            if constexpr (H == History::kExtDict) {
                if (match < c.dict_limit) {
                    if (!copy_dict_match(op, match, len, c)) goto leave;
                    op += len;
                    continue;
                }
            }
            if (off >= 16 || len <= off) copy_long_offset(op, match, len);
            else if (off != 0) copy_short_offset(op, match, off, len);
            // Offset 0 copies the destination onto itself: nothing changes.
            op += len;
        }
        continue;
    leave:
        ip = seq;
        op = seq_op;
        break;
    }
    c.ip = ip;
    c.op = op;
}

template void decode_fast<History::kPlain>(DecodeCursor&);
template void decode_fast<History::kPrefix>(DecodeCursor&);
template void decode_fast<History::kExtDict>(DecodeCursor&);

}  // namespace nux::lz4
