// Every checksum kernel against an independent reference (zlib for Adler-32
// and CRC-32, bit-at-a-time loops for CRC-32C and the bzip2 CRC), at every
// start alignment and at lengths around each kernel's thresholds, with the
// data flush against a guard page so that over-reads fault.
#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <random>

#include "checksum/kernels.h"
#include "core/cpu.h"
#include "support/test_support.h"

namespace {

using namespace nux::checksum;
using Fn = Nux32u (*)(Nux32u, const Nux8u*, size_t);

struct Kernel {
    const char* name;
    Fn fn;
    Nux64u needs;  // feature mask, 0: always runs
};

// Raw-register references.
Nux32u ref_adler(Nux32u a, const Nux8u* p, size_t n) { return Nux32u(adler32(a, p, unsigned(n))); }
Nux32u ref_crc32(Nux32u c, const Nux8u* p, size_t n) { return ~Nux32u(crc32(~c, p, unsigned(n))); }
Nux32u ref_crc32c(Nux32u c, const Nux8u* p, size_t n) {
    for (size_t i = 0; i < n; ++i) {
        c ^= p[i];
        for (int b = 0; b < 8; ++b) c = (c >> 1) ^ ((c & 1) ? 0x82F63B78u : 0);
    }
    return c;
}
Nux32u ref_bzip2(Nux32u c, const Nux8u* p, size_t n) {
    for (size_t i = 0; i < n; ++i) {
        c ^= Nux32u(p[i]) << 24;
        for (int b = 0; b < 8; ++b) c = (c << 1) ^ ((c & 0x80000000u) ? 0x04C11DB7u : 0);
    }
    return c;
}

struct Family {
    const char* name;
    Fn reference;
    Nux32u start;
    std::vector<Kernel> kernels;
    std::vector<size_t> thresholds;
};

const std::vector<Family>& families() {
    using nux::kFeatureAvx2, nux::kFeatureAvx512Vnni, nux::kFeaturePclmul, nux::kFeatureSse42Crc,
        nux::kFeatureVpclmul;
    static const std::vector<Family> f = {
        {"adler32", ref_adler, 1,
         {{"bytes", adler32_bytes, 0},
          {"vec16", adler32_vec16, 0},
          {"avx2", adler32_avx2, kFeatureAvx2},
          {"avx512vnni", adler32_avx512vnni, kFeatureAvx512Vnni}},
         {31, 32, 5536, 5536 + 15, 5552, 2 * 5536 + 16, 128, 256, 64 * 1024, 128 * 1024}},
        {"crc32", ref_crc32, 0xFFFFFFFF,
         {{"slice8", crc32_slice8, 0},
          {"pclmul", crc32_pclmul, kFeaturePclmul},
          {"vpclmul", crc32_vpclmul, kFeaturePclmul | kFeatureVpclmul}},
         {15, 32, 64, 96, 128, 256, 320, 512, 1024}},
        {"crc32c", ref_crc32c, 0xFFFFFFFF,
         {{"slice4", crc32c_slice4, 0},
          {"hw_table", crc32c_hw_table, kFeatureSse42Crc},
          {"hw_clmul", crc32c_hw_clmul, kFeatureSse42Crc | kFeaturePclmul},
          {"vpclmul", crc32c_vpclmul, kFeatureSse42Crc | kFeaturePclmul | kFeatureVpclmul}},
         {11, 24, 216, 432, 864, 1728, 1728 + 864 + 432 + 216, 3072, 3072 + 24, 6144, 256, 320, kHybridMin,
          kHybridMin + 296, 64 * 1024}},
        {"bzip2", ref_bzip2, 0xFFFFFFFF,
         {{"slice8", bzip2_slice8, 0},
          {"pclmul", bzip2_pclmul, kFeaturePclmul},
          {"vpclmul", bzip2_vpclmul, kFeaturePclmul | kFeatureVpclmul}},
         {11, 32, 64, 96, 128, 256, 320, 512, 1024}},
    };
    return f;
}

// Every length up to 300 (all heads, tails and small-input switches), and
// each threshold with its neighbours.
std::vector<size_t> lengths(const Family& f) {
    std::vector<size_t> out;
    for (size_t n = 0; n <= 300; ++n) out.push_back(n);
    for (size_t t : f.thresholds)
        for (size_t d : {0, 1, 2, 8, 16}) {
            out.push_back(t + d);
            if (t >= d) out.push_back(t - d);
        }
    return out;
}

class Kernels : public ::testing::TestWithParam<size_t> {};

bool runs(const Kernel& k) { return !k.needs || nux::ownGetFeature(k.needs); }

TEST_P(Kernels, MatchReferenceAtEveryAlignmentAndThreshold) {
    const Family& f = families()[GetParam()];
    const std::vector<size_t> ns = lengths(f);
    const size_t max_len = *std::max_element(ns.begin(), ns.end());
    const nuxtest::Bytes src = nuxtest::random_bytes(max_len, 77 + GetParam());
    // The reference of every prefix, one byte at a time, so that each
    // (length, alignment) case costs one kernel call.
    std::vector<Nux32u> refs{f.start};
    for (size_t n = 1; n <= max_len; ++n) refs.push_back(f.reference(refs.back(), src.data() + n - 1, 1));
    const size_t step = nuxtest::sanitized() ? 7 : 1;
    for (const Kernel& k : f.kernels) {
        if (!runs(k)) continue;
        for (size_t n : ns) {
            // Flush against the guard page, then every start alignment modulo
            // 64 (a sample for long inputs).
            nuxtest::GuardedBuffer flush(n), g(n + 63);
            if (n) std::memcpy(flush.data(), src.data(), n);
            ASSERT_EQ(k.fn(f.start, flush.data(), n), refs[n]) << f.name << "/" << k.name << " n=" << n;
            for (size_t off = 0; off < 64; off += n > 8192 ? 13 * step : step) {
                Nux8u* p = g.data() + off;
                if (n) std::memcpy(p, src.data(), n);
                ASSERT_EQ(k.fn(f.start, p, n), refs[n])
                    << f.name << "/" << k.name << " n=" << n << " address mod 64=" << (uintptr_t(p) & 63);
            }
        }
    }
}

// Random start values, lengths and offsets; and all-0xFF data, the worst case
// for the deferred Adler reduction.
TEST_P(Kernels, RandomStartValuesAndSaturatedData) {
    const Family& f = families()[GetParam()];
    std::mt19937_64 rng(5 + GetParam());
    const int rounds = nuxtest::sanitized() ? 40 : 300;
    const nuxtest::Bytes ones(300000, 0xFF);
    for (int r = 0; r < rounds; ++r) {
        const size_t n = (r % 3 == 0) ? rng() % 300000 : rng() % 5000;
        const size_t off = rng() % 64;
        nuxtest::Bytes data = (r % 5 == 0) ? ones : nuxtest::random_bytes(n + 64, rng());
        Nux32u start = Nux32u(rng());
        if (f.reference == ref_adler) start = (start % 65521) | ((start >> 16) % 65521) << 16;
        const Nux32u want = f.reference(start, data.data() + off, n);
        for (const Kernel& k : f.kernels) {
            if (!runs(k)) continue;
            ASSERT_EQ(k.fn(start, data.data() + off, n), want) << f.name << "/" << k.name << " n=" << n;
        }
    }
}

// Adler kernels accept unreduced halves (up to 0xFFFF each) with 0xFF data.
TEST(AdlerKernels, UnreducedStartWithSaturatedChunks) {
    const nuxtest::Bytes ones(3 * 5536 + 40, 0xFF);
    for (size_t off : {0u, 1u, 15u}) {
        const Nux32u want = adler32_bytes(0xFFFFFFFF, ones.data() + off, ones.size() - off);
        EXPECT_EQ(adler32_vec16(0xFFFFFFFF, ones.data() + off, ones.size() - off), want);
    }
    EXPECT_EQ(adler32_vec16(0xFFFFFFFF, ones.data(), 0), 0x000E000Eu);
}

INSTANTIATE_TEST_SUITE_P(Checksums, Kernels, ::testing::Values(0, 1, 2, 3),
                         [](const auto& info) { return std::string(families()[info.param].name); });

}  // namespace
