// The four checksum exports: check values, conditioning of the running value,
// argument errors and their order, split calls, the clean upper vector state,
// and the conventions of the peers that the benchmark compares with.
#include <gtest/gtest.h>
#include <zlib.h>

#include <random>

#include "nuxzo.h"
#include "support/test_support.h"
#ifdef NUXZO_HAVE_ISAL
#include <isa-l.h>
#endif

namespace {

const Nux8u kCheck[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};

struct Sum {
    const char* name;
    NuxStatus (*fn)(const Nux8u*, int, Nux32u*);
    Nux32u start, check;  // check: the raw result over kCheck from start
};
const Sum kSums[] = {
    {"adler32", nuxsAdler32_8u, 1, 0x091E01DE},
    {"crc32", nuxsCRC32_8u, 0, 0xCBF43926},
    // The raw register: the finished CRC-32C of kCheck is 0xE3069283.
    {"crc32c", [](const Nux8u* p, int n, Nux32u* v) { return nuxsCRC32C_8u(p, Nux32u(n), v); }, 0xFFFFFFFF,
     ~0xE3069283u},
    {"bzip2", nuxsCRC32_BZ2_8u, 0, 0xFC891918},
};

// Check values; and random pieces, each call continuing from the last value,
// equal one call (which for Adler-32 and CRC-32 equals zlib).
TEST(ChecksumApi, CheckValuesAndRandomSplitsEqualOneCall) {
    const nuxtest::Bytes data = nuxtest::random_bytes(200000, 3);
    const int n = int(data.size());
    std::mt19937 rng(11);
    for (const Sum& s : kSums) {
        SCOPED_TRACE(s.name);
        Nux32u v = s.start;
        ASSERT_EQ(s.fn(kCheck, 9, &v), NuxStatusOk);
        EXPECT_EQ(v, s.check);
        Nux32u one = s.start;
        ASSERT_EQ(s.fn(data.data(), n, &one), NuxStatusOk);
        EXPECT_EQ(one, s.fn == nuxsAdler32_8u ? adler32(1, data.data(), unsigned(n))
                       : s.fn == nuxsCRC32_8u ? crc32(0, data.data(), unsigned(n)) : one);
        for (int round = 0; round < 20; ++round) {
            v = s.start;
            for (int pos = 0, len; pos < n; pos += len) {
                len = std::min(n - pos, 1 + int(rng() % (round % 2 ? 300 : 20000)));
                ASSERT_EQ(s.fn(data.data() + pos, len, &v), NuxStatusOk);
            }
            EXPECT_EQ(v, one);
        }
    }
}

TEST(ChecksumApi, AdlerNullSourceStartsAndShortLengthsReduce) {
    for (int len : {-5, 0, 100}) {
        Nux32u v = 0x12345678;
        EXPECT_EQ(nuxsAdler32_8u(nullptr, len, &v), NuxStatusOk);
        EXPECT_EQ(v, 1u);
    }
    EXPECT_EQ(nuxsAdler32_8u(nullptr, 0, nullptr), NuxStatusNullPtr);
    EXPECT_EQ(nuxsAdler32_8u(kCheck, 9, nullptr), NuxStatusNullPtr);
    // No data: the value is returned reduced modulo 65521 per half.
    for (int len : {0, -1, -1000}) {
        for (auto [in, out] : {std::pair{0x091E01DEu, 0x091E01DEu}, std::pair{0xFFFFFFFFu, 0x000E000Eu}}) {
            Nux32u v = in;
            EXPECT_EQ(nuxsAdler32_8u(kCheck, len, &v), NuxStatusOk);
            EXPECT_EQ(v, out);
        }
    }
}

// Pointer checks come before size checks, and no error touches the value.
TEST(ChecksumApi, CrcArgumentErrorsInOrder) {
    using Signed = NuxStatus (*)(const Nux8u*, int, Nux32u*);
    for (Signed f : {Signed(nuxsCRC32_8u), Signed(nuxsCRC32_BZ2_8u)}) {
        Nux32u v = 0xABCD;
        EXPECT_EQ(f(nullptr, 9, &v), NuxStatusNullPtr);
        EXPECT_EQ(f(kCheck, 9, nullptr), NuxStatusNullPtr);
        EXPECT_EQ(f(nullptr, 0, &v), NuxStatusNullPtr);
        EXPECT_EQ(f(nullptr, -1, nullptr), NuxStatusNullPtr);
        for (int len : {0, -1, INT32_MIN}) EXPECT_EQ(f(kCheck, len, &v), NuxStatusSize);
        EXPECT_EQ(v, 0xABCDu);
    }
    Nux32u v = 0xABCD;
    EXPECT_EQ(nuxsCRC32C_8u(nullptr, 9, &v), NuxStatusNullPtr);
    EXPECT_EQ(nuxsCRC32C_8u(kCheck, 9, nullptr), NuxStatusNullPtr);
    EXPECT_EQ(nuxsCRC32C_8u(nullptr, 0, &v), NuxStatusNullPtr);
    EXPECT_EQ(nuxsCRC32C_8u(kCheck, 0, &v), NuxStatusSize);
    EXPECT_EQ(v, 0xABCDu);
}

TEST(ChecksumApi, ExportsLeaveUpperVectorStateClean) {
    if (!nuxtest::can_check_upper_vector_state()) GTEST_SKIP() << "XGETBV with ECX=1 unavailable";
    const nuxtest::Bytes data = nuxtest::random_bytes(1 << 20, 4);
    for (const Sum& s : kSums)
        for (int len : {1, 31, 100, 300, 5000, 1 << 20}) {
            Nux32u v = s.start;
            EXPECT_TRUE(nuxtest::leaves_upper_state_clean([&] { s.fn(data.data(), len, &v); })) << s.name << len;
        }
}

#ifdef NUXZO_HAVE_ISAL
// The benchmark's peers compute the same values under these conventions:
// crc32_gzip_refl and crc32_ieee take and return finished values (the latter
// is the MSB-first CRC, i.e. the bzip2 CRC), crc32_iscsi the raw register.
TEST(ChecksumApi, IsalConventionsMatchOurs) {
    nuxtest::Bytes data = nuxtest::random_bytes(70000, 9);
    for (int len : {9, 1000, 70000}) {
        Nux8u* p = len == 9 ? const_cast<Nux8u*>(kCheck) : data.data();
        const Nux32u peer[] = {isal_adler32(1, p, uint64_t(len)), crc32_gzip_refl(0, p, uint64_t(len)),
                               crc32_iscsi(p, len, 0xFFFFFFFF), crc32_ieee(0, p, uint64_t(len))};
        for (size_t k = 0; k < 4; ++k) {
            Nux32u v = kSums[k].start;
            kSums[k].fn(p, len, &v);
            EXPECT_EQ(peer[k], v) << kSums[k].name << " " << len;
        }
    }
}
#endif

}  // namespace
