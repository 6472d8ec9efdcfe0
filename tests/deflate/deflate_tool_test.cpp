// The nuxzo tool's Deflate formats against gzip and zlib, both ways: what
// the tool writes at every level class passes `gzip -t` and decodes with
// zlib, what gzip writes (several members too) the tool reads back, and
// faults and existing outputs are handled as gzip would.
#include <gtest/gtest.h>

#include "streams/sample_data.h"
#include "support/peers.h"

namespace {

using nuxtest::Bytes;
namespace fs = std::filesystem;

struct DeflateTool : nuxtest::ToolTest {
    DeflateTool() : ToolTest({"gzip"}) {}
};

TEST_F(DeflateTool, InteropInputsBothWays) {
    const int levels[] = {1, 6, 9, 0, 14, 19, 25};
    int k = 0;
    for (const auto& f : nuxtest::interop_inputs()) {
        const Bytes data = nuxtest::sanitized() ? nuxtest::head(f.data, 1 << 20) : f.data;
        write(f.name, data);
        // Ours to gzip, rotating through the level classes.
        const std::string level = std::to_string(levels[k++ % 7]);
        ASSERT_EQ(run(tool + " compress -k -F gzip -l " + level + " " + f.name), 0) << f.name;
        ASSERT_EQ(run("gzip -t " + f.name + ".gz && gzip -dc " + f.name + ".gz | cmp -s - " + f.name), 0)
            << f.name << " level " << level;
        // gzip to ours; the input file is replaced, like gzip.
        ASSERT_EQ(run("gzip -c -" + std::to_string(k % 2 ? 1 : 9) + " " + f.name + " > copy.gz && " + tool +
                      " decompress -f copy.gz && cmp -s copy " + f.name),
                  0) << f.name;
        EXPECT_FALSE(fs::exists(path("copy.gz")));
        fs::remove(path(f.name + ".gz"));
    }
}

TEST_F(DeflateTool, LevelsWrappersAndPipes) {
    write("in", nuxzo::sample::text(200000, 3));
    write("empty", {});
    for (int l = 0; l < 30; ++l)
        EXPECT_EQ(run("cat in | " + tool + " compress -F gzip -l " + std::to_string(l) + " - | gzip -dc | cmp -s - in"), 0) << l;
    EXPECT_EQ(run(tool + " compress -7 -c in | gzip -dc | cmp -s - in"), 0);
    EXPECT_NE(run(tool + " compress -l 30 -c in > /dev/null"), 0);
    // zlib (checks the Adler-32) and raw Deflate, decoded by zlib.
    for (const char* name : {"in", "empty"}) {
        ASSERT_EQ(run(tool + " compress -F zlib -k -f " + name + " && " + tool + " compress -F deflate -k -f -9 " + name), 0);
        for (auto [suffix, bits] : {std::pair{".zz", 15}, std::pair{".deflate", -15}}) {
            const Bytes want = read(name);
            const nuxtest::Inflated r = nuxtest::zlib_inflate(read(name + std::string(suffix)), want.size() + 1, bits);
            EXPECT_EQ(r.status, Z_STREAM_END) << name << suffix;
            EXPECT_EQ(r.out, want) << name << suffix;
        }
    }
    // gzip's own concatenation of members, from stdin with -c.
    ASSERT_EQ(run("(gzip -c in; gzip -c empty; gzip -c in) > cat.gz && " + tool + " decompress -c < cat.gz > cat.out"), 0);
    EXPECT_EQ(run("cat in in | cmp -s - cat.out"), 0);
}

TEST_F(DeflateTool, FaultsAndExistingOutputs) {
    write("f", Bytes(1000, 'x'));
    write("f.gz", {1, 2, 3});
    EXPECT_NE(run(tool + " compress -k f"), 0);
    EXPECT_EQ(read("f.gz"), (Bytes{1, 2, 3}));
    EXPECT_EQ(run(tool + " compress -k -f f"), 0);
    EXPECT_EQ(run("gzip -dc f.gz | cmp -s - f"), 0);
    // Truncated input: non-zero exit, the file and an offset in the message,
    // no output file.
    const Bytes gz = read("f.gz");
    write("bad.gz", nuxtest::head(gz, gz.size() - 3));
    EXPECT_NE(run(tool + " decompress -k bad.gz"), 0);
    EXPECT_FALSE(fs::exists(path("bad")));
    EXPECT_NE(err().find("bad.gz"), std::string::npos) << err();
    EXPECT_NE(err().find("offset"), std::string::npos) << err();
}

}  // namespace
