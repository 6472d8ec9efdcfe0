// LZ4 encoders: argument order, table handling, block-end rules, the safe
// encoder's capacity discipline, and the dictionary encoders' blocks against
// liblz4's dictionary decoder.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "nuxzo.h"
#include "support/peers.h"

namespace {

using nuxtest::Bytes;

struct Table {
    alignas(8) Nux8u bytes[16384];
    void fill(uint8_t v) { std::memset(bytes, v, sizeof bytes); }
    int32_t entry(int i) const {
        int32_t v;
        std::memcpy(&v, bytes + 4 * i, 4);
        return v;
    }
    void set_all32(int32_t v) {
        for (int i = 0; i < 4096; ++i) std::memcpy(bytes + 4 * i, &v, 4);
    }
};

int bound(size_t n) { return LZ4_compressBound(int(n)); }

Bytes peer_decode(const Bytes& block, size_t n, const Bytes& dict = {}) {
    return nuxtest::lz4_decompress(block, n + 16, dict);
}

Bytes encode(const Bytes& src, Table& t) {
    Bytes out(size_t(bound(src.size())));
    int len = -1;
    EXPECT_EQ(NuxStatusOk, nuxsEncodeLZ4_8u(src.data(), int(src.size()), out.data(), &len, t.bytes));
    out.resize(size_t(len));
    return out;
}

TEST(Lz4Encode, ArgumentChecksInOrder) {
    Table t;
    Bytes src(100, 'a'), dst(200);
    int len = 0, src_len = 100;
    int size = 0;
    EXPECT_EQ(NuxStatusNullPtr, nuxsEncodeLZ4HashTableGetSize_8u(nullptr));
    EXPECT_EQ(NuxStatusOk, nuxsEncodeLZ4HashTableGetSize_8u(&size));
    EXPECT_EQ(size, 16384);
    EXPECT_EQ(NuxStatusNullPtr, nuxsEncodeLZ4HashTableInit_8u(nullptr, 0));
    EXPECT_EQ(NuxStatusSize, nuxsEncodeLZ4HashTableInit_8u(t.bytes, 0));

    // The default encoder clears its table before checking anything else.
    t.fill(0xAB);
    EXPECT_EQ(NuxStatusSize, nuxsEncodeLZ4_8u(src.data(), 0, dst.data(), &len, t.bytes));
    EXPECT_EQ(t.bytes[8191], 0);
    EXPECT_EQ(t.bytes[8192], 0xAB);
    EXPECT_EQ(NuxStatusNullPtr, nuxsEncodeLZ4_8u(nullptr, 0, dst.data(), &len, t.bytes));
    EXPECT_EQ(NuxStatusNullPtr, nuxsEncodeLZ4_8u(src.data(), 100, dst.data(), &len, nullptr));

    EXPECT_EQ(NuxStatusNullPtr, nuxsEncodeLZ4Safe_8u(src.data(), nullptr, dst.data(), &len, t.bytes));
    len = 0;
    EXPECT_EQ(NuxStatusSize, nuxsEncodeLZ4Safe_8u(src.data(), &src_len, dst.data(), &len, t.bytes));
    EXPECT_EQ(src_len, 100);

    // Acceleration: 1 is the default encoder before any check of its own;
    // pointers and sizes come before the acceleration.
    len = 200;
    EXPECT_EQ(NuxStatusNullPtr, nuxsEncodeLZ4Fast_8u(src.data(), 100, dst.data(), &len, nullptr, 0));
    EXPECT_EQ(NuxStatusSize, nuxsEncodeLZ4Fast_8u(src.data(), 0, dst.data(), &len, t.bytes, 0));
    EXPECT_EQ(NuxStatusBadAcceleration, nuxsEncodeLZ4Fast_8u(src.data(), 100, dst.data(), &len, t.bytes, 0));
    EXPECT_EQ(NuxStatusBadAcceleration, nuxsEncodeLZ4Fast_8u(src.data(), 100, dst.data(), &len, t.bytes, -4));
    t.fill(0xAB);
    EXPECT_EQ(NuxStatusSize, nuxsEncodeLZ4Fast_8u(src.data(), 0, dst.data(), &len, t.bytes, 1));
    EXPECT_EQ(t.bytes[0], 0);  // the default encoder's clearing ran

    // Dictionary forms: table first, prefix choice, dictionary size, then
    // pointers, sizes and the history index.
    EXPECT_EQ(NuxStatusNullPtr, nuxsEncodeLZ4Dict_8u(src.data(), 0, 100, dst.data(), &len, nullptr, nullptr, 0));
    EXPECT_EQ(NuxStatusSize, nuxsEncodeLZ4Dict_8u(src.data(), 0, 100, dst.data(), &len, t.bytes, src.data(), -1));
    EXPECT_EQ(NuxStatusNullPtr, nuxsEncodeLZ4Dict_8u(src.data(), 0, 100, nullptr, &len, t.bytes, nullptr, 0));
    EXPECT_EQ(NuxStatusSize, nuxsEncodeLZ4Dict_8u(src.data(), 0, 0, dst.data(), &len, t.bytes, nullptr, 0));
    EXPECT_EQ(NuxStatusBadArg, nuxsEncodeLZ4Dict_8u(src.data(), -1, 100, dst.data(), &len, t.bytes, nullptr, 0));
    len = 0;
    EXPECT_EQ(NuxStatusSize, nuxsEncodeLZ4DictSafe_8u(src.data(), 0, &src_len, dst.data(), &len, t.bytes, nullptr, 0));
    EXPECT_EQ(NuxStatusNullPtr, nuxsEncodeLZ4DictSafe_8u(src.data(), 0, nullptr, dst.data(), &len, t.bytes, nullptr, 0));
    EXPECT_EQ(NuxStatusNullPtr, nuxsEncodeLZ4DictHashTableInit_8u(nullptr, 1));
    EXPECT_EQ(NuxStatusSize, nuxsEncodeLZ4DictHashTableInit_8u(t.bytes, 0));
    EXPECT_EQ(NuxStatusNullPtr, nuxsEncodeLZ4LoadDict_8u(t.bytes, nullptr, 10));
    EXPECT_EQ(NuxStatusSize, nuxsEncodeLZ4LoadDict_8u(t.bytes, src.data(), 0));
}

TEST(Lz4Encode, ShortSourcesAreOneLiteralRunLongerRunsOneMatch) {
    Table t;
    for (size_t n = 1; n <= 29; ++n) {
        Bytes src(n, 'a');  // compressible, yet too short to search
        Bytes block = encode(src, t);
        Bytes want{uint8_t(std::min<size_t>(n, 15) << 4)};
        if (n >= 15) want.push_back(uint8_t(n - 15));
        want.insert(want.end(), src.begin(), src.end());
        EXPECT_EQ(block, want) << n;
        Bytes out(size_t(bound(n)));
        int len = 0;
        ASSERT_EQ(NuxStatusOk, nuxsEncodeLZ4Fast_8u(src.data(), int(n), out.data(), &len, t.bytes, 4));
        EXPECT_EQ(Bytes(out.begin(), out.begin() + len), want);
    }
    // From 30 bytes the search runs: a run of one byte becomes one literal
    // and one long match at offset 1, then the closing literal run.
    for (size_t n : {30, 100000}) {
        const Bytes run(n, 'a'), block = encode(run, t);
        ASSERT_GE(block.size(), 4u);
        EXPECT_EQ(Bytes(block.begin(), block.begin() + 4), (Bytes{0x1F, 'a', 1, 0})) << n;
        EXPECT_LE(block.size(), 4 + n / 255 + 1 + 1 + 5) << n;
        EXPECT_EQ(peer_decode(block, n), run);
    }
}

TEST(Lz4Encode, TableWidthFollowsSourceLength) {
    Table t;
    for (int n : {65535, 65536}) {
        const Bytes src = nuxtest::compressible_bytes(size_t(n), 7);
        t.fill(0xCD);
        const Bytes block = encode(src, t);
        EXPECT_EQ(peer_decode(block, src.size()), src);
        // 16-bit entries touch only the first 8 KiB of the table.
        bool upper_untouched = true;
        for (int i = 8192; i < 16384; ++i) upper_untouched &= t.bytes[i] == 0xCD;
        EXPECT_EQ(upper_untouched, n < 65536) << n;
        t.fill(0xCD);
        ASSERT_EQ(NuxStatusOk, nuxsEncodeLZ4HashTableInit_8u(t.bytes, n));
        EXPECT_EQ(t.bytes[16383], n < 65536 ? 0xCD : 0);
        EXPECT_EQ(t.bytes[8191], 0);
    }
}

TEST(Lz4Encode, SafeEncoderAtEveryCapacity) {
    Table t;
    for (const Bytes& src : {nuxtest::compressible_bytes(3000, 11), nuxtest::random_bytes(700, 12)}) {
        const Bytes full = encode(src, t);
        for (int cap = 1; cap <= int(full.size()) + 2; cap += (cap < 64 || cap + 64 > int(full.size()) ? 1 : 13)) {
            nuxtest::GuardedBuffer dst{size_t(cap)};
            int src_len = int(src.size()), len = cap;
            const NuxStatus st = nuxsEncodeLZ4Safe_8u(src.data(), &src_len, dst.data(), &len, t.bytes);
            ASSERT_LE(len, cap);
            ASSERT_EQ(st, src_len == int(src.size()) ? NuxStatusOk : NuxStatusDstFull) << cap;
            if (cap == 1) {
                EXPECT_EQ(len, 1);
                EXPECT_EQ(src_len, 0);
                EXPECT_EQ(dst.data()[0], 0);
            }
            if (cap >= int(full.size())) {
                EXPECT_EQ(st, NuxStatusOk) << cap;
            }
            ASSERT_EQ(peer_decode(Bytes(dst.data(), dst.data() + len), src.size()), nuxtest::head(src, size_t(src_len)))
                << cap;
        }
    }
}

TEST(Lz4Encode, LoadDictEntersEveryThirdPositionBeforeTheLastEight) {
    Table t;
    const Bytes dict = nuxtest::random_bytes(64, 3);
    auto changed = [&](int n) {
        t.set_all32(0x7F7F7F7F);
        EXPECT_EQ(NuxStatusOk, nuxsEncodeLZ4LoadDict_8u(t.bytes, dict.data(), n));
        std::vector<int32_t> values;
        for (int i = 0; i < 4096; ++i)
            if (t.entry(i) != 0x7F7F7F7F) values.push_back(t.entry(i));
        std::sort(values.begin(), values.end());
        return values;
    };
    EXPECT_TRUE(changed(8).empty());
    EXPECT_EQ(changed(9), std::vector<int32_t>{0});
    EXPECT_EQ(changed(11), std::vector<int32_t>{0});
    EXPECT_EQ(changed(12), (std::vector<int32_t>{0, 3}));
    EXPECT_EQ(changed(24).size(), 6u);  // offsets 0, 3, ..., 15
}

TEST(Lz4Encode, DictionaryFormsLowerTheTableToDifferentLimits) {
    Table t;
    Bytes buf = nuxtest::compressible_bytes(120, 4);
    const Nux8u* src = buf.data() + 100;
    for (bool safe : {false, true}) {
        t.set_all32(5000);
        Bytes out(64);
        int len = int(out.size()), src_len = 20;
        // 20 bytes are too short to search, so no entry is written after.
        const NuxStatus st = safe ? nuxsEncodeLZ4DictSafe_8u(src, 100, &src_len, out.data(), &len, t.bytes, nullptr, 0)
                                  : nuxsEncodeLZ4Dict_8u(src, 100, 20, out.data(), &len, t.bytes, nullptr, 0);
        ASSERT_EQ(st, NuxStatusOk);
        EXPECT_EQ(t.entry(0), safe ? 100 : 99);
        EXPECT_EQ(t.entry(4095), safe ? 100 : 99);
    }
    // srcIdx 0: the table is cleared.
    t.set_all32(5000);
    Bytes out(64);
    int len = 0;
    ASSERT_EQ(NuxStatusOk, nuxsEncodeLZ4Dict_8u(src, 0, 20, out.data(), &len, t.bytes, nullptr, 0));
    EXPECT_EQ(t.entry(17), 0);
}

struct DictCase {
    Bytes dict, data;
};

// Encodes `data` after `dict` (separate buffer, or the same bytes in front
// in one buffer) and checks liblz4 and our decoder read it back; the block
// length goes to *block_len.
void check_dictionary_block(const DictCase& c, bool prefix, bool safe, int cap = 0, int* block_len = nullptr) {
    Table t;
    ASSERT_EQ(NuxStatusOk, nuxsEncodeLZ4DictHashTableInit_8u(t.bytes, int(c.data.size())));
    Bytes joined = c.dict;
    joined.insert(joined.end(), c.data.begin(), c.data.end());
    const Nux8u* dict = prefix ? joined.data() : c.dict.data();
    const Nux8u* src = prefix ? joined.data() + c.dict.size() : c.data.data();
    if (!c.dict.empty()) {
        ASSERT_EQ(NuxStatusOk, nuxsEncodeLZ4LoadDict_8u(t.bytes, dict, int(c.dict.size())));
    }
    const int dict_size = int(c.dict.size());
    Bytes out(size_t(safe && cap ? cap : bound(c.data.size())));
    int len = int(out.size()), src_len = int(c.data.size());
    const NuxStatus st = safe ? nuxsEncodeLZ4DictSafe_8u(src, dict_size, &src_len, out.data(), &len, t.bytes, dict, dict_size)
                              : nuxsEncodeLZ4Dict_8u(src, dict_size, src_len, out.data(), &len, t.bytes, dict, dict_size);
    ASSERT_EQ(st, src_len == int(c.data.size()) ? NuxStatusOk : NuxStatusDstFull);
    ASSERT_LE(len, int(out.size()));
    out.resize(size_t(len));
    if (block_len) *block_len = len;
    const Bytes want(c.data.begin(), c.data.begin() + src_len);
    EXPECT_EQ(peer_decode(out, c.data.size(), c.dict), want);
    // Our separate-dictionary decoder, output right after the dictionary.
    Bytes mine(c.dict.size() + c.data.size());
    int used = len, produced = int(c.data.size());
    // (A one-byte block, the empty sequence, reports that the source ran out.)
    ASSERT_EQ(len == 1 ? NuxStatusSrcEmpty : NuxStatusOk,
              nuxsDecodeLZ4Dict_8u(out.data(), &used, mine.data(), dict_size, &produced,
                                   c.dict.empty() ? nullptr : c.dict.data(), dict_size));
    EXPECT_EQ(Bytes(mine.begin() + dict_size, mine.begin() + dict_size + produced), want);
}

TEST(Lz4Encode, DictionaryBlocksDecodeWithPeer) {
    const Bytes stream = nuxtest::compressible_bytes(300000, 17);
    using nuxtest::head;
    const std::vector<DictCase> cases = {
        {head(stream, 65536), Bytes(stream.begin() + 65536, stream.end())},
        {head(stream, 40000), head(stream, 40000)},
        {head(stream, 8), head(stream, 500)},
        {head(stream, 9), head(stream, 500)},
        {head(stream, 100000), Bytes(stream.begin() + 1000, stream.begin() + 1100)},
        {{}, head(stream, 70000)}};
    for (const DictCase& c : cases) {
        SCOPED_TRACE(c.dict.size());
        for (bool prefix : {false, true})
            for (bool safe : {false, true}) check_dictionary_block(c, prefix, safe);
    }
    // A dictionary equal to the data makes a tiny block.
    int len = 0;
    check_dictionary_block(cases[1], false, false, 0, &len);
    EXPECT_LT(len, 2000);
    // The safe forms at small capacities.
    for (int cap : {1, 2, 17, 100, 1000, 5000}) {
        check_dictionary_block(cases[0], false, true, cap);
        check_dictionary_block(cases[0], true, true, cap);
    }
}

TEST(Lz4Encode, CorpusLinkedBlocks) {
    if (nuxtest::corpus().empty()) GTEST_SKIP() << "corpus not available";
    for (const auto& f : nuxtest::corpus()) {
        const size_t n = std::min(f.data.size(), nuxtest::sanitized() ? size_t(300000) : size_t(2) << 20);
        for (size_t at = 65536; at + 1 < n; at += 262144) {
            const size_t len = std::min<size_t>(262144, n - at);
            const DictCase c{Bytes(f.data.begin() + std::ptrdiff_t(at - 65536), f.data.begin() + std::ptrdiff_t(at)),
                             Bytes(f.data.begin() + std::ptrdiff_t(at), f.data.begin() + std::ptrdiff_t(at + len))};
            check_dictionary_block(c, at % 2 == 0, false);
        }
    }
}

TEST(Lz4Encode, LeavesUpperVectorStateClean) {
    if (!nuxtest::can_check_upper_vector_state()) GTEST_SKIP();
    Table t;
    const Bytes src = nuxtest::compressible_bytes(20000, 2);
    Bytes out(size_t(bound(src.size())));
    int len = 0, src_len = 0;
    EXPECT_TRUE(nuxtest::leaves_upper_state_clean(
        [&] { nuxsEncodeLZ4_8u(src.data(), int(src.size()), out.data(), &len, t.bytes); }));
    EXPECT_TRUE(nuxtest::leaves_upper_state_clean(
        [&] { nuxsEncodeLZ4Fast_8u(src.data(), int(src.size()), out.data(), &len, t.bytes, 5); }));
    EXPECT_TRUE(nuxtest::leaves_upper_state_clean([&] {
        src_len = int(src.size());
        len = 3000;
        nuxsEncodeLZ4Safe_8u(src.data(), &src_len, out.data(), &len, t.bytes);
    }));
    EXPECT_TRUE(nuxtest::leaves_upper_state_clean([&] { nuxsEncodeLZ4HashTableInit_8u(t.bytes, 100000); }));
    EXPECT_TRUE(nuxtest::leaves_upper_state_clean([&] { nuxsEncodeLZ4DictHashTableInit_8u(t.bytes, 1); }));
    EXPECT_TRUE(nuxtest::leaves_upper_state_clean([&] { nuxsEncodeLZ4LoadDict_8u(t.bytes, src.data(), 10000); }));
    EXPECT_TRUE(nuxtest::leaves_upper_state_clean([&] {
        nuxsEncodeLZ4Dict_8u(src.data() + 10000, 10000, 10000, out.data(), &len, t.bytes, src.data(), 10000);
    }));
    EXPECT_TRUE(nuxtest::leaves_upper_state_clean([&] {
        src_len = 10000;
        len = 2000;
        nuxsEncodeLZ4DictSafe_8u(src.data() + 10000, 10000, &src_len, out.data(), &len, t.bytes, src.data() + 1, 10000);
    }));
}

}  // namespace
