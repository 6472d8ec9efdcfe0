// Inflate against zlib, libdeflate and isa-l: every side decodes the same raw
// Deflate stream made by zlib at level 6, whole-buffer calls, per file and for
// the corpus total (all files back to back as one stream).
#include <zlib.h>

#include <vector>

#include "streams/inflate_stream.h"
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

Bytes zlib_raw6(const Bytes& in) {
    Bytes out;
    out.resize(nuxbench::zlib_raw_deflate(in, 6, out));
    return out;
}

void compare(nuxbench::Session& session, const std::string& name, const Bytes& data) {
    const Bytes comp = zlib_raw6(data);
    Bytes out(data.size() + 1);
    std::vector<Contender> peers;
    peers.push_back({"zlib inflate", [&]() {
                         z_stream z{};
                         inflateInit2(&z, -15);
                         z.next_in = const_cast<Bytef*>(comp.data());
                         z.avail_in = uInt(comp.size());
                         z.next_out = out.data();
                         z.avail_out = uInt(out.size());
                         inflate(&z, Z_FINISH);
                         const size_t n = z.total_out;
                         inflateEnd(&z);
                         return n;
                     }});
#ifdef NUXZO_HAVE_DEFLATE
    libdeflate_decompressor* d = libdeflate_alloc_decompressor();
    peers.push_back({"libdeflate", [&]() {
                         size_t n = 0;
                         libdeflate_deflate_decompress(d, comp.data(), comp.size(), out.data(), out.size(), &n);
                         return n;
                     }});
#endif
#ifdef NUXZO_HAVE_ISAL
    peers.push_back({"isal_inflate", [&]() {
                         inflate_state s;
                         isal_inflate_init(&s);
                         s.next_in = const_cast<uint8_t*>(comp.data());
                         s.avail_in = uint32_t(comp.size());
                         s.next_out = out.data();
                         s.avail_out = uint32_t(out.size());
                         isal_inflate_stateless(&s);
                         return size_t(s.total_out);
                     }});
#endif
    session.compete("inflate (zlib -6 stream)", name, data.size(),
                    {"nuxsInflate_8u", [&]() {
                         return nuxzo::inflate::decompress_buffer(nuxzo::inflate::Wrapper::kRaw, comp.data(),
                                                                  comp.size(), out.data(), out.size());
                     }},
                    peers);
#ifdef NUXZO_HAVE_DEFLATE
    libdeflate_free_decompressor(d);
#endif
}

}  // namespace

NUXBENCH_SECTION("inflate", 40) {
    session.section("Inflate: decompression of raw Deflate streams made by zlib -6, whole buffer");
    for (const nuxbench::Input& in : session.inputs()) compare(session, in.name, in.data);
    if (session.inputs().size() > 1) compare(session, "corpus total", session.total());
}
