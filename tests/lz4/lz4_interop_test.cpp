// Every encoder's blocks decode with liblz4, liblz4's blocks decode with
// ours, on generated data and the corpus.
#include <gtest/gtest.h>
#include <lz4hc.h>

#include "nuxzo.h"
#include "support/peers.h"

namespace {

using nuxtest::Bytes;

// Our plain encoders: acceleration 0 the default encoder, -1 the safe one
// (with room for the bound), else the accelerated one.
Bytes ours(const Bytes& src, int accel) {
    Bytes out(size_t(LZ4_compressBound(int(src.size()))));
    alignas(8) Nux8u table[16384];
    int len = int(out.size()), consumed = int(src.size());
    const NuxStatus st = accel == 0 ? nuxsEncodeLZ4_8u(src.data(), consumed, out.data(), &len, table)
                         : accel < 0 ? nuxsEncodeLZ4Safe_8u(src.data(), &consumed, out.data(), &len, table)
                                     : nuxsEncodeLZ4Fast_8u(src.data(), consumed, out.data(), &len, table, accel);
    EXPECT_EQ(st, NuxStatusOk);
    EXPECT_EQ(consumed, int(src.size()));
    out.resize(size_t(len));
    return out;
}

// Both decoders must give back exactly `want`, ours with exact room.
void expect_decodes(const Bytes& block, const Bytes& want, bool peer = true) {
    if (peer) {
        ASSERT_EQ(nuxtest::lz4_decompress(block, want.size() + 1), want);
    }
    Bytes got(want.size() + 64);
    int len = int(want.size());
    ASSERT_EQ(NuxStatusOk, nuxsDecodeLZ4_8u(block.data(), int(block.size()), got.data(), &len));
    ASSERT_EQ(nuxtest::head(got, size_t(len)), want);
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

TEST(Lz4Interop, OurEncodersDecodeWithPeer) {
    for (const Bytes& in : generated_inputs()) {
        SCOPED_TRACE(in.size());
        const Bytes a = ours(in, 0);
        expect_decodes(a, in);
        EXPECT_EQ(a, ours(in, 1));   // acceleration 1 is the default encoder
        EXPECT_EQ(a, ours(in, -1));  // with room, the safe encoder writes the same block
        for (int accel : {2, 3, 8, 100, 1000, 1 << 30}) expect_decodes(ours(in, accel), in);
    }
}

TEST(Lz4Interop, PeerBlocksDecodeWithOurs) {
    for (const Bytes& in : generated_inputs()) {
        Bytes block(size_t(LZ4_compressBound(int(in.size()))));
        block.resize(size_t(LZ4_compress_HC(reinterpret_cast<const char*>(in.data()), reinterpret_cast<char*>(block.data()),
                                            int(in.size()), int(block.size()), 9)));
        expect_decodes(block, in, false);
        expect_decodes(nuxtest::lz4_compress(in), in, false);
        expect_decodes(nuxtest::lz4_compress(in, 20), in, false);
    }
}

TEST(Lz4Interop, CorpusRoundTripsBothWays) {
    if (nuxtest::corpus().empty()) GTEST_SKIP() << "corpus not available";
    size_t ours_total = 0, peer_total = 0;
    for (const auto& f : nuxtest::corpus()) {
        const Bytes in = nuxtest::head(f.data, nuxtest::sanitized() ? size_t(1) << 20 : size_t(8) << 20);
        const Bytes mine = ours(in, 0), peer = nuxtest::lz4_compress(in);
        expect_decodes(mine, in);
        expect_decodes(ours(in, 8), in);
        expect_decodes(peer, in, false);
        ours_total += mine.size();
        peer_total += peer.size();
    }
    // Ratio guard: within 2% of liblz4's default over the corpus.
    EXPECT_LE(double(ours_total), 1.02 * double(peer_total));
}

}  // namespace
