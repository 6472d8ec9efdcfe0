// Polynomial arithmetic over GF(2) for the CRC tables and the constants of
// the carry-less-multiply kernels, all evaluated at compile time.
//
// A CRC is the remainder of M(x) * x^32 divided by the generator P(x) of
// degree 32, where M(x) is the message read as one long polynomial. Two bit
// orders are in use:
//
//  - reflected (CRC-32, CRC-32C): the first bit of the message is bit 0 of
//    the first byte. A 32-bit value holds the coefficient of x^(31-k) in its
//    bit k, and P - x^32 is written reflected (0xEDB88320, 0x82F63B78).
//    Multiplying by x is a right shift; a 1 falling out of bit 0 is x^32,
//    which is replaced by P - x^32.
//  - normal (bzip2): the first bit is the top bit of the first byte; bit k
//    holds the coefficient of x^k, multiplying by x is a left shift.
//
// Folding: the CRC of a long message only depends on each block's
// contribution modulo P, so a block B that sits D bits before the end of the
// data processed so far can be replaced by B(x) * (x^D mod P), a product of
// 32 bits by 64 that a carry-less multiply computes in one step. The kernels
// keep 128-bit blocks "in flight" and multiply each half by x^n mod P for the
// distance n that half still has to travel; the constant functions below
// compute those powers in the layout each kernel needs.
#pragma once

#include <array>
#include <cstddef>

#include "nuxzo.h"

namespace nux::crc {

inline constexpr Nux32u kPolyCrc32 = 0xEDB88320u;   // 0x04C11DB7 reflected
inline constexpr Nux32u kPolyCrc32c = 0x82F63B78u;  // 0x1EDC6F41 reflected
inline constexpr Nux32u kPolyBzip2 = 0x04C11DB7u;   // normal order

// x^n mod P, reflected layout (bit k is the coefficient of x^(31-k)).
constexpr Nux32u xpow_reflected(unsigned n, Nux32u poly) {
    Nux32u r = 0x80000000u;  // x^0
    while (n--) r = (r >> 1) ^ ((r & 1) ? poly : 0);
    return r;
}

// x^n mod P, normal layout (bit k is the coefficient of x^k).
constexpr Nux32u xpow_normal(unsigned n, Nux32u poly) {
    Nux32u r = 1;
    while (n--) r = (r << 1) ^ ((r & 0x80000000u) ? poly : 0);
    return r;
}

// Reflected multiplier for a carry-less multiply: x^n mod P shifted up one
// bit, so that bit j is the coefficient of x^(32-j). A 64-bit reflected
// operand (bit i: x^(63-i)) times this lands bit i+j on x^(95-i-j), which is
// where a 128-bit reflected register (bit m: x^(127-m)) expects it after a
// further x^32. So "fold a reflected 64-bit half forward by D bits" uses
// n = D + 32 for the half that comes first in the stream (the low one) and
// n = D - 32 for the one after it (the high one), and "turn a 32-bit state
// into a 64-bit word that, appended, has the same effect as d zero bytes"
// uses n = 8d - 32.
constexpr Nux64u fold_reflected(unsigned n, Nux32u poly) { return Nux64u(xpow_reflected(n, poly)) << 1; }

// Carry-less product of two values whose product fits 64 bits.
constexpr Nux64u clmul_small(Nux64u a, Nux64u b) {
    Nux64u r = 0;
    for (int i = 0; i < 64; ++i)
        if ((b >> i) & 1) r ^= a << i;
    return r;
}

// Slicing tables for a reflected CRC: T[0] is the byte-at-a-time table and
// T[k][i] = (T[k-1][i] >> 8) ^ T[0][T[k-1][i] & 0xFF], the effect of byte i
// followed by k zero bytes.
template <size_t K>
constexpr std::array<std::array<Nux32u, 256>, K> slicing_tables(Nux32u poly) {
    std::array<std::array<Nux32u, 256>, K> t{};
    for (Nux32u i = 0; i < 256; ++i) {
        Nux32u r = i;
        for (int b = 0; b < 8; ++b) r = (r >> 1) ^ ((r & 1) ? poly : 0);
        t[0][i] = r;
    }
    for (size_t k = 1; k < K; ++k)
        for (size_t i = 0; i < 256; ++i) t[k][i] = (t[k - 1][i] >> 8) ^ t[0][t[k - 1][i] & 0xFF];
    return t;
}

// Most-significant-bit-first byte table: entry i is (i << 24) * x^8 mod P.
constexpr std::array<Nux32u, 256> msb_table(Nux32u poly) {
    std::array<Nux32u, 256> t{};
    for (Nux32u i = 0; i < 256; ++i) {
        Nux32u r = i << 24;
        for (int b = 0; b < 8; ++b) r = (r << 1) ^ ((r & 0x80000000u) ? poly : 0);
        t[i] = r;
    }
    return t;
}

constexpr Nux32u bswap32(Nux32u v) {
    return (v >> 24) | ((v >> 8) & 0xFF00u) | ((v << 8) & 0xFF0000u) | (v << 24);
}

// The bzip2 CRC advanced on a byte-swapped register: shifting the normal
// register left by 8 is shifting the swapped one right by 8, so a table of
// byte-swapped entries runs the MSB-first CRC exactly like a reflected one,
// slicing included.
template <size_t K>
constexpr std::array<std::array<Nux32u, 256>, K> swapped_slicing_tables(Nux32u poly) {
    const auto m = msb_table(poly);
    std::array<std::array<Nux32u, 256>, K> t{};
    for (size_t i = 0; i < 256; ++i) t[0][i] = bswap32(m[i]);
    for (size_t k = 1; k < K; ++k)
        for (size_t i = 0; i < 256; ++i) t[k][i] = (t[k - 1][i] >> 8) ^ t[0][t[k - 1][i] & 0xFF];
    return t;
}

// Byte products for shifting a reflected 32-bit state over d bytes: entry b
// is b * fold_reflected(8d - 32). The four bytes of a state s contribute
// entry[s byte j] << 8j; their XOR is a 64-bit word U with
// U(x) * x^32 = s(x) * x^(8d) mod P, to be XORed into the word that follows.
constexpr std::array<Nux64u, 256> shift_table(unsigned d_bytes, Nux32u poly) {
    std::array<Nux64u, 256> t{};
    const Nux64u k = fold_reflected(8 * d_bytes - 32, poly);
    for (Nux64u b = 0; b < 256; ++b) t[b] = clmul_small(b, k);
    return t;
}

}  // namespace nux::crc

namespace nux::crc {

constexpr Nux32u bitrev32(Nux32u v) {
    Nux32u r = 0;
    for (int i = 0; i < 32; ++i) r |= ((v >> i) & 1u) << (31 - i);
    return r;
}

// a * b mod P in the normal layout (poly = P - x^32).
constexpr Nux32u mulmod_normal(Nux32u a, Nux32u b, Nux32u poly) {
    Nux64u prod = clmul_small(a, b);
    for (int bit = 62; bit >= 32; --bit)
        if ((prod >> bit) & 1) prod ^= (Nux64u(poly) | (Nux64u(1) << 32)) << (bit - 32);
    return Nux32u(prod);
}

// x^n mod P for large n, by squaring; normal layout.
constexpr Nux32u xpow_normal_fast(Nux64u n, Nux32u poly) {
    Nux32u result = 1, base = 2;  // x^0, x^1
    for (; n; n >>= 1) {
        if (n & 1) result = mulmod_normal(result, base, poly);
        base = mulmod_normal(base, base, poly);
    }
    return result;
}

static_assert(xpow_normal_fast(4000, kPolyBzip2) == xpow_normal(4000, kPolyBzip2));
static_assert(bitrev32(xpow_normal_fast(4000, bitrev32(kPolyCrc32))) == xpow_reflected(4000, kPolyCrc32));

}  // namespace nux::crc
