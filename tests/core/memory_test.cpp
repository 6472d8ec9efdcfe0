// Memory kernels across their size switches and at every alignment.
#include <gtest/gtest.h>

#include <cstring>

#include "core/cpu.h"
#include "core/memory.h"
#include "support/test_support.h"

namespace {

using nuxtest::Bytes;

// Sizes around every switch of the copy and zero kernels.
std::vector<int> interesting_sizes() {
    std::vector<int> sizes;
    for (int n = 0; n <= 300; ++n) sizes.push_back(n);
    for (int edge : {512, 1000, 4096, 16384, 32767, 32768, 65536, 70000})
        for (int d = -3; d <= 3; ++d) sizes.push_back(edge + d);
    return sizes;
}

// Each call returns its destination and writes exactly its range.
TEST(Memory, CopyAndZeroWriteExactlyTheRangeAtEveryAlignment) {
    const Bytes src = nuxtest::random_bytes(70100, 1);
    Bytes dst(70200), want(dst.size());
    for (int n : interesting_sizes()) {
        for (int align = 0; align < 64; align += (n > 1000 ? 7 : 1)) {
            const uint8_t* from = src.data() + (align * 3) % 64;
            uint8_t* to = dst.data() + align;
            for (bool zero : {false, true}) {
                std::memset(dst.data(), 0xAB, dst.size());
                std::memset(want.data(), 0xAB, want.size());
                zero ? (void)std::memset(want.data() + align, 0, size_t(n)) : (void)std::memcpy(want.data() + align, from, size_t(n));
                ASSERT_EQ(zero ? nux::zero_bytes(to, n) : nux::copy_bytes(from, to, n), to);
                ASSERT_EQ(dst, want) << n << " " << align << (zero ? " zero" : " copy");
            }
        }
    }
}

TEST(Memory, CopyFlushAgainstGuardPagesAndKeepsDirectionFlag) {
    for (int n : {1, 31, 255, 256, 16383, 16384, 32767, 32768, 40001}) {
        nuxtest::GuardedBuffer src{size_t(n)}, dst{size_t(n)};
        for (int i = 0; i < n; ++i) src.data()[i] = uint8_t(i * 7);
        nux::copy_bytes(src.data(), dst.data(), n);
        ASSERT_EQ(0, std::memcmp(src.data(), dst.data(), size_t(n)));
    }
    // A caller that runs with the direction flag set gets it back set.
    Bytes a(40000, 1), b(40000, 0);
    unsigned long flags;
    __asm__ volatile("std\n\t");
    nux::copy_bytes(a.data(), b.data(), 40000);
    nux::zero_bytes(b.data(), 40000);
    __asm__ volatile("pushfq\n\tpopq %0\n\tcld" : "=r"(flags));
    EXPECT_TRUE(flags & 0x400);
}

TEST(Memory, Fill32WritesExactCountWithAndWithoutStreaming) {
    using Fill = void (*)(Nux32u, Nux32u*, int);
    for (Fill fill : {Fill(nux::fill32), Fill(nux::fill32_cached), Fill(nux::fill32_streaming)}) {
        for (int n : {0, 1, 7, 8, 9, 15, 16, 17, 100, 1000, 524288, 524289, 3000000}) {
            for (int align = 0; align < 16; align += (n > 1000 ? 5 : 1)) {
                std::vector<Nux32u> buf(size_t(n) + 32, 0xDEADBEEF);
                fill(0x01020304u, buf.data() + align, n);
                for (size_t i = 0; i < buf.size(); ++i) {
                    const bool inside = i >= size_t(align) && i < size_t(align + n);
                    ASSERT_EQ(buf[i], inside ? 0x01020304u : 0xDEADBEEFu) << n << " " << align;
                }
            }
        }
    }
}

TEST(Memory, CheckedCopyChecksPointersThenSize) {
    uint8_t a[4] = {1, 2, 3, 4}, b[4] = {};
    EXPECT_EQ(nux::copy_checked(nullptr, b, 0), NuxStatusNullPtr);
    EXPECT_EQ(nux::copy_checked(a, nullptr, 4), NuxStatusNullPtr);
    EXPECT_EQ(nux::copy_checked(a, b, 0), NuxStatusSize);
    EXPECT_EQ(nux::copy_checked(a, b, -1), NuxStatusSize);
    EXPECT_EQ(b[0], 0);
    EXPECT_EQ(nux::copy_checked(a, b, 4), NuxStatusOk);
    EXPECT_EQ(0, std::memcmp(a, b, 4));
}

TEST(Memory, KernelsLeaveUpperVectorStateClean) {
    if (!nuxtest::can_check_upper_vector_state()) GTEST_SKIP() << "XGETBV(1) not supported";
    Bytes a(70000, 3), b(70000);
    std::vector<Nux32u> w(1000);
    for (int n : {100, 1000, 20000, 70000}) {
        EXPECT_TRUE(nuxtest::leaves_upper_state_clean([&] { nux::copy_bytes(a.data(), b.data(), n); }));
        EXPECT_TRUE(nuxtest::leaves_upper_state_clean([&] { nux::zero_bytes(b.data(), n); }));
    }
    EXPECT_TRUE(nuxtest::leaves_upper_state_clean([&] { nux::fill32(7, w.data(), 1000); }));
}

TEST(Cpu, FeaturesAreConsistent) {
    const Nux64u f = nux::detect_features();
    // This build requires the CRC32 instruction.
    EXPECT_TRUE(f & nux::kFeatureSse42Crc);
    EXPECT_EQ(nux::ownGetFeature(nux::kFeatureSse42Crc), 1);
    if (f & nux::kFeatureVpclmul) {
        EXPECT_TRUE(f & nux::kFeatureAvx512);
    }
    EXPECT_EQ(nux::ownGetFeature(nux::kFeaturePclmul) != 0, (f & nux::kFeaturePclmul) != 0);
    Nux32u cache = 0;
    EXPECT_EQ(nux::nuxGetMaxCacheSizeB(nullptr), NuxStatusNullPtr);
    if (nux::nuxGetMaxCacheSizeB(&cache) == NuxStatusOk) {
        EXPECT_GE(cache, 32768u);
    }
}

}  // namespace
