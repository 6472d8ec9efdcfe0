#include "streams/sample_data.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace nuxzo::sample {

Bytes text(size_t n, uint64_t seed) {
    std::mt19937_64 rng(seed);
    std::vector<std::string> vocab;
    for (int i = 0; i < 4000; ++i) {
        std::string w;
        const int len = 2 + int(rng() % 9);
        for (int k = 0; k < len; ++k) w += char('a' + int(rng() % 26));
        vocab.push_back(w);
    }
    Bytes out;
    out.reserve(n + 16);
    while (out.size() < n) {
        // u^3 skews the choice towards the first words, as word use is skewed.
        const double u = double(rng() % 1000000 + 1) / 1e6;
        const size_t idx = std::min<size_t>(vocab.size() - 1, size_t(std::pow(u, 3.0) * double(vocab.size())));
        out.insert(out.end(), vocab[idx].begin(), vocab[idx].end());
        const uint64_t r = rng() % 100;
        out.push_back(r < 8 ? ',' : r < 12 ? '.' : r < 14 ? '\n' : ' ');
    }
    out.resize(n);
    return out;
}

Bytes binary(size_t n, uint64_t seed) {
    std::mt19937_64 rng(seed);
    Bytes out;
    out.reserve(n + 64);
    uint32_t addr = 0x401000;
    auto put32 = [&](uint32_t v) {
        for (int k = 0; k < 4; ++k) out.push_back(uint8_t(v >> (8 * k)));
    };
    while (out.size() < n) {
        const uint64_t r = rng();
        switch (r % 8) {
            case 0:  // a table of nearby addresses
                for (int i = 0, m = 4 + int((r >> 8) % 28); i < m; ++i) put32(addr += 4 * uint32_t(1 + (rng() % 8)));
                break;
            case 1:  // zero padding to a 16-byte boundary and beyond
                out.resize(out.size() + 16 - out.size() % 16 + ((r >> 8) % 3) * 16, 0);
                break;
            case 2:  // an earlier stretch again: a repeated code sequence
                if (out.size() > 64) {
                    const size_t len = 8 + (r >> 8) % 120, from = (r >> 20) % (out.size() - 8);
                    for (size_t i = 0; i < len; ++i) out.push_back(out[from + i]);
                }
                break;
            default: {  // instructions: a few common opcodes with operands
                static const uint8_t kOps[] = {0x48, 0x89, 0x8b, 0xe8, 0x0f, 0x85, 0xc3, 0x55, 0x41, 0x83};
                const int m = 2 + int((r >> 8) % 6);
                for (int i = 0; i < m; ++i) out.push_back(kOps[(r >> (12 + 4 * i)) % std::size(kOps)]);
                if (r & (uint64_t(1) << 40)) put32(uint32_t(rng() % 4096));
                else out.push_back(uint8_t(r >> 48));
            }
        }
    }
    out.resize(n);
    return out;
}

Bytes records(size_t n, uint64_t seed) {
    std::mt19937_64 rng(seed);
    Bytes out;
    out.reserve(n + 16);
    uint32_t id = 1000, price = 50000, stamp = 1700000000;
    while (out.size() < n) {
        id += 1;
        price += uint32_t(rng() % 200) - 100;
        stamp += uint32_t(rng() % 60);
        const uint32_t fields[4] = {id, price, stamp, uint32_t(rng() % 16)};
        for (uint32_t f : fields)
            for (int k = 0; k < 4; ++k) out.push_back(uint8_t(f >> (8 * k)));
    }
    out.resize(n);
    return out;
}

Bytes runs(size_t n, uint64_t seed) {
    std::mt19937_64 rng(seed);
    Bytes out;
    out.reserve(n);
    while (out.size() < n) {
        const uint64_t r = rng();
        const uint8_t byte = (r & 3) ? uint8_t(r >> 8) : 0;
        if ((r >> 16) % 16 == 0) {
            // A short period repeated many times.
            const size_t period = 2 + (r >> 24) % 6, len = 100 + (r >> 32) % 5000;
            const size_t start = out.size();
            for (size_t i = 0; i < period && out.size() < n; ++i) out.push_back(uint8_t(rng()));
            while (out.size() < n && out.size() - start < len) out.push_back(out[out.size() - period]);
        } else {
            // Run lengths spread over every scale: 1..~100000.
            const size_t len = size_t(std::exp2(double((r >> 24) % 1700) / 100.0));
            out.insert(out.end(), std::min(len, n - out.size()), byte);
        }
    }
    return out;
}

Bytes noise(size_t n, uint64_t seed) {
    std::mt19937_64 rng(seed);
    Bytes out(n);
    for (auto& b : out) b = uint8_t(rng());
    return out;
}

std::vector<Named> all_kinds(size_t n, uint64_t seed) {
    return {{"text", text(n, seed)},
            {"binary", binary(n, seed + 1)},
            {"records", records(n, seed + 2)},
            {"runs", runs(n, seed + 3)},
            {"noise", noise(n, seed + 4)}};
}

}  // namespace nuxzo::sample
