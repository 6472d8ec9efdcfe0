#include "support/test_support.h"

#include <errno.h>

#include <cpuid.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>

#include "streams/sample_data.h"

namespace nuxtest {

GuardedBuffer::GuardedBuffer(size_t size) : size_(size) {
    const size_t page = size_t(sysconf(_SC_PAGESIZE));
    const size_t body = (size + page - 1) / page * page;
    map_size_ = body + 2 * page;
    void* m = mmap(nullptr, map_size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (m == MAP_FAILED) throw std::runtime_error("mmap failed");
    map_ = static_cast<uint8_t*>(m);
    if (body && mprotect(map_ + page, body, PROT_READ | PROT_WRITE) != 0)
        throw std::runtime_error("mprotect failed");
    data_ = map_ + page + body - size;
}

GuardedBuffer::~GuardedBuffer() { munmap(map_, map_size_); }


Bytes read_file(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("cannot read " + path);
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

void write_file(const std::string& path, const Bytes& data) {
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(data.data()), std::streamsize(data.size()));
}

void ToolTest::SetUp() {
    if (!std::filesystem::exists(tool)) GTEST_SKIP() << "tool not built";
    for (const std::string& prog : needs_)
        if (std::system((prog + " --version > /dev/null 2>&1").c_str()) != 0) GTEST_SKIP() << prog << " missing";
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    dir_ = std::filesystem::path(NUXZO_BUILD_DIR) / "tool_tests" / (std::string(info->test_suite_name()) + "." + info->name());
    std::filesystem::remove_all(dir_);
    std::filesystem::create_directories(dir_);
}

std::string ToolTest::output(const std::string& cmd, int* status) const {
    FILE* p = popen(in_dir(cmd).c_str(), "r");
    std::string out;
    char buf[4096];
    for (size_t n; (n = std::fread(buf, 1, sizeof buf, p)) > 0;) out.append(buf, n);
    const int rc = pclose(p);
    if (status) *status = rc;
    return out;
}

const std::vector<NamedInput>& corpus() {
    static const std::vector<NamedInput> files = [] {
        namespace fs = std::filesystem;
        std::vector<NamedInput> out;
        const char* env = std::getenv("NUXZO_CORPUS");
        if (!env || !*env) {
            const fs::path note = fs::path(NUXZO_BUILD_DIR) / "corpus-missing";
            fs::create_directories(note);
            std::ofstream(note / program_invocation_short_name);
            return out;
        }
        const fs::path src = env;
        if (!fs::is_directory(src)) throw std::runtime_error(std::string("NUXZO_CORPUS is not a directory: ") + env);
        const fs::path unzipped = fs::path(NUXZO_BUILD_DIR) / "corpus";
        for (const auto& entry : fs::directory_iterator(src)) {
            if (!entry.is_regular_file() || entry.path().filename().string()[0] == '.') continue;
            fs::path file = entry.path();
            if (file.extension() == ".zip") {
                fs::create_directories(unzipped);
                file = unzipped / entry.path().stem();
                if (!fs::exists(file)) {
                    const std::string cmd = "unzip -qo '" + entry.path().string() + "' -d '" + unzipped.string() + "'";
                    if (std::system(cmd.c_str()) != 0) throw std::runtime_error("unzip failed: " + cmd);
                }
            }
            out.push_back({file.filename().string(), read_file(file.string())});
        }
        if (out.empty()) throw std::runtime_error(std::string("NUXZO_CORPUS holds no files: ") + env);
        std::sort(out.begin(), out.end(), [](const auto& x, const auto& y) { return x.name < y.name; });
        return out;
    }();
    return files;
}

const std::vector<NamedInput>& interop_inputs() {
    static const std::vector<NamedInput> inputs = [] {
        std::vector<NamedInput> out;
        for (auto& s : nuxzo::sample::all_kinds(256 * 1024, 2026)) out.push_back({s.name, std::move(s.data)});
        for (const auto& f : corpus()) out.push_back(f);
        return out;
    }();
    return inputs;
}

bool can_check_upper_vector_state() {
    unsigned a, b, c, d;
    if (!__get_cpuid_count(0xD, 1, &a, &b, &c, &d)) return false;
    return a & (1u << 2);  // XGETBV with ECX=1 supported
}

// Bits 2 (upper halves of YMM0-15) and 6 (upper halves of ZMM0-15) of the
// in-use state; VZEROUPPER returns both to the initial state.
bool leaves_upper_state_clean(void (*fn)(void*), void* ctx) {
    __asm__ volatile("vzeroupper" ::: "memory");
    fn(ctx);
    unsigned lo, hi;
    __asm__ volatile("xgetbv" : "=a"(lo), "=d"(hi) : "c"(1));
    return (lo & 0x44) == 0;
}

}  // namespace nuxtest
