// The constant version record and its string formats.
#include <gtest/gtest.h>

#include <cstring>
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
    const std::string date = v->buildDate;
    ASSERT_EQ(date.size(), 11u) << date;
    const std::string months = "JanFebMarAprMayJunJulAugSepOctNovDec";
    const size_t month = months.find(date.substr(0, 3));
    EXPECT_TRUE(month != std::string::npos && month % 3 == 0) << date;
    EXPECT_EQ(date[3], ' ');
    EXPECT_TRUE((date[4] == ' ' && date[5] >= '1') || (date[4] >= '1' && date[4] <= '3')) << date;
    EXPECT_TRUE(date[5] >= '0' && date[5] <= '9');
    EXPECT_EQ(date[6], ' ');
    EXPECT_GE(std::stoi(date.substr(7)), 2026);
}
