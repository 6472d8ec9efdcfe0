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

TEST(ChecksumApi, CheckValues) {
    Nux32u v = 0;
    ASSERT_EQ(nuxsCRC32_8u(kCheck, 9, &v), NuxStatusOk);
    EXPECT_EQ(v, 0xCBF43926u);
    v = 0xFFFFFFFF;
    ASSERT_EQ(nuxsCRC32C_8u(kCheck, 9, &v), NuxStatusOk);
    EXPECT_EQ(~v, 0xE3069283u);
    v = 0;
    ASSERT_EQ(nuxsCRC32_BZ2_8u(kCheck, 9, &v), NuxStatusOk);
    EXPECT_EQ(v, 0xFC891918u);
    v = 1;
    ASSERT_EQ(nuxsAdler32_8u(kCheck, 9, &v), NuxStatusOk);
    EXPECT_EQ(v, 0x091E01DEu);
}

TEST(ChecksumApi, AdlerNullSourceStartsAndShortLengthsReduce) {
    Nux32u v = 0x12345678;
    EXPECT_EQ(nuxsAdler32_8u(nullptr, -5, &v), NuxStatusOk);
    EXPECT_EQ(v, 1u);
    v = 7;
    EXPECT_EQ(nuxsAdler32_8u(nullptr, 100, &v), NuxStatusOk);
    EXPECT_EQ(v, 1u);
    EXPECT_EQ(nuxsAdler32_8u(nullptr, 0, nullptr), NuxStatusNullPtr);
    EXPECT_EQ(nuxsAdler32_8u(kCheck, 9, nullptr), NuxStatusNullPtr);
    for (int len : {0, -1, -1000}) {
        v = 0x091E01DE;
        EXPECT_EQ(nuxsAdler32_8u(kCheck, len, &v), NuxStatusOk);
        EXPECT_EQ(v, 0x091E01DEu);
        v = 0xFFFFFFFF;
        EXPECT_EQ(nuxsAdler32_8u(kCheck, len, &v), NuxStatusOk);
        EXPECT_EQ(v, 0x000E000Eu);
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
        EXPECT_EQ(f(kCheck, 0, &v), NuxStatusSize);
        EXPECT_EQ(f(kCheck, -1, &v), NuxStatusSize);
        EXPECT_EQ(f(kCheck, INT32_MIN, &v), NuxStatusSize);
        EXPECT_EQ(v, 0xABCDu);
    }
    Nux32u v = 0xABCD;
    EXPECT_EQ(nuxsCRC32C_8u(nullptr, 9, &v), NuxStatusNullPtr);
    EXPECT_EQ(nuxsCRC32C_8u(kCheck, 9, nullptr), NuxStatusNullPtr);
    EXPECT_EQ(nuxsCRC32C_8u(nullptr, 0, &v), NuxStatusNullPtr);
    EXPECT_EQ(nuxsCRC32C_8u(kCheck, 0, &v), NuxStatusSize);
    EXPECT_EQ(v, 0xABCDu);
}

// CRC-32C works on the raw register: one byte is one reflected table step
// with no inversion, from any register value.
TEST(ChecksumApi, Crc32cRawRegister) {
    for (Nux32u start : {0u, 0xFFFFFFFFu, 0x12345678u}) {
        Nux32u c = start ^ kCheck[0];
        for (int b = 0; b < 8; ++b) c = (c >> 1) ^ ((c & 1) ? 0x82F63B78u : 0);
        Nux32u v = start;
        ASSERT_EQ(nuxsCRC32C_8u(kCheck, 1, &v), NuxStatusOk);
        EXPECT_EQ(v, c);
    }
}

// Random pieces, each call continuing from the last value, equal one call.
TEST(ChecksumApi, RandomSplitsEqualOneCall) {
    const nuxtest::Bytes data = nuxtest::random_bytes(200000, 3);
    std::mt19937 rng(11);
    const int n = int(data.size());
    Nux32u a = 1, c = 0, cc = 0xFFFFFFFF, bz = 0;
    ASSERT_EQ(nuxsAdler32_8u(data.data(), n, &a), NuxStatusOk);
    ASSERT_EQ(nuxsCRC32_8u(data.data(), n, &c), NuxStatusOk);
    ASSERT_EQ(nuxsCRC32C_8u(data.data(), Nux32u(n), &cc), NuxStatusOk);
    ASSERT_EQ(nuxsCRC32_BZ2_8u(data.data(), n, &bz), NuxStatusOk);
    EXPECT_EQ(a, adler32(1, data.data(), unsigned(n)));
    EXPECT_EQ(c, crc32(0, data.data(), unsigned(n)));
    for (int round = 0; round < 20; ++round) {
        Nux32u a2 = 0, c2 = 0, cc2 = 0xFFFFFFFF, bz2 = 0;
        ASSERT_EQ(nuxsAdler32_8u(nullptr, 0, &a2), NuxStatusOk);
        for (int pos = 0; pos < n;) {
            const int max_piece = round % 2 ? 300 : 20000;
            const int len = std::min(n - pos, 1 + int(rng() % max_piece));
            ASSERT_EQ(nuxsAdler32_8u(data.data() + pos, len, &a2), NuxStatusOk);
            ASSERT_EQ(nuxsCRC32_8u(data.data() + pos, len, &c2), NuxStatusOk);
            ASSERT_EQ(nuxsCRC32C_8u(data.data() + pos, Nux32u(len), &cc2), NuxStatusOk);
            ASSERT_EQ(nuxsCRC32_BZ2_8u(data.data() + pos, len, &bz2), NuxStatusOk);
            pos += len;
        }
        EXPECT_EQ(a2, a);
        EXPECT_EQ(c2, c);
        EXPECT_EQ(cc2, cc);
        EXPECT_EQ(bz2, bz);
    }
}

TEST(ChecksumApi, ExportsLeaveUpperVectorStateClean) {
    if (!nuxtest::can_check_upper_vector_state()) GTEST_SKIP() << "XGETBV with ECX=1 unavailable";
    const nuxtest::Bytes data = nuxtest::random_bytes(1 << 20, 4);
    for (int len : {1, 31, 100, 300, 5000, 1 << 20}) {
        Nux32u v = 0;
        EXPECT_TRUE(nuxtest::leaves_upper_state_clean([&] { nuxsAdler32_8u(data.data(), len, &v); })) << len;
        EXPECT_TRUE(nuxtest::leaves_upper_state_clean([&] { nuxsCRC32_8u(data.data(), len, &v); })) << len;
        EXPECT_TRUE(nuxtest::leaves_upper_state_clean([&] { nuxsCRC32C_8u(data.data(), Nux32u(len), &v); }))
            << len;
        EXPECT_TRUE(nuxtest::leaves_upper_state_clean([&] { nuxsCRC32_BZ2_8u(data.data(), len, &v); })) << len;
    }
}

#ifdef NUXZO_HAVE_ISAL
// The benchmark's peers compute the same values under these conventions:
// crc32_gzip_refl and crc32_ieee take and return finished values (the latter
// is the MSB-first CRC, i.e. the bzip2 CRC), crc32_iscsi the raw register.
TEST(ChecksumApi, IsalConventionsMatchOurs) {
    nuxtest::Bytes data = nuxtest::random_bytes(70000, 9);
    for (int len : {9, 1000, 70000}) {
        const Nux8u* p = len == 9 ? kCheck : data.data();
        Nux32u v = 0;
        nuxsCRC32_BZ2_8u(p, len, &v);
        EXPECT_EQ(crc32_ieee(0, p, uint64_t(len)), v) << len;
        v = 0;
        nuxsCRC32_8u(p, len, &v);
        EXPECT_EQ(crc32_gzip_refl(0, p, uint64_t(len)), v) << len;
        v = 0xFFFFFFFF;
        nuxsCRC32C_8u(p, Nux32u(len), &v);
        EXPECT_EQ(crc32_iscsi(const_cast<Nux8u*>(p), len, 0xFFFFFFFF), v) << len;
        v = 1;
        nuxsAdler32_8u(p, len, &v);
        EXPECT_EQ(isal_adler32(1, p, uint64_t(len)), v) << len;
    }
}
#endif

}  // namespace
