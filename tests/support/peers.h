// One-call round trips through the peer libraries that the tests use as
// oracles: zlib for Deflate, liblz4 for LZ4 blocks.
#pragma once

#include <lz4.h>
#include <zlib.h>

#include "support/test_support.h"

namespace nuxtest {

// window_bits as for deflateInit2: -15 raw Deflate, 15 zlib, 31 gzip.
inline Bytes zlib_compress(const Bytes& in, int level, int window_bits = -15, int strategy = Z_DEFAULT_STRATEGY) {
    z_stream z{};
    EXPECT_EQ(deflateInit2(&z, level, Z_DEFLATED, window_bits, 8, strategy), Z_OK);
    Bytes out(deflateBound(&z, uLong(in.size())) + 16);
    z.next_in = const_cast<Bytef*>(in.data());
    z.avail_in = uInt(in.size());
    z.next_out = out.data();
    z.avail_out = uInt(out.size());
    EXPECT_EQ(deflate(&z, Z_FINISH), Z_STREAM_END);
    out.resize(z.total_out);
    deflateEnd(&z);
    return out;
}

struct Inflated {
    int status;       // of inflate(Z_FINISH): Z_STREAM_END when the stream ended
    Bytes out;
    size_t unused_in;  // input bytes after the end of the stream
};

// Decodes into at most `cap` bytes; `dict` is a preset dictionary.
inline Inflated zlib_inflate(const Bytes& in, size_t cap, int window_bits = -15, const Bytes& dict = {}) {
    Inflated r{Z_STREAM_ERROR, Bytes(cap), 0};
    z_stream z{};
    EXPECT_EQ(inflateInit2(&z, window_bits), Z_OK);
    if (!dict.empty()) {
        EXPECT_EQ(inflateSetDictionary(&z, dict.data(), uInt(dict.size())), Z_OK);
    }
    z.next_in = const_cast<Bytef*>(in.data());
    z.avail_in = uInt(in.size());
    z.next_out = r.out.data();
    z.avail_out = uInt(cap);
    r.status = inflate(&z, Z_FINISH);
    r.out.resize(z.total_out);
    r.unused_in = z.avail_in;
    inflateEnd(&z);
    return r;
}

inline Bytes lz4_compress(const Bytes& in, int acceleration = 1) {
    Bytes out(size_t(LZ4_compressBound(int(in.size()))));
    out.resize(size_t(LZ4_compress_fast(reinterpret_cast<const char*>(in.data()), reinterpret_cast<char*>(out.data()),
                                        int(in.size()), int(out.size()), acceleration)));
    return out;
}

// liblz4's checked decoder into at most `cap` bytes; fails the test on an error.
inline Bytes lz4_decompress(const Bytes& block, size_t cap, const Bytes& dict = {}) {
    Bytes out(cap);
    const int n = LZ4_decompress_safe_usingDict(reinterpret_cast<const char*>(block.data()),
                                                reinterpret_cast<char*>(out.data()), int(block.size()), int(cap),
                                                reinterpret_cast<const char*>(dict.data()), int(dict.size()));
    EXPECT_GE(n, 0);
    out.resize(size_t(std::max(n, 0)));
    return out;
}

}  // namespace nuxtest
