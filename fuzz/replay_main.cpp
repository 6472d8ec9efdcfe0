// Replays saved fuzz inputs (every file below the given directories) through
// a fuzz target without libFuzzer, so the regressions run as ordinary tests.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    namespace fs = std::filesystem;
    size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        if (!fs::exists(argv[i])) continue;
        for (const auto& e : fs::recursive_directory_iterator(argv[i])) {
            if (!e.is_regular_file()) continue;
            std::ifstream f(e.path(), std::ios::binary);
            const std::vector<uint8_t> data{std::istreambuf_iterator<char>(f), {}};
            LLVMFuzzerTestOneInput(data.data(), data.size());
            ++count;
        }
    }
    // An empty input always runs, so a target without saved inputs is still exercised.
    LLVMFuzzerTestOneInput(nullptr, 0);
    std::printf("replayed %zu saved inputs\n", count);
    return 0;
}
