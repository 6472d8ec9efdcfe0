// The Huffman block coder: both accumulator paths give the same bits, calls
// split anywhere give the same bytes, extra bits follow RFC 1951, and
// nothing is stored past the last reported byte.
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "streams/deflate_stream.h"
#include "deflate/rfc1951.h"
#include "support/peers.h"

namespace {

using nuxtest::Bytes;

struct Stream {
    Bytes lit;
    std::vector<Nux16u> dist;
};

// A mixed stream of literals and matches over every length and distance range.
Stream random_stream(size_t n, uint32_t seed) {
    std::mt19937 rng(seed);
    Stream s;
    for (size_t k = 0; k < n; ++k) {
        const bool literal = rng() % 3 == 0;
        s.lit.push_back(uint8_t(rng()));
        s.dist.push_back(literal ? 0 : uint16_t(1 + (rng() % 4 == 0 ? rng() % 256 : rng() % 32767)));
    }
    return s;
}

// Codes for every symbol of the two tables (all in use, 15-bit limit), or
// with seed 0 the fixed codes of block type 01.
struct Codes {
    NuxDeflateCode ll[288], dc[30];
    explicit Codes(uint32_t seed) {
        std::mt19937 rng(seed);
        uint32_t f[286], g[30];
        for (auto& x : f) x = 1 + rng() % 1000 * (rng() % 7 == 0 ? 1000 : 1);
        for (auto& x : g) x = 1 + rng() % 100;
        uint8_t l[288], m[30];
        nuxzo::deflate_stream::build_lengths(f, 286, 15, l);
        nuxzo::deflate_stream::build_lengths(g, 30, 15, m);
        for (int k = 0; seed == 0 && k < 288; ++k) l[k] = uint8_t(nux::rfc1951::fixed_litlen_length(k));
        if (seed == 0) std::fill(m, m + 30, uint8_t(nux::rfc1951::kFixedDistLength));
        nuxzo::deflate_stream::assign_codes(l, seed ? 286 : 288, ll);
        nuxzo::deflate_stream::assign_codes(m, 30, dc);
    }
};

struct Coded {
    Bytes bytes;
    Nux16u bits;
    Nux32u count;
};

// Codes symbols [0, n) in calls of the given sizes.
Coded code(const Stream& s, const Codes& c, const std::vector<size_t>& pieces, Nux16u bits = 0, Nux32u count = 0) {
    Bytes out(s.lit.size() * 6 + 16, 0xCC);
    Nux32u pos = 0;
    size_t at = 0;
    for (size_t piece : pieces) {
        EXPECT_EQ(nuxsDeflateHuff_8u(s.lit.data() + at, s.dist.data() + at, Nux32u(piece), &bits, &count, c.ll, c.dc,
                                     out.data(), &pos),
                  NuxStatusOk);
        EXPECT_LE(count, 7u);
        at += piece;
    }
    // Nothing beyond the reported end was touched.
    for (size_t k = pos; k < out.size(); ++k) EXPECT_EQ(out[k], 0xCC) << k;
    out.resize(pos);
    return {out, bits, count};
}

// Calls split anywhere (single symbols, around the 2048-symbol switch
// between the short and the 64-bit path, random pieces) give the same bytes,
// pending input bits come out first, and the output written straight against
// a guard page leaves the upper vector state clean.
TEST(HuffEncode, AnySplitGivesTheSameBits) {
    const Stream s = random_stream(5000, 1);
    const Codes c(2);
    const Coded whole = code(s, c, {5000});
    std::vector<size_t> ones(5000, 1), mixed;
    for (size_t left = 5000, k = 0; left > 0; ++k) {
        mixed.push_back(std::min(left, size_t(k * 977 % 3001)));
        left -= mixed.back();
    }
    for (const std::vector<size_t>& pieces : {std::vector<size_t>{2047, 2953}, {2048, 2952}, {2048, 0, 2952}, ones, mixed})
        EXPECT_EQ(code(s, c, pieces).bytes, whole.bytes) << pieces.size() << " pieces";
    const Coded pre_short = code(s, c, {100}, 0x1ABC, 13), pre_long = code(s, c, {2100}, 0x1ABC, 13);
    EXPECT_EQ(pre_short.bytes[0], 0xBC);
    EXPECT_EQ(Bytes(pre_long.bytes.begin(), pre_long.bytes.begin() + 50),
              Bytes(pre_short.bytes.begin(), pre_short.bytes.begin() + 50));

    nuxtest::GuardedBuffer g(whole.bytes.size());
    Nux16u bits = 0;
    Nux32u count = 0, pos = 0;
    EXPECT_TRUE(nuxtest::leaves_upper_state_clean([&] {
        nuxsDeflateHuff_8u(s.lit.data(), s.dist.data(), 5000, &bits, &count, c.ll, c.dc, g.data(), &pos);
    }));
    EXPECT_EQ(pos, whole.bytes.size());
    EXPECT_EQ(0, std::memcmp(g.data(), whole.bytes.data(), pos));
}

// Distances beyond Deflate's 32768 and code lengths beyond 15 are the
// caller's errors; the coder must still stay inside its tables and inside the
// worst-case room of 6 bytes per symbol (ASan watches the reads and writes).
TEST(HuffEncode, InvalidDistancesAndLengthsStayInBounds) {
    Stream s = random_stream(3000, 5);
    for (size_t k = 0; k < s.dist.size(); k += 7) s.dist[k] = uint16_t(32769 + k * 13 % 32767);
    Codes c(3);
    for (size_t k = 0; k < 288; k += 5) c.ll[k] = {0xFFFF, uint16_t(40 + k)};
    for (auto& e : c.dc) e.len = 0xFFFF;
    for (size_t n : {100, 3000}) {
        const Stream part{Bytes(s.lit.begin(), s.lit.begin() + n), std::vector<Nux16u>(s.dist.begin(), s.dist.begin() + n)};
        EXPECT_LE(code(part, c, {n}).bytes.size(), 6 * n);
    }
}

TEST(HuffEncode, NoSymbolsFlushesWholePendingBytes) {
    const Codes c(3);
    Nux8u lit = 0;
    Nux16u dist = 0, bits = 0x1ABC;
    Nux32u count = 13, pos = 5;
    Bytes out(16, 0);
    ASSERT_EQ(nuxsDeflateHuff_8u(&lit, &dist, 0, &bits, &count, c.ll, c.dc, out.data(), &pos), NuxStatusOk);
    EXPECT_EQ(pos, 6u);
    EXPECT_EQ(out[5], 0xBC);
    EXPECT_EQ(count, 5u);
    EXPECT_EQ(bits, 0x1A);
    EXPECT_EQ(nuxsDeflateHuff_8u(&lit, &dist, 0, &bits, nullptr, c.ll, c.dc, out.data(), &pos), NuxStatusNullPtr);
}

// A block coded with the fixed codes and inflated by zlib: lengths 3, 10, 11
// (one extra bit), 257, 258 (no extra bits) and distances 256 (merged entry)
// and 257 (separate), in both paths.
TEST(HuffEncode, ExtraBitsDecodeWithZlib) {
    Bytes expect;
    Stream s;
    for (int k = 0; k < 300; ++k) {
        s.lit.push_back(uint8_t(k * 7));
        s.dist.push_back(0);
        expect.push_back(uint8_t(k * 7));
    }
    const int lens[] = {3, 10, 11, 12, 257, 258, 100};
    const int dists[] = {1, 256, 257, 300, 2, 255, 299};
    for (int rep = 0; rep < 400; ++rep)
        for (int k = 0; k < 7; ++k) {
            const int len = lens[(k + rep) % 7], d = dists[(k * 3 + rep) % 7];
            s.lit.push_back(uint8_t(len - 3));
            s.dist.push_back(uint16_t(d));
            for (int i = 0; i < len; ++i) expect.push_back(expect[expect.size() - size_t(d)]);
        }
    const Codes fixed(0);
    for (size_t n : {size_t(1000), s.lit.size()}) {
        Stream part{Bytes(s.lit.begin(), s.lit.begin() + n), std::vector<Nux16u>(s.dist.begin(), s.dist.begin() + n)};
        Coded body = code(part, fixed, {n}, 3, 3);  // BFINAL 1, BTYPE 01
        // End of block (7 zero bits) and padding.
        body.bytes.push_back(uint8_t(body.bits));
        if (body.count + 7 > 8) body.bytes.push_back(0);
        size_t want = 0;
        for (size_t k = 0; k < n; ++k) want += part.dist[k] ? part.lit[k] + 3u : 1u;
        const nuxtest::Inflated r = nuxtest::zlib_inflate(body.bytes, expect.size() + 10);
        EXPECT_EQ(r.status, Z_STREAM_END);
        EXPECT_EQ(r.out, nuxtest::head(expect, want));
    }
}

}  // namespace
