// The nuxzo command-line tool: commands and file formats register
// themselves here. Every format is built on the public library API only,
// and the file handling (`compress`, `decompress`) knows nothing of any one
// format: a format is one file under tools/nuxzo/ with one FormatRegistrar.
#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
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
    // Reads up to n bytes; returns fewer only at the end of the input.
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

// The command line as a format sees it: the level (already checked against
// the format's range), the thread count, and the format's own options.
struct Options {
    int level = 0;
    unsigned threads = 1;  // -T N; 0 on the command line means one per core
    std::map<std::string, std::string> own;  // "--name" -> value ("" for flags)

    bool flag(const std::string& name) const { return own.count(name) != 0; }
    // The value of `name`, or `fallback` when it was not given.
    std::string value(const std::string& name, const std::string& fallback = "") const {
        const auto it = own.find(name);
        return it == own.end() ? fallback : it->second;
    }
};

// Writes the whole input as one file of the format.
using CompressFn = void (*)(Input& in, Output& out, const Options& options);
// Reads one whole file of the format (all its members, frames or streams).
using DecompressFn = void (*)(Input& in, Output& out, const Options& options);
// True when the first bytes of a file (up to 16) look like this format.
using DetectFn = bool (*)(const uint8_t* head, size_t n);

struct FormatOption {
    std::string name;  // "--linked"
    bool takes_value;
    std::string help;
};

struct Format {
    std::string name;                   // -F NAME
    std::vector<std::string> suffixes;  // the first is written; any is recognised
    int min_level = 0, max_level = 0, default_level = 0;
    std::vector<FormatOption> options;  // accepted by compress and decompress
    DetectFn detect = nullptr;          // null: only chosen with -F
    CompressFn compress = nullptr;
    DecompressFn decompress = nullptr;
};

struct FormatRegistrar {
    explicit FormatRegistrar(Format format);
};
// Registered formats by name.
const std::map<std::string, Format>& formats();

using CommandFn = int (*)(const std::vector<std::string>& args);
struct Command {
    std::string usage;
    CommandFn fn;
};
struct CommandRegistrar {
    CommandRegistrar(const char* name, const char* usage, CommandFn fn);
};
const std::map<std::string, Command>& commands();

}  // namespace nuxzo
