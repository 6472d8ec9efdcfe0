// Helpers shared by the test programs: guarded buffers, generated data,
// the Silesia corpus, and the clean-upper-state check for AVX code.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

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

Bytes random_bytes(size_t n, uint64_t seed);
// Text-like data with repeats at many distances; compresses about 3:1.
Bytes compressible_bytes(size_t n, uint64_t seed);

struct CorpusFile {
    std::string name;
    Bytes data;
};
// The corpus files, unzipped once into the build directory. Empty (and the
// calling test should GTEST_SKIP) only when the corpus is not beside the repo.
const std::vector<CorpusFile>& corpus();

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

}  // namespace nuxtest
