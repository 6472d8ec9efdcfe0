// LZ4 frames in the nuxzo tool, against the lz4 command: each side reads
// the other's frames; damaged frames fail cleanly. Also the tool's xxHash-32
// against libxxhash.
#include <gtest/gtest.h>

#include <string>

#include "streams/xxh32.h"
#include "support/test_support.h"
#ifdef NUXZO_HAVE_XXHASH
#include <xxhash.h>
#endif

namespace {

namespace fs = std::filesystem;
using nuxtest::Bytes;

struct Lz4Frame : nuxtest::ToolTest {
    Lz4Frame() : ToolTest({"lz4"}) {}
};

// Some megabytes with repeats at all distances, plus a corpus file when there.
Bytes sample() {
    Bytes data = nuxtest::compressible_bytes(size_t(5) << 20, 77);
    const Bytes noise = nuxtest::random_bytes(300000, 78);
    data.insert(data.begin() + 1000000, noise.begin(), noise.end());
    return data;
}

TEST_F(Lz4Frame, ToolFramesDecodeWithLz4Command) {
    const Bytes data = sample();
    write("in", data);
    ASSERT_EQ(0, run(tool + " compress -F lz4 -k in"));
    ASSERT_EQ(0, run("lz4 -d -c in.lz4 > out1")) << err();
    EXPECT_EQ(read("out1"), data);
    ASSERT_EQ(0, run(tool + " compress -F lz4 --linked -c in > linked.lz4"));
    ASSERT_EQ(0, run("lz4 -d -c linked.lz4 > out2")) << err();
    EXPECT_EQ(read("out2"), data);
    // Linked blocks use the history: never larger than independent ones.
    EXPECT_LE(fs::file_size(path("linked.lz4")), fs::file_size(path("in.lz4")));
    // And the tool reads its own frames back, by suffix.
    fs::rename(path("in"), path("orig"));
    ASSERT_EQ(0, run(tool + " decompress in.lz4")) << err();
    EXPECT_EQ(read("in"), data);
    EXPECT_FALSE(fs::exists(path("in.lz4")));
    // An empty input is a frame with only the end mark.
    write("empty", {});
    ASSERT_EQ(0, run(tool + " compress -F lz4 -c empty > empty.lz4 && lz4 -d -c empty.lz4 > empty.out"));
    EXPECT_TRUE(read("empty.out").empty());
}

TEST_F(Lz4Frame, Lz4CommandFramesDecodeWithTool) {
    const Bytes data = sample();
    write("in", data);
    for (const std::string opts : {"", "-BD", "--content-size", "-B4", "-B5", "-B6", "-B7", "-B4 -BD -BX",
                                   "-9 -BD", "--no-frame-crc"}) {
        SCOPED_TRACE(opts);
        ASSERT_EQ(0, run("lz4 -q -f " + opts + " in made.lz4"));
        ASSERT_EQ(0, run(tool + " decompress -c made.lz4 > out")) << err();
        EXPECT_EQ(read("out"), data);
    }
    // Several frames back to back, with a skippable frame between them.
    const Bytes part1(data.begin(), data.begin() + 100000), part2(data.begin() + 100000, data.begin() + 300000);
    write("p1", part1);
    write("p2", part2);
    ASSERT_EQ(0, run("lz4 -q -f p1 p1.lz4 && lz4 -q -f -BD p2 p2.lz4"));
    write("skip", {0x5A, 0x2A, 0x4D, 0x18, 3, 0, 0, 0, 'x', 'y', 'z'});
    ASSERT_EQ(0, run("cat p1.lz4 skip p2.lz4 > multi.lz4 && " + tool + " decompress -c multi.lz4 > out"));
    Bytes both = part1;
    both.insert(both.end(), part2.begin(), part2.end());
    EXPECT_EQ(read("out"), both);
}

TEST_F(Lz4Frame, DamagedFramesFailWithOffsetAndLeaveNoOutput) {
    const Bytes data = nuxtest::compressible_bytes(200000, 5);
    write("in", data);
    ASSERT_EQ(0, run("lz4 -q -f -BX -B4 in good.lz4"));
    const Bytes good = read("good.lz4");
    struct Damage {
        const char* what;
        Bytes bytes;
    };
    ASSERT_GT(good.size(), 400u);
    auto damaged = [&](size_t at, uint8_t bits) {
        Bytes b = good;
        b.at(std::min(at, b.size() - 1)) ^= bits;
        return b;
    };
    const std::vector<Damage> cases = {
        {"content checksum", damaged(SIZE_MAX, 1)},
        {"reserved FLG bit", damaged(4, 0x02)},
        {"header checksum", damaged(6, 0x40)},
        {"inside the first block: its block checksum fails", damaged(200, 0x10)},
        {"truncated", nuxtest::head(good, good.size() / 2)},
        {"bad magic", Bytes{1, 2, 3, 4, 5, 6, 7, 8}}};
    for (const Damage& d : cases) {
        SCOPED_TRACE(d.what);
        write("bad.lz4", d.bytes);
        fs::remove(path("bad"));
        EXPECT_NE(0, run(tool + " decompress -F lz4 bad.lz4"));
        EXPECT_NE(err().find("bad.lz4"), std::string::npos) << err();
        EXPECT_NE(err().find("offset"), std::string::npos) << err();
        EXPECT_FALSE(fs::exists(path("bad")));
        EXPECT_TRUE(fs::exists(path("bad.lz4")));
    }
}

TEST(Xxh32, MatchesLibxxhashInPiecesOfAnySize) {
#ifndef NUXZO_HAVE_XXHASH
    GTEST_SKIP() << "libxxhash missing";
#else
    const Bytes data = nuxtest::random_bytes(5000, 1);
    for (size_t n : {0, 1, 3, 4, 15, 16, 17, 31, 32, 33, 100, 1023, 5000}) {
        for (uint32_t seed : {0u, 1u, 0x9E3779B1u}) {
            const uint32_t want = XXH32(data.data(), n, seed);
            EXPECT_EQ(nuxzo::Xxh32::of(data.data(), n, seed), want) << n;
            nuxzo::Xxh32 h(seed);
            for (size_t at = 0, step = 1; at < n; at += step, step = step * 3 % 37 + 1)
                h.update(data.data() + at, std::min(step, n - at));
            EXPECT_EQ(h.digest(), want) << n;
        }
    }
#endif
}

}  // namespace
