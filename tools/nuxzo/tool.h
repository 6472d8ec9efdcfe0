// The nuxzo command-line tool: commands and container formats register
// themselves here. Every format is built on the public library API only.
#pragma once

#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

namespace nuxzo {

// A user-facing failure; main prints "nuxzo: <message>" and exits 1.
struct ToolError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Malformed compressed input found at byte `offset` of the input file.
struct DataError : ToolError {
    DataError(uint64_t offset, const std::string& what);
    uint64_t offset;
};

// Buffered input that counts the bytes handed out, so that decoders can name
// the offset of a fault, and shows progress on a terminal for large files.
class Input {
  public:
    Input(FILE* f, std::string name, uint64_t size_hint);
    // Reads up to n bytes; returns 0 only at the end of the input.
    size_t read(uint8_t* buf, size_t n);
    // Reads exactly n bytes or throws a DataError ("unexpected end of input").
    void read_exact(uint8_t* buf, size_t n);
    // Copies up to n of the next bytes without consuming them.
    size_t peek(uint8_t* buf, size_t n);
    uint64_t offset() const { return offset_; }
    const std::string& name() const { return name_; }

  private:
    FILE* f_;
    std::string name_;
    std::vector<uint8_t> lookahead_;
    uint64_t offset_ = 0, size_hint_, next_progress_;
    bool show_progress_;
};

class Output {
  public:
    explicit Output(FILE* f) : f_(f) {}
    void write(const uint8_t* buf, size_t n);
    uint64_t written() const { return written_; }

  private:
    FILE* f_;
    uint64_t written_ = 0;
};

struct CompressOptions {
    int level = 6;        // library level 0..29
    bool linked = false;  // LZ4 frames: dependent blocks
};

using CompressFn = void (*)(Input& in, Output& out, const CompressOptions& options);
// Decompresses one whole file (all members / frames of it).
using DecompressFn = void (*)(Input& in, Output& out);
// True when the first bytes of a file look like this format.
using DetectFn = bool (*)(const uint8_t* head, size_t n);

struct FormatRegistrar {
    // Either function may be null: writing and reading register separately.
    FormatRegistrar(const char* name, const char* suffix, CompressFn compress);
    FormatRegistrar(const char* name, const char* suffix, DetectFn detect, DecompressFn decompress);
};

using CommandFn = int (*)(const std::vector<std::string>& args);
struct CommandRegistrar {
    CommandRegistrar(const char* name, const char* usage, CommandFn fn);
};

}  // namespace nuxzo
