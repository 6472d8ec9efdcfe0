// Deflate compression per level class against zlib, libdeflate and isa-l:
// size (output as a share of the input) and MB/s on the corpus total, whole
// buffers in raw Deflate (no container, so no checksum on either side). Our
// side is the tool's own stream writer (tools/nuxzo/deflate_stream.h).

#include <iterator>
#include <vector>

#include "streams/deflate_stream.h"
#include "bench.h"
#ifdef NUXZO_HAVE_DEFLATE
#include <libdeflate.h>
#endif
#ifdef NUXZO_HAVE_ISAL
#include <isa-l.h>
#endif

namespace {

using nuxbench::Bytes;
using nuxbench::Contender;

size_t ours(const Bytes& in, int level) {
    size_t total = 0;
    nuxzo::deflate_stream::RawWriter w(level, [&](const uint8_t*, size_t n) { total += n; });
    w.write(in.data(), in.size());
    w.finish();
    return total;
}

Contender zlib_level(const Bytes& in, Bytes& out, int level) {
    return {"zlib -" + std::to_string(level), [&in, &out, level] { return nuxbench::zlib_raw_deflate(in, level, out); }};
}

#ifdef NUXZO_HAVE_DEFLATE
Contender libdeflate_level(const Bytes& in, Bytes& out, int level) {
    return {"libdeflate " + std::to_string(level), [&in, &out, level] {
                libdeflate_compressor* c = libdeflate_alloc_compressor(level);
                out.resize(libdeflate_deflate_compress_bound(c, in.size()));
                const size_t n = libdeflate_deflate_compress(c, in.data(), in.size(), out.data(), out.size());
                libdeflate_free_compressor(c);
                return n;
            }};
}
#endif

#ifdef NUXZO_HAVE_ISAL
// isa-l levels 1..3 need a level buffer of the documented default size.
Contender isal_level(const Bytes& in, Bytes& out, int level) {
    return {"isa-l " + std::to_string(level), [&in, &out, level] {
                static const size_t kBufSize[4] = {ISAL_DEF_LVL0_DEFAULT, ISAL_DEF_LVL1_DEFAULT, ISAL_DEF_LVL2_DEFAULT,
                                                   ISAL_DEF_LVL3_DEFAULT};
                std::vector<uint8_t> level_buf(kBufSize[level]);
                out.resize(in.size() + in.size() / 16 + 1024);
                isal_zstream s;
                isal_deflate_init(&s);
                s.level = uint32_t(level);
                s.level_buf = level_buf.data();
                s.level_buf_size = uint32_t(level_buf.size());
                s.end_of_stream = 1;
                s.flush = NO_FLUSH;
                s.next_in = const_cast<uint8_t*>(in.data());
                s.avail_in = uint32_t(in.size());
                s.next_out = out.data();
                s.avail_out = uint32_t(out.size());
                isal_deflate(&s);
                return size_t(s.total_out);
            }};
}
#endif

// Our level and the peers' levels of the same class (-1 ends a list).
struct Row {
    int level;
    int zlib[2], ldf[2], isal[2];
};
constexpr Row kQuickRows[] = {{1, {1, -1}, {1, -1}, {1, -1}}, {6, {6, -1}, {6, -1}, {2, -1}}, {9, {9, -1}, {9, 12}, {3, -1}}};
constexpr Row kFullRows[] = {{0, {1, -1}, {1, -1}, {1, -1}},  {1, {1, -1}, {1, -1}, {1, 2}},
                             {4, {4, -1}, {4, -1}, {2, -1}},  {6, {6, -1}, {6, -1}, {2, 3}},
                             {9, {9, -1}, {9, 12}, {3, -1}},  {19, {9, -1}, {9, -1}, {3, -1}},
                             {29, {9, -1}, {12, -1}, {3, -1}}};

NUXBENCH_SECTION("deflate", 30) {
    session.section("Deflate compression, raw streams (ours: nuxzo levels)");
    session.note("0/10/20 single probe; 1-4 greedy; 5-9 lazy; the decades trade search depth against hashing inside matches");
    const Bytes& in = session.total();
    Bytes out;
    std::vector<Row> rows;
    if (session.quick()) rows.assign(std::begin(kQuickRows), std::end(kQuickRows));
    else rows.assign(std::begin(kFullRows), std::end(kFullRows));
    for (const Row& r : rows) {
        std::vector<Contender> peers;
        for (int l : r.zlib)
            if (l >= 0) peers.push_back(zlib_level(in, out, l));
#ifdef NUXZO_HAVE_DEFLATE
        for (int l : r.ldf)
            if (l >= 0) peers.push_back(libdeflate_level(in, out, l));
#endif
#ifdef NUXZO_HAVE_ISAL
        for (int l : r.isal)
            if (l >= 0) peers.push_back(isal_level(in, out, l));
#endif
        const int level = r.level;
        session.compete("deflate level " + std::to_string(level), "corpus", in.size(),
                        {"nuxzo " + std::to_string(level), [&in, level] { return ours(in, level); }}, peers);
    }
}

}  // namespace
