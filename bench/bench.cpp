#include "bench.h"

#include <zlib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>

#include "streams/sample_data.h"

namespace nuxbench {
namespace {

struct Registered {
    std::string name;
    int order;
    SectionFn fn;
};

std::vector<Registered>& registry() {
    static std::vector<Registered> sections;
    return sections;
}

using Clock = std::chrono::steady_clock;

// Seconds per call of c.run, measured over enough calls to last `min_time`.
double time_once(const Contender& c, double min_time, size_t* out_size) {
    size_t iters = 0;
    const auto start = Clock::now();
    double elapsed = 0;
    do {
        *out_size = c.run();
        ++iters;
        elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    } while (elapsed < min_time);
    return elapsed / double(iters);
}

std::string percent(size_t out, size_t in) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.2f%%", in ? 100.0 * double(out) / double(in) : 0.0);
    return buf;
}

}  // namespace

SectionRegistrar::SectionRegistrar(const char* name, int order, SectionFn fn) {
    registry().push_back({name, order, fn});
}

Session::Session(std::vector<Input> inputs, bool quick) : inputs_(std::move(inputs)), quick_(quick) {
    for (const auto& in : inputs_) total_.insert(total_.end(), in.data.begin(), in.data.end());
}

void Session::section(const std::string& title) { std::printf("\n== %s\n", title.c_str()); }

void Session::note(const std::string& text) { std::printf("   %s\n", text.c_str()); }

void Session::compete(const std::string& label, const std::string& input, size_t in_bytes,
                      const Contender& ours, const std::vector<Contender>& peers) {
    std::vector<const Contender*> all{&ours};
    for (const auto& p : peers) all.push_back(&p);
    std::vector<double> best(all.size(), 1e30);
    std::vector<size_t> size(all.size(), 0);
    const int rounds = quick_ ? 2 : 5;
    const double min_time = quick_ ? 0.01 : 0.05;
    for (int r = 0; r < rounds; ++r)
        for (size_t i = 0; i < all.size(); ++i)
            best[i] = std::min(best[i], time_once(*all[i], min_time, &size[i]));
    auto mbs = [&](size_t i) { return double(in_bytes) / best[i] / 1e6; };
    const bool sized = size[0] != 0;
    if (peers.empty()) {
        std::printf("  %-28s %-14s %-16s %10.1f MB/s%s\n", label.c_str(), input.c_str(),
                    ours.name.c_str(), mbs(0), sized ? ("  " + percent(size[0], in_bytes)).c_str() : "");
        return;
    }
    for (size_t i = 1; i < all.size(); ++i) {
        std::printf("  %-28s %-14s %-16s %10.1f MB/s  vs %-18s %10.1f MB/s  speed x%.2f", label.c_str(),
                    input.c_str(), ours.name.c_str(), mbs(0), all[i]->name.c_str(), mbs(i), mbs(0) / mbs(i));
        if (sized && size[i])
            std::printf("  size %s vs %s  x%.3f", percent(size[0], in_bytes).c_str(),
                        percent(size[i], in_bytes).c_str(), double(size[0]) / double(size[i]));
        std::printf("\n");
    }
    std::fflush(stdout);
}

void run_all(Session& session, const std::string& filter) {
    auto sections = registry();
    std::stable_sort(sections.begin(), sections.end(),
                     [](const auto& a, const auto& b) { return a.order < b.order; });
    const auto missing = missing_peers();
    if (!missing.empty()) {
        std::string list;
        for (const auto& m : missing) list += " " + m;
        std::printf("peers missing from this build (their rows are skipped):%s\n", list.c_str());
    }
    std::printf("inputs:");
    for (const auto& in : session.inputs()) std::printf(" %s (%zu bytes)", in.name.c_str(), in.data.size());
    std::printf("\nspeed ratio = ours/peer (above 1: we are faster); size ratio = ours/peer (below 1: we are smaller)\n");
    for (const auto& s : sections)
        if (filter.empty() || s.name.find(filter) != std::string::npos) s.fn(session);
}

std::vector<std::string> missing_peers() {
    std::vector<std::string> m;
#ifndef NUXZO_HAVE_ZLIB
    m.push_back("zlib1g-dev");
#endif
#ifndef NUXZO_HAVE_DEFLATE
    m.push_back("libdeflate-dev");
#endif
#ifndef NUXZO_HAVE_ISAL
    m.push_back("libisal-dev");
#endif
#ifndef NUXZO_HAVE_LZ4
    m.push_back("liblz4-dev");
#endif
    return m;
}

// Text: words drawn from a Zipf-like vocabulary with punctuation and line
// breaks, so that match lengths and literal statistics resemble prose.
// Binary: fixed-size records of slowly changing integers, like a table dump.
std::vector<Input> embedded_sample() {
    return {{"sample-text", nuxzo::sample::text(6u << 20, 20261122)},
            {"sample-binary", nuxzo::sample::binary(4u << 20, 20261123)},
            {"sample-records", nuxzo::sample::records(4u << 20, 20261124)}};
}

size_t zlib_raw_deflate(const Bytes& in, int level, Bytes& out) {
    z_stream z{};
    deflateInit2(&z, level, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY);
    out.resize(deflateBound(&z, uLong(in.size())) + 16);
    z.next_in = const_cast<Bytef*>(in.data());
    z.avail_in = uInt(in.size());
    z.next_out = out.data();
    z.avail_out = uInt(out.size());
    deflate(&z, Z_FINISH);
    const size_t n = z.total_out;
    deflateEnd(&z);
    return n;
}

}  // namespace nuxbench
