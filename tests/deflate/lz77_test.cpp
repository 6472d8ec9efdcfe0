// The LZ77 engine on its own: argument order, lookahead and flush, symbol
// slots, rebasing, the dictionary loader, and parses replayed against the
// input (with the history contiguous and in a separate window buffer).
#include <gtest/gtest.h>

#include <cstring>

#include "support/test_support.h"
#include "nuxzo.h"

namespace {

using nuxtest::Bytes;

constexpr Nux32u kWin = 32768, kHash = 65536;

// Caller-side state of one parse: tables, statistics and symbol arrays.
struct Parser {
    std::vector<Nux32s> head = std::vector<Nux32s>(kHash, -32768), chain = std::vector<Nux32s>(kWin, -32768);
    NuxDeflateCode lit_freq[286] = {}, dist_freq[30] = {};
    Bytes lit = Bytes(70000);
    std::vector<Nux16u> dist = std::vector<Nux16u>(70000);
    Nux32u pos = 0;

    // One call; returns the number of symbols written, or -1 on an error status.
    int call(const Nux8u*& src, Nux32u& len, const Nux8u* window, Nux32u slots, int level, int flush) {
        const Nux32u before = slots;
        const NuxStatus st = nuxsDeflateLZ77_8u(&src, &len, &pos, window, kWin, head.data(), chain.data(), kHash,
                                                lit_freq, dist_freq, lit.data(), dist.data(), &slots, Nux32u(level),
                                                flush);
        return st == NuxStatusOk ? int(before - slots) : -1;
    }
};

// Applies symbols to `out` (which holds the history before them).
void replay(Bytes& out, const Parser& p, int count) {
    for (int k = 0; k < count; ++k) {
        if (p.dist[k] == 0) {
            out.push_back(p.lit[k]);
            continue;
        }
        const size_t d = p.dist[k], len = p.lit[k] + 3u;
        ASSERT_LE(d, out.size());
        ASSERT_LT(d, kWin);
        for (size_t i = 0; i < len; ++i) out.push_back(out[out.size() - d]);
    }
}

// Parses `data` in pieces of `chunk` bytes. With `separate`, each piece sits
// in its own buffer and the last 32 KiB of history are copied into a window
// buffer in front of which nothing else lies. Returns all symbols replayed.
Bytes parse_in_pieces(const Bytes& data, int level, size_t chunk, bool separate, size_t slots_per_call = 65536) {
    Parser p;
    Bytes out;
    std::vector<uint8_t> window(kWin), piece;
    size_t done = 0;  // bytes of data consumed
    while (done < data.size()) {
        const size_t avail = std::min(data.size() - done, chunk);
        const bool last = done + avail == data.size();
        const Nux8u* src;
        const Nux8u* win;
        if (separate) {
            piece.assign(data.begin() + done, data.begin() + done + avail);
            const size_t h = std::min<size_t>(done, kWin);
            std::memcpy(window.data() + kWin - h, data.data() + done - h, h);
            src = piece.data();
            win = window.data() + kWin;
        } else {
            src = data.data() + done;
            win = src;
        }
        Nux32u len = Nux32u(avail);
        const Nux8u* const start = src;
        const int n = p.call(src, len, win, Nux32u(std::min<size_t>(slots_per_call, 65536)), level, last ? 2 : 0);
        EXPECT_GE(n, 0);
        if (n < 0) break;
        replay(out, p, n);
        const size_t used = size_t(src - start);
        EXPECT_EQ(len, avail - used);
        // The caller feeds more when the parser stopped for its lookahead.
        if (used == 0 && !last) {
            if (chunk >= data.size() - done) break;
            chunk *= 2;
        }
        done += used;
        if (last && used == avail) break;
    }
    EXPECT_EQ(done, data.size());
    return out;
}

TEST(Lz77, LevelIsCheckedBeforeAnyPointer) {
    for (Nux32u level : {30u, 0xFFFFFFFFu})
        EXPECT_EQ(nuxsDeflateLZ77_8u(nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr, 0, nullptr, nullptr,
                                     nullptr, nullptr, nullptr, level, 0),
                  NuxStatusSize);
    EXPECT_EQ(nuxsDeflateLZ77_8u(nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr, 0, nullptr, nullptr,
                                 nullptr, nullptr, nullptr, 29, 0),
              NuxStatusNullPtr);
}

TEST(Lz77, ArgumentOrderAndParameterRecords) {
    Parser p;
    const Bytes data = nuxtest::random_bytes(1000, 1);
    const Nux8u* src = data.data();
    const Nux8u* null_src = nullptr;
    Nux32u len = 1000, slots = 100;
    auto fast = [&](const Nux8u** pp, Nux32u win, const NuxDeflateMatchParams* m, bool lazy) {
        auto f = lazy ? nuxsDeflateLZ77Slow_8u : nuxsDeflateLZ77Fast_8u;
        return f(pp, &len, &p.pos, data.data(), win, p.head.data(), p.chain.data(), kHash, p.lit_freq, p.dist_freq,
                 p.lit.data(), p.dist.data(), &slots, m, 0);
    };
    const NuxDeflateMatchParams good{8, 8, 8, 8}, single{0, 0, 0, 0}, short_field{8, 3, 8, 8}, neg{-1, 8, 8, 8};
    EXPECT_EQ(fast(&null_src, kWin, &good, false), NuxStatusNullPtr);
    EXPECT_EQ(fast(&src, kWin, nullptr, false), NuxStatusNullPtr);
    EXPECT_EQ(fast(&null_src, 100, &neg, false), NuxStatusNullPtr);  // pointers before sizes
    EXPECT_EQ(fast(&src, 100, &neg, false), NuxStatusSize);          // sizes before modes
    EXPECT_EQ(fast(&src, 65536, &good, false), NuxStatusSize);
    EXPECT_EQ(fast(&src, kWin, &neg, false), NuxStatusBadArg);
    EXPECT_EQ(fast(&src, kWin, &short_field, false), NuxStatusBadArg);
    EXPECT_EQ(fast(&src, kWin, &short_field, true), NuxStatusBadArg);
    EXPECT_EQ(fast(&src, kWin, &single, true), NuxStatusBadArg);  // the lazy finder needs a chain
    EXPECT_EQ(len, 1000u);
    EXPECT_EQ(src, data.data());
    EXPECT_EQ(fast(&src, kWin, &single, false), NuxStatusOk);
    EXPECT_EQ(fast(&src, kWin, &good, true), NuxStatusOk);
}

// Each level behaves exactly like its row given to the finder of its class
// (units digit 5..9 lazy, else greedy).
TEST(Lz77, LevelsAreTheirRows) {
    const NuxDeflateMatchParams rows[30] = {
        {0, 0, 0, 0},       {4, 8, 8, 8},       {4, 16, 16, 9},     {4, 16, 16, 12},     {48, 32, 32, 16},
        {32, 8, 32, 16},    {128, 8, 256, 16},  {144, 8, 256, 16},  {192, 32, 258, 128}, {256, 32, 258, 258},
        {0, 0, 0, 0},       {3, 7, 8, 258},     {3, 8, 16, 258},    {5, 8, 16, 258},     {16, 32, 32, 258},
        {24, 6, 32, 16},    {120, 7, 256, 16},  {140, 7, 256, 16},  {192, 32, 258, 128}, {512, 32, 258, 258},
        {0, 0, 0, 0},       {4, 8, 8, 258},     {4, 16, 16, 258},   {4, 16, 16, 258},    {16, 32, 32, 258},
        {32, 8, 32, 16},    {128, 8, 256, 16},  {144, 8, 256, 16},  {192, 32, 258, 128}, {512, 32, 258, 258}};
    const Bytes text = nuxtest::compressible_bytes(60000, 13);
    for (int level = 0; level < 30; ++level) {
        Parser a, b;
        const Nux8u *sa = text.data(), *sb = text.data();
        Nux32u la = Nux32u(text.size()), lb = la, slots_b = 65536;
        const int na = a.call(sa, la, text.data(), 65536, level, 2);
        auto finder = level % 10 >= 5 ? nuxsDeflateLZ77Slow_8u : nuxsDeflateLZ77Fast_8u;
        ASSERT_EQ(finder(&sb, &lb, &b.pos, text.data(), kWin, b.head.data(), b.chain.data(), kHash, b.lit_freq,
                         b.dist_freq, b.lit.data(), b.dist.data(), &slots_b, &rows[level], 2),
                  NuxStatusOk);
        ASSERT_EQ(na, int(65536 - slots_b)) << level;
        EXPECT_TRUE(std::equal(a.dist.begin(), a.dist.begin() + na, b.dist.begin())) << level;
        EXPECT_TRUE(std::equal(a.lit.begin(), a.lit.begin() + na, b.lit.begin())) << level;
    }
}

// Random bytes give no matches, so consumption shows the lookahead rule.
TEST(Lz77, LookaheadAndFlush) {
    for (int level : {0, 1, 6, 10, 19}) {
        SCOPED_TRACE(level);
        const Bytes data = nuxtest::random_bytes(400, 7);
        struct Case {
            Nux32u len;
            int flush;
            Nux32u left;
        };
        for (const Case& c : {Case{260, 0, 260}, Case{261, 0, 260}, Case{262, 0, 261}, Case{400, 0, 261},
                              Case{400, 1, 261}, Case{400, 2, 0}, Case{5, 2, 0}, Case{1, 2, 0}}) {
            Parser p;
            const Nux8u* src = data.data();
            Nux32u len = c.len;
            const int n = p.call(src, len, data.data(), 1000, level, c.flush);
            EXPECT_EQ(len, c.left) << c.len << " flush " << c.flush;
            EXPECT_EQ(Nux32u(n), c.len - c.left);
            EXPECT_EQ(p.pos, c.len - c.left);
        }
    }
}

TEST(Lz77, ExactlyTheMinimumLookaheadTakesAWholeMatch) {
    // A run: the first position is a literal, so start one byte in.
    Bytes data(300, 'a');
    for (int level : {1, 6}) {
        Parser p;
        const Nux8u* src = data.data();
        Nux32u len = 262;  // one literal, then 261 bytes left
        ASSERT_EQ(p.call(src, len, data.data(), 1000, level, 0), 1);
        ASSERT_EQ(len, 261u);
        const int n = p.call(src, len, src, 1000, level, 0);
        ASSERT_EQ(n, 1);
        EXPECT_EQ(p.dist[0], 1);
        EXPECT_GE(p.lit[0] + 3, 250);
        EXPECT_EQ(261u - len, p.lit[0] + 3u);
    }
}

TEST(Lz77, OneFreeSlotGivesOneSymbol) {
    const Bytes data = nuxtest::compressible_bytes(5000, 3);
    for (int level : {0, 1, 6, 9}) {
        Parser p;
        const Nux8u* src = data.data();
        Nux32u len = 5000, slots = 1;
        const Nux32u before = len;
        ASSERT_EQ(nuxsDeflateLZ77_8u(&src, &len, &p.pos, data.data(), kWin, p.head.data(), p.chain.data(), kHash,
                                     p.lit_freq, p.dist_freq, p.lit.data(), p.dist.data(), &slots, Nux32u(level), 2),
                  NuxStatusOk);
        EXPECT_EQ(slots, 0u);
        EXPECT_EQ(before - len, 1u);  // a literal at the first position
        int counted = 0;
        for (const auto& e : p.lit_freq) counted += e.code;
        EXPECT_EQ(counted, 1);
    }
}

TEST(Lz77, RunOfOneByteIsALiteralThenDistanceOne) {
    const Bytes data(2000, 0x55);
    for (int level : {0, 1, 6}) {
        Parser p;
        const Nux8u* src = data.data();
        Nux32u len = 2000;
        const int n = p.call(src, len, data.data(), 1000, level, 2);
        ASSERT_GE(n, 2);
        EXPECT_EQ(p.dist[0], 0);
        for (int k = 1; k < n; ++k) {
            EXPECT_TRUE(p.dist[k] == 0 || p.dist[k] == 1);
        }
        Bytes out;
        replay(out, p, n);
        EXPECT_EQ(out, data);
    }
}

TEST(Lz77, SingleProbeNeverReachesTheWindowSize) {
    // A block repeated at exactly the window size: distance 32768 is not allowed.
    Bytes data = nuxtest::random_bytes(kWin, 5);
    data.insert(data.end(), data.begin(), data.begin() + 2000);
    for (int level : {0, 1}) {
        const Bytes out = parse_in_pieces(data, level, data.size(), false);
        EXPECT_EQ(out, data);
        Parser p;
        const Nux8u* src = data.data();
        Nux32u len = Nux32u(data.size());
        const int n = p.call(src, len, data.data(), 65536, level, 2);
        for (int k = 0; k < n; ++k) EXPECT_LT(p.dist[k], kWin);
    }
}

TEST(Lz77, PiecesAndSeparateWindowReplayToTheInput) {
    const Bytes text = nuxtest::compressible_bytes(200000, 11);
    const Bytes small(text.begin(), text.begin() + 40000);
    for (int level = 0; level < 30; ++level) {
        SCOPED_TRACE(level);
        EXPECT_EQ(parse_in_pieces(small, level, 261, true), small);  // the minimum lookahead every call
        for (size_t chunk : {size_t(1000), size_t(70000)}) {
            EXPECT_EQ(parse_in_pieces(text, level, chunk, true), text);
            EXPECT_EQ(parse_in_pieces(text, level, chunk, false), text);
        }
        EXPECT_EQ(parse_in_pieces(small, level, 100000, false, 7), small);  // few slots per call
    }
}

// Positions near 2^31: the call moves everything down to start at winSize,
// and matches into the history still resolve.
TEST(Lz77, RebasingNearTwoToThe31KeepsHistoryReachable) {
    for (int level : {0, 1, 6}) {
        SCOPED_TRACE(level);
        const Bytes history = nuxtest::compressible_bytes(kWin, 21);
        Bytes input(history.begin() + 1000, history.begin() + 11000);  // repeats of the history
      std::vector<Nux16u> first;
      for (Nux32u start : {0x7FFFFFFFu - 20000u - kWin, 0x7FFFFFFFu - 20000u - kWin - 1}) {
        const bool rebased = start == 0x7FFFFFFFu - 20000u - kWin;
        Parser p;
        // History at positions start - 32768 .. start - 1, hashed as the finder would.
        ASSERT_EQ(nuxsDeflateUpdateHash_8u(history.data(), start - kWin, kWin, p.head.data(), kHash, p.chain.data(),
                                           kWin, level % 10 == 0 ? 0 : level),
                  NuxStatusOk);
        p.pos = start;
        const Nux8u* src = input.data();
        Nux32u len = Nux32u(input.size());
        const int n = p.call(src, len, history.data() + kWin, 65536, level, 2);
        ASSERT_GT(n, 0);
        EXPECT_EQ(len, 0u);
        EXPECT_EQ(p.pos, (rebased ? kWin : start) + Nux32u(input.size()));
        Bytes out = history;
        replay(out, p, n);
        EXPECT_EQ(Bytes(out.begin() + kWin, out.end()), input);
        // The parse does not depend on where the positions start.
        if (rebased) first.assign(p.dist.begin(), p.dist.begin() + n);
        else EXPECT_EQ(first, std::vector<Nux16u>(p.dist.begin(), p.dist.begin() + n));
        EXPECT_LT(n, int(input.size()) / 10);  // most of it matched into the history
        if (rebased) {
            for (Nux32s e : p.head) ASSERT_TRUE(e == -32768 || (e >= 0 && e < Nux32s(kWin + input.size())));
        }
      }
    }
}

TEST(Lz77, DictionaryInsertsAllButTheLast257Positions) {
    for (int dict_len : {257, 300}) {
        std::vector<Nux32s> head(kHash, -32768), chain(kWin, 0x5EEDBEEF);
        Bytes window(kWin, 0);
        const Bytes dict = nuxtest::random_bytes(size_t(dict_len), 4);
        ASSERT_EQ(nuxsDeflateDictionarySet_8u(dict.data(), dict_len, head.data(), kHash, chain.data(), window.data(),
                                              kWin, 6),
                  NuxStatusOk);
        EXPECT_EQ(0, std::memcmp(window.data(), dict.data(), dict.size()));
        int inserted = 0;
        for (Nux32s e : chain) inserted += e != 0x5EEDBEEF;
        EXPECT_EQ(inserted, dict_len == 300 ? 43 : 0);
    }
    // Longer than the window: only the last 32 KiB count.
    const Bytes big = nuxtest::random_bytes(kWin + 100, 8);
    std::vector<Nux32s> head(kHash, -32768), chain(kWin, -32768);
    Bytes window(kWin);
    ASSERT_EQ(nuxsDeflateDictionarySet_8u(big.data(), int(big.size()), head.data(), kHash, chain.data(),
                                          window.data(), kWin, 1),
              NuxStatusOk);
    EXPECT_EQ(0, std::memcmp(window.data(), big.data() + 100, kWin));
    // Too short: nothing changes, and the checks come first.
    EXPECT_EQ(nuxsDeflateDictionarySet_8u(big.data(), 3, head.data(), kHash, chain.data(), nullptr, kWin, 1),
              NuxStatusNullPtr);
    EXPECT_EQ(nuxsDeflateDictionarySet_8u(big.data(), 3, head.data(), 100, chain.data(), window.data(), kWin, 1),
              NuxStatusSize);
    Bytes untouched(kWin, 0xEE);
    EXPECT_EQ(nuxsDeflateDictionarySet_8u(big.data(), 3, head.data(), kHash, chain.data(), untouched.data(), kWin, 1),
              NuxStatusOk);
    EXPECT_EQ(untouched[0], 0xEE);
}

// Level 0 selects the shift hash (head only) in both functions; a negative
// level selects it in the loader but the CRC hash in the update.
TEST(Lz77, HashUpdateLevelTests) {
    const Bytes data = nuxtest::random_bytes(400, 9);
    for (int level : {0, -1, 3}) {
        std::vector<Nux32s> head(kHash, -32768), chain(kWin, 77);
        ASSERT_EQ(nuxsDeflateUpdateHash_8u(data.data(), 1000, 400, head.data(), kHash, chain.data(), kWin, level),
                  NuxStatusOk);
        int chained = 0, heads = 0;
        for (Nux32s e : chain) chained += e != 77;
        for (Nux32s e : head) heads += e != -32768;
        EXPECT_EQ(chained, level == 0 ? 0 : 397) << level;
        EXPECT_GE(heads, 390);
        std::vector<Nux32s> dhead(kHash, -32768), dchain(kWin, 77);
        Bytes window(kWin);
        ASSERT_EQ(nuxsDeflateDictionarySet_8u(data.data(), 400, dhead.data(), kHash, dchain.data(), window.data(),
                                              kWin, level),
                  NuxStatusOk);
        chained = 0;
        for (Nux32s e : dchain) chained += e != 77;
        EXPECT_EQ(chained, level < 1 ? 0 : 143) << level;
    }
    std::vector<Nux32s> head(kHash, -32768), chain(kWin, 77);
    EXPECT_EQ(nuxsDeflateUpdateHash_8u(data.data(), 0, 3, head.data(), kHash, chain.data(), kWin, 1), NuxStatusOk);
    EXPECT_EQ(nuxsDeflateUpdateHash_8u(nullptr, 0, 3, head.data(), kHash, chain.data(), kWin, 1), NuxStatusNullPtr);
    EXPECT_EQ(nuxsDeflateUpdateHash_8u(data.data(), 0, 3, head.data(), kHash, chain.data(), 65536, 1), NuxStatusSize);
    for (Nux32s e : chain) ASSERT_EQ(e, 77);
}

TEST(Lz77, GuardedInputAndCleanUpperState) {
    const Bytes text = nuxtest::compressible_bytes(5000, 2);
    for (int level : {0, 1, 9}) {
        nuxtest::GuardedBuffer g(text.size());
        std::memcpy(g.data(), text.data(), text.size());
        Parser p;
        const Nux8u* src = g.data();
        Nux32u len = Nux32u(text.size());
        int n = 0;
        EXPECT_TRUE(nuxtest::leaves_upper_state_clean([&] { n = p.call(src, len, g.data(), 65536, level, 2); }));
        Bytes out;
        replay(out, p, n);
        EXPECT_EQ(out, text);
    }
    // The loader copies with 32-byte vector moves.
    std::vector<Nux32s> head(kHash, -32768), chain(kWin, -32768);
    Bytes window(kWin);
    EXPECT_TRUE(nuxtest::leaves_upper_state_clean([&] {
        nuxsDeflateDictionarySet_8u(text.data(), int(text.size()), head.data(), kHash, chain.data(), window.data(), kWin,
                                    6);
    }));
    EXPECT_TRUE(nuxtest::leaves_upper_state_clean([&] {
        nuxsDeflateUpdateHash_8u(text.data(), 0, Nux32u(text.size()), head.data(), kHash, chain.data(), kWin, 6);
    }));
    for (bool lazy : {false, true}) {
        const NuxDeflateMatchParams m{16, 8, 32, 16};
        Parser p;
        const Nux8u* src = text.data();
        Nux32u len = Nux32u(text.size()), slots = 65536;
        EXPECT_TRUE(nuxtest::leaves_upper_state_clean([&] {
            (lazy ? nuxsDeflateLZ77Slow_8u : nuxsDeflateLZ77Fast_8u)(&src, &len, &p.pos, text.data(), kWin,
                                                                     p.head.data(), p.chain.data(), kHash, p.lit_freq,
                                                                     p.dist_freq, p.lit.data(), p.dist.data(), &slots,
                                                                     &m, 2);
        }));
        EXPECT_EQ(len, 0u);
    }
}

}  // namespace
