// Every encoder's blocks decode with liblz4, liblz4's blocks decode with
// ours, on generated data and the corpus.
#include <gtest/gtest.h>
#include <lz4.h>
#include <lz4hc.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "nuxzo.h"
#include "support/test_support.h"

namespace {

using nuxtest::Bytes;

int bound(size_t n) { return LZ4_compressBound(int(n)); }

Bytes encode_default(const Bytes& src) {
    Bytes out(size_t(bound(src.size())));
    alignas(8) Nux8u table[16384];
    int len = 0;
    EXPECT_EQ(NuxStatusOk, nuxsEncodeLZ4_8u(src.data(), int(src.size()), out.data(), &len, table));
    out.resize(size_t(len));
    return out;
}

Bytes encode_fast(const Bytes& src, int accel) {
    Bytes out(size_t(bound(src.size())));
    alignas(8) Nux8u table[16384];
    int len = 0;
    EXPECT_EQ(NuxStatusOk, nuxsEncodeLZ4Fast_8u(src.data(), int(src.size()), out.data(), &len, table, accel));
    out.resize(size_t(len));
    return out;
}

Bytes encode_safe(const Bytes& src, int cap, int* consumed) {
    Bytes out(static_cast<size_t>(cap));
    alignas(8) Nux8u table[16384];
    int len = cap;
    *consumed = int(src.size());
    const NuxStatus st = nuxsEncodeLZ4Safe_8u(src.data(), consumed, out.data(), &len, table);
    EXPECT_EQ(st, *consumed == int(src.size()) ? NuxStatusOk : NuxStatusDstFull);
    out.resize(size_t(len));
    return out;
}

// liblz4 must give back exactly `want`.
void expect_peer_decodes(const Bytes& block, const Bytes& want) {
    Bytes got(want.size() + 1);
    const int n = LZ4_decompress_safe(reinterpret_cast<const char*>(block.data()), reinterpret_cast<char*>(got.data()),
                                      int(block.size()), int(got.size()));
    ASSERT_EQ(n, int(want.size()));
    ASSERT_TRUE(std::equal(want.begin(), want.end(), got.begin()));
}

void expect_we_decode(const Bytes& block, const Bytes& want) {
    Bytes got(want.size() + 64);
    int len = int(want.size());
    ASSERT_EQ(NuxStatusOk, nuxsDecodeLZ4_8u(block.data(), int(block.size()), got.data(), &len));
    ASSERT_EQ(len, int(want.size()));
    ASSERT_TRUE(std::equal(want.begin(), want.end(), got.begin()));
}

std::vector<Bytes> generated_inputs() {
    std::vector<Bytes> v;
    for (size_t n : {1, 2, 5, 12, 13, 28, 29, 30, 31, 64, 100, 1000, 4096, 65535, 65536, 65537, 200000})
        v.push_back(nuxtest::compressible_bytes(n, n));
    for (size_t n : {40, 5000, 70000}) v.push_back(nuxtest::random_bytes(n, n));
    v.push_back(Bytes(100000, 'a'));
    Bytes pattern(50000);
    for (size_t i = 0; i < pattern.size(); ++i) pattern[i] = uint8_t("abcdefghi"[i % 9]);
    v.push_back(pattern);
    return v;
}

// The corpus, cut short under the sanitizers.
std::vector<Bytes> corpus_inputs() {
    std::vector<Bytes> v;
    const bool small = std::getenv("NUXZO_SANITIZED") != nullptr;
    for (const auto& f : nuxtest::corpus()) {
        const size_t n = std::min(f.data.size(), small ? size_t(1) << 20 : size_t(8) << 20);
        v.emplace_back(f.data.begin(), f.data.begin() + std::ptrdiff_t(n));
    }
    return v;
}

TEST(Lz4Interop, OurEncodersDecodeWithPeer) {
    for (const Bytes& in : generated_inputs()) {
        SCOPED_TRACE(in.size());
        const Bytes a = encode_default(in);
        expect_peer_decodes(a, in);
        expect_we_decode(a, in);
        EXPECT_EQ(a, encode_fast(in, 1));  // acceleration 1 is the default encoder
        for (int accel : {2, 8, 100}) {
            const Bytes f = encode_fast(in, accel);
            expect_peer_decodes(f, in);
            expect_we_decode(f, in);
        }
        int consumed = 0;
        const Bytes s = encode_safe(in, bound(in.size()), &consumed);
        EXPECT_EQ(consumed, int(in.size()));
        EXPECT_EQ(s, a);  // with room, the safe encoder writes the same block
    }
}

TEST(Lz4Interop, PeerBlocksDecodeWithOurs) {
    for (const Bytes& in : generated_inputs()) {
        Bytes block(size_t(bound(in.size())));
        const char* s = reinterpret_cast<const char*>(in.data());
        char* d = reinterpret_cast<char*>(block.data());
        int n = LZ4_compress_default(s, d, int(in.size()), int(block.size()));
        expect_we_decode(Bytes(block.begin(), block.begin() + n), in);
        n = LZ4_compress_HC(s, d, int(in.size()), int(block.size()), 9);
        expect_we_decode(Bytes(block.begin(), block.begin() + n), in);
        n = LZ4_compress_fast(s, d, int(in.size()), int(block.size()), 20);
        expect_we_decode(Bytes(block.begin(), block.begin() + n), in);
    }
}

TEST(Lz4Interop, CorpusRoundTripsBothWays) {
    const auto inputs = corpus_inputs();
    if (inputs.empty()) GTEST_SKIP() << "corpus not available";
    size_t ours_total = 0, peer_total = 0;
    for (const Bytes& in : inputs) {
        const Bytes ours = encode_default(in);
        expect_peer_decodes(ours, in);
        expect_we_decode(ours, in);
        const Bytes fast = encode_fast(in, 8);
        expect_peer_decodes(fast, in);
        Bytes block(size_t(bound(in.size())));
        const int n = LZ4_compress_default(reinterpret_cast<const char*>(in.data()), reinterpret_cast<char*>(block.data()),
                                           int(in.size()), int(block.size()));
        expect_we_decode(Bytes(block.begin(), block.begin() + n), in);
        ours_total += ours.size();
        peer_total += size_t(n);
    }
    // Ratio guard: within 2% of liblz4's default over the corpus.
    EXPECT_LE(double(ours_total), 1.02 * double(peer_total));
}

}  // namespace
