// `nuxzo bench [--quick] [--only SECTION] [DIR]`: the side-by-side benchmark
// on the regular files of DIR, or on the embedded sample.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "bench.h"
#include "tool.h"

namespace nuxzo {
namespace {

int bench(const std::vector<std::string>& args) {
    bool quick = false;
    std::string only, dir;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--quick") quick = true;
        else if (args[i] == "--only" && i + 1 < args.size()) only = args[++i];
        else if (args[i][0] != '-' && dir.empty()) dir = args[i];
        else throw ToolError("bench: unexpected argument " + args[i]);
    }
    std::vector<nuxbench::Input> inputs;
    if (dir.empty()) {
        inputs = nuxbench::embedded_sample();
    } else {
        namespace fs = std::filesystem;
        if (!fs::is_directory(dir)) throw ToolError(dir + ": not a directory");
        for (const auto& e : fs::directory_iterator(dir)) {
            if (!e.is_regular_file()) continue;
            std::ifstream f(e.path(), std::ios::binary);
            inputs.push_back({e.path().filename().string(), {std::istreambuf_iterator<char>(f), {}}});
        }
        std::sort(inputs.begin(), inputs.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
        if (inputs.empty()) throw ToolError(dir + ": no files");
    }
    nuxbench::Session session(std::move(inputs), quick);
    nuxbench::run_all(session, only);
    return 0;
}

const CommandRegistrar bench_command("bench", "bench [--quick] [--only SECTION] [DIR]", bench);

}  // namespace
}  // namespace nuxzo
