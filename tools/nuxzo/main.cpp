// nuxzo: the library's command-line tool. Commands register themselves.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "nuxzo.h"
#include "tool.h"

namespace nuxzo {

namespace {

std::map<std::string, Format>& format_registry() {
    static std::map<std::string, Format> f;
    return f;
}

std::map<std::string, Command>& command_registry() {
    static std::map<std::string, Command> c;
    return c;
}

}  // namespace

const std::map<std::string, Format>& formats() { return format_registry(); }
const std::map<std::string, Command>& commands() { return command_registry(); }

FormatRegistrar::FormatRegistrar(Format format) {
    const std::string name = format.name;
    format_registry().emplace(name, std::move(format));
}

CommandRegistrar::CommandRegistrar(const char* name, const char* usage, CommandFn fn) {
    command_registry()[name] = {usage, fn};
}

DataError::DataError(uint64_t at, const std::string& what)
    : ToolError("corrupt input at byte offset " + std::to_string(at) + ": " + what), offset(at) {}

Input::Input(FILE* f, std::string name, uint64_t size_hint)
    : f_(f), name_(std::move(name)), size_hint_(size_hint), next_progress_(64u << 20),
      show_progress_(size_hint >= (64u << 20) && isatty(STDERR_FILENO)) {}

size_t Input::peek(uint8_t* buf, size_t n) {
    while (lookahead_.size() < n) {
        uint8_t tmp[256];
        const size_t r = std::fread(tmp, 1, std::min(sizeof tmp, n - lookahead_.size()), f_);
        if (r == 0) break;
        lookahead_.insert(lookahead_.end(), tmp, tmp + r);
    }
    const size_t got = std::min(n, lookahead_.size());
    std::copy_n(lookahead_.begin(), got, buf);
    return got;
}

size_t Input::read(uint8_t* buf, size_t n) {
    size_t got = std::min(n, lookahead_.size());
    std::copy_n(lookahead_.begin(), got, buf);
    lookahead_.erase(lookahead_.begin(), lookahead_.begin() + std::ptrdiff_t(got));
    while (got < n) {
        const size_t r = std::fread(buf + got, 1, n - got, f_);
        if (r == 0) {
            if (std::ferror(f_)) throw ToolError(name_ + ": read error: " + std::strerror(errno));
            break;
        }
        got += r;
    }
    offset_ += got;
    if (show_progress_ && offset_ >= next_progress_) {
        std::fprintf(stderr, "\r%s: %3d%%", name_.c_str(), int(100.0 * double(offset_) / double(size_hint_)));
        next_progress_ += 64u << 20;
        if (offset_ >= size_hint_ || got < n) std::fprintf(stderr, "\n");
    }
    return got;
}

void Input::read_exact(uint8_t* buf, size_t n) {
    if (read(buf, n) != n) throw DataError(offset_, "unexpected end of input");
}

void Output::write(const uint8_t* buf, size_t n) {
    if (n && std::fwrite(buf, 1, n, f_) != n) throw ToolError(std::string("write error: ") + std::strerror(errno));
    written_ += n;
}

}  // namespace nuxzo

namespace {

void usage(FILE* to) {
    const NuxVersionRecord* v = nuxzoGetLibVersion();
    std::fprintf(to, "nuxzo - %s %s, built %s\n\nusage:\n", v->name, v->version, v->buildDate);
    for (const auto& [name, cmd] : nuxzo::commands()) std::fprintf(to, "  nuxzo %s\n", cmd.usage.c_str());
    std::fprintf(to, "\nformats (-F), their suffixes, levels (-l) and options:\n");
    for (const auto& [name, f] : nuxzo::formats()) {
        std::string suffixes;
        for (const std::string& s : f.suffixes) suffixes += " " + s;
        std::fprintf(to, "  %-8s%-14s levels %d..%d (default %d)%s\n", name.c_str(), suffixes.c_str(), f.min_level,
                     f.max_level, f.default_level, f.compress ? "" : ", read only");
        for (const nuxzo::FormatOption& o : f.options)
            std::fprintf(to, "      %s%s  %s\n", o.name.c_str(), o.takes_value ? " V" : "", o.help.c_str());
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || !std::strcmp(argv[1], "-h") || !std::strcmp(argv[1], "--help")) {
        usage(argc < 2 ? stderr : stdout);
        return argc < 2 ? 2 : 0;
    }
    const auto it = nuxzo::commands().find(argv[1]);
    if (it == nuxzo::commands().end()) {
        std::fprintf(stderr, "nuxzo: unknown command '%s'\n", argv[1]);
        usage(stderr);
        return 2;
    }
    try {
        return it->second.fn(std::vector<std::string>(argv + 2, argv + argc));
    } catch (const nuxzo::ToolError& e) {
        std::fprintf(stderr, "nuxzo: %s\n", e.what());
        return 1;
    }
}
