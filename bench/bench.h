// Side-by-side benchmark: ours and the peers in one process, alternating
// rounds, best time of each, reported as ratios ours/peer. Sections live in
// bench/<family>_bench.cpp and register themselves with NUXBENCH_SECTION.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace nuxbench {

using Bytes = std::vector<uint8_t>;

struct Input {
    std::string name;
    Bytes data;
};

// One contender: `run` does the whole job once and returns the size of what
// it produced (0 when sizes are meaningless, e.g. checksums).
struct Contender {
    std::string name;
    std::function<size_t()> run;
};

struct Result {
    std::string name;
    double mb_per_s = 0;
    size_t out_size = 0;
};

class Session {
  public:
    Session(std::vector<Input> inputs, bool quick);

    const std::vector<Input>& inputs() const { return inputs_; }
    // All inputs back to back (the "corpus total").
    const Bytes& total() const { return total_; }
    bool quick() const { return quick_; }

    // Times `ours` and every peer over `in_bytes` of input, alternating, and
    // prints one line per peer: MB/s of both, the speed ratio ours/peer and,
    // when sizes are reported, the output as a percentage of the input and
    // the size ratio ours/peer. With no peers, prints our figures alone.
    void compete(const std::string& label, const std::string& input, size_t in_bytes,
                 const Contender& ours, const std::vector<Contender>& peers);

    void section(const std::string& title);
    void note(const std::string& text);

  private:
    std::vector<Input> inputs_;
    Bytes total_;
    bool quick_;
};

using SectionFn = void (*)(Session&);
struct SectionRegistrar {
    SectionRegistrar(const char* name, int order, SectionFn fn);
};

// Runs every registered section in order; `filter` selects sections by name
// substring (empty: all).
void run_all(Session& session, const std::string& filter);

// The built-in sample used when no directory is given: generated text and
// structured binary data, deterministic.
std::vector<Input> embedded_sample();

// zlib's raw Deflate (no wrapper) of `in` at `level` into `out`, resized to
// zlib's bound; returns the compressed size. Shared by the sections that
// compress with zlib or decode its streams.
size_t zlib_raw_deflate(const Bytes& in, int level, Bytes& out);

// Peer libraries this build lacks (Debian package names), for the header line.
std::vector<std::string> missing_peers();

}  // namespace nuxbench

#define NUXBENCH_CONCAT2(a, b) a##b
#define NUXBENCH_CONCAT(a, b) NUXBENCH_CONCAT2(a, b)
// NUXBENCH_SECTION("checksum", 10) { ... uses `session` ... }
#define NUXBENCH_SECTION(name, order)                                                     \
    static void NUXBENCH_CONCAT(nuxbench_section_, __LINE__)(::nuxbench::Session&);       \
    static const ::nuxbench::SectionRegistrar NUXBENCH_CONCAT(nuxbench_registrar_, __LINE__)( \
        name, order, &NUXBENCH_CONCAT(nuxbench_section_, __LINE__));                      \
    static void NUXBENCH_CONCAT(nuxbench_section_, __LINE__)(::nuxbench::Session & session)
