// Writing side of the "gzip" (RFC 1952), "zlib" (RFC 1950) and raw "deflate"
// (RFC 1951) formats: the stream writer of deflate_stream.h inside the
// container headers and trailers, with the library's checksums.
#include <algorithm>
#include <memory>

#include "deflate_stream.h"
#include "nuxzo.h"
#include "tool.h"

namespace nuxzo {
namespace {

constexpr size_t kReadChunk = 1 << 20;

// Running CRC-32 (gzip trailer) and Adler-32 (zlib trailer) of the input.
struct Checksums {
    uint32_t crc = 0, adler = 1;
    void update(const uint8_t* p, size_t n, bool want_crc, bool want_adler) {
        while (n > 0) {
            const int piece = int(std::min<size_t>(n, 1 << 30));
            if (want_crc) nuxsCRC32_8u(p, piece, &crc);
            if (want_adler) nuxsAdler32_8u(p, piece, &adler);
            p += piece;
            n -= size_t(piece);
        }
    }
};

void put_le32(uint8_t* p, uint32_t v) {
    for (int k = 0; k < 4; ++k) p[k] = uint8_t(v >> (8 * k));
}

enum class Wrapper { kRaw, kZlib, kGzip };

void compress_stream(Input& in, Output& out, const CompressOptions& options, Wrapper wrapper) {
    const int level = options.level;
    const int units = level % 10;  // the level class: 0 single probe, 1..4 greedy, 5..9 lazy
    if (wrapper == Wrapper::kGzip) {
        // ID1 ID2 CM=8 FLG=0 MTIME=0 XFL OS=3 (Unix). XFL 2: slowest, 4: fastest.
        const uint8_t header[10] = {0x1f, 0x8b, 8, 0, 0, 0, 0, 0, uint8_t(units >= 8 ? 2 : units <= 1 ? 4 : 0), 3};
        out.write(header, sizeof header);
    } else if (wrapper == Wrapper::kZlib) {
        // CMF: CM 8, CINFO 7 (32 KiB window). FLG: FLEVEL, no dictionary,
        // FCHECK making CMF * 256 + FLG a multiple of 31.
        const unsigned flevel = units <= 1 ? 0 : units <= 5 ? 1 : units == 6 ? 2 : 3;
        const unsigned cmf = 0x78, flg0 = flevel << 6;
        const uint8_t header[2] = {uint8_t(cmf), uint8_t(flg0 + (31 - (cmf * 256 + flg0) % 31))};
        out.write(header, sizeof header);
    }
    deflate_stream::RawWriter writer(level, [&](const uint8_t* p, size_t n) { out.write(p, n); });
    Checksums sums;
    uint64_t total = 0;
    std::unique_ptr<uint8_t[]> chunk(new uint8_t[kReadChunk]);
    for (size_t n; (n = in.read(chunk.get(), kReadChunk)) > 0;) {
        sums.update(chunk.get(), n, wrapper == Wrapper::kGzip, wrapper == Wrapper::kZlib);
        writer.write(chunk.get(), n);
        total += n;
    }
    writer.finish();
    uint8_t trailer[8];
    if (wrapper == Wrapper::kGzip) {
        put_le32(trailer, sums.crc);
        put_le32(trailer + 4, uint32_t(total));  // ISIZE: input size modulo 2^32
        out.write(trailer, 8);
    } else if (wrapper == Wrapper::kZlib) {
        for (int k = 0; k < 4; ++k) trailer[k] = uint8_t(sums.adler >> (24 - 8 * k));  // big-endian
        out.write(trailer, 4);
    }
}

void compress_gzip(Input& in, Output& out, const CompressOptions& o) { compress_stream(in, out, o, Wrapper::kGzip); }
void compress_zlib(Input& in, Output& out, const CompressOptions& o) { compress_stream(in, out, o, Wrapper::kZlib); }
void compress_raw(Input& in, Output& out, const CompressOptions& o) { compress_stream(in, out, o, Wrapper::kRaw); }

const FormatRegistrar gzip_writer("gzip", ".gz", compress_gzip);
const FormatRegistrar zlib_writer("zlib", ".zz", compress_zlib);
const FormatRegistrar deflate_writer("deflate", ".deflate", compress_raw);

}  // namespace
}  // namespace nuxzo
