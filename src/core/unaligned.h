// Unaligned little-endian loads and stores. memcpy of a fixed size compiles
// to one move and keeps the access free of alignment and aliasing UB.
#pragma once

#include <cstdint>
#include <cstring>

namespace nux {

inline uint16_t load16(const void* p) {
    uint16_t v;
    std::memcpy(&v, p, 2);
    return v;
}
inline uint32_t load32(const void* p) {
    uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
}
inline uint64_t load64(const void* p) {
    uint64_t v;
    std::memcpy(&v, p, 8);
    return v;
}
inline void store16(void* p, uint16_t v) { std::memcpy(p, &v, 2); }
inline void store32(void* p, uint32_t v) { std::memcpy(p, &v, 4); }
inline void store64(void* p, uint64_t v) { std::memcpy(p, &v, 8); }

}  // namespace nux
