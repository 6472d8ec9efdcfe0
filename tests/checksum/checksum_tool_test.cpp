// `nuxzo sum` against gzip's trailer, zlib and the check values: a file of a
// few MiB (several read pieces), the check string, stdin, and bad input.
#include <gtest/gtest.h>
#include <zlib.h>

#include <cstdio>

#include "support/test_support.h"

namespace {

std::string hex(uint32_t v) {
    char b[16];
    std::snprintf(b, sizeof b, "%08x", v);
    return b;
}

struct SumTool : nuxtest::ToolTest {
    SumTool() : ToolTest({"gzip"}) {}
};

TEST_F(SumTool, MatchesGzipTrailerAndZlib) {
    const nuxtest::Bytes data = nuxtest::random_bytes((3u << 20) + 12345, 21);
    write("data.bin", data);
    const std::string tail = std::string(" ").append(std::to_string(data.size())).append(" data.bin\n");
    const std::string want_crc = hex(uint32_t(crc32(0, data.data(), unsigned(data.size()))));
    EXPECT_EQ(output(tool + " sum data.bin"), want_crc + tail);
    EXPECT_EQ(output(tool + " sum -a adler32 data.bin"), hex(uint32_t(adler32(1, data.data(), unsigned(data.size())))) + tail);
    // gzip stores CRC-32 and the size little-endian in its last 8 bytes.
    const std::string gz = output("gzip -c -1 < data.bin");
    ASSERT_GE(gz.size(), 8u);
    uint32_t trailer_crc = 0;
    for (int i = 3; i >= 0; --i) trailer_crc = trailer_crc << 8 | uint8_t(gz[gz.size() - 8 + size_t(i)]);
    EXPECT_EQ(hex(trailer_crc), want_crc);
}

TEST_F(SumTool, CheckValuesFilesAndStdin) {
    write("check.txt", {'1', '2', '3', '4', '5', '6', '7', '8', '9'});
    write("empty", {});
    EXPECT_EQ(output(tool + " sum -a crc32c check.txt empty"), "e3069283 9 check.txt\n00000000 0 empty\n");
    EXPECT_EQ(output(tool + " sum -a bzip2 < check.txt"), "fc891918 9\n");
    EXPECT_EQ(output(tool + " sum -a crc32 - < check.txt"), "cbf43926 9 -\n");
    EXPECT_EQ(output(tool + " sum -a adler32 empty"), "00000001 0 empty\n");
}

// A bad algorithm fails; a missing file fails but the others are still summed.
TEST_F(SumTool, ErrorsExitNonZero) {
    int status = 0;
    output(tool + " sum -a md5 x", &status);
    EXPECT_NE(status, 0);
    write("ok", {'a'});
    EXPECT_EQ(output(tool + " sum missing ok", &status), "e8b7be43 1 ok\n");
    EXPECT_NE(status, 0);
}

}  // namespace
