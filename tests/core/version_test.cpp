// The constant version record and its string formats.
#include <gtest/gtest.h>

#include <cstring>
#include <regex>
#include <string>

#include "nuxzo.h"

TEST(Version, ConstantRecordWithFixedFormats) {
    const NuxVersionRecord* v = nuxzoGetLibVersion();
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(v, nuxzoGetLibVersion());
    EXPECT_STREQ(v->name, "nuxZO AVX (q5)");
    EXPECT_EQ(std::memcmp(v->cpuCode, "q5\0\0", 4), 0);

    char expected[64];
    std::snprintf(expected, sizeof expected, "%d.%d.%d (r0x%08x)", v->major, v->minor, v->update,
                  unsigned(v->build));
    EXPECT_STREQ(v->version, expected);
    EXPECT_GE(v->major, 2026);

    // "Mmm dd yyyy", the day right-aligned in two characters.
    EXPECT_TRUE(std::regex_match(v->buildDate,
                                 std::regex("(Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) [ 123][0-9] [0-9]{4}")))
        << v->buildDate;
}
