// `nuxzo sum` against gzip's trailer, zlib and the check values: a file of a
// few MiB (several read pieces), the check string, stdin, and bad input.
#include <gtest/gtest.h>
#include <zlib.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "support/test_support.h"

namespace {

namespace fs = std::filesystem;
const std::string kTool = NUXZO_BUILD_DIR "/tools/nuxzo/nuxzo";

std::string run(const std::string& cmd, int* status = nullptr) {
    FILE* p = popen(cmd.c_str(), "r");
    std::string out;
    char buf[4096];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, p)) > 0) out.append(buf, n);
    const int rc = pclose(p);
    if (status) *status = rc;
    return out;
}

std::string hex(uint32_t v) {
    char b[16];
    std::snprintf(b, sizeof b, "%08x", v);
    return b;
}

class SumTool : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!fs::exists(kTool)) GTEST_SKIP() << "tool not built";
        dir_ = fs::temp_directory_path() / ("nuxzo_sum_test_" + std::to_string(getpid()));
        fs::create_directories(dir_);
    }
    void TearDown() override {
        if (!dir_.empty()) fs::remove_all(dir_);
    }
    std::string write(const std::string& name, const nuxtest::Bytes& data) {
        const std::string path = (dir_ / name).string();
        std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(data.data()), std::streamsize(data.size()));
        return path;
    }
    fs::path dir_;
};

TEST_F(SumTool, MatchesGzipTrailerAndZlib) {
    const nuxtest::Bytes data = nuxtest::random_bytes((3u << 20) + 12345, 21);
    const std::string path = write("data.bin", data);
    const std::string size = std::to_string(data.size());
    const std::string want_crc = hex(uint32_t(crc32(0, data.data(), unsigned(data.size()))));
    EXPECT_EQ(run(kTool + " sum " + path), want_crc + " " + size + " " + path + "\n");
    EXPECT_EQ(run(kTool + " sum -a adler32 " + path),
              hex(uint32_t(adler32(1, data.data(), unsigned(data.size())))) + " " + size + " " + path + "\n");
    // gzip stores CRC-32 and the size little-endian in its last 8 bytes.
    const std::string gz = run("gzip -c -1 < " + path);
    if (gz.size() >= 8) {
        uint32_t trailer_crc = 0;
        for (int i = 3; i >= 0; --i) trailer_crc = trailer_crc << 8 | uint8_t(gz[gz.size() - 8 + size_t(i)]);
        EXPECT_EQ(hex(trailer_crc), want_crc);
    }
}

TEST_F(SumTool, CheckValuesFilesAndStdin) {
    const std::string path = write("check.txt", {'1', '2', '3', '4', '5', '6', '7', '8', '9'});
    const std::string empty = write("empty", {});
    EXPECT_EQ(run(kTool + " sum -a crc32c " + path + " " + empty),
              "e3069283 9 " + path + "\n00000000 0 " + empty + "\n");
    EXPECT_EQ(run(kTool + " sum -a bzip2 < " + path), "fc891918 9\n");
    EXPECT_EQ(run(kTool + " sum -a crc32 - < " + path), "cbf43926 9 -\n");
    EXPECT_EQ(run(kTool + " sum -a adler32 " + empty), "00000001 0 " + empty + "\n");
}

TEST_F(SumTool, ErrorsExitNonZero) {
    int status = 0;
    run(kTool + " sum -a md5 x 2>/dev/null", &status);
    EXPECT_NE(status, 0);
    const std::string path = write("ok", {'a'});
    const std::string out = run(kTool + " sum " + (dir_ / "missing").string() + " " + path + " 2>/dev/null", &status);
    EXPECT_NE(status, 0);
    EXPECT_EQ(out, hex(uint32_t(crc32(0, reinterpret_cast<const Bytef*>("a"), 1))) + " 1 " + path + "\n");
}

}  // namespace
