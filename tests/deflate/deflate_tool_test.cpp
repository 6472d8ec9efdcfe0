// The nuxzo tool's gzip, zlib and raw Deflate writing, checked by gzip -d
// and zlib: corpus files, stdin/stdout, and gzip-like file handling.
#include <gtest/gtest.h>
#include <zlib.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "support/test_support.h"

namespace {

namespace fs = std::filesystem;
using nuxtest::Bytes;

const std::string kTool = NUXZO_BUILD_DIR "/tools/nuxzo/nuxzo";

// Joins the pieces of a shell command and runs it (appending piecewise also
// keeps GCC 12's -Wrestrict false positive on chained string + away).
template <typename... Parts>
int run(const Parts&... parts) {
    std::string cmd;
    (cmd.append(parts), ...);
    return std::system(cmd.c_str());
}

void write_file(const fs::path& p, const Bytes& data) {
    std::ofstream(p, std::ios::binary).write(reinterpret_cast<const char*>(data.data()), std::streamsize(data.size()));
}

class DeflateTool : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!fs::exists(kTool)) GTEST_SKIP() << "tool not built";
        if (run("gzip --version > /dev/null 2>&1") != 0) GTEST_SKIP() << "gzip not installed";
        dir_ = fs::temp_directory_path() / ("nuxzo_deflate_tool_" + std::to_string(::getpid()));
        fs::create_directories(dir_);
    }
    void TearDown() override {
        if (!dir_.empty()) fs::remove_all(dir_);
    }
    fs::path dir_;
};

TEST_F(DeflateTool, CorpusFilesDecodeWithGzip) {
    const auto& corpus = nuxtest::corpus();
    if (corpus.empty()) GTEST_SKIP() << "corpus not found";
    const bool small = std::getenv("NUXZO_SANITIZED") != nullptr;
    int k = 0;
    for (const auto& f : corpus) {
        // Whole files (a prefix under sanitizers), rotating through the level classes.
        const fs::path in = dir_ / f.name;
        write_file(in, small ? Bytes(f.data.begin(), f.data.begin() + long(std::min<size_t>(f.data.size(), 1 << 20)))
                             : f.data);
        const std::string level = std::to_string(std::vector<int>{1, 6, 9, 0, 14, 19, 25}[size_t(k++) % 7]);
        ASSERT_EQ(run(kTool, " compress -F gzip -l ", level, " ", in.string()), 0) << f.name;
        EXPECT_FALSE(fs::exists(in));  // replaced by the .gz, like gzip
        ASSERT_EQ(run("gzip -t ", in.string(), ".gz"), 0) << f.name << " level " << level;
        ASSERT_EQ(run("gzip -dc ", in.string(), ".gz > ", (dir_ / "back").string()), 0);
        EXPECT_EQ(nuxtest::read_file((dir_ / "back").string()),
                  small ? Bytes(f.data.begin(), f.data.begin() + long(std::min<size_t>(f.data.size(), 1 << 20))) : f.data)
            << f.name;
        fs::remove(in.string() + ".gz");
    }
}

TEST_F(DeflateTool, EveryLevelAndShortcutThroughPipes) {
    const Bytes data = nuxtest::compressible_bytes(200000, 3);
    const fs::path in = dir_ / "in";
    write_file(in, data);
    std::vector<std::string> levels;
    for (int l = 0; l < 30; ++l) levels.push_back(std::string("-l ").append(std::to_string(l)));
    for (int l = 1; l <= 9; ++l) levels.push_back(std::string("-").append(std::to_string(l)));
    for (const std::string& lv : levels) {
        EXPECT_EQ(run("cat ", in.string(), " | ", kTool, " compress -F gzip ", lv, " - | gzip -dc | cmp -s - ", in.string()), 0)
            << lv;
    }
    EXPECT_NE(run(kTool, " compress -l 30 -c ", in.string(), " > /dev/null 2>&1"), 0);
}

TEST_F(DeflateTool, ZlibAndRawFormatsDecodeWithZlib) {
    for (const Bytes& data : {Bytes{}, Bytes{7}, nuxtest::compressible_bytes(100000, 4), nuxtest::random_bytes(70000, 5)}) {
        const fs::path in = dir_ / "in";
        write_file(in, data);
        ASSERT_EQ(run(kTool, " compress -F zlib -k -f ", in.string()), 0);
        ASSERT_EQ(run(kTool, " compress -F deflate -k -f -9 ", in.string()), 0);
        const Bytes zz = nuxtest::read_file(in.string() + ".zz");
        Bytes out(data.size() + 1);
        uLongf out_len = uLongf(out.size());
        ASSERT_EQ(uncompress(out.data(), &out_len, zz.data(), uLong(zz.size())), Z_OK);  // checks the Adler-32
        EXPECT_EQ(Bytes(out.begin(), out.begin() + long(out_len)), data);
        const Bytes raw = nuxtest::read_file(in.string() + ".deflate");
        z_stream z{};
        ASSERT_EQ(inflateInit2(&z, -15), Z_OK);
        z.next_in = const_cast<Bytef*>(raw.data());
        z.avail_in = uInt(raw.size());
        z.next_out = out.data();
        z.avail_out = uInt(out.size());
        EXPECT_EQ(inflate(&z, Z_FINISH), Z_STREAM_END);
        EXPECT_EQ(Bytes(out.begin(), out.begin() + long(z.total_out)), data);
        inflateEnd(&z);
    }
}

TEST_F(DeflateTool, RefusesToOverwriteWithoutForce) {
    const fs::path in = dir_ / "f";
    write_file(in, Bytes(1000, 'x'));
    write_file(dir_ / "f.gz", Bytes{1, 2, 3});
    EXPECT_NE(run(kTool, " compress -k ", in.string(), " 2> /dev/null"), 0);
    EXPECT_EQ(nuxtest::read_file((dir_ / "f.gz").string()), (Bytes{1, 2, 3}));
    EXPECT_EQ(run(kTool, " compress -k -f ", in.string()), 0);
    EXPECT_EQ(run("gzip -dc ", (dir_ / "f.gz").string(), " | cmp -s - ", in.string()), 0);
    EXPECT_TRUE(fs::exists(in));
}

}  // namespace
