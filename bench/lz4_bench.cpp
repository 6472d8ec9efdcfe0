// LZ4 block encoders and decoder against liblz4: per file (each file one
// block, files above 64 MiB in 4 MiB blocks) and the corpus total (all files
// back to back in 4 MiB blocks). Both sides get the same blocks.
#include <algorithm>
#include <cstring>
#include <vector>

#include "bench.h"
#include "nuxzo.h"
#ifdef NUXZO_HAVE_LZ4
#include <lz4.h>
#endif

namespace {

using nuxbench::Bytes;
using nuxbench::Contender;

struct Block {
    const uint8_t* data;
    int len;
};

std::vector<Block> cut(const Bytes& in, size_t block) {
    std::vector<Block> v;
    for (size_t at = 0; at < in.size(); at += block)
        v.push_back({in.data() + at, int(std::min(block, in.size() - at))});
    return v;
}

size_t worst_case(const std::vector<Block>& blocks) {
    size_t n = 0;
    for (const Block& b : blocks) n = std::max(n, size_t(b.len) + size_t(b.len) / 255 + 16);
    return n;
}

#ifdef NUXZO_HAVE_LZ4
void compare(nuxbench::Session& session, const std::string& name, const Bytes& data, size_t block) {
    const std::vector<Block> blocks = cut(data, block);
    Bytes out(worst_case(blocks));
    alignas(8) static Nux8u table[16384];

    auto ours_fast = [&](int accel) {
        return [&, accel]() {
            size_t total = 0;
            for (const Block& b : blocks) {
                int len = 0;
                nuxsEncodeLZ4Fast_8u(b.data, b.len, out.data(), &len, table, accel);
                total += size_t(len);
            }
            return total;
        };
    };
    auto peer_fast = [&](int accel) {
        return [&, accel]() {
            size_t total = 0;
            for (const Block& b : blocks)
                total += size_t(LZ4_compress_fast(reinterpret_cast<const char*>(b.data), reinterpret_cast<char*>(out.data()),
                                                  b.len, int(out.size()), accel));
            return total;
        };
    };
    session.compete("lz4 compress default", name, data.size(), {"nuxsEncodeLZ4", ours_fast(1)},
                    {{"LZ4_compress_default", [&]() {
                          size_t total = 0;
                          for (const Block& b : blocks)
                              total += size_t(LZ4_compress_default(reinterpret_cast<const char*>(b.data),
                                                                   reinterpret_cast<char*>(out.data()), b.len,
                                                                   int(out.size())));
                          return total;
                      }}});
    session.compete("lz4 compress fast 2", name, data.size(), {"nuxsEncodeLZ4Fast", ours_fast(2)},
                    {{"LZ4_compress_fast", peer_fast(2)}});
    session.compete("lz4 compress fast 8", name, data.size(), {"nuxsEncodeLZ4Fast", ours_fast(8)},
                    {{"LZ4_compress_fast", peer_fast(8)}});

    // Decoding: both sides decode the same liblz4 blocks.
    std::vector<Bytes> coded;
    for (const Block& b : blocks) {
        Bytes c(size_t(LZ4_compressBound(b.len)));
        c.resize(size_t(LZ4_compress_default(reinterpret_cast<const char*>(b.data), reinterpret_cast<char*>(c.data()),
                                             b.len, int(c.size()))));
        coded.push_back(std::move(c));
    }
    Bytes dec(block);
    session.compete("lz4 decompress", name, data.size(),
                    {"nuxsDecodeLZ4",
                     [&]() {
                         size_t total = 0;
                         for (size_t i = 0; i < coded.size(); ++i) {
                             int len = blocks[i].len;
                             nuxsDecodeLZ4_8u(coded[i].data(), int(coded[i].size()), dec.data(), &len);
                             total += size_t(len);
                         }
                         return total;
                     }},
                    {{"LZ4_decompress_safe", [&]() {
                          size_t total = 0;
                          for (size_t i = 0; i < coded.size(); ++i)
                              total += size_t(LZ4_decompress_safe(reinterpret_cast<const char*>(coded[i].data()),
                                                                  reinterpret_cast<char*>(dec.data()),
                                                                  int(coded[i].size()), blocks[i].len));
                          return total;
                      }}});
}
#endif

NUXBENCH_SECTION("lz4", 50) {
    session.section("LZ4 blocks (nuxsEncodeLZ4*, nuxsDecodeLZ4 vs liblz4)");
#ifdef NUXZO_HAVE_LZ4
    constexpr size_t kWhole = size_t(64) << 20, kBlock = size_t(4) << 20;
    if (!session.quick())
        for (const auto& in : session.inputs())
            compare(session, in.name, in.data, in.data.size() <= kWhole ? std::max<size_t>(in.data.size(), 1) : kBlock);
    compare(session, "corpus total", session.total(), kBlock);
#else
    session.note("liblz4 missing: no peer to compare with");
#endif
}

}  // namespace
