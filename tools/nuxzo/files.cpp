// `nuxzo compress` and `nuxzo decompress`: gzip-like file handling around the
// registered formats. Output goes to a temporary file that is renamed into
// place only when the whole job succeeded, so a failure never leaves a
// partial file under the final name.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>

#include "tool.h"

namespace nuxzo {
namespace {

namespace fs = std::filesystem;

struct CommandLine {
    bool to_stdout = false, keep = false, force = false;
    std::string format;
    int level = -1;  // -1: not given
    unsigned threads = 0;
    std::map<std::string, std::string> own;  // format options, checked once the format is known
    std::vector<std::string> files;
};

// Whether any format declares `name`, and whether it takes a value.
const FormatOption* format_option(const std::string& name) {
    for (const auto& [n, f] : formats())
        for (const FormatOption& o : f.options)
            if (o.name == name) return &o;
    return nullptr;
}

int parse_number(const std::string& option, const std::string& text) {
    char* end = nullptr;
    const long v = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end || v < 0 || v > 1000000) throw ToolError("option " + option + " needs a number");
    return int(v);
}

CommandLine parse(const std::vector<std::string>& args) {
    CommandLine c;
    for (size_t i = 0; i < args.size(); ++i) {
        std::string a = args[i];
        std::string inline_value;
        bool has_inline = false;
        if (const size_t eq = a.find('='); a.rfind("--", 0) == 0 && eq != std::string::npos) {
            inline_value = a.substr(eq + 1);
            a.resize(eq);
            has_inline = true;
        }
        auto value = [&]() -> std::string {
            if (has_inline) return inline_value;
            if (i + 1 >= args.size()) throw ToolError("option " + a + " needs a value");
            return args[++i];
        };
        if (a == "-c" || a == "--stdout") c.to_stdout = true;
        else if (a == "-k" || a == "--keep") c.keep = true;
        else if (a == "-f" || a == "--force") c.force = true;
        else if (a == "-F" || a == "--format") c.format = value();
        else if (a == "-l" || a == "--level") c.level = parse_number(a, value());
        else if (a.size() == 2 && a[0] == '-' && a[1] >= '1' && a[1] <= '9') c.level = a[1] - '0';
        else if (a == "-T" || a == "--threads") c.threads = unsigned(parse_number(a, value()));
        else if (a == "-" || a[0] != '-') c.files.push_back(a);
        else if (const FormatOption* o = format_option(a)) c.own[a] = o->takes_value ? value() : "";
        else throw ToolError("unknown option " + a);
    }
    if (c.files.empty()) c.files.push_back("-");
    if (c.threads == 0) c.threads = std::max(1u, std::thread::hardware_concurrency());
    return c;
}

const Format& format_named(const std::string& name) {
    const auto it = formats().find(name);
    if (it == formats().end()) {
        std::string known;
        for (const auto& [n, f] : formats()) known += " " + n;
        throw ToolError("unknown format '" + name + "' (known:" + known + ")");
    }
    return it->second;
}

// The options as `f` sees them; refuses options that `f` does not take.
Options options_for(const Format& f, const CommandLine& c, bool compressing) {
    Options o;
    o.threads = c.threads;
    for (const auto& [name, v] : c.own) {
        const bool known = std::any_of(f.options.begin(), f.options.end(), [&](const FormatOption& x) { return x.name == name; });
        if (!known) throw ToolError("format '" + f.name + "' does not take " + name);
    }
    o.own = c.own;
    o.level = f.default_level;
    if (compressing && c.level >= 0) {
        if (c.level < f.min_level || c.level > f.max_level)
            throw ToolError("format '" + f.name + "' takes levels " + std::to_string(f.min_level) + ".." +
                            std::to_string(f.max_level));
        o.level = c.level;
    }
    return o;
}

// Runs `job` from `in_path` ("-" for stdin) into `out_path` ("" for stdout).
template <typename Job>
void run_file(const std::string& in_path, const std::string& out_path, bool force, Job job) {
    const bool from_stdin = in_path == "-";
    FILE* in = from_stdin ? stdin : std::fopen(in_path.c_str(), "rb");
    if (!in) throw ToolError(in_path + ": " + std::strerror(errno));
    uint64_t size = 0;
    struct stat st;
    if (!from_stdin && fstat(fileno(in), &st) == 0) {
        if (!S_ISREG(st.st_mode)) {
            std::fclose(in);
            throw ToolError(in_path + ": not a regular file");
        }
        size = uint64_t(st.st_size);
    }
    const std::string display = from_stdin ? "(stdin)" : in_path;
    if (out_path.empty()) {
        Input input(in, display, size);
        Output output(stdout);
        try {
            job(input, output);
        } catch (const ToolError& e) {
            if (!from_stdin) std::fclose(in);
            throw ToolError(display + ": " + e.what());
        }
        if (!from_stdin) std::fclose(in);
        if (std::fflush(stdout) != 0) throw ToolError("write error on stdout");
        return;
    }
    if (!force && fs::exists(out_path)) {
        if (!from_stdin) std::fclose(in);
        throw ToolError(out_path + " already exists; use -f to overwrite");
    }
    const fs::path final_path(out_path);
    std::string tmp_name = ".";
    tmp_name += final_path.filename().string();
    tmp_name += ".XXXXXX";
    std::string tmp = (final_path.parent_path() / tmp_name).string();
    const int fd = mkstemp(tmp.data());
    if (fd < 0) throw ToolError(out_path + ": " + std::strerror(errno));
    FILE* out = fdopen(fd, "wb");
    try {
        Input input(in, display, size);
        Output output(out);
        job(input, output);
        if (std::fflush(out) != 0 || fsync(fd) != 0) throw ToolError(std::string("write error: ") + std::strerror(errno));
    } catch (const ToolError& e) {
        std::fclose(out);
        std::remove(tmp.c_str());
        if (!from_stdin) std::fclose(in);
        throw ToolError(display + ": " + e.what());
    }
    std::fclose(out);
    if (!from_stdin) {
        std::fclose(in);
        fs::permissions(tmp, fs::status(in_path).permissions());
    }
    fs::rename(tmp, out_path);
}

int compress(const std::vector<std::string>& args) {
    const CommandLine c = parse(args);
    const Format& f = format_named(c.format.empty() ? "gzip" : c.format);
    if (!f.compress) throw ToolError("format '" + f.name + "' cannot be written");
    const Options options = options_for(f, c, true);
    for (const std::string& file : c.files) {
        const bool to_stdout = c.to_stdout || file == "-";
        run_file(file, to_stdout ? "" : file + f.suffixes.front(), c.force,
                 [&](Input& in, Output& out) { f.compress(in, out, options); });
        if (!to_stdout && !c.keep) fs::remove(file);
    }
    return 0;
}

const Format& detect(Input& in) {
    uint8_t head[16];
    const size_t n = in.peek(head, sizeof head);
    for (const auto& [name, f] : formats())
        if (f.detect && f.decompress && f.detect(head, n)) return f;
    throw ToolError("unknown format (use --format)");
}

bool ends_with(const std::string& s, const std::string& suffix) {
    return s.size() > suffix.size() && s.compare(s.size() - suffix.size(), suffix.size(), suffix) == 0;
}

int decompress(const std::vector<std::string>& args) {
    const CommandLine c = parse(args);
    const Format* chosen = c.format.empty() ? nullptr : &format_named(c.format);
    if (chosen && !chosen->decompress) throw ToolError("format '" + chosen->name + "' cannot be read");
    for (const std::string& file : c.files) {
        const bool to_stdout = c.to_stdout || file == "-";
        std::string out_path;
        if (!to_stdout) {
            for (const auto& [name, f] : formats())
                for (const std::string& suffix : f.suffixes)
                    if (f.decompress && ends_with(file, suffix)) out_path = file.substr(0, file.size() - suffix.size());
            if (out_path.empty()) throw ToolError(file + ": unknown suffix; use -c to write to stdout");
        }
        run_file(file, out_path, c.force, [&](Input& in, Output& out) {
            const Format& f = chosen ? *chosen : detect(in);
            f.decompress(in, out, options_for(f, c, false));
        });
        if (!to_stdout && !c.keep) fs::remove(file);
    }
    return 0;
}

constexpr const char* kFileUsage = "[-F FORMAT] [-l N | -1..-9] [-T N] [FORMAT OPTIONS] [-c] [-k] [-f] [FILE...|-]";
const CommandRegistrar compress_command("compress", (std::string("compress ") + kFileUsage).c_str(), compress);
const CommandRegistrar decompress_command("decompress", (std::string("decompress ") + kFileUsage).c_str(), decompress);

}  // namespace
}  // namespace nuxzo
