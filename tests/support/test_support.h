// Helpers shared by the test programs: guarded buffers, generated data,
// the opt-in Silesia corpus, and the clean-upper-state check for AVX code.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "streams/sample_data.h"

namespace nuxtest {

using Bytes = std::vector<uint8_t>;

// `size` bytes that end flush against an unmapped page, so any read or write
// past the end faults. data() is aligned to `align_mod` modulo 64 when the
// size allows; the page before the data is unmapped too.
class GuardedBuffer {
  public:
    explicit GuardedBuffer(size_t size);
    GuardedBuffer(const GuardedBuffer&) = delete;
    GuardedBuffer& operator=(const GuardedBuffer&) = delete;
    ~GuardedBuffer();
    uint8_t* data() { return data_; }
    size_t size() const { return size_; }

  private:
    uint8_t* map_ = nullptr;
    size_t map_size_ = 0;
    uint8_t* data_ = nullptr;
    size_t size_ = 0;
};

inline Bytes random_bytes(size_t n, uint64_t seed) { return nuxzo::sample::noise(n, seed); }
// Text-like data with repeats at many distances; compresses about 3:1.
inline Bytes compressible_bytes(size_t n, uint64_t seed) { return nuxzo::sample::text(n, seed); }

struct NamedInput {
    std::string name;
    Bytes data;
};
// The Silesia files named by the environment variable NUXZO_CORPUS (a
// directory of the zipped or unzipped files; zips are unpacked once into the
// build tree). Empty when it is not set: the first such call then records
// this program in the build tree, and scripts/test lists those programs in
// one line, so a run without the corpus says so.
const std::vector<NamedInput>& corpus();
// What interop tests run on: one generated input of every kind of
// streams/sample_data.h (text, binary, records, runs, noise; 256 KiB each),
// then the corpus files when NUXZO_CORPUS is set. Never empty.
const std::vector<NamedInput>& interop_inputs();

// True when the upper halves of the YMM/ZMM registers are in their initial
// (clean) state: XGETBV with ECX=1 reports in-use state components, and bit 2
// is the AVX upper-half state. A routine that left them dirty would make the
// caller's SSE code pay a transition penalty.
bool can_check_upper_vector_state();
// Clears the upper state, runs fn(ctx) and reports whether it left it clean.
bool leaves_upper_state_clean(void (*fn)(void*), void* ctx);
template <typename F>
bool leaves_upper_state_clean(F&& f) {
    return leaves_upper_state_clean([](void* p) { (*static_cast<F*>(p))(); }, &f);
}

Bytes read_file(const std::string& path);
void write_file(const std::string& path, const Bytes& data);
// The first n bytes of b (all of b when shorter).
inline Bytes head(const Bytes& b, size_t n) { return Bytes(b.begin(), b.begin() + std::ptrdiff_t(std::min(n, b.size()))); }
// Set in the sanitizer builds of CI: tests shrink their corpus work there.
inline bool sanitized() { return std::getenv("NUXZO_SANITIZED") != nullptr; }

// Base of the tests that drive the built nuxzo tool: skips when the tool or
// one of the `needs` programs is missing, and gives each test an empty
// directory of its own in the build tree (removed afterwards).
class ToolTest : public ::testing::Test {
  protected:
    explicit ToolTest(std::vector<std::string> needs = {}) : needs_(std::move(needs)) {}
    void SetUp() override;
    void TearDown() override {
        if (!dir_.empty() && !HasFailure()) std::filesystem::remove_all(dir_);  // kept for a look when failed
    }
    // Runs `cmd` through the shell inside the directory, stderr to err();
    // returns the exit status.
    int run(const std::string& cmd) const { return std::system(in_dir(cmd).c_str()); }
    // The same, returning stdout.
    std::string output(const std::string& cmd, int* status = nullptr) const;
    std::string err() const {
        const Bytes e = read("stderr.txt");
        return std::string(e.begin(), e.end());
    }
    std::string path(const std::string& name) const { return (dir_ / name).string(); }
    void write(const std::string& name, const Bytes& data) const { write_file(path(name), data); }
    Bytes read(const std::string& name) const { return read_file(path(name)); }

    const std::string tool = NUXZO_BUILD_DIR "/tools/nuxzo/nuxzo";
    std::filesystem::path dir_;

  private:
    std::string in_dir(const std::string& cmd) const {
        return std::string("cd '").append(dir_.string()).append("' && (").append(cmd).append(") 2> stderr.txt");
    }
    std::vector<std::string> needs_;
};

}  // namespace nuxtest
