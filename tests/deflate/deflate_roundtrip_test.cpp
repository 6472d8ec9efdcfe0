// Whole streams from the stream writer (the tool's code) decoded by zlib:
// every level on edge data and on the corpus, preset dictionaries, and the
// checked-in table of compressed sizes that makes ratio regressions visible.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "streams/deflate_stream.h"
#include "streams/sample_data.h"
#include "support/peers.h"

namespace {

using nuxtest::Bytes;
using nuxzo::deflate_stream::compress_raw;

// Raw inflate with zlib; the stream must end exactly with the input.
Bytes inflate_raw(const Bytes& in, size_t expect, const Bytes& dict = {}) {
    nuxtest::Inflated r = nuxtest::zlib_inflate(in, expect + 1, -15, dict);
    EXPECT_EQ(r.status, Z_STREAM_END);
    EXPECT_EQ(r.unused_in, 0u);  // no bytes after the final block
    return r.out;
}

TEST(DeflateRoundTrip, EdgeDataAtEveryLevel) {
    Bytes period3(100000);
    for (size_t k = 0; k < period3.size(); ++k) period3[k] = uint8_t("abc"[k % 3]);
    struct Case {
        const char* name;
        Bytes data;
        size_t max_out;  // 0: no bound
    };
    const Case cases[] = {{"empty", {}, 0},
                          {"one byte", {0x42}, 0},
                          {"three bytes", {1, 2, 3}, 0},
                          {"zeros", Bytes(300000, 0), 2000},
                          {"random", nuxtest::random_bytes(200000, 1), 200000 + 200 + 16},  // stored blocks
                          {"text", nuxzo::sample::text(200000, 2), 0},
                          {"period 3", period3, 0}};
    for (int level = 0; level < 30; ++level)
        for (const Case& c : cases) {
            const Bytes z = compress_raw(c.data.data(), c.data.size(), level);
            ASSERT_EQ(inflate_raw(z, c.data.size()), c.data) << c.name << " level " << level;
            EXPECT_LT(z.size(), c.max_out ? c.max_out : SIZE_MAX) << c.name << " level " << level;
        }
}

// Input arriving in odd pieces, small ones through the writer's buffer and
// large ones parsed in place, gives the same stream as one write. Random
// stretches make stored blocks whose bytes straddle both paths. A lazy level
// sends its held match when a parser call ends, so its stream depends on
// where calls end: it only has to decode.
TEST(DeflateRoundTrip, PiecewiseWritesEqualOneWrite) {
    Bytes data = nuxzo::sample::text(3 << 20, 5);  // crosses the buffer compaction
    for (size_t at : {size_t(40000), size_t(900000), size_t(2500000)}) {
        const Bytes noise = nuxtest::random_bytes(30000 + at / 50, uint32_t(at));
        std::copy(noise.begin(), noise.end(), data.begin() + ptrdiff_t(at));
    }
    for (int level : {0, 1, 6, 19}) {
        const Bytes one = compress_raw(data.data(), data.size(), level);
        Bytes pieces;
        nuxzo::deflate_stream::RawWriter w(level, [&](const uint8_t* p, size_t n) { pieces.insert(pieces.end(), p, p + n); });
        for (size_t at = 0, k = 1; at < data.size(); ++k) {
            const size_t n = std::min(data.size() - at, (k * 7919) % (k % 4 ? 100000 : 700000));
            w.write(data.data() + at, n);
            at += n;
        }
        w.finish();
        if (level % 10 < 5) {
            EXPECT_EQ(pieces, one) << level;
        }
        EXPECT_EQ(inflate_raw(pieces, data.size()), data);
        EXPECT_EQ(inflate_raw(one, data.size()), data);
    }
}

TEST(DeflateRoundTrip, PresetDictionaryDecodesWithInflateSetDictionary) {
    const Bytes text = nuxzo::sample::text(120000, 7);
    const Bytes dict(text.begin(), text.begin() + 50000), data(text.begin() + 50000, text.end());
    for (int level : {0, 1, 6, 10, 9, 25}) {
        const Bytes with = compress_raw(data.data(), data.size(), level, dict.data(), dict.size());
        const Bytes without = compress_raw(data.data(), data.size(), level);
        EXPECT_EQ(inflate_raw(with, data.size(), dict), data) << level;
        EXPECT_LT(with.size(), without.size()) << level;
    }
    // Short dictionaries: copied but not hashed (257) or partly hashed (300).
    for (size_t n : {size_t(257), size_t(300)}) {
        const Bytes d(text.begin(), text.begin() + long(n)), rest(text.begin() + long(n), text.begin() + 5000);
        EXPECT_EQ(inflate_raw(compress_raw(rest.data(), rest.size(), 6, d.data(), d.size()), rest.size(), d), rest);
    }
}

// ---- corpus ----------------------------------------------------------------

size_t prefix_len() { return nuxtest::sanitized() ? (64u << 10) : (1u << 20); }

// Beside this source file.
std::string sizes_path() { return (std::filesystem::path(__FILE__).parent_path() / "compressed_sizes.txt").string(); }

// "file level bytes compressed" lines; bytes is the prefix length, or 0 for the whole file.
std::map<std::string, size_t> read_sizes() {
    std::map<std::string, size_t> m;
    std::ifstream f(sizes_path());
    std::string file;
    int level;
    size_t bytes, size;
    for (std::string line; std::getline(f, line);) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream(line) >> file >> level >> bytes >> size;
        m[file + " " + std::to_string(level) + " " + std::to_string(bytes)] = size;
    }
    return m;
}

// Every level on a prefix of every corpus file, and levels 1, 6 and 9 on the
// whole files; each stream is decoded by zlib and its size compared with the
// table (at most 0.2% larger; smaller is progress: regenerate the table with
// NUXZO_UPDATE_SIZES=1).
TEST(DeflateRoundTrip, CorpusAtEveryLevelAndSizeTable) {
    const auto& corpus = nuxtest::corpus();
    if (corpus.empty()) GTEST_SKIP() << "corpus not found";
    const bool update = std::getenv("NUXZO_UPDATE_SIZES") != nullptr;
    const auto table = read_sizes();
    std::ostringstream fresh;
    fresh << "# Compressed sizes of the raw Deflate streams that the nuxzo tool writes, per corpus file and level.\n"
             "# Columns: file level input_bytes (0 = whole file) compressed_bytes.\n"
             "# Regenerate: NUXZO_UPDATE_SIZES=1 deflate_roundtrip_test --gtest_filter=*SizeTable*\n";
    for (const auto& f : corpus) {
        const size_t n = std::min(f.data.size(), prefix_len());
        std::vector<std::pair<int, size_t>> runs;
        for (int level = 0; level < 30; ++level) runs.push_back({level, n});
        if (!nuxtest::sanitized())
            for (int level : {1, 6, 9}) runs.push_back({level, 0});
        for (const auto& [level, bytes] : runs) {
            const size_t len = bytes ? bytes : f.data.size();
            const Bytes z = compress_raw(f.data.data(), len, level);
            const Bytes back = inflate_raw(z, len);
            ASSERT_TRUE(back.size() == len && std::equal(back.begin(), back.end(), f.data.begin()))
                << f.name << " level " << level;
            const std::string key = f.name + " " + std::to_string(level) + " " + std::to_string(bytes);
            fresh << key << " " << z.size() << "\n";
            const auto it = table.find(key);
            if (!update && it != table.end()) {
                EXPECT_LE(z.size(), it->second + it->second / 500) << key;
            }
        }
    }
    if (update && !nuxtest::sanitized()) std::ofstream(sizes_path()) << fresh.str();
}

}  // namespace
