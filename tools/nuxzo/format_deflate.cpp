// The "gzip" (RFC 1952), "zlib" (RFC 1950) and raw "deflate" (RFC 1951)
// formats of the tool. Writing wraps the stream writer of
// streams/deflate_stream.h in the container's header and trailer with the
// library's checksums; reading adapts streams/inflate_stream.h to the tool's
// input and output and reports faults with their byte offset.
#include <algorithm>
#include <memory>

#include "streams/deflate_stream.h"
#include "streams/inflate_stream.h"
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

using inflate::Wrapper;

void compress_stream(Input& in, Output& out, const Options& options, Wrapper wrapper) {
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

// ---- reading ----------------------------------------------------------------

struct ToolSource : inflate::Source {
    explicit ToolSource(Input& in) : in_(in) {}
    size_t read(uint8_t* buf, size_t n) override { return in_.read(buf, n); }
    Input& in_;
};

struct ToolSink : inflate::Sink {
    explicit ToolSink(Output& out) : out_(out) {}
    void write(const uint8_t* data, size_t n) override { out_.write(data, n); }
    Output& out_;
};

void decompress_stream(Input& in, Output& out, Wrapper wrapper) {
    ToolSource source(in);
    ToolSink sink(out);
    inflate::Reader reader(&source, sink, inflate::Options{});
    try {
        reader.run(wrapper);
    } catch (const inflate::StreamError& e) {
        throw DataError(e.offset, e.what());
    }
}

// RFC 1952: ID1 ID2 = 1f 8b.
bool detect_gzip(const uint8_t* head, size_t n) { return n >= 2 && head[0] == 0x1F && head[1] == 0x8B; }

// RFC 1950: method 8 with a window of at most 32 KiB, and CMF*256 + FLG a
// multiple of 31.
bool detect_zlib(const uint8_t* head, size_t n) {
    return n >= 2 && (head[0] & 15) == 8 && (head[0] >> 4) <= 7 && (head[0] * 256u + head[1]) % 31 == 0;
}

template <Wrapper W>
void compress_as(Input& in, Output& out, const Options& o) {
    compress_stream(in, out, o, W);
}

template <Wrapper W>
void decompress_as(Input& in, Output& out, const Options&) {
    decompress_stream(in, out, W);
}

// Levels 0..29 are the library's; -1..-9 keep their gzip meaning.
const FormatRegistrar gzip_format({.name = "gzip", .suffixes = {".gz"}, .min_level = 0, .max_level = 29,
                                   .default_level = 6, .detect = detect_gzip,
                                   .compress = compress_as<Wrapper::kGzip>,
                                   .decompress = decompress_as<Wrapper::kGzip>});
const FormatRegistrar zlib_format({.name = "zlib", .suffixes = {".zz"}, .min_level = 0, .max_level = 29,
                                   .default_level = 6, .detect = detect_zlib,
                                   .compress = compress_as<Wrapper::kZlib>,
                                   .decompress = decompress_as<Wrapper::kZlib>});
const FormatRegistrar deflate_format({.name = "deflate", .suffixes = {".deflate"}, .min_level = 0, .max_level = 29,
                                      .default_level = 6, .compress = compress_as<Wrapper::kRaw>,
                                      .decompress = decompress_as<Wrapper::kRaw>});

}  // namespace
}  // namespace nuxzo
