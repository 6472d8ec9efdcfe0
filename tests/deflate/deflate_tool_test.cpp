// The nuxzo tool's gzip, zlib and raw Deflate writing, checked by gzip -d
// and zlib: corpus files, stdin/stdout, and gzip-like file handling.
#include <gtest/gtest.h>

#include "support/peers.h"

namespace {

using nuxtest::Bytes;
namespace fs = std::filesystem;

struct DeflateTool : nuxtest::ToolTest {
    DeflateTool() : ToolTest({"gzip"}) {}
};

TEST_F(DeflateTool, CorpusFilesDecodeWithGzip) {
    if (nuxtest::corpus().empty()) GTEST_SKIP() << "corpus not found";
    const int levels[] = {1, 6, 9, 0, 14, 19, 25};
    int k = 0;
    for (const auto& f : nuxtest::corpus()) {
        // Whole files (a prefix under sanitizers), rotating through the level classes.
        const Bytes data = nuxtest::sanitized() ? nuxtest::head(f.data, 1 << 20) : f.data;
        write(f.name, data);
        const std::string level = std::to_string(levels[k++ % 7]);
        ASSERT_EQ(run(tool + " compress -F gzip -l " + level + " " + f.name), 0) << f.name;
        EXPECT_FALSE(fs::exists(path(f.name)));  // replaced by the .gz, like gzip
        ASSERT_EQ(run("gzip -t " + f.name + ".gz && gzip -dc " + f.name + ".gz > back"), 0) << f.name << " " << level;
        EXPECT_EQ(read("back"), data) << f.name;
        fs::remove(path(f.name + ".gz"));
    }
}

TEST_F(DeflateTool, EveryLevelAndShortcutThroughPipes) {
    write("in", nuxtest::compressible_bytes(200000, 3));
    std::vector<std::string> levels;
    for (int l = 0; l < 30; ++l) levels.push_back(std::string("-l ").append(std::to_string(l)));
    for (int l = 1; l <= 9; ++l) levels.push_back(std::string("-").append(std::to_string(l)));
    for (const std::string& lv : levels)
        EXPECT_EQ(run("cat in | " + tool + " compress -F gzip " + lv + " - | gzip -dc | cmp -s - in"), 0) << lv;
    EXPECT_NE(run(tool + " compress -l 30 -c in > /dev/null"), 0);
}

TEST_F(DeflateTool, ZlibAndRawFormatsDecodeWithZlib) {
    for (const Bytes& data : {Bytes{}, Bytes{7}, nuxtest::compressible_bytes(100000, 4), nuxtest::random_bytes(70000, 5)}) {
        write("in", data);
        ASSERT_EQ(run(tool + " compress -F zlib -k -f in && " + tool + " compress -F deflate -k -f -9 in"), 0);
        // The zlib wrapper (checks the Adler-32) and raw Deflate.
        for (auto [suffix, bits] : {std::pair{".zz", 15}, std::pair{".deflate", -15}}) {
            const nuxtest::Inflated r = nuxtest::zlib_inflate(read(std::string("in") + suffix), data.size() + 1, bits);
            EXPECT_EQ(r.status, Z_STREAM_END) << suffix;
            EXPECT_EQ(r.out, data) << suffix;
        }
    }
}

TEST_F(DeflateTool, RefusesToOverwriteWithoutForce) {
    write("f", Bytes(1000, 'x'));
    write("f.gz", {1, 2, 3});
    EXPECT_NE(run(tool + " compress -k f"), 0);
    EXPECT_EQ(read("f.gz"), (Bytes{1, 2, 3}));
    EXPECT_EQ(run(tool + " compress -k -f f"), 0);
    EXPECT_EQ(run("gzip -dc f.gz | cmp -s - f"), 0);
    EXPECT_TRUE(fs::exists(path("f")));
}

}  // namespace
