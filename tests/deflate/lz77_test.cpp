// The LZ77 engine on its own: argument order, lookahead and flush, symbol
// slots, rebasing, the dictionary loader, and parses replayed against the
// input (with the history contiguous and in a separate window buffer).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "nuxzo.h"
#include "streams/sample_data.h"
#include "support/test_support.h"

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
    // One call of a finder with a parameter record.
    NuxStatus find(bool lazy, const Nux8u** src, Nux32u& len, const Nux8u* window, Nux32u& slots,
                   const NuxDeflateMatchParams* m, int flush, Nux32u win = kWin) {
        return (lazy ? nuxsDeflateLZ77Slow_8u : nuxsDeflateLZ77Fast_8u)(
            src, &len, &pos, window, win, head.data(), chain.data(), kHash, lit_freq, dist_freq, lit.data(), dist.data(),
            &slots, m, flush);
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
// buffer in front of which nothing else lies. Returns all symbols replayed,
// and appends them to `symbols` if given.
Bytes parse_in_pieces(const Bytes& data, int level, size_t chunk, bool separate, size_t slots_per_call = 65536,
                      std::vector<uint32_t>* symbols = nullptr) {
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
        for (int k = 0; symbols && k < n; ++k) symbols->push_back(uint32_t(p.lit[k]) << 16 | p.dist[k]);
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

TEST(Lz77, ArgumentOrderAndParameterRecords) {
    // The level comes before any pointer.
    for (Nux32u level : {30u, 0xFFFFFFFFu, 29u})
        EXPECT_EQ(nuxsDeflateLZ77_8u(nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr, 0, nullptr, nullptr,
                                     nullptr, nullptr, nullptr, level, 0),
                  level == 29 ? NuxStatusNullPtr : NuxStatusSize);
    Parser p;
    const Bytes data = nuxtest::random_bytes(1000, 1);
    const Nux8u* src = data.data();
    const Nux8u* null_src = nullptr;
    Nux32u len = 1000, slots = 100;
    const NuxDeflateMatchParams good{8, 8, 8, 8}, single{0, 0, 0, 0}, short_field{8, 3, 8, 8}, neg{-1, 8, 8, 8};
    struct Case {
        const Nux8u** src;
        Nux32u win;
        const NuxDeflateMatchParams* m;
        bool lazy;
        NuxStatus want;
    };
    for (const Case& c : {Case{&null_src, kWin, &good, false, NuxStatusNullPtr},
                          Case{&src, kWin, nullptr, false, NuxStatusNullPtr},
                          Case{&null_src, 100, &neg, false, NuxStatusNullPtr},  // pointers before sizes
                          Case{&src, 100, &neg, false, NuxStatusSize},          // sizes before modes
                          Case{&src, 65536, &good, false, NuxStatusSize},
                          Case{&src, kWin, &neg, false, NuxStatusBadArg},
                          Case{&src, kWin, &short_field, false, NuxStatusBadArg},
                          Case{&src, kWin, &short_field, true, NuxStatusBadArg},
                          Case{&src, kWin, &single, true, NuxStatusBadArg},  // the lazy finder needs a chain
                          Case{&src, kWin, &single, false, NuxStatusOk}}) {
        EXPECT_EQ(p.find(c.lazy, c.src, len, data.data(), slots, c.m, 0, c.win), c.want);
        if (c.want != NuxStatusOk) {
            EXPECT_EQ(len, 1000u);
        }
    }
    EXPECT_EQ(p.find(true, &src, len, data.data(), slots, &good, 0), NuxStatusOk);
}

// Random bytes give no matches, so consumption shows the lookahead rule and
// the slot limit; the frequency tables count every symbol written.
TEST(Lz77, LookaheadFlushAndSlots) {
    const Bytes data = nuxtest::random_bytes(400, 7);
    for (int level : {0, 1, 6, 9, 10, 19}) {
        SCOPED_TRACE(level);
        struct Case {
            Nux32u len;
            int flush;
            Nux32u left, slots;
        };
        for (const Case& c : {Case{260, 0, 260, 1000}, Case{261, 0, 260, 1000}, Case{262, 0, 261, 1000},
                              Case{400, 0, 261, 1000}, Case{400, 1, 261, 1000}, Case{400, 2, 0, 1000},
                              Case{5, 2, 0, 1000}, Case{1, 2, 0, 1000}, Case{400, 2, 399, 1}, Case{400, 2, 300, 100}}) {
            Parser p;
            const Nux8u* src = data.data();
            Nux32u len = c.len;
            const int n = p.call(src, len, data.data(), c.slots, level, c.flush);
            EXPECT_EQ(len, c.left) << c.len << " flush " << c.flush << " slots " << c.slots;
            EXPECT_EQ(Nux32u(n), c.len - c.left);
            EXPECT_EQ(p.pos, c.len - c.left);
            int counted = 0;
            for (const auto& e : p.lit_freq) counted += e.code;
            EXPECT_EQ(counted, n);
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

// Replay checks every distance against the history and the window size.
// Where the history lies must not change the parse: a contiguous history
// runs the loops compiled for the level's row, a separate window the same
// loops with the row's values at run time.
TEST(Lz77, PiecesAndSeparateWindowReplayToTheInput) {
    const Bytes text = nuxzo::sample::text(200000, 11);
    const Bytes small(text.begin(), text.begin() + 40000), run(2000, 0x55);
    // A block repeated at exactly the window size: distance 32768 is not allowed.
    Bytes far = nuxtest::random_bytes(kWin, 5);
    far.insert(far.end(), far.begin(), far.begin() + 2000);
    for (int level = 0; level < 30; ++level) {
        SCOPED_TRACE(level);
        EXPECT_EQ(parse_in_pieces(run, level, 700, false), run);  // distance 1, overlapping
        EXPECT_EQ(parse_in_pieces(far, level, far.size(), false), far);
        EXPECT_EQ(parse_in_pieces(small, level, 261, true), small);  // the minimum lookahead every call
        for (size_t chunk : {size_t(1000), size_t(70000)}) {
            std::vector<uint32_t> apart, together;
            EXPECT_EQ(parse_in_pieces(text, level, chunk, true, 65536, &apart), text);
            EXPECT_EQ(parse_in_pieces(text, level, chunk, false, 65536, &together), text);
            EXPECT_TRUE(apart == together) << "chunk " << chunk;
        }
        EXPECT_EQ(parse_in_pieces(small, level, 100000, false, 7), small);  // few slots per call
    }
}

// Positions near 2^31: the call moves everything down to start at winSize,
// and matches into the history still resolve.
TEST(Lz77, RebasingNearTwoToThe31KeepsHistoryReachable) {
    for (int level : {0, 1, 6}) {
        SCOPED_TRACE(level);
        const Bytes history = nuxzo::sample::text(kWin, 21);
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

// Fresh tables for the loader and the hash update, with the chain preset to
// a marker so that the inserted entries can be counted.
struct Tables {
    std::vector<Nux32s> head = std::vector<Nux32s>(kHash, -32768), chain = std::vector<Nux32s>(kWin, 77);
    Bytes window = Bytes(kWin, 0xEE);
    NuxStatus set_dict(const Nux8u* d, int n, int level, Nux32u hash = kHash) {
        return nuxsDeflateDictionarySet_8u(d, n, head.data(), hash, chain.data(), window.data(), kWin, level);
    }
    NuxStatus update(const Nux8u* src, Nux32u pos, Nux32u n, int level, Nux32u win = kWin) {
        return nuxsDeflateUpdateHash_8u(src, pos, n, head.data(), kHash, chain.data(), win, level);
    }
    long chained() const { return std::count_if(chain.begin(), chain.end(), [](Nux32s e) { return e != 77; }); }
    long heads() const { return std::count_if(head.begin(), head.end(), [](Nux32s e) { return e != -32768; }); }
};

// The loader copies the last 32 KiB of the dictionary and hashes all but
// its last 257 positions; level 0 selects the shift hash (head only) in both
// functions, a negative level the shift hash in the loader but the CRC hash
// in the update.
TEST(Lz77, DictionaryAndHashUpdate) {
    const Bytes big = nuxtest::random_bytes(kWin + 100, 8);
    struct Case {
        int n, level;
        long chained;
    };
    for (const Case& c : {Case{257, 6, 0}, Case{300, 6, 43}, Case{400, 0, 0}, Case{400, -1, 0}, Case{400, 3, 143}}) {
        Tables t;
        ASSERT_EQ(t.set_dict(big.data(), c.n, c.level), NuxStatusOk);
        EXPECT_EQ(0, std::memcmp(t.window.data(), big.data(), size_t(c.n)));
        EXPECT_EQ(t.chained(), c.chained) << c.n << " level " << c.level;
    }
    for (int level : {0, -1, 3}) {
        Tables t;
        ASSERT_EQ(t.update(big.data(), 1000, 400, level), NuxStatusOk);
        EXPECT_EQ(t.chained(), level == 0 ? 0 : 397) << level;
        EXPECT_GE(t.heads(), 390);
    }
    Tables t;
    ASSERT_EQ(t.set_dict(big.data(), int(big.size()), 1), NuxStatusOk);
    EXPECT_EQ(0, std::memcmp(t.window.data(), big.data() + 100, kWin));  // only the last 32 KiB count
    // Argument order, and a dictionary too short to change anything.
    Tables u;
    EXPECT_EQ(nuxsDeflateDictionarySet_8u(big.data(), 3, u.head.data(), kHash, u.chain.data(), nullptr, kWin, 1),
              NuxStatusNullPtr);
    EXPECT_EQ(u.set_dict(big.data(), 3, 1, 100), NuxStatusSize);
    EXPECT_EQ(u.set_dict(big.data(), 3, 1), NuxStatusOk);
    EXPECT_EQ(u.window[0], 0xEE);
    EXPECT_EQ(u.update(nullptr, 0, 3, 1), NuxStatusNullPtr);
    EXPECT_EQ(u.update(big.data(), 0, 3, 1, 65536), NuxStatusSize);
    EXPECT_EQ(u.update(big.data(), 0, 3, 1), NuxStatusOk);
    EXPECT_EQ(u.chained(), 0);
}

TEST(Lz77, GuardedInputAndCleanUpperState) {
    const Bytes text = nuxzo::sample::text(5000, 2);
    nuxtest::GuardedBuffer g(text.size());
    std::memcpy(g.data(), text.data(), text.size());
    for (int level : {0, 1, 9}) {
        Parser p;
        const Nux8u* src = g.data();
        Nux32u len = Nux32u(text.size());
        int n = 0;
        EXPECT_TRUE(nuxtest::leaves_upper_state_clean([&] { n = p.call(src, len, g.data(), 65536, level, 2); }));
        Bytes out;
        replay(out, p, n);
        EXPECT_EQ(out, text);
    }
    for (bool lazy : {false, true}) {
        const NuxDeflateMatchParams m{16, 8, 32, 16};
        Parser p;
        const Nux8u* src = g.data();
        Nux32u len = Nux32u(text.size()), slots = 65536;
        EXPECT_TRUE(nuxtest::leaves_upper_state_clean([&] { p.find(lazy, &src, len, g.data(), slots, &m, 2); }));
        EXPECT_EQ(len, 0u);
    }
    // The loader copies with 32-byte vector moves.
    Tables t;
    EXPECT_TRUE(nuxtest::leaves_upper_state_clean([&] { t.set_dict(text.data(), int(text.size()), 6); }));
    EXPECT_TRUE(nuxtest::leaves_upper_state_clean([&] { t.update(text.data(), 0, Nux32u(text.size()), 6); }));
}

}  // namespace
