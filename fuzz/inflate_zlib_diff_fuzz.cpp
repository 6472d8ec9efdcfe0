// Raw Deflate decoding against zlib: the stream reader (with fuzz-chosen input
// pieces and output room) gives zlib's output, or both refuse the input.
#include <zlib.h>

#include <cstddef>
#include <cstdint>
#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "streams/inflate_stream.h"
#include "piece_source.h"

namespace {

constexpr size_t kCap = size_t(1) << 20;

struct VecSink : nuxzo::inflate::Sink {
    void write(const uint8_t* p, size_t n) override {
        if (out.size() + n > kCap) throw nuxzo::inflate::StreamError(0, "output cap");
        out.insert(out.end(), p, p + n);
    }
    std::vector<uint8_t> out;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    static constexpr uint32_t kRooms[4] = {1, 7, 4096, 1 << 16};
    const uint32_t room = kRooms[data[0] & 3];
    const uint32_t seed = data[1];
    data += 2;
    size -= 2;

    // Not cleared: zero-filling a megabyte per input would dominate the run.
    std::unique_ptr<uint8_t[]> want(new uint8_t[kCap]);
    z_stream z;
    std::memset(&z, 0, sizeof z);
    if (inflateInit2(&z, -15) != Z_OK) return 0;
    z.next_in = const_cast<Bytef*>(data);
    z.avail_in = uInt(size);
    z.next_out = want.get();
    z.avail_out = uInt(kCap);
    const bool zlibOk = inflate(&z, Z_FINISH) == Z_STREAM_END;
    const size_t wantSize = z.total_out;
    inflateEnd(&z);

    PieceSource source(data, size, seed, 61);
    VecSink sink;
    nuxzo::inflate::Options o;
    o.outRoom = room;
    o.allowTrailing = true;
    bool ours = true;
    try {
        nuxzo::inflate::Reader reader(&source, sink, o);
        reader.run(nuxzo::inflate::Wrapper::kRaw);
    } catch (const nuxzo::inflate::StreamError&) {
        ours = false;
    }
    if (ours != zlibOk) __builtin_trap();
    if (ours && (sink.out.size() != wantSize || (wantSize && std::memcmp(sink.out.data(), want.get(), wantSize) != 0)))
        __builtin_trap();
    return 0;
}
