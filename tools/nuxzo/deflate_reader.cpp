// Reading side of the "gzip", "zlib" and "deflate" formats of the tool: the
// stream parsing lives in inflate_stream.cpp, this file adapts it to the
// tool's input and output and reports faults with their byte offset.
#include "inflate_stream.h"
#include "tool.h"

namespace nuxzo {
namespace {

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

void decompress_with(inflate::Wrapper wrapper, Input& in, Output& out) {
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

void read_gzip(Input& in, Output& out) { decompress_with(inflate::Wrapper::kGzip, in, out); }
void read_zlib(Input& in, Output& out) { decompress_with(inflate::Wrapper::kZlib, in, out); }
void read_deflate(Input& in, Output& out) { decompress_with(inflate::Wrapper::kRaw, in, out); }

const FormatRegistrar gzip_reader("gzip", ".gz", detect_gzip, read_gzip);
const FormatRegistrar zlib_reader("zlib", ".zz", detect_zlib, read_zlib);
const FormatRegistrar deflate_reader("deflate", ".deflate", nullptr, read_deflate);

}  // namespace
}  // namespace nuxzo
