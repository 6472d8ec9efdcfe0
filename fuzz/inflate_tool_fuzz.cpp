// Arbitrary bytes through the stream reader (raw, zlib or gzip, with
// fuzz-chosen input pieces and output room) and through the table builder and
// decoder directly: never a crash, a hang or an access outside a buffer.
#include <cstddef>
#include <cstdint>
#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "streams/inflate_stream.h"
#include "piece_source.h"
#include "nuxzo.h"

namespace {

using nuxzo::inflate::Wrapper;

// Bounds the output so that a fuzz input cannot ask for gigabytes.
struct CappedSink : nuxzo::inflate::Sink {
    void write(const uint8_t*, size_t n) override {
        total += n;
        if (total > (size_t(1) << 24)) throw nuxzo::inflate::StreamError(0, "output cap");
    }
    size_t total = 0;
};

// Table built from fuzz-chosen code lengths, then the decoder on the rest of
// the input with exact-size heap buffers for input and output.
void direct(const uint8_t* data, size_t size, uint32_t room) {
    if (size < 2) return;
    const unsigned nLit = 257 + data[0] % 32, nDist = data[1] % 31;
    data += 2;
    size -= 2;
    std::vector<Nux16u> lens(nLit + nDist);
    for (size_t i = 0; i < lens.size(); ++i) {
        if (i / 2 >= size) return;
        lens[i] = Nux16u((i & 1 ? data[i / 2] >> 4 : data[i / 2]) & 15);
    }
    const size_t used = (lens.size() + 1) / 2;
    data += used;
    size -= used;
    NuxInflateHuffTable st;
    std::memset(&st, 0, sizeof st);
    if (nuxsInflateBuildHuffTable(lens.data(), nLit, nDist, &st) != NuxStatusOk) return;
    std::unique_ptr<uint8_t[]> in(new uint8_t[size + 1]);
    if (size) std::memcpy(in.get(), data, size);
    const Nux8u* src = in.get();
    Nux32u srcLen = Nux32u(size), code = 0, bits = 0, mode = 0;
    for (int calls = 0; calls < 1000; ++calls) {
        std::unique_ptr<uint8_t[]> out(new uint8_t[room ? room : 1]);
        Nux8u* dst = out.get();
        Nux32u dstLen = room;
        if (nuxsInflate_8u(&src, &srcLen, &code, &bits, 0, &dst, &dstLen, 0, &mode, &st) != NuxStatusOk) return;
        if (bits > 32 || dst > out.get() + room) __builtin_trap();
        if (mode != 2) return;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3) return 0;
    static constexpr uint32_t kRooms[8] = {1, 2, 7, 64, 300, 4096, 65536, 1 << 20};
    const uint32_t room = kRooms[data[1] & 7];
    const uint32_t seed = data[2];
    const uint8_t what = data[0] % 5;
    data += 3;
    size -= 3;
    if (what == 4) {
        direct(data, size, room);
        return 0;
    }
    // Exact-size copy, so that reading past the input is seen.
    std::unique_ptr<uint8_t[]> in(new uint8_t[size ? size : 1]);
    if (size) std::memcpy(in.get(), data, size);
    try {
        if (what == 3) {
            // Whole-buffer use: the caller's exact-size output buffer.
            std::unique_ptr<uint8_t[]> out(new uint8_t[room]);
            nuxzo::inflate::decompress_buffer(Wrapper::kRaw, in.get(), size, out.get(), room);
        } else {
            PieceSource source(in.get(), size, seed, 97);
            CappedSink sink;
            nuxzo::inflate::Options o;
            o.outRoom = room;
            o.inBuffer = 64 + seed * 3;
            nuxzo::inflate::Reader reader(&source, sink, o);
            reader.run(what == 0 ? Wrapper::kRaw : what == 1 ? Wrapper::kZlib : Wrapper::kGzip);
        }
    } catch (const nuxzo::inflate::StreamError&) {
    }
    return 0;
}
