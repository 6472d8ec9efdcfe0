// Table builder and block decoder called directly: which code-length sets
// are accepted and which layout they get, the argument checks, resumption
// inside a match and inside a symbol, matches from the circular window, and
// random complete codes whose symbols both compilations of the fast loop
// must decode to what a bit writer wrote.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "core/cpu.h"
#include "deflate/inflate_tables.h"
#include "deflate/rfc1951.h"
#include "nuxzo.h"
#include "support/test_support.h"

namespace {

using Lens = std::vector<Nux16u>;
namespace rfc = nux::rfc1951;

// Deflate bit writer: fields least significant bit first, Huffman codes most
// significant bit first (RFC 1951 section 3.1.1).
struct BitWriter {
    std::vector<uint8_t> bytes;
    uint64_t acc = 0;
    unsigned n = 0;
    void put(uint32_t v, unsigned bits) {
        acc |= uint64_t(v) << n;
        for (n += bits; n >= 8; n -= 8, acc >>= 8) bytes.push_back(uint8_t(acc));
    }
    void code(uint32_t c, unsigned len) {
        for (unsigned i = len; i-- > 0;) put((c >> i) & 1, 1);
    }
    void fixed(unsigned sym) {  // RFC 1951 section 3.2.6
        if (sym < 144) code(0x30 + sym, 8);
        else if (sym < 256) code(0x190 + sym - 144, 9);
        else if (sym < 280) code(sym - 256, 7);
        else code(0xC0 + sym - 280, 8);
    }
    std::vector<uint8_t> finish() {
        if (n) put(0, 8 - n);
        return bytes;
    }
};

// Lengths 1, 2, ..., max-1, max, max over the first symbols (a complete
// code whose longest code has `max` bits), with `also` given the last max.
Lens chain(unsigned max, size_t n, size_t also) {
    Lens l(n, 0);
    for (unsigned i = 1; i <= max; ++i) l[i - 1] = Nux16u(i);
    l[also] = Nux16u(max);
    return l;
}

Lens concat(Lens a, const Lens& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Lens with(Lens l, size_t at, Nux16u v) {
    l.at(at) = v;
    return l;
}

NuxStatus build(const Lens& l, unsigned nLit, NuxInflateHuffTable& t) {
    return nuxsInflateBuildHuffTable(l.data(), nLit, unsigned(l.size() - nLit), &t);
}

TEST(InflateBuild, AcceptedSetsAndLayouts) {
    const Lens lit9 = chain(9, 286, 256), d5 = chain(5, 30, 5);
    Lens fixed288(288, 8);
    std::fill(fixed288.begin() + 144, fixed288.begin() + 256, 9);
    std::fill(fixed288.begin() + 256, fixed288.begin() + 280, 7);
    Lens loneEnd(286, 0);
    loneEnd[256] = 1;
    struct Case {
        const char* what;
        Lens lens;
        unsigned nLit;
        NuxStatus want;
        Nux32u kind;  // when accepted
    };
    const Case cases[] = {
        {"short layout at its limits", concat(chain(11, 286, 256), chain(10, 30, 10)), 286, NuxStatusOk, 2},
        {"12-bit literal/length code", concat(chain(12, 286, 256), d5), 286, NuxStatusOk, 1},
        {"11-bit distance code", concat(lit9, chain(11, 30, 11)), 286, NuxStatusOk, 1},
        {"15-bit codes", concat(chain(15, 286, 256), chain(15, 30, 15)), 286, NuxStatusOk, 1},
        {"fixed literal lengths, 288 symbols", concat(fixed288, with(Lens(30, 5), 0, 4)), 288, NuxStatusBadStream, 0},
        {"... with a complete distance set", concat(fixed288, with(with(Lens(30, 5), 0, 4), 1, 4)), 288, NuxStatusOk, 2},
        {"no distance codes", concat(lit9, Lens(30, 0)), 286, NuxStatusOk, 2},
        {"no distance lengths given", lit9, 286, NuxStatusOk, 2},
        {"lone one-bit end code", loneEnd, 286, NuxStatusOk, 2},
        {"lone one-bit distance", with(concat(lit9, Lens(30, 0)), 286 + 7, 1), 286, NuxStatusOk, 2},
        {"lone two-bit code", with(loneEnd, 256, 2), 286, NuxStatusBadStream, 0},
        {"lone two-bit distance", with(concat(lit9, Lens(30, 0)), 286 + 7, 2), 286, NuxStatusBadStream, 0},
        {"no literal/length code", Lens(316, 0), 286, NuxStatusBadStream, 0},
        {"over-subscribed", with(with(loneEnd, 0, 1), 1, 9), 286, NuxStatusBadStream, 0},
        {"over-subscribed distances", concat(lit9, with(d5, 29, 1)), 286, NuxStatusBadStream, 0},
        {"incomplete", with(lit9, 0, 0), 286, NuxStatusBadStream, 0},
        {"length 16", with(lit9, 5, 16), 286, NuxStatusBadStream, 0},
        {"no end-of-block code", with(with(concat(lit9, d5), 256, 0), 9, 9), 286, NuxStatusBadStream, 0},
        {"289 literal/length lengths", concat(Lens(289, 9), d5), 289, NuxStatusSize, 0},
        {"31 distance lengths", concat(lit9, Lens(31, 5)), 286, NuxStatusSize, 0},
    };
    for (const Case& c : cases) {
        NuxInflateHuffTable t{};
        t.pWindow = reinterpret_cast<const Nux8u*>(&t);
        t.winSize = 1234;
        ASSERT_EQ(build(c.lens, c.nLit, t), c.want) << c.what;
        if (c.want == NuxStatusOk) {
            EXPECT_EQ(t.kind, c.kind) << c.what;
        }
        EXPECT_EQ(t.winSize, 1234u);  // the caller's words stay as they are
        EXPECT_EQ(t.pWindow, reinterpret_cast<const Nux8u*>(&t));
    }
    NuxInflateHuffTable t{};
    EXPECT_EQ(nuxsInflateBuildHuffTable(nullptr, 289, 30, &t), NuxStatusNullPtr);  // pointers before sizes
    EXPECT_EQ(nuxsInflateBuildHuffTable(lit9.data(), 286, 0, nullptr), NuxStatusNullPtr);
}

// A random complete code of `n` lengths, none longer than `limit`: leaves
// split one at a time, preferring the deepest when `deep`, which piles the
// long codes into wide second-level tables.
Lens random_complete(std::mt19937& rng, unsigned n, bool deep, unsigned limit = 15) {
    Lens l{1, 1};
    while (l.size() < n) {
        size_t pick = l.size();
        for (unsigned tries = 0; tries < 64 && pick == l.size(); ++tries) {
            const size_t i = rng() % l.size();
            if (l[i] < limit && (!deep || pick == l.size() || l[i] >= l[pick])) pick = i;
        }
        if (pick == l.size()) break;
        if (deep)
            for (size_t i = 0; i < l.size(); ++i)
                if (l[i] < limit && l[i] > l[pick] && rng() % 4 != 0) pick = i;
        ++l[pick];
        l.push_back(l[pick]);
    }
    std::shuffle(l.begin(), l.end(), rng);
    return l;
}

TEST(InflateBuild, GeneralLayoutHoldsEveryCompleteSet) {
    // The second-level tables of both alphabets must fit the table area for
    // every complete set, however its long codes fall.
    std::mt19937 rng(7);
    NuxInflateHuffTable t{};
    for (unsigned it = 0; it < 3000; ++it) {
        const unsigned nLit = 257 + rng() % 32, nDist = 2 + rng() % 29;
        const Lens lit = random_complete(rng, nLit, it % 2 == 0), dist = random_complete(rng, nDist, it % 4 < 2);
        if (lit.size() != nLit || dist.size() != nDist || lit[256] == 0) continue;
        ASSERT_EQ(build(concat(lit, dist), nLit, t), NuxStatusOk) << "set " << it;
    }
}

// ---- Decoder -----------------------------------------------------------

struct Call {
    std::vector<uint8_t> in, out;
    const Nux8u* src;
    Nux32u srcLen, code = 0, bits = 0, mode = 0;
    Nux8u* dst;
    Nux32u dstLen;
    NuxInflateHuffTable state{};

    Call(std::vector<uint8_t> input, size_t room) : in(std::move(input)), out(room + 300) {
        src = in.data();
        srcLen = Nux32u(in.size());
        dst = out.data();
        dstLen = Nux32u(room);
    }
    NuxStatus run(Nux32u winIdx = 0, Nux32u dstIdx = 0) {
        return nuxsInflate_8u(&src, &srcLen, &code, &bits, winIdx, &dst, &dstLen, dstIdx, &mode, &state);
    }
};

// A fixed-code block body: 'a', then a 258-byte match at distance 1, end.
std::vector<uint8_t> run_of_a() {
    BitWriter w;
    w.fixed('a');
    w.fixed(285);
    w.code(0, 5);
    w.fixed(256);
    return w.finish();
}

TEST(InflateDecode, ArgumentChecksAndEdgeStates) {
    Call c(run_of_a(), 300);
    const Nux8u* nullSrc = nullptr;
    c.bits = 33;  // null pointers come before sizes
    EXPECT_EQ(nuxsInflate_8u(&c.src, &c.srcLen, &c.code, &c.bits, 0, &c.dst, &c.dstLen, 0, nullptr, &c.state),
              NuxStatusNullPtr);
    EXPECT_EQ(nuxsInflate_8u(&c.src, &c.srcLen, &c.code, &c.bits, 0, &c.dst, &c.dstLen, 0, &c.mode, nullptr),
              NuxStatusNullPtr);
    EXPECT_EQ(nuxsInflate_8u(&nullSrc, &c.srcLen, &c.code, &c.bits, 0, &c.dst, &c.dstLen, 0, &c.mode, &c.state),
              NuxStatusNullPtr);
    EXPECT_EQ(c.run(), NuxStatusSize);
    c.bits = 0;
    c.state.winSize = 100;
    EXPECT_EQ(c.run(101), NuxStatusSize);
    c.state.kind = 3;
    EXPECT_EQ(c.run(), NuxStatusBadStream);
    c.state.kind = 0;
    EXPECT_EQ(c.src, c.in.data());  // no error consumed anything
    EXPECT_EQ(c.run(100), NuxStatusOk);  // winIdx equal to the window size
    EXPECT_EQ(c.mode, 0u);
    EXPECT_EQ(std::string(c.out.begin(), c.out.begin() + 259), std::string(259, 'a'));
    EXPECT_EQ(c.dstLen, 300u - 259u);

    // The whole block handed over in the bit buffer: 32 bits, no input bytes.
    BitWriter w;
    for (char ch : std::string("abc")) w.fixed(uint8_t(ch));  // 24 bits
    w.fixed(256);                                              // 7 bits
    w.put(1, 1);
    const std::vector<uint8_t> body = w.finish();
    Call b({0}, 16);
    b.srcLen = 0;
    std::memcpy(&b.code, body.data(), 4);
    b.bits = 32;
    ASSERT_EQ(b.run(), NuxStatusOk);
    EXPECT_EQ(b.mode, 0u);
    EXPECT_EQ(std::string(b.out.begin(), b.out.begin() + 3), "abc");
    EXPECT_EQ(b.bits, 1u);
    EXPECT_EQ(b.code, 1u);

    // Only a 1 bit where a lone one-bit end code leaves a hole.
    Lens lone(286 + 30, 0);
    lone[256] = 1;
    for (uint8_t first : {uint8_t(0x00), uint8_t(0x01)}) {
        Call h({first}, 8);
        ASSERT_EQ(build(lone, 286, h.state), NuxStatusOk);
        EXPECT_EQ(h.run(), first ? NuxStatusBadStream : NuxStatusOk);
    }
}

TEST(InflateDecode, OutputRoomEndsInsideAMatch) {
    // Room for the literal only: it is stored and the match stays pending;
    // then one byte of room at a time finishes it.
    Call c(run_of_a(), 1);
    ASSERT_EQ(c.run(), NuxStatusOk);
    EXPECT_EQ(c.mode, 2u);
    for (Nux32u at = 1; c.mode != 0; ++at) {
        ASSERT_LE(at, 259u);
        c.dstLen = 1;
        ASSERT_EQ(c.run(0, at), NuxStatusOk);
        ASSERT_EQ(c.dstLen, 0u);
        ASSERT_EQ(c.out[at], 'a');
        ASSERT_EQ(c.mode, at < 258 ? 2u : 0u) << at;
    }
}

TEST(InflateDecode, InputEndsInsideASymbol) {
    // One byte at a time: every call either completes symbols or returns
    // mode 1 with at most 32 bits held and no partial symbol consumed.
    const std::vector<uint8_t> body = run_of_a();
    NuxInflateHuffTable st{};
    std::vector<uint8_t> out(300), pending;
    Nux32u code = 0, bits = 0, mode = 0, dstLen = 300;
    Nux8u* dst = out.data();
    for (size_t next = 0;;) {
        if (next < body.size()) pending.push_back(body[next++]);
        const Nux8u* src = pending.data();
        Nux32u srcLen = Nux32u(pending.size());
        ASSERT_EQ(nuxsInflate_8u(&src, &srcLen, &code, &bits, 0, &dst, &dstLen, 300 - dstLen, &mode, &st), NuxStatusOk);
        ASSERT_LE(bits, 32u);
        pending.erase(pending.begin(), pending.begin() + (src - pending.data()));
        if (mode == 0) break;
        ASSERT_EQ(mode, 1u);
        // The match is produced whole or not at all.
        ASSERT_TRUE(dstLen == 300 || dstLen == 299 || dstLen == 300 - 259) << dstLen;
    }
    EXPECT_EQ(std::string(out.begin(), out.begin() + 259), std::string(259, 'a'));
}

TEST(InflateDecode, FarMatchFromWrappedWindow) {
    // Length 258 at distance 32768 (code 29, 13 extra bits of 8191): with
    // dstIdx 0 all of it comes from the window, starting 32768 bytes before
    // winIdx and wrapping at the window's end.
    BitWriter w;
    w.fixed(285);
    w.code(29, 5);
    w.put(8191, 13);
    w.fixed(256);
    const std::vector<uint8_t> body = w.finish();
    const nuxtest::Bytes window = nuxtest::random_bytes(32768, 7);
    for (Nux32u winIdx : {32700u, 0u, 1u, 32768u}) {
        Call c(body, 300);
        c.state.pWindow = window.data();
        c.state.winSize = 32768;
        ASSERT_EQ(c.run(winIdx), NuxStatusOk);
        ASSERT_EQ(c.mode, 0u);
        ASSERT_EQ(c.dstLen, 300u - 258u);
        for (uint32_t i = 0; i < 258; ++i) ASSERT_EQ(c.out[i], window[(winIdx + i) % 32768]) << winIdx << " " << i;
    }
    // One byte less of window is too far back; without a window as well.
    for (const Nux8u* win : {window.data(), static_cast<const Nux8u*>(nullptr)}) {
        Call c(body, 300);
        c.state.pWindow = win;
        c.state.winSize = win ? 32767 : 32768;
        EXPECT_EQ(c.run(5), NuxStatusBadStream);
        EXPECT_EQ(c.dst, c.out.data());
        EXPECT_EQ(c.src, c.in.data());
    }
}

// Canonical codes of a set of lengths (RFC 1951 section 3.2.2).
std::vector<uint32_t> canonical_codes(const Lens& lens) {
    uint32_t count[16] = {}, next[16] = {};
    for (Nux16u l : lens) ++count[l];
    count[0] = 0;
    for (unsigned n = 1, code = 0; n < 16; ++n) next[n] = code = (code + count[n - 1]) << 1;
    std::vector<uint32_t> codes(lens.size());
    for (size_t s = 0; s < lens.size(); ++s)
        if (lens[s]) codes[s] = next[lens[s]]++;
    return codes;
}

// Random complete codes, some within the short layout's limits and some
// with long codes piled deep so that lengths land in second-level tables and
// beyond the first level with their extra bits, and random symbols in them:
// every length and distance code with random extra bits. Both compilations
// of the fast loop, and the exact path fed a few bytes at a time, must give
// the output the symbols describe.
TEST(InflateDecode, RandomCodesAndSymbols) {
    std::mt19937 rng(5);
    unsigned blocks = 0, layouts[3] = {};
    for (unsigned it = 0; blocks < 60 && it < 1000; ++it) {
        const bool narrow = it % 3 == 1;
        const Lens lit = random_complete(rng, 286, it % 2 == 0, narrow ? 11 : 15);
        const Lens dist = random_complete(rng, 30, it % 3 == 0, narrow ? 10 : 15);
        if (lit.size() != 286 || dist.size() != 30) continue;
        ++blocks;
        NuxInflateHuffTable table{};
        ASSERT_EQ(build(concat(lit, dist), 286, table), NuxStatusOk);
        ++layouts[table.kind];
        const std::vector<uint32_t> litCode = canonical_codes(lit), distCode = canonical_codes(dist);
        BitWriter w;
        std::vector<uint8_t> want;
        while (want.size() < 20000) {
            const unsigned sym = rng() % 285 + (rng() % 4 == 0 ? 1 : 0);  // 0..285, more lengths
            if (sym == 256) continue;
            if (sym < 256 || want.empty()) {
                const unsigned byte = sym < 256 ? sym : 'x';
                w.code(litCode[byte], lit[byte]);
                want.push_back(uint8_t(byte));
                continue;
            }
            const unsigned lc = sym - 257, lx = rfc::kLengthExtra[lc];
            const unsigned lv = lx ? rng() % (1u << lx) : 0, len = rfc::kLengthBase[lc] + lv;
            unsigned dc = rng() % 30;
            while (rfc::kDistBase[dc] > want.size()) dc = rng() % (dc + 1);
            const unsigned dx = rfc::kDistExtra[dc];
            const unsigned room = unsigned(std::min<size_t>(want.size() - rfc::kDistBase[dc] + 1, 1u << dx));
            const unsigned dv = dx ? rng() % room : 0, d = rfc::kDistBase[dc] + dv;
            w.code(litCode[sym], lit[sym]);
            w.put(lv, lx);
            w.code(distCode[dc], dist[dc]);
            w.put(dv, dx);
            for (unsigned i = 0; i < len; ++i) want.push_back(want[want.size() - d]);
        }
        w.code(litCode[256], lit[256]);
        const std::vector<uint8_t> body = w.finish();
        auto decode = [&](nux::inflate::FastLoop loop, size_t piece) {
            std::vector<uint8_t> out(want.size() + 1);
            const Nux8u* src = body.data();
            Nux32u code = 0, bits = 0, mode = 0, dstLen = Nux32u(out.size());
            Nux8u* dst = out.data();
            size_t delivered = 0;  // input arrives `piece` bytes per call
            do {
                delivered = std::min(delivered + piece, body.size());
                Nux32u srcLen = Nux32u(body.data() + delivered - src);
                if (nux::inflate::inflate_block(loop, &src, &srcLen, &code, &bits, 0, &dst, &dstLen,
                                                Nux32u(dst - out.data()), &mode, &table) != NuxStatusOk)
                    break;
            } while (mode == 1 && delivered < body.size());
            EXPECT_EQ(mode, 0u);
            out.resize(size_t(dst - out.data()));
            return out;
        };
        ASSERT_EQ(decode(nux::inflate::FastLoop::kPlain, body.size()), want) << "code set " << it;
        if (nux::ownGetFeature(nux::kFeatureBmi2)) {
            ASSERT_EQ(decode(nux::inflate::FastLoop::kBmi2, body.size()), want) << "code set " << it;
        }
        ASSERT_EQ(decode(nux::inflate::FastLoop::kPlain, 5), want) << "code set " << it << ", 5-byte pieces";
    }
    EXPECT_EQ(blocks, 60u);
    EXPECT_GT(layouts[1], 5u);
    EXPECT_GT(layouts[2], 5u);
}

TEST(InflateDecode, LeavesUpperStateClean) {
    if (!nuxtest::can_check_upper_vector_state()) GTEST_SKIP();
    // Long enough for the fast loop to run and exit on its own, with its
    // 32-byte match copies: 64 literals, then matches at distances 49..64.
    BitWriter w;
    for (unsigned i = 0; i < 64; ++i) w.fixed('A' + i % 26);
    for (unsigned i = 0; i < 800; ++i) {
        w.fixed(285);
        w.code(11, 5);
        w.put(15, 4);
    }
    w.fixed(256);
    Call c(w.finish(), 800 * 258 + 64);
    EXPECT_TRUE(nuxtest::leaves_upper_state_clean([&] { c.run(); }));
    EXPECT_EQ(std::memcmp(c.out.data(), c.out.data() + 64, 800 * 258), 0);
    EXPECT_TRUE(nuxtest::leaves_upper_state_clean([&] {
        NuxInflateHuffTable t{};
        build(concat(chain(15, 286, 256), chain(15, 30, 15)), 286, t);
    }));
}

}  // namespace
