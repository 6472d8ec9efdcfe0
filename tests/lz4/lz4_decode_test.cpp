// LZ4 block decoder: every result status with its write-backs, the history
// limits of the three decoders, and the fast loop against the careful loop.
#include <gtest/gtest.h>

#include <cstring>

#include "lz4/decode.h"
#include "nuxzo.h"
#include "support/peers.h"

namespace {

using nuxtest::Bytes;
using nux::lz4::DecodeCursor;
using nux::lz4::History;

// Hand-made blocks, sequence by sequence.
struct BlockWriter {
    Bytes b;
    void length(size_t rest) {
        for (; rest >= 255; rest -= 255) b.push_back(255);
        b.push_back(uint8_t(rest));
    }
    BlockWriter& seq(const Bytes& lit, unsigned off, size_t match) {
        const size_t m = match - 4;
        b.push_back(uint8_t((std::min<size_t>(lit.size(), 15) << 4) | std::min<size_t>(m, 15)));
        if (lit.size() >= 15) length(lit.size() - 15);
        b.insert(b.end(), lit.begin(), lit.end());
        b.push_back(uint8_t(off));
        b.push_back(uint8_t(off >> 8));
        if (m >= 15) length(m - 15);
        return *this;
    }
    BlockWriter& last(const Bytes& lit) {
        b.push_back(uint8_t(std::min<size_t>(lit.size(), 15) << 4));
        if (lit.size() >= 15) length(lit.size() - 15);
        b.insert(b.end(), lit.begin(), lit.end());
        return *this;
    }
};

Bytes text(const char* s) { return Bytes(s, s + std::strlen(s)); }

// liblz4 is the reference decoder.
Bytes reference_decode(const Bytes& block, const Bytes& dict = {}) { return nuxtest::lz4_decompress(block, 1 << 16, dict); }

struct Decoded {
    NuxStatus status;
    int consumed, produced;
    Bytes out;
};

Decoded decode_dict(const Bytes& block, int cap, int dst_idx = 0, const Bytes* dict = nullptr) {
    Decoded d{0, -1, -1, Bytes(size_t(dst_idx + cap), 0xEE)};
    d.consumed = int(block.size());
    d.produced = cap;
    d.status = nuxsDecodeLZ4Dict_8u(block.data(), &d.consumed, d.out.data(), dst_idx, &d.produced,
                                    dict ? dict->data() : nullptr, dict ? int(dict->size()) : 0);
    return d;
}

TEST(Lz4Decode, StatusesAndWriteBacks) {
    const Bytes tail = text("the end of it");
    const Bytes block = BlockWriter().seq(text("hello, "), 7, 14).seq(text("world"), 0 + 26, 5).last(tail).b;
    const Bytes want = reference_decode(block), cut(block.begin(), block.end() - 3);
    ASSERT_EQ(want.size(), 7u + 14 + 5 + 5 + tail.size());
    const int n = int(want.size()), b = int(block.size());
    struct Case {
        const char* what;
        const Bytes& src;
        int cap;
        NuxStatus status;
        int consumed, produced;  // consumed -1: not pinned
    };
    const Bytes one_byte{0x00};
    for (const Case& c : {
             Case{"exactly the needed room", block, n, NuxStatusOk, b, n},
             // Filled to its last byte, the consumed count inside the last sequence.
             Case{"one byte short", block, n - 1, NuxStatusDstFull, b - 1, n - 1},
             Case{"a match cut by the destination end", block, 10, NuxStatusDstFull, -1, 10},
             Case{"source cut inside the last literal run", cut, 100, NuxStatusSrcEmpty, b - 3, n - 3},
             Case{"a single byte is never decoded", one_byte, 100, NuxStatusSrcEmpty, 0, 0},
             Case{"full at the end of a literal run, source left", block, 7, NuxStatusOk, 8, 7}}) {
        SCOPED_TRACE(c.what);
        const Decoded d = decode_dict(c.src, c.cap);
        EXPECT_EQ(d.status, c.status);
        if (c.consumed >= 0) {
            EXPECT_EQ(d.consumed, c.consumed);
        }
        EXPECT_EQ(d.produced, c.produced);
        EXPECT_TRUE(std::equal(d.out.begin(), d.out.begin() + d.produced, want.begin()));
    }
    // The plain export reports only the produced length.
    int len = n;
    Bytes out(want.size());
    EXPECT_EQ(NuxStatusOk, nuxsDecodeLZ4_8u(block.data(), b, out.data(), &len));
    EXPECT_EQ(out, want);
}

TEST(Lz4Decode, ArgumentChecksInOrder) {
    Bytes out(16);
    int len = 16, src_len = 4;
    const Bytes b{0x40, 'a', 'b', 'c', 'd'};
    EXPECT_EQ(NuxStatusNullPtr, nuxsDecodeLZ4_8u(nullptr, 0, out.data(), &len));
    EXPECT_EQ(NuxStatusNullPtr, nuxsDecodeLZ4_8u(b.data(), 5, out.data(), nullptr));
    EXPECT_EQ(NuxStatusSize, nuxsDecodeLZ4_8u(b.data(), 0, out.data(), &len));
    len = 0;
    EXPECT_EQ(NuxStatusSize, nuxsDecodeLZ4_8u(b.data(), 5, out.data(), &len));
    EXPECT_EQ(len, 0);
    len = 16;
    EXPECT_EQ(NuxStatusNullPtr, nuxsDecodeLZ4Dict_8u(b.data(), nullptr, out.data(), 0, &len, nullptr, 0));
    // Separate dictionary with a negative size; the prefix and plain forms
    // never look at it.
    const Bytes dict(8, 'x');
    EXPECT_EQ(NuxStatusSize, nuxsDecodeLZ4Dict_8u(b.data(), &src_len, out.data(), 0, &len, dict.data(), -3));
    src_len = 0;
    EXPECT_EQ(NuxStatusSize, nuxsDecodeLZ4Dict_8u(b.data(), &src_len, out.data(), 0, &len, dict.data(), 8));
    EXPECT_EQ(src_len, 0);
}

TEST(Lz4Decode, HistoryStartOfEachDecoder) {
    const Bytes lit = text("0123456789");
    auto reach = [&](unsigned off) { return BlockWriter().seq(lit, off, 20).last(text("0123456789abcd")).b; };

    // Plain: the output start is the limit.
    EXPECT_EQ(decode_dict(reach(10), 100).status, NuxStatusOk);
    Decoded d = decode_dict(reach(11), 100);
    EXPECT_EQ(d.status, NuxStatusDataErr);
    EXPECT_EQ(d.consumed, int(reach(11).size()));  // untouched on error
    EXPECT_EQ(d.produced, 100);
    // A null dictionary with dstIdx > 0: the bytes in front are not history.
    EXPECT_EQ(decode_dict(reach(11), 100, 5).status, NuxStatusDataErr);

    // Prefix: the dictionary just in front of the output.
    Bytes buf(200, 0);
    for (int i = 0; i < 6; ++i) buf[size_t(i)] = uint8_t('A' + i);
    for (unsigned off : {16u, 17u}) {
        const Bytes blk = reach(off);
        int src_len = int(blk.size()), len = 100;
        const NuxStatus st = nuxsDecodeLZ4Dict_8u(blk.data(), &src_len, buf.data(), 6, &len, buf.data(), 6);
        EXPECT_EQ(st, off == 16 ? NuxStatusOk : NuxStatusDataErr);
        if (off == 16) {
            EXPECT_EQ(Bytes(buf.begin() + 16, buf.begin() + 22), text("ABCDEF"));
        }
    }

    // Separate dictionary: pDst is the limit; positions below dictSize read
    // the dictionary, and a match runs on from its end into the output.
    const Bytes dict = text("abcdefgh");
    for (unsigned off : {18u, 19u}) {
        const Bytes blk = reach(off);
        d = decode_dict(blk, 100, 8, &dict);
        EXPECT_EQ(d.status, off == 18 ? NuxStatusOk : NuxStatusDataErr);
        if (off == 18) {
            EXPECT_EQ(Bytes(d.out.begin() + 8, d.out.begin() + 8 + d.produced), reference_decode(blk, dict));
        }
    }
}

TEST(Lz4Decode, OffsetZeroLeavesDestinationBytes) {
    const Bytes blk = BlockWriter().seq(text("abcd"), 0, 6).last(text("0123456789abcd")).b;
    Decoded d = decode_dict(blk, 100);
    EXPECT_EQ(d.status, NuxStatusOk);
    EXPECT_EQ(d.produced, 4 + 6 + 14);
    EXPECT_EQ(Bytes(d.out.begin() + 4, d.out.begin() + 10), Bytes(6, 0xEE));
}

TEST(Lz4Decode, MatchLengthOverflowIsASizeError) {
    BlockWriter w;
    // Literal 'a', offset 1, then 255-bytes that sum past INT32_MAX.
    w.b.assign(size_t(INT32_MAX) / 255 + 6, 255);
    w.b[0] = 0x1F;
    w.b[1] = 'a';
    w.b[2] = 1;
    w.b[3] = 0;
    w.b.back() = 0;
    w.last(text("0123456789"));
    int src_len = int(w.b.size()), len = 1 << 20;
    Bytes out(static_cast<size_t>(len));
    EXPECT_EQ(NuxStatusSize, nuxsDecodeLZ4Dict_8u(w.b.data(), &src_len, out.data(), 0, &len, nullptr, 0));
}

// Runs the careful loop alone, or the fast loop first, on the same block.
Decoded run_loops(const Bytes& block, int cap, bool fast) {
    Decoded d{0, 0, 0, Bytes(size_t(cap), 0)};
    DecodeCursor c{block.data(), block.data() + block.size(), d.out.data(), d.out.data() + cap, d.out.data(),
                   nullptr, nullptr};
    if (fast) nux::lz4::decode_fast<History::kPlain>(c);
    d.status = nux::lz4::decode_careful<History::kPlain>(c);
    d.consumed = int(c.ip - block.data());
    d.produced = int(c.op - d.out.data());
    d.out.resize(size_t(d.produced));
    return d;
}

TEST(Lz4Decode, FastAndCarefulLoopsAgree) {
    // Long overlapping matches at every small offset, inside the fast loop's
    // margins and right at the end.
    const Bytes lit = text("abcdefghijklmnopqrstuvwxyz");
    for (unsigned off = 1; off <= 26; ++off) {
        for (size_t len : {4u, 15u, 16u, 17u, 19u, 33u, 300u}) {
            BlockWriter w;
            w.seq(lit, off, len).seq(text("xy"), off + 2, len).last(Bytes(40, 'z'));
            const Decoded careful = run_loops(w.b, 1000, false), fast = run_loops(w.b, 1000, true);
            ASSERT_EQ(careful.status, NuxStatusOk);
            ASSERT_EQ(fast.status, NuxStatusOk);
            ASSERT_EQ(careful.out, reference_decode(w.b)) << off << " " << len;
            ASSERT_EQ(fast.out, careful.out) << off << " " << len;
        }
    }
    // The fast loop really decodes something of a long block.
    const Bytes data = nuxtest::compressible_bytes(100000, 3), block = nuxtest::lz4_compress(data);
    Decoded fast_only{0, 0, 0, Bytes(data.size())};
    DecodeCursor c{block.data(), block.data() + block.size(), fast_only.out.data(),
                   fast_only.out.data() + data.size(), fast_only.out.data(), nullptr, nullptr};
    nux::lz4::decode_fast<History::kPlain>(c);
    EXPECT_GT(c.op - fast_only.out.data(), 99000);
    // And the loops agree at every capacity near the end.
    for (int cap = int(data.size()) - 70; cap <= int(data.size()); ++cap) {
        const Decoded a = run_loops(block, cap, false), b = run_loops(block, cap, true);
        ASSERT_EQ(a.status, b.status);
        ASSERT_EQ(a.consumed, b.consumed);
        ASSERT_EQ(a.out, b.out);
        ASSERT_TRUE(std::equal(a.out.begin(), a.out.end(), data.begin()));
    }
}

// Long matches separated by a few literals: the fast loop then reaches its
// destination margin with a sequence whose literals pass it.
Bytes long_matches(size_t n) {
    const Bytes noise = nuxtest::random_bytes(n, 10);
    Bytes data;
    for (size_t i = 0; data.size() < n; ++i) {
        data.insert(data.end(), noise.begin() + std::ptrdiff_t(i * 7 % 900), noise.begin() + std::ptrdiff_t(i * 7 % 900 + 3 + i % 11));
        if (data.size() > 200) data.insert(data.end(), data.end() - 200, data.end() - 200 + std::ptrdiff_t(40 + i * 13 % 150));
    }
    data.resize(n);
    return data;
}

class Lz4DecodeBounds : public ::testing::TestWithParam<int> {};

TEST_P(Lz4DecodeBounds, NoAccessOutsideBuffersAtAnyCapacity) {
    const Bytes data = GetParam() == 0 ? nuxtest::compressible_bytes(3000, 9) : long_matches(3000);
    const Bytes block = nuxtest::lz4_compress(data);
    nuxtest::GuardedBuffer src(block.size());
    std::memcpy(src.data(), block.data(), block.size());
    for (int cap = 1; cap <= int(data.size()); cap += (cap < 100 || cap > 2900 ? 1 : 7)) {
        nuxtest::GuardedBuffer dst{size_t(cap)};
        int len = cap;
        const NuxStatus st = nuxsDecodeLZ4_8u(src.data(), int(block.size()), dst.data(), &len);
        // Full at the end of a literal run counts as success.
        if (cap == int(data.size())) {
            ASSERT_EQ(st, NuxStatusOk);
        }
        ASSERT_TRUE(st == NuxStatusOk || st == NuxStatusDstFull) << cap;
        ASSERT_EQ(len, cap);
        ASSERT_EQ(0, std::memcmp(dst.data(), data.data(), size_t(cap)));
    }
    // Every truncation of the source, decoded into exact room.
    for (size_t n = 1; n < block.size(); n += 7) {
        nuxtest::GuardedBuffer s(n), dst(data.size());
        std::memcpy(s.data(), block.data(), n);
        int src_len = int(n), len = int(data.size());
        const NuxStatus st = nuxsDecodeLZ4Dict_8u(s.data(), &src_len, dst.data(), 0, &len, nullptr, 0);
        ASSERT_GE(st, 0);
        ASSERT_LE(src_len, int(n));
        ASSERT_EQ(0, std::memcmp(dst.data(), data.data(), size_t(len)));
    }
}

INSTANTIATE_TEST_SUITE_P(TextAndLongMatches, Lz4DecodeBounds, ::testing::Values(0, 1));

TEST(Lz4Decode, PeerDictionaryBlocksDecodeThroughPrefixAndSeparateForms) {
    const Bytes all = nuxtest::compressible_bytes(200000, 21);
    const size_t dict_size = 65536;
    const Bytes dict(all.begin(), all.begin() + dict_size), data(all.begin() + dict_size, all.end());
    LZ4_stream_t* stream = LZ4_createStream();
    LZ4_loadDict(stream, reinterpret_cast<const char*>(dict.data()), int(dict.size()));
    Bytes block(size_t(LZ4_compressBound(int(data.size()))));
    block.resize(size_t(LZ4_compress_fast_continue(stream, reinterpret_cast<const char*>(data.data()),
                                                   reinterpret_cast<char*>(block.data()), int(data.size()),
                                                   int(block.size()), 1)));
    LZ4_freeStream(stream);

    // Separate dictionary buffer.
    Decoded d = decode_dict(block, int(data.size()), int(dict_size), &dict);
    ASSERT_EQ(d.status, NuxStatusOk);
    EXPECT_TRUE(std::equal(data.begin(), data.end(), d.out.begin() + std::ptrdiff_t(dict_size)));
    // The same bytes in front of the output: the prefix form.
    Bytes buf = dict;
    buf.resize(all.size());
    int src_len = int(block.size()), len = int(data.size());
    ASSERT_EQ(NuxStatusOk, nuxsDecodeLZ4Dict_8u(block.data(), &src_len, buf.data(), int(dict_size), &len,
                                                buf.data(), int(dict_size)));
    EXPECT_EQ(buf, all);
}

TEST(Lz4Decode, LeavesUpperVectorStateClean) {
    if (!nuxtest::can_check_upper_vector_state()) GTEST_SKIP();
    const Bytes data = nuxtest::compressible_bytes(5000, 1), block = nuxtest::lz4_compress(data);
    Bytes out(data.size());
    EXPECT_TRUE(nuxtest::leaves_upper_state_clean([&] {
        int len = int(out.size());
        nuxsDecodeLZ4_8u(block.data(), int(block.size()), out.data(), &len);
    }));
    const Bytes dict(100, 'q');
    EXPECT_TRUE(nuxtest::leaves_upper_state_clean([&] {
        int src_len = int(block.size()), len = int(out.size());
        nuxsDecodeLZ4Dict_8u(block.data(), &src_len, out.data(), 0, &len, dict.data(), 100);
    }));
}

}  // namespace
