// Reading gzip (RFC 1952), zlib (RFC 1950) and raw Deflate (RFC 1951)
// streams on the public API: this side parses the wrappers, the block
// headers, stored blocks and the code-length code of dynamic blocks, keeps
// the 32 KiB history window, and hands each block body to nuxsInflate_8u.
// Shared by the tool, the tests, the fuzz targets and the benchmark.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

#include "nuxzo.h"

namespace nuxzo::inflate {

// Malformed, truncated or trailing input, found at byte `offset`.
struct StreamError : std::runtime_error {
    StreamError(uint64_t at, const std::string& what) : std::runtime_error(what), offset(at) {}
    uint64_t offset;
};

class Source {
  public:
    virtual ~Source() = default;
    // Up to n bytes into buf; 0 only at the end of the input.
    virtual size_t read(uint8_t* buf, size_t n) = 0;
};

class Sink {
  public:
    virtual ~Sink() = default;
    virtual void write(const uint8_t* data, size_t n) = 0;
};

enum class Wrapper { kRaw, kZlib, kGzip };

using BlockDecoder = NuxStatus (*)(const Nux8u**, Nux32u*, Nux32u*, Nux32u*, Nux32u, Nux8u**, Nux32u*, Nux32u,
                                   Nux32u*, NuxInflateHuffTable*);

struct Options {
    // Output room handed to each decoder call; the output is passed on to the
    // sink whenever that much has been produced.
    size_t outRoom = size_t(1) << 18;
    // Input buffer size (bytes taken from the source per read at most).
    size_t inBuffer = size_t(1) << 16;
    // If set, output is produced directly into this caller buffer of
    // `outRoom` bytes (the whole-buffer case) instead of an own buffer.
    uint8_t* outBuffer = nullptr;
    // If set, the input is this memory (the source is not used).
    const uint8_t* inMemory = nullptr;
    size_t inMemorySize = 0;
    // Raw streams only: accept bytes after the final block (they are left
    // unread) instead of refusing them as trailing garbage.
    bool allowTrailing = false;
    // The block-body decoder: the library's, or a stand-in of the same shape
    // (the tests run each of the library's decoding kernels through it).
    BlockDecoder decoder = nuxsInflate_8u;
};

class Reader {
  public:
    Reader(Source* source, Sink& sink, const Options& options);
    ~Reader();
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    // Decodes the whole input: every member of a gzip file, or one zlib or
    // raw stream. Throws StreamError.
    void run(Wrapper wrapper);

    uint64_t output_size() const;
    // Input bytes consumed so far (after run(): up to the end of the stream).
    uint64_t input_consumed() const;

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// Whole-buffer convenience: decodes `in` into `out` (capacity `cap`), with
// one decoder call per block unless the output fills. Returns the output size.
size_t decompress_buffer(Wrapper wrapper, const uint8_t* in, size_t n, uint8_t* out, size_t cap,
                         BlockDecoder decoder = nuxsInflate_8u);

}  // namespace nuxzo::inflate
