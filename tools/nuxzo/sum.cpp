// `nuxzo sum [-a adler32|crc32|crc32c|bzip2] [FILE...]`: prints
// "<checksum in hex> <size> <name>" per file, like cksum; no FILE or "-"
// reads standard input. Every value is the finished checksum as the formats
// store it (CRC-32C inverted at the end, as iSCSI and ext4 do).
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "nuxzo.h"
#include "tool.h"

namespace nuxzo {
namespace {

struct Algorithm {
    const char* name;
    Nux32u start;
    NuxStatus (*update)(const Nux8u* p, int len, Nux32u* v);
    Nux32u (*finish)(Nux32u v);
};

NuxStatus crc32c_update(const Nux8u* p, int len, Nux32u* v) { return nuxsCRC32C_8u(p, Nux32u(len), v); }

const Algorithm kAlgorithms[] = {
    {"adler32", 1, nuxsAdler32_8u, [](Nux32u v) { return v; }},
    {"crc32", 0, nuxsCRC32_8u, [](Nux32u v) { return v; }},
    {"crc32c", 0xFFFFFFFF, crc32c_update, [](Nux32u v) { return ~v; }},
    {"bzip2", 0, nuxsCRC32_BZ2_8u, [](Nux32u v) { return v; }},
};

// Checksums one open stream in 1 MiB pieces; false on a read error.
bool sum_stream(FILE* f, const Algorithm& a, Nux32u* value, unsigned long long* size) {
    std::vector<Nux8u> buf(1u << 20);
    Nux32u v = a.start;
    unsigned long long total = 0;
    size_t got;
    while ((got = std::fread(buf.data(), 1, buf.size(), f)) > 0) {
        if (a.update(buf.data(), int(got), &v) != NuxStatusOk) throw ToolError("sum: checksum call failed");
        total += got;
    }
    if (std::ferror(f)) return false;
    *value = a.finish(v);
    *size = total;
    return true;
}

int sum(const std::vector<std::string>& args) {
    const Algorithm* algo = &kAlgorithms[1];
    std::vector<std::string> files;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "-a") {
            if (i + 1 >= args.size()) throw ToolError("sum: -a needs adler32, crc32, crc32c or bzip2");
            algo = nullptr;
            for (const Algorithm& a : kAlgorithms)
                if (args[i + 1] == a.name) algo = &a;
            if (!algo) throw ToolError("sum: unknown algorithm " + args[i + 1]);
            ++i;
        } else {
            files.push_back(args[i]);
        }
    }
    const bool named = !files.empty();
    if (!named) files.push_back("-");
    int status = 0;
    for (const std::string& name : files) {
        const bool from_stdin = name == "-";
        FILE* f = from_stdin ? stdin : std::fopen(name.c_str(), "rb");
        if (!f) {
            std::fprintf(stderr, "nuxzo: sum: %s: %s\n", name.c_str(), std::strerror(errno));
            status = 1;
            continue;
        }
        Nux32u value = 0;
        unsigned long long size = 0;
        const bool ok = sum_stream(f, *algo, &value, &size);
        const int err = errno;
        if (!from_stdin) std::fclose(f);
        if (!ok) {
            std::fprintf(stderr, "nuxzo: sum: %s: %s\n", name.c_str(), std::strerror(err));
            status = 1;
            continue;
        }
        if (named) std::printf("%08x %llu %s\n", value, size, name.c_str());
        else std::printf("%08x %llu\n", value, size);
    }
    return status;
}

const CommandRegistrar sum_command("sum", "sum [-a adler32|crc32|crc32c|bzip2] [FILE...]", sum);

}  // namespace
}  // namespace nuxzo
