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

// A code's length as the coder uses it. Deflate codes are at most 15 bits
// long; a longer length (the caller's error, which the call does not check)
// is cut, so that no field outgrows the accumulator and the output stays
// within the caller's worst-case room.
inline unsigned code_bits(const NuxDeflateCode& e) { return e.len & 15u; }

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

// Index of distance d in RFC 1951's distance code map (and of the
// distance-field table below). Distances are taken modulo 32768, so that even an
// invalid value stays inside the table.
inline unsigned dist_index(uint32_t d) {
    const uint32_t dm1 = (d - 1) & 0x7FFF, far = dm1 > 255;
    return (dm1 >> (far * 7)) + (far << 8);
}

// Below 2048 symbols: a 32-bit accumulator, each code and extra-bit field
// inserted on its own.
// The writer travels by value: as a local its accumulator stays in registers,
// where the byte stores through its output pointer cannot alias it.
BitWriter<uint32_t> code_short(const Nux8u* lit, const Nux16u* dist, Nux32u count, BitWriter<uint32_t> w,
                               const NuxDeflateCode* ll, const NuxDeflateCode* dc) {
    for (Nux32u k = 0; k < count; ++k) {
        const unsigned b = lit[k], d = dist[k];
        if (d == 0) {
            w.put(ll[b].code, code_bits(ll[b]));
            continue;
        }
        const unsigned lc = kLengthCode[b];
        w.put(ll[257 + lc].code, code_bits(ll[257 + lc]));
        if (kLengthExtra[lc]) w.put(b + 3 - kLengthBase[lc], kLengthExtra[lc]);
        const unsigned c = rfc1951::kDistCode[dist_index(d)];
        w.put(dc[c].code, code_bits(dc[c]));
        if (kDistExtra[c]) w.put(d - kDistBase[c], kDistExtra[c]);
    }
    return w;
}

// A literal's code, or a length code joined with its extra bits.
struct Field {
    uint32_t value;
    uint32_t bits;
};

// A whole symbol: literal, or length and distance fields joined.
struct WideField {
    uint64_t value;
    uint32_t bits;
};

// A distance code with its extra bits: the field of distance d is
// value | (d - base) << shift, `bits` long. Up to 256 there is one entry per
// distance with the extra bits already in `value` (base = d); above, one
// entry per (d - 1) >> 7 with the code in `value`.
struct DistField {
    uint32_t value;
    uint8_t shift, bits;
    uint16_t base;
};

// From 2048 symbols the cost of building merged tables pays off. Literals
// and lengths share one table (a length's code already joined with its extra
// bits, at most 15 + 5 bits), and every distance is one look-up of its code
// and extra bits, so a whole symbol becomes one field of at most 48 bits
// (15 + 5 + 15 + 13). No step branches on the data (literal or match follows
// it): a literal's distance 0 selects an empty distance entry.
class LongCoder {
public:
    LongCoder(const NuxDeflateCode* ll, const NuxDeflateCode* dc) {
        for (unsigned b = 0; b < 256; ++b) {
            first_[b] = {ll[b].code, code_bits(ll[b])};
            const unsigned lc = kLengthCode[b];
            const NuxDeflateCode& e = ll[257 + lc];
            const unsigned n = code_bits(e);
            first_[256 + b] = {e.code | uint32_t(b + 3 - kLengthBase[lc]) << n, n + kLengthExtra[lc]};
        }
        for (unsigned d = 1; d <= 256; ++d) {
            const unsigned c = dist_code(int(d));
            const unsigned n = code_bits(dc[c]);
            dist_[d - 1] = {dc[c].code | uint32_t(d - kDistBase[c]) << n, 0, uint8_t(n + kDistExtra[c]), uint16_t(d)};
        }
        for (unsigned h = 0; h < 256; ++h) {
            const unsigned c = rfc1951::kDistCode[256 + h];
            const unsigned n = code_bits(dc[c]);
            dist_[256 + h] = {dc[c].code, uint8_t(n), uint8_t(n + kDistExtra[c]), kDistBase[c]};
        }
        // Distances above 32768 (the caller's error) wrap around, except the
        // top 127, which share the empty last entry with a literal's distance 0.
        for (unsigned h = 512; h < 767; ++h) dist_[h] = dist_[h - 256];
        dist_[767] = {0, 0, 0, 0};
    }

    // The field of a literal (d == 0) or of a match (length byte b, distance d).
    WideField field(unsigned b, uint32_t d) const {
        // Whether d is a match, and whether it is above 256, follow the data:
        // the values that depend on them are hidden from the compiler, which
        // would otherwise branch on them (and mispredict about every other
        // symbol); the distance index is a conditional move.
        uint32_t is_match = d != 0;
        // As dist_index, but 16 bits wide, so that distance 0 has an entry of its own.
        const uint32_t dm1 = (d - 1) & 0xFFFF;
        uint32_t index = dm1 > 255 ? 256 + (dm1 >> 7) : dm1;
        asm("" : "+r"(is_match), "+r"(index));
        const Field f = first_[b + (is_match << 8)];
        const DistField& e = dist_[index];
        const uint64_t dv = e.value | uint64_t(d - e.base) << e.shift;
        return {f.value | dv << f.bits, uint32_t(f.bits + e.bits)};
    }

private:
    Field first_[512];  // literal b at b, match length byte b at 256 + b
    DistField dist_[768];
};

// The 64-bit path. While at least 64 bits of symbols are still to come, each
// field is added below the 0..7 pending bits and the whole word is stored
// unconditionally: its complete bytes are output, and the bytes above them,
// which may run up to 7 bytes past the current end, are written again by the
// symbols that follow before the call's end. The symbols of the last 64 bits
// go out word by word, so nothing is stored past the last reported byte.
BitWriter<uint64_t> code_long(const Nux8u* lit, const Nux16u* dist, Nux32u count, BitWriter<uint64_t> w,
                              const NuxDeflateCode* ll, const NuxDeflateCode* dc) {
    const LongCoder coder(ll, dc);
    Nux32u tail = count;
    for (uint32_t bits = 0; tail > 0 && bits < 64; --tail) bits += coder.field(lit[tail - 1], dist[tail - 1]).bits;
    w.flush_bytes();
    uint64_t acc = w.acc;
    unsigned n = w.n;
    uint8_t* dst = w.dst;
    for (Nux32u k = 0; k < tail; ++k) {
        const WideField f = coder.field(lit[k], dist[k]);
        acc |= f.value << n;  // n <= 7 and a field has at most 48 bits
        n += f.bits;
        std::memcpy(dst, &acc, 8);
        dst += n >> 3;
        acc >>= n & 56;
        n &= 7;
    }
    w = {acc, n, dst};
    for (Nux32u k = tail; k < count; ++k) {
        const WideField f = coder.field(lit[k], dist[k]);
        w.put(f.value, f.bits);
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
