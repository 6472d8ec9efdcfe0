// `nuxzo compress` and `nuxzo decompress`: gzip-like file handling around the
// registered formats. Output goes to a temporary file that is renamed into
// place only when the whole job succeeded, so a failure never leaves a
// partial file under the final name.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "registry.h"

namespace nuxzo {
namespace {

namespace fs = std::filesystem;

struct FileOptions {
    bool to_stdout = false, keep = false, force = false;
    std::string format;
    std::vector<std::string> files;
};

// Parses the options common to both commands; `extra` handles the rest and
// returns the number of arguments it used (0: unknown option).
template <typename Extra>
FileOptions parse(const std::vector<std::string>& args, Extra extra) {
    FileOptions o;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        auto value = [&]() -> const std::string& {
            if (i + 1 >= args.size()) throw ToolError("option " + a + " needs a value");
            return args[++i];
        };
        if (a == "-c" || a == "--stdout") o.to_stdout = true;
        else if (a == "-k" || a == "--keep") o.keep = true;
        else if (a == "-f" || a == "--force") o.force = true;
        else if (a == "-F" || a == "--format") o.format = value();
        else if (a.rfind("--format=", 0) == 0) o.format = a.substr(9);
        else if (a == "-" || a[0] != '-') o.files.push_back(a);
        else if (size_t used = extra(args, i); used > 0) i += used - 1;
        else throw ToolError("unknown option " + a);
    }
    if (o.files.empty()) o.files.push_back("-");
    return o;
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
    CompressOptions copt;
    FileOptions o = parse(args, [&](const std::vector<std::string>& a, size_t i) -> size_t {
        const std::string& s = a[i];
        if ((s == "-l" || s == "--level") && i + 1 < a.size()) {
            char* end = nullptr;
            const long level = std::strtol(a[i + 1].c_str(), &end, 10);
            if (*end || level < 0 || level > 29) throw ToolError("level must be 0..29");
            copt.level = int(level);
            return 2;
        }
        if (s.size() == 2 && s[1] >= '1' && s[1] <= '9') {
            copt.level = s[1] - '0';
            return 1;
        }
        if (s == "--linked") {
            copt.linked = true;
            return 1;
        }
        return 0;
    });
    const Format& f = format_named(o.format.empty() ? "gzip" : o.format);
    if (!f.compress) throw ToolError("format '" + f.name + "' cannot be written yet");
    for (const std::string& file : o.files) {
        const bool to_stdout = o.to_stdout || file == "-";
        run_file(file, to_stdout ? "" : file + f.suffix, o.force,
                 [&](Input& in, Output& out) { f.compress(in, out, copt); });
        if (!to_stdout && !o.keep) fs::remove(file);
    }
    return 0;
}

const Format& detect(Input& in) {
    uint8_t head[16];
    const size_t n = in.peek(head, sizeof head);
    for (const auto& [name, f] : formats())
        if (f.detect && f.detect(head, n)) return f;
    throw ToolError("unknown format (use --format)");
}

int decompress(const std::vector<std::string>& args) {
    FileOptions o = parse(args, [](const std::vector<std::string>&, size_t) -> size_t { return 0; });
    const Format* chosen = o.format.empty() ? nullptr : &format_named(o.format);
    if (chosen && !chosen->decompress) throw ToolError("format '" + chosen->name + "' cannot be read yet");
    for (const std::string& file : o.files) {
        const bool to_stdout = o.to_stdout || file == "-";
        std::string out_path;
        if (!to_stdout) {
            for (const auto& [name, f] : formats()) {
                const std::string& suf = f.suffix;
                if (f.decompress && file.size() > suf.size() && file.compare(file.size() - suf.size(), suf.size(), suf) == 0)
                    out_path = file.substr(0, file.size() - suf.size());
            }
            if (out_path.empty()) throw ToolError(file + ": unknown suffix; use -c to write to stdout");
        }
        run_file(file, out_path, o.force, [&](Input& in, Output& out) {
            const Format& f = chosen ? *chosen : detect(in);
            if (!f.decompress) throw ToolError("format '" + f.name + "' cannot be read yet");
            f.decompress(in, out);
        });
        if (!to_stdout && !o.keep) fs::remove(file);
    }
    return 0;
}

const CommandRegistrar compress_command(
    "compress",
    "compress [-F gzip|zlib|deflate|lz4] [-l 0..29 | -1..-9] [--linked] [-c] [-k] [-f] [FILE...|-]", compress);
const CommandRegistrar decompress_command("decompress", "decompress [-F FORMAT] [-c] [-k] [-f] [FILE...|-]",
                                          decompress);

}  // namespace
}  // namespace nuxzo
