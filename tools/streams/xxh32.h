// xxHash-32, the checksum of the LZ4 frame format (frame descriptor, block
// and content checksums), as a streaming hasher.
//
// Four 32-bit lanes each absorb every fourth word of a 16-byte stripe
// (multiply, rotate, multiply); the digest folds the lanes, the length and
// the tail words and bytes, then avalanches.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace nuxzo {

class Xxh32 {
  public:
    explicit Xxh32(uint32_t seed = 0)
        : v_{seed + kP1 + kP2, seed + kP2, seed, seed - kP1}, seed_(seed) {}

    void update(const uint8_t* p, size_t n) {
        total_ += n;
        if (buffered_ + n < 16) {
            std::memcpy(buf_ + buffered_, p, n);
            buffered_ += n;
            return;
        }
        if (buffered_) {
            const size_t fill = 16 - buffered_;
            std::memcpy(buf_ + buffered_, p, fill);
            stripe(buf_);
            p += fill;
            n -= fill;
            buffered_ = 0;
        }
        while (n >= 16) {
            stripe(p);
            p += 16;
            n -= 16;
        }
        std::memcpy(buf_, p, n);
        buffered_ = n;
    }

    uint32_t digest() const {
        uint32_t h = total_ >= 16 ? rotl(v_[0], 1) + rotl(v_[1], 7) + rotl(v_[2], 12) + rotl(v_[3], 18)
                                  : seed_ + kP5;
        h += uint32_t(total_);
        size_t i = 0;
        for (; i + 4 <= buffered_; i += 4) h = rotl(h + read32(buf_ + i) * kP3, 17) * kP4;
        for (; i < buffered_; ++i) h = rotl(h + buf_[i] * kP5, 11) * kP1;
        h ^= h >> 15;
        h *= kP2;
        h ^= h >> 13;
        h *= kP3;
        h ^= h >> 16;
        return h;
    }

    static uint32_t of(const uint8_t* p, size_t n, uint32_t seed = 0) {
        Xxh32 x(seed);
        x.update(p, n);
        return x.digest();
    }

  private:
    static constexpr uint32_t kP1 = 0x9E3779B1u, kP2 = 0x85EBCA77u, kP3 = 0xC2B2AE3Du, kP4 = 0x27D4EB2Fu,
                              kP5 = 0x165667B1u;
    static uint32_t rotl(uint32_t x, int r) { return (x << r) | (x >> (32 - r)); }
    static uint32_t read32(const uint8_t* p) {
        uint32_t v;
        std::memcpy(&v, p, 4);
        return v;
    }
    static uint32_t round(uint32_t acc, uint32_t in) { return rotl(acc + in * kP2, 13) * kP1; }
    void stripe(const uint8_t* p) {
        for (int k = 0; k < 4; ++k) v_[k] = round(v_[k], read32(p + 4 * k));
    }

    uint32_t v_[4];
    uint32_t seed_;
    uint64_t total_ = 0;
    uint8_t buf_[16];
    size_t buffered_ = 0;
};

}  // namespace nuxzo
