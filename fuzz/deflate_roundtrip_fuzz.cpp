// Compresses the input with the stream writer at a fuzz-chosen level, write
// chunking and optional preset dictionary, and checks that zlib inflates it
// back to the input exactly. Tiled inputs are long enough for the writes
// that the writer parses in place.
#include <zlib.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "streams/deflate_stream.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const int level = data[0] % 30;
    const unsigned mode = data[1];
    data += 2, size -= 2;
    // Low bits: a chunk size for the writes; bit 6: the input is tiled to
    // about 600 KB (each copy xor-ed with its number) and chunks are 32
    // times larger; bit 7: the first quarter is a dictionary.
    const bool tiled = mode & 0x40;
    const size_t chunk = size_t(1) << ((mode & 15) + (tiled ? 5 : 0));
    size_t dict_len = 0;
    if ((mode & 0x80) && size >= 8) dict_len = size / 4;
    const uint8_t* dict = data;
    const uint8_t* in = data + dict_len;
    size_t n = size - dict_len;
    std::vector<uint8_t> tiles;
    if (tiled && n && n < 600000) {
        tiles.resize(600000 / n * n);
        for (size_t k = 0; k < tiles.size(); ++k) tiles[k] = uint8_t(in[k % n] ^ (k / n));
        in = tiles.data();
        n = tiles.size();
    }

    std::vector<uint8_t> z;
    nuxzo::deflate_stream::RawWriter w(level, [&](const uint8_t* p, size_t k) { z.insert(z.end(), p, p + k); },
                                       dict_len ? dict : nullptr, dict_len);
    for (size_t at = 0; at < n;) {
        const size_t k = std::min(chunk, n - at);
        w.write(in + at, k);
        at += k;
    }
    w.finish();

    std::vector<uint8_t> out(n + 1);
    z_stream s{};
    if (inflateInit2(&s, -15) != Z_OK) abort();
    if (dict_len && inflateSetDictionary(&s, dict, uInt(dict_len)) != Z_OK) abort();
    s.next_in = z.data();
    s.avail_in = uInt(z.size());
    s.next_out = out.data();
    s.avail_out = uInt(out.size());
    if (inflate(&s, Z_FINISH) != Z_STREAM_END || s.avail_in != 0 || s.total_out != n) abort();
    if (n && std::memcmp(out.data(), in, n) != 0) abort();
    inflateEnd(&s);
    return 0;
}
