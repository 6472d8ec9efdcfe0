// Checksums side by side with zlib, libdeflate and isa-l at 4 KiB, 64 KiB and
// 16 MiB per call, and the cost our calls leave behind for a caller's SSE
// code (zlib level-1 compression right after one call of each export).
#include <immintrin.h>

#include <algorithm>
#include <cstring>

#include "bench.h"
#include "nuxzo.h"
#ifdef NUXZO_HAVE_ZLIB
#include <zlib.h>
#endif
#ifdef NUXZO_HAVE_DEFLATE
#include <libdeflate.h>
#endif
#ifdef NUXZO_HAVE_ISAL
#include <isa-l.h>
#endif

namespace {

using nuxbench::Contender;
using Kernel = uint32_t (*)(const uint8_t* p, size_t n, uint32_t v);

volatile uint32_t g_sink;

// Small sizes repeat the call so that the clock is read rarely; the bytes
// stay in cache either way (the 16 MiB case does not).
Contender contender(const char* name, Kernel k, const uint8_t* p, size_t n, int calls) {
    return {name, [=] {
                uint32_t v = 0;
                for (int i = 0; i < calls; ++i) v = k(p, n, v);
                g_sink = v;
                return size_t(0);
            }};
}

uint32_t our_adler(const uint8_t* p, size_t n, uint32_t v) {
    v = 1;
    nuxsAdler32_8u(p, int(n), &v);
    return v;
}
uint32_t our_crc32(const uint8_t* p, size_t n, uint32_t v) {
    nuxsCRC32_8u(p, int(n), &v);
    return v;
}
uint32_t our_crc32c(const uint8_t* p, size_t n, uint32_t v) {
    nuxsCRC32C_8u(p, uint32_t(n), &v);
    return v;
}
uint32_t our_bzip2(const uint8_t* p, size_t n, uint32_t v) {
    nuxsCRC32_BZ2_8u(p, int(n), &v);
    return v;
}

struct Row {
    const char* label;
    Contender (*ours)(const uint8_t*, size_t, int);
    std::vector<Contender> (*peers)(const uint8_t*, size_t, int);
};

std::vector<Contender> adler_peers(const uint8_t* p, size_t n, int calls) {
    std::vector<Contender> v;
#ifdef NUXZO_HAVE_ZLIB
    v.push_back(contender("zlib", [](const uint8_t* q, size_t m, uint32_t) {
        return uint32_t(adler32(1, q, unsigned(m)));
    }, p, n, calls));
#endif
#ifdef NUXZO_HAVE_DEFLATE
    v.push_back(contender("libdeflate", [](const uint8_t* q, size_t m, uint32_t) {
        return uint32_t(libdeflate_adler32(1, q, m));
    }, p, n, calls));
#endif
#ifdef NUXZO_HAVE_ISAL
    v.push_back(contender("isa-l", [](const uint8_t* q, size_t m, uint32_t) {
        return isal_adler32(1, q, m);
    }, p, n, calls));
#endif
    return v;
}

std::vector<Contender> crc32_peers(const uint8_t* p, size_t n, int calls) {
    std::vector<Contender> v;
#ifdef NUXZO_HAVE_ZLIB
    v.push_back(contender("zlib", [](const uint8_t* q, size_t m, uint32_t c) {
        return uint32_t(crc32(c, q, unsigned(m)));
    }, p, n, calls));
#endif
#ifdef NUXZO_HAVE_DEFLATE
    v.push_back(contender("libdeflate", [](const uint8_t* q, size_t m, uint32_t c) {
        return uint32_t(libdeflate_crc32(c, q, m));
    }, p, n, calls));
#endif
#ifdef NUXZO_HAVE_ISAL
    v.push_back(contender("isa-l gzip_refl", [](const uint8_t* q, size_t m, uint32_t c) {
        return crc32_gzip_refl(c, q, m);
    }, p, n, calls));
#endif
    return v;
}

std::vector<Contender> crc32c_peers([[maybe_unused]] const uint8_t* p, [[maybe_unused]] size_t n,
                                    [[maybe_unused]] int calls) {
    std::vector<Contender> v;
#ifdef NUXZO_HAVE_ISAL
    v.push_back(contender("isa-l iscsi", [](const uint8_t* q, size_t m, uint32_t c) {
        return crc32_iscsi(const_cast<uint8_t*>(q), int(m), c);
    }, p, n, calls));
#endif
    return v;
}

// isa-l's crc32_ieee is the MSB-first CRC with inverted ends: the bzip2 CRC
// (the tests check that both agree).
std::vector<Contender> bzip2_peers([[maybe_unused]] const uint8_t* p, [[maybe_unused]] size_t n,
                                   [[maybe_unused]] int calls) {
    std::vector<Contender> v;
#ifdef NUXZO_HAVE_ISAL
    v.push_back(contender("isa-l ieee", [](const uint8_t* q, size_t m, uint32_t c) {
        return crc32_ieee(c, q, m);
    }, p, n, calls));
#endif
    return v;
}

const Row kRows[] = {
    {"Adler-32", [](const uint8_t* p, size_t n, int c) { return contender("nuxzo", our_adler, p, n, c); },
     adler_peers},
    {"CRC-32", [](const uint8_t* p, size_t n, int c) { return contender("nuxzo", our_crc32, p, n, c); },
     crc32_peers},
    {"CRC-32C", [](const uint8_t* p, size_t n, int c) { return contender("nuxzo", our_crc32c, p, n, c); },
     crc32c_peers},
    {"bzip2 CRC", [](const uint8_t* p, size_t n, int c) { return contender("nuxzo", our_bzip2, p, n, c); },
     bzip2_peers},
};

std::string size_name(size_t n) {
    return n >= (1u << 20) ? std::to_string(n >> 20) + " MiB" : std::to_string(n >> 10) + " KiB";
}

}  // namespace

// A routine that returns with the upper halves of the YMM registers dirty,
// as a library built without VZEROUPPER would: the contrast row. Written in
// assembly because the compiler would add a VZEROUPPER to a C++ function.
extern "C" void nuxbench_dirty_upper_state();
__asm__(
    ".text\n"
    ".p2align 4\n"
    ".type nuxbench_dirty_upper_state, @function\n"
    "nuxbench_dirty_upper_state:\n"
    "    vpcmpeqd %ymm15, %ymm15, %ymm15\n"
    "    ret\n"
    ".size nuxbench_dirty_upper_state, .-nuxbench_dirty_upper_state\n");

namespace {

void dirty_upper_state() { nuxbench_dirty_upper_state(); }

}  // namespace

NUXBENCH_SECTION("checksum", 10) {
    session.section("checksum (ours: nuxzo exports; bytes per call as named)");
    // 16 MiB of the inputs, repeated when they are shorter.
    const size_t big = 16u << 20;
    std::vector<uint8_t> data(big);
    const auto& total = session.total();
    if (total.empty()) {
        session.note("no input");
        return;
    }
    for (size_t i = 0; i < big; i += total.size())
        std::memcpy(data.data() + i, total.data(), std::min(total.size(), big - i));

    struct Size {
        size_t bytes;
        int calls;
    };
    const Size sizes[] = {{4096, 64}, {65536, 4}, {big, 1}};
    for (const Row& row : kRows)
        for (const Size& s : sizes) {
            const size_t n = session.quick() && s.bytes == big ? (1u << 20) : s.bytes;
            session.compete(row.label, size_name(n), n * size_t(s.calls), row.ours(data.data(), n, s.calls),
                            row.peers(data.data(), n, s.calls));
        }

#ifdef NUXZO_HAVE_ZLIB
    // Transition penalty: a caller's SSE code (zlib, built without AVX) run
    // right after one of our calls must not slow down. Each row times the
    // compression after one 4 KiB call of an export against after nothing;
    // every run starts from a clean upper state (VZEROUPPER), since a
    // routine that leaves it dirty slows down everything after it until
    // something cleans it. The last rows show what a dirty state costs.
    session.section("checksum: caller's SSE code after one call (zlib level 1, 256 KiB; x1.00 = no penalty)");
    const size_t in_len = 256u << 10;
    std::vector<uint8_t> out(compressBound(in_len));
    auto compress_after = [&](const char* name, void (*before)(const uint8_t*)) {
        return Contender{name, [&out, &data, in_len, before] {
                             _mm256_zeroupper();
                             if (before) before(data.data());
                             uLongf out_len = uLongf(out.size());
                             compress2(out.data(), &out_len, data.data(), in_len, 1);
                             return size_t(0);
                         }};
    };
    const Contender nothing = compress_after("after nothing", nullptr);
    struct After {
        const char* label;
        void (*call)(const uint8_t*);
    };
    const After afters[] = {
        {"after nuxsAdler32_8u", [](const uint8_t* p) { our_adler(p, 4096, 1); }},
        {"after nuxsCRC32_8u", [](const uint8_t* p) { our_crc32(p, 4096, 0); }},
        {"after nuxsCRC32C_8u", [](const uint8_t* p) { our_crc32c(p, 4096, 0); }},
        {"after nuxsCRC32_BZ2_8u", [](const uint8_t* p) { our_bzip2(p, 4096, 0); }},
        {"after dirty YMM (contrast)", [](const uint8_t*) { dirty_upper_state(); }},
#ifdef NUXZO_HAVE_ISAL
        // isa-l's CRC kernels return without VZEROUPPER.
        {"after isa-l crc32_gzip_refl", [](const uint8_t* p) { g_sink = crc32_gzip_refl(0, p, 4096); }},
#endif
    };
    for (const After& a : afters)
        session.compete("zlib L1 compress", "256 KiB", in_len, compress_after(a.label, a.call), {nothing});
#endif
}
