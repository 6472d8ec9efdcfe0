// Table builder and block decoder called directly: code-set validation,
// layout choice and entry coding, the argument checks, resumption inside a
// match, and matches served from the circular window.
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

// Deflate bit writer: fields least significant bit first, Huffman codes most
// significant bit first (RFC 1951 section 3.1.1).
struct BitWriter {
    std::vector<uint8_t> bytes;
    uint64_t acc = 0;
    unsigned n = 0;
    void put(uint32_t v, unsigned bits) {
        acc |= uint64_t(v) << n;
        n += bits;
        while (n >= 8) {
            bytes.push_back(uint8_t(acc));
            acc >>= 8;
            n -= 8;
        }
    }
    void code(uint32_t c, unsigned len) {
        for (unsigned i = len; i-- > 0;) put((c >> i) & 1, 1);
    }
    std::vector<uint8_t> finish() {
        if (n) put(0, 8 - n);
        return bytes;
    }
};

// Fixed code (RFC 1951 section 3.2.6) of a literal/length symbol.
void fixed_litlen(BitWriter& w, unsigned sym) {
    if (sym < 144) w.code(0x30 + sym, 8);
    else if (sym < 256) w.code(0x190 + sym - 144, 9);
    else if (sym < 280) w.code(sym - 256, 7);
    else w.code(0xC0 + sym - 280, 8);
}

Lens fixed_lengths(unsigned nDist, unsigned distLen) {
    Lens l;
    for (unsigned s = 0; s < 288; ++s) l.push_back(s < 144 ? 8 : s < 256 ? 9 : s < 280 ? 7 : 8);
    l.insert(l.end(), nDist, Nux16u(distLen));
    return l;
}

// 30 complete distance lengths: two of 4 bits, 28 of 5 bits.
Lens complete_dist30() {
    Lens d(30, 5);
    d[0] = d[1] = 4;
    return d;
}

// A complete literal/length set whose longest code is `maxLen` bits: symbols
// 0..maxLen-1 take lengths 1, 2, ..., maxLen - 1, maxLen and, as the last,
// another maxLen; symbol 256 is among them when `withEnd`.
Lens chain_lengths(unsigned maxLen, unsigned n = 286) {
    Lens l(n, 0);
    for (unsigned i = 1; i < maxLen; ++i) l[i - 1] = Nux16u(i);
    l[maxLen - 1] = Nux16u(maxLen);
    l[256] = Nux16u(maxLen);
    return l;
}

Lens chain_dist(unsigned maxLen) {
    Lens d(30, 0);
    for (unsigned i = 1; i < maxLen; ++i) d[i - 1] = Nux16u(i);
    d[maxLen - 1] = Nux16u(maxLen);
    d[maxLen] = Nux16u(maxLen);
    return d;
}

Lens concat(Lens a, const Lens& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

NuxStatus build(const Lens& l, unsigned nLit, NuxInflateHuffTable& t) {
    return nuxsInflateBuildHuffTable(l.data(), nLit, unsigned(l.size() - nLit), &t);
}

TEST(InflateBuild, SizesAndNulls) {
    NuxInflateHuffTable t{};
    const Lens fixed288 = concat(fixed_lengths(0, 0), complete_dist30());
    EXPECT_EQ(build(fixed288, 288, t), NuxStatusOk);
    Lens l289 = fixed288;
    l289.insert(l289.begin() + 288, 0);
    EXPECT_EQ(nuxsInflateBuildHuffTable(l289.data(), 289, 30, &t), NuxStatusSize);
    Lens d31 = concat(fixed_lengths(0, 0), complete_dist30());
    d31.push_back(0);
    EXPECT_EQ(nuxsInflateBuildHuffTable(d31.data(), 288, 31, &t), NuxStatusSize);
    EXPECT_EQ(nuxsInflateBuildHuffTable(nullptr, 289, 30, &t), NuxStatusNullPtr);
    EXPECT_EQ(nuxsInflateBuildHuffTable(fixed288.data(), 288, 30, nullptr), NuxStatusNullPtr);
}

TEST(InflateBuild, CodeSetValidation) {
    NuxInflateHuffTable t{};
    Lens none(286 + 30, 0);
    EXPECT_EQ(build(none, 286, t), NuxStatusBadStream);  // no literal/length code at all

    // No distance codes (all zero, or none given) is fine.
    const Lens lit = chain_lengths(9);
    EXPECT_EQ(build(concat(lit, Lens(30, 0)), 286, t), NuxStatusOk);
    EXPECT_EQ(build(lit, 286, t), NuxStatusOk);

    // A lone one-bit code is the one incomplete set accepted.
    Lens lone(286, 0);
    lone[256] = 1;
    EXPECT_EQ(build(lone, 286, t), NuxStatusOk);
    Lens loneDist = concat(lit, Lens(30, 0));
    loneDist[286 + 7] = 1;
    EXPECT_EQ(build(loneDist, 286, t), NuxStatusOk);
    lone[256] = 2;
    EXPECT_EQ(build(lone, 286, t), NuxStatusBadStream);
    loneDist[286 + 7] = 2;
    EXPECT_EQ(build(loneDist, 286, t), NuxStatusBadStream);

    // Over-subscribed: two one-bit codes and one more.
    Lens over(286, 0);
    over[0] = over[256] = 1;
    EXPECT_EQ(build(over, 286, t), NuxStatusOk);
    over[1] = 9;
    EXPECT_EQ(build(over, 286, t), NuxStatusBadStream);
    Lens overDist = concat(lit, complete_dist30());
    overDist[286 + 29] = 1;
    EXPECT_EQ(build(overDist, 286, t), NuxStatusBadStream);

    // Incomplete: the fixed distance lengths (thirty 5-bit codes of 32);
    // fixed-code blocks use kind 0 instead.
    EXPECT_EQ(build(fixed_lengths(30, 5), 288, t), NuxStatusBadStream);
    Lens gap = lit;
    gap[0] = 0;
    EXPECT_EQ(build(gap, 286, t), NuxStatusBadStream);
    Lens tooLong = lit;
    tooLong[5] = 16;
    EXPECT_EQ(build(tooLong, 286, t), NuxStatusBadStream);
}

TEST(InflateBuild, LayoutChoice) {
    NuxInflateHuffTable t{};
    t.pWindow = reinterpret_cast<const Nux8u*>(&t);
    t.winSize = 1234;
    ASSERT_EQ(build(concat(chain_lengths(11), chain_dist(10)), 286, t), NuxStatusOk);
    EXPECT_EQ(t.kind, 2u);
    EXPECT_EQ(t.maxLitLenBits, 11u);
    EXPECT_EQ(t.maxDistBits, 10u);
    EXPECT_EQ(t.winSize, 1234u);  // the caller's words stay as they are
    EXPECT_EQ(t.pWindow, reinterpret_cast<const Nux8u*>(&t));
    ASSERT_EQ(build(concat(chain_lengths(12), chain_dist(10)), 286, t), NuxStatusOk);
    EXPECT_EQ(t.kind, 1u);
    ASSERT_EQ(build(concat(chain_lengths(11), chain_dist(11)), 286, t), NuxStatusOk);
    EXPECT_EQ(t.kind, 1u);
    ASSERT_EQ(build(concat(chain_lengths(15), chain_dist(15)), 286, t), NuxStatusOk);
    EXPECT_EQ(t.kind, 1u);

    // The short decoder needs the end-of-block code.
    Lens noEnd = concat(chain_lengths(9), chain_dist(5));
    noEnd[256] = 0;
    noEnd[9] = 9;
    EXPECT_EQ(build(noEnd, 286, t), NuxStatusBadStream);
    Lens l256(256, 8);
    EXPECT_EQ(nuxsInflateBuildHuffTable(l256.data(), 256, 0, &t), NuxStatusBadStream);
    EXPECT_EQ(t.kind, 2u);
}

// A random complete code of `n` lengths (at most 15): leaves split one at a
// time, preferring the deepest when `deep`, which piles the long codes into
// wide second-level tables.
Lens random_complete(std::mt19937& rng, unsigned n, bool deep) {
    Lens l{1, 1};
    while (l.size() < n) {
        size_t pick = l.size();
        for (unsigned tries = 0; tries < 64 && pick == l.size(); ++tries) {
            const size_t i = rng() % l.size();
            if (l[i] < 15 && (!deep || pick == l.size() || l[i] >= l[pick])) pick = i;
        }
        if (pick == l.size()) break;
        if (deep)
            for (size_t i = 0; i < l.size(); ++i)
                if (l[i] < 15 && l[i] > l[pick] && rng() % 4 != 0) pick = i;
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
        Lens lit = random_complete(rng, nLit, it % 2 == 0);
        Lens dist = random_complete(rng, nDist, it % 4 < 2);
        if (lit.size() != nLit || dist.size() != nDist) continue;
        if (lit[256] == 0) continue;
        ASSERT_EQ(build(concat(lit, dist), nLit, t), NuxStatusOk) << "set " << it;
    }
}

TEST(InflateBuild, ShortLayoutEntries) {
    NuxInflateHuffTable t{};
    // Fixed literal/length lengths with a complete distance set.
    ASSERT_EQ(build(concat(fixed_lengths(0, 0), complete_dist30()), 288, t), NuxStatusOk);
    ASSERT_EQ(t.kind, 2u);
    EXPECT_EQ(t.maxLitLenBits, 9u);
    EXPECT_EQ(t.maxDistBits, 5u);
    const Nux16u* lit = reinterpret_cast<const Nux16u*>(t.table);
    auto at = [&](uint32_t code, unsigned len) {
        uint32_t r = 0;
        for (unsigned i = 0; i < len; ++i) r |= ((code >> i) & 1) << (len - 1 - i);
        return lit[r];
    };
    EXPECT_EQ(at(0x30 + 'A', 8), ('A' << 8) | 8);        // literal
    EXPECT_EQ(at(0x190 + 0xF0 - 144, 9), 0xF009);        // literal 0xF0, 9 bits
    EXPECT_EQ(at(0, 7), 0x00F7);                         // end of block
    EXPECT_EQ(at(1, 7), 0x0087);                         // 257: length 3
    EXPECT_EQ(at(265 - 256, 7), 0x0897);                 // 265: length 11, 1 extra bit
    EXPECT_EQ(at(269 - 256, 7), 0x10A7);                 // 269: length 19, 2 extra bits
    EXPECT_EQ(at(0xC0 + 285 - 280, 8), 0xFF88);          // 285: length 258
    // Every entry of the 9-bit table is replicated from its code.
    for (uint32_t i = 0; i < 512; ++i) EXPECT_NE(lit[i] & 15, 0) << i;
    const Nux8u* db = t.table + 4096;
    const Nux16u* dbase = reinterpret_cast<const Nux16u*>(t.table + 5120);
    // Distance code 0 (4 bits, code 0000) and code 29 (5 bits, code 11111).
    EXPECT_EQ(db[0], 4);
    EXPECT_EQ(dbase[0], 1);
    EXPECT_EQ(db[31], (13 << 4) | 5);
    EXPECT_EQ(dbase[31], 24577);
}

// ---- Decoder -----------------------------------------------------------

struct Call {
    std::vector<uint8_t> in;
    const Nux8u* src;
    Nux32u srcLen, code = 0, bits = 0, mode = 0;
    std::vector<uint8_t> out;
    Nux8u* dst;
    Nux32u dstLen;
    NuxInflateHuffTable state{};

    Call(std::vector<uint8_t> input, size_t room) : in(std::move(input)), out(room + 8) {
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
    fixed_litlen(w, 'a');
    fixed_litlen(w, 285);
    w.code(0, 5);
    fixed_litlen(w, 256);
    return w.finish();
}

TEST(InflateDecode, ArgumentChecks) {
    Call c(run_of_a(), 300);
    c.bits = 33;
    EXPECT_EQ(c.run(), NuxStatusSize);
    c.bits = 0;
    c.state.winSize = 100;
    EXPECT_EQ(c.run(101), NuxStatusSize);
    EXPECT_EQ(nuxsInflate_8u(&c.src, &c.srcLen, &c.code, &c.bits, 0, &c.dst, &c.dstLen, 0, nullptr, &c.state),
              NuxStatusNullPtr);
    c.bits = 33;  // null pointers come before sizes
    EXPECT_EQ(nuxsInflate_8u(&c.src, &c.srcLen, &c.code, &c.bits, 0, &c.dst, &c.dstLen, 0, &c.mode, nullptr),
              NuxStatusNullPtr);
    const Nux8u* nullSrc = nullptr;
    EXPECT_EQ(nuxsInflate_8u(&nullSrc, &c.srcLen, &c.code, &c.bits, 0, &c.dst, &c.dstLen, 0, &c.mode, &c.state),
              NuxStatusNullPtr);
    c.bits = 0;
    c.state.kind = 3;
    EXPECT_EQ(c.run(), NuxStatusBadStream);
    c.state.kind = 0;
    EXPECT_EQ(c.run(100), NuxStatusOk);  // winIdx equal to the window size
    EXPECT_EQ(c.mode, 0u);
    EXPECT_EQ(c.out[0], 'a');
    EXPECT_EQ(c.dstLen, 300u - 259u);
}

TEST(InflateDecode, ThirtyTwoBitsInTheBuffer) {
    // The whole block handed over in the bit buffer: 32 bits, no input bytes.
    BitWriter w;
    for (char ch : std::string("abc")) fixed_litlen(w, uint8_t(ch));  // 24 bits
    fixed_litlen(w, 256);                                             // 7 bits
    w.put(1, 1);
    std::vector<uint8_t> body = w.finish();
    ASSERT_EQ(body.size(), 4u);
    Call c({0}, 16);
    c.srcLen = 0;
    std::memcpy(&c.code, body.data(), 4);
    c.bits = 32;
    ASSERT_EQ(c.run(), NuxStatusOk);
    EXPECT_EQ(c.mode, 0u);
    EXPECT_EQ(std::string(c.out.begin(), c.out.begin() + 3), "abc");
    EXPECT_EQ(c.bits, 1u);
    EXPECT_EQ(c.code, 1u);
}

TEST(InflateDecode, OneByteRoomBeforeLongMatch) {
    // Room for the literal only: it is stored and the match stays pending.
    Call c(run_of_a(), 1);
    ASSERT_EQ(c.run(), NuxStatusOk);
    EXPECT_EQ(c.mode, 2u);
    EXPECT_EQ(c.out[0], 'a');
    EXPECT_EQ(c.dstLen, 0u);
    // One more byte of room: one byte of the match, still mode 2.
    c.dstLen = 1;
    ASSERT_EQ(c.run(0, 1), NuxStatusOk);
    EXPECT_EQ(c.mode, 2u);
    EXPECT_EQ(c.out[1], 'a');
    EXPECT_EQ(c.out[2], 0);
}

TEST(InflateDecode, FarMatchFromWrappedWindow) {
    // Length 258 at distance 32768 (code 29, 13 extra bits of 8191): with
    // dstIdx 0 all of it comes from the window, starting 32768 bytes before
    // winIdx and wrapping at the window's end.
    BitWriter w;
    fixed_litlen(w, 285);
    w.code(29, 5);
    w.put(8191, 13);
    fixed_litlen(w, 256);
    const nuxtest::Bytes window = nuxtest::random_bytes(32768, 7);
    for (Nux32u winIdx : {32700u, 0u, 32768u}) {
        Call c(w.finish(), 300);
        c.state.pWindow = window.data();
        c.state.winSize = 32768;
        ASSERT_EQ(c.run(winIdx), NuxStatusOk);
        ASSERT_EQ(c.mode, 0u);
        ASSERT_EQ(c.dstLen, 300u - 258u);
        for (uint32_t i = 0; i < 258; ++i) ASSERT_EQ(c.out[i], window[(winIdx + i) % 32768]) << winIdx << " " << i;
    }
    // One byte less of window is too far back; without a window as well.
    Call c(w.finish(), 300);
    c.state.pWindow = window.data();
    c.state.winSize = 32767;
    EXPECT_EQ(c.run(5), NuxStatusBadStream);
    EXPECT_EQ(c.dst, c.out.data());
    EXPECT_EQ(c.src, c.in.data());
    c.state.pWindow = nullptr;
    c.state.winSize = 32768;
    EXPECT_EQ(c.run(5), NuxStatusBadStream);
}

TEST(InflateDecode, InputRunningOutHandsBackThePartialSymbol) {
    // One byte at a time: every call either completes symbols or returns
    // mode 1 with at most 32 bits held and no partial symbol consumed.
    const std::vector<uint8_t> body = run_of_a();
    NuxInflateHuffTable st{};
    std::vector<uint8_t> out(300);
    Nux32u code = 0, bits = 0, mode = 0;
    Nux8u* dst = out.data();
    Nux32u dstLen = 300;
    std::vector<uint8_t> pending;
    size_t next = 0;
    while (true) {
        if (next < body.size()) pending.push_back(body[next++]);
        const Nux8u* src = pending.data();
        Nux32u srcLen = Nux32u(pending.size());
        const Nux32u before = 300 - dstLen;
        ASSERT_EQ(nuxsInflate_8u(&src, &srcLen, &code, &bits, 0, &dst, &dstLen, before, &mode, &st), NuxStatusOk);
        ASSERT_LE(bits, 32u);
        pending.erase(pending.begin(), pending.begin() + (src - pending.data()));
        if (mode == 0) break;
        ASSERT_EQ(mode, 1u);
        ASSERT_LT(next, body.size() + 1);
        const Nux32u produced = 300 - dstLen;
        // The match is produced whole or not at all: its symbol is either
        // complete or handed back.
        ASSERT_TRUE(produced == 0 || produced == 1 || produced == 259) << produced;
    }
    EXPECT_EQ(std::string(out.begin(), out.begin() + 259), std::string(259, 'a'));
}

TEST(InflateDecode, HolesOfLoneCodesAreRefused) {
    // Literal/length: only the end-of-block code (one bit, code 0); a 1 bit
    // hits the hole. Distances: a lone one-bit code for distance 1.
    Lens l(286 + 30, 0);
    l[256] = 1;
    NuxInflateHuffTable st{};
    ASSERT_EQ(build(l, 286, st), NuxStatusOk);
    std::vector<uint8_t> out(8);
    for (uint8_t first : {uint8_t(0x00), uint8_t(0x01)}) {
        const Nux8u* src = &first;
        Nux32u srcLen = 1, code = 0, bits = 0, mode = 0, dstLen = 8;
        Nux8u* dst = out.data();
        const NuxStatus s = nuxsInflate_8u(&src, &srcLen, &code, &bits, 0, &dst, &dstLen, 0, &mode, &st);
        if (first == 0) {
            EXPECT_EQ(s, NuxStatusOk);
            EXPECT_EQ(mode, 0u);
            EXPECT_EQ(bits, 7u);
        } else {
            EXPECT_EQ(s, NuxStatusBadStream);
        }
    }
}

// Canonical codes of a set of lengths (RFC 1951 section 3.2.2).
std::vector<uint32_t> canonical_codes(const Lens& lens) {
    uint32_t count[16] = {}, next[16] = {};
    for (Nux16u l : lens) ++count[l];
    count[0] = 0;
    for (unsigned n = 1, code = 0; n < 16; ++n) {
        code = (code + count[n - 1]) << 1;
        next[n] = code;
    }
    std::vector<uint32_t> codes(lens.size());
    for (size_t s = 0; s < lens.size(); ++s)
        if (lens[s]) codes[s] = next[lens[s]]++;
    return codes;
}

// Random complete codes, with long codes piled deep so that lengths land in
// the second level and beyond the first level with their extra bits, and
// random symbols in them: every length and distance code with random extra
// bits. Both compilations of the fast loop, and the exact path fed a few
// bytes at a time, must give the output the symbols describe.
TEST(InflateDecode, RandomCodesAndSymbols) {
    std::mt19937 rng(5);
    unsigned blocks = 0;
    for (unsigned it = 0; blocks < 60 && it < 1000; ++it) {
        const Lens lit = random_complete(rng, 286, it % 2 == 0);
        const Lens dist = random_complete(rng, 30, it % 3 == 0);
        if (lit.size() != 286 || dist.size() != 30) continue;
        ++blocks;
        NuxInflateHuffTable table{};
        ASSERT_EQ(build(concat(lit, dist), 286, table), NuxStatusOk);
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
            const unsigned lc = sym - 257, lx = nux::rfc1951::kLengthExtra[lc];
            const unsigned lv = lx ? rng() % (1u << lx) : 0, len = nux::rfc1951::kLengthBase[lc] + lv;
            unsigned dc = rng() % 30;
            while (nux::rfc1951::kDistBase[dc] > want.size()) dc = rng() % (dc + 1);
            const unsigned dx = nux::rfc1951::kDistExtra[dc];
            const unsigned room = unsigned(std::min<size_t>(want.size() - nux::rfc1951::kDistBase[dc] + 1, 1u << dx));
            const unsigned dv = dx ? rng() % room : 0, d = nux::rfc1951::kDistBase[dc] + dv;
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
            Nux32u code = 0, bits = 0, mode = 0;
            size_t delivered = 0;  // input arrives `piece` bytes per call
            Nux8u* dst = out.data();
            Nux32u dstLen = Nux32u(out.size());
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
}

TEST(InflateDecode, LeavesUpperStateClean) {
    if (!nuxtest::can_check_upper_vector_state()) GTEST_SKIP();
    // Long enough for the fast loop and its 32-byte match copies: 64
    // literals, then matches at distance 64.
    BitWriter w;
    for (unsigned i = 0; i < 64; ++i) fixed_litlen(w, 'A' + i % 26);
    for (unsigned i = 0; i < 8; ++i) {
        fixed_litlen(w, 285);
        w.code(11, 5);  // distances 49..64: 4 extra bits
        w.put(15, 4);
    }
    fixed_litlen(w, 256);
    const std::vector<uint8_t> body = w.finish();
    std::vector<uint8_t> out(4096);
    EXPECT_TRUE(nuxtest::leaves_upper_state_clean([&] {
        NuxInflateHuffTable st{};
        const Nux8u* src = body.data();
        Nux32u srcLen = Nux32u(body.size()), code = 0, bits = 0, mode = 0, dstLen = Nux32u(out.size());
        Nux8u* dst = out.data();
        nuxsInflate_8u(&src, &srcLen, &code, &bits, 0, &dst, &dstLen, 0, &mode, &st);
    }));
    EXPECT_EQ(std::memcmp(out.data(), out.data() + 64, 8 * 258), 0);
    EXPECT_TRUE(nuxtest::leaves_upper_state_clean([&] {
        NuxInflateHuffTable t{};
        const Lens l = concat(chain_lengths(15), chain_dist(15));
        nuxsInflateBuildHuffTable(l.data(), 286, 30, &t);
    }));
}

}  // namespace
