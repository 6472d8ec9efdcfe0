// Huffman coding of an LZ77 symbol stream into a Deflate block body
// (RFC 1951, 3.2.5-3.2.6): codes and extra bits, least significant bit first.
//
// Bit buffer invariant: `acc` holds `n` pending stream bits in its low end;
// a word is stored only once it is completely filled with stream bits, so the
// coder never writes beyond the last byte it reports. The final partial word
// goes out bytewise and the last 0..7 bits return to the caller's 16-bit
// buffer. Both paths below send the identical bit sequence.
#include <cstring>

#include "core/args.h"
#include "deflate/rfc1951.h"

namespace nux::deflate {
namespace {

using rfc1951::dist_code;
using rfc1951::kDistBase;
using rfc1951::kDistExtra;
using rfc1951::kLengthBase;
using rfc1951::kLengthCode;
using rfc1951::kLengthExtra;

template <typename Word>
struct BitWriter {
    Word acc;
    unsigned n;
    uint8_t* dst;

    void put(Word v, unsigned len) {
        constexpr unsigned kBits = sizeof(Word) * 8;
        if (n + len < kBits) {
            acc |= v << n;
            n += len;
            return;
        }
        // The field completes the word: store it, keep the field's remainder.
        // n >= kBits - len > 0 here, so the right shift is below kBits.
        acc |= v << n;
        std::memcpy(dst, &acc, sizeof(Word));
        dst += sizeof(Word);
        acc = v >> (kBits - n);
        n = n + len - kBits;
    }

    // Whole bytes out; the remaining 0..7 bits stay in acc.
    void flush_bytes() {
        while (n >= 8) {
            *dst++ = uint8_t(acc);
            acc >>= 8;
            n -= 8;
        }
    }
};

// Below 2048 symbols: a 32-bit accumulator, each code and extra-bit field
// inserted on its own.
// The writer travels by value: as a local its accumulator stays in registers,
// where the byte stores through its output pointer cannot alias it.
BitWriter<uint32_t> code_short(const Nux8u* lit, const Nux16u* dist, Nux32u count, BitWriter<uint32_t> w,
                               const NuxDeflateCode* ll, const NuxDeflateCode* dc) {
    for (Nux32u k = 0; k < count; ++k) {
        const unsigned b = lit[k], d = dist[k];
        if (d == 0) {
            w.put(ll[b].code, ll[b].len);
            continue;
        }
        const unsigned lc = kLengthCode[b];
        w.put(ll[257 + lc].code, ll[257 + lc].len);
        if (kLengthExtra[lc]) w.put(b + 3 - kLengthBase[lc], kLengthExtra[lc]);
        const unsigned c = dist_code(int(d));
        w.put(dc[c].code, dc[c].len);
        if (kDistExtra[c]) w.put(d - kDistBase[c], kDistExtra[c]);
    }
    return w;
}

struct Merged {
    uint32_t value;
    uint32_t bits;
};

// From 2048 symbols the cost of building two merged tables pays off: every
// length, and every distance up to 256, is one look-up of its code already
// joined with its extra bits (at most 15 + 5 and 15 + 7 bits).
BitWriter<uint64_t> code_long(const Nux8u* lit, const Nux16u* dist, Nux32u count, BitWriter<uint64_t> w,
                              const NuxDeflateCode* ll, const NuxDeflateCode* dc) {
    Merged len_tab[256], dist_tab[256];
    for (unsigned b = 0; b < 256; ++b) {
        const unsigned lc = kLengthCode[b];
        const NuxDeflateCode& e = ll[257 + lc];
        len_tab[b] = {e.code | uint32_t(b + 3 - kLengthBase[lc]) << e.len, uint32_t(e.len + kLengthExtra[lc])};
    }
    for (unsigned d = 1; d <= 256; ++d) {
        const unsigned c = dist_code(int(d));
        const NuxDeflateCode& e = dc[c];
        dist_tab[d - 1] = {e.code | uint32_t(d - kDistBase[c]) << e.len, uint32_t(e.len + kDistExtra[c])};
    }
    for (Nux32u k = 0; k < count; ++k) {
        const unsigned b = lit[k], d = dist[k];
        if (d == 0) {
            // Two literals in a row (at most 30 bits) go in as one field.
            if (k + 1 < count && dist[k + 1] == 0) {
                const NuxDeflateCode &x = ll[b], &y = ll[lit[k + 1]];
                w.put(uint64_t(x.code) | uint64_t(y.code) << x.len, unsigned(x.len) + y.len);
                ++k;
            } else {
                w.put(ll[b].code, ll[b].len);
            }
            continue;
        }
        w.put(len_tab[b].value, len_tab[b].bits);
        if (d <= 256) {
            w.put(dist_tab[d - 1].value, dist_tab[d - 1].bits);
        } else {
            const unsigned c = dist_code(int(d));
            w.put(dc[c].code, dc[c].len);
            w.put(d - kDistBase[c], kDistExtra[c]);
        }
    }
    if (w.n >= 32) {
        const uint32_t low = uint32_t(w.acc);
        std::memcpy(w.dst, &low, 4);
        w.dst += 4;
        w.acc >>= 32;
        w.n -= 32;
    }
    return w;
}

}  // namespace

void huff_encode(const Nux8u* pLitLen, const Nux16u* pDist, Nux32u symCount, Nux16u* pBitBuf,
                 Nux32u* pBitCount, const NuxDeflateCode* pLitLenCodes, const NuxDeflateCode* pDistCodes,
                 Nux8u* pDst, Nux32u* pDstPos) {
    uint8_t* const start = pDst + *pDstPos;
    uint8_t* end;
    uint32_t rest;
    unsigned rest_bits;
    if (symCount < 2048) {
        BitWriter<uint32_t> w = code_short(pLitLen, pDist, symCount, {*pBitBuf, *pBitCount, start}, pLitLenCodes,
                                           pDistCodes);
        w.flush_bytes();
        end = w.dst, rest = w.acc, rest_bits = w.n;
    } else {
        BitWriter<uint64_t> w = code_long(pLitLen, pDist, symCount, {*pBitBuf, *pBitCount, start}, pLitLenCodes,
                                          pDistCodes);
        w.flush_bytes();
        end = w.dst, rest = uint32_t(w.acc), rest_bits = w.n;
    }
    *pDstPos += Nux32u(end - start);
    *pBitBuf = Nux16u(rest);
    *pBitCount = rest_bits;
}

}  // namespace nux::deflate

extern "C" NUX_API NuxStatus nuxsDeflateHuff_8u(const Nux8u* pLitLen, const Nux16u* pDist, Nux32u symCount,
                                                Nux16u* pBitBuf, Nux32u* pBitCount,
                                                const NuxDeflateCode* pLitLenCodes,
                                                const NuxDeflateCode* pDistCodes, Nux8u* pDst, Nux32u* pDstPos) {
    NUX_CHECK_PTRS(pLitLen, pDist, pBitBuf, pBitCount, pLitLenCodes, pDistCodes, pDst, pDstPos);
    nux::deflate::huff_encode(pLitLen, pDist, symCount, pBitBuf, pBitCount, pLitLenCodes, pDistCodes, pDst,
                              pDstPos);
    return NuxStatusOk;
}
