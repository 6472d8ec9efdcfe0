// Tables that RFC 1951 (section 3.2.5) defines, shared by the Deflate encoder
// and the Inflate decoder. All are computed at compile time from the base and
// extra-bit rows of the RFC.
#pragma once

#include <array>
#include <cstdint>

namespace nux::rfc1951 {

inline constexpr int kNumLitLenSymbols = 286;  // 0..255 literals, 256 end, 257..285 lengths
inline constexpr int kNumDistSymbols = 30;
inline constexpr int kEndOfBlock = 256;
inline constexpr int kMinMatch = 3;
inline constexpr int kMaxMatch = 258;
inline constexpr int kWindowSize = 32768;

// Length codes 257..285, indexed by code - 257.
inline constexpr std::array<uint16_t, 29> kLengthBase = {
    3, 4, 5, 6, 7, 8, 9, 10, 11, 13, 15, 17, 19, 23, 27, 31,
    35, 43, 51, 59, 67, 83, 99, 115, 131, 163, 195, 227, 258};
inline constexpr std::array<uint8_t, 29> kLengthExtra = {
    0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};

// Distance codes 0..29.
inline constexpr std::array<uint16_t, 30> kDistBase = {
    1, 2, 3, 4, 5, 7, 9, 13, 17, 25, 33, 49, 65, 97, 129, 193,
    257, 385, 513, 769, 1025, 1537, 2049, 3073, 4097, 6145, 8193, 12289, 16385, 24577};
inline constexpr std::array<uint8_t, 30> kDistExtra = {
    0, 0, 0, 0, 1, 1, 2, 2, 3, 3, 4, 4, 5, 5, 6, 6, 7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13};

// Length code (0..28, add 257 for the symbol) by match length - 3. Length 258
// has its own code 28 although 227 + 31 would also reach it.
inline constexpr std::array<uint8_t, 256> kLengthCode = [] {
    std::array<uint8_t, 256> t{};
    for (int code = 0; code < 28; ++code)
        for (int l = kLengthBase[code]; l < kLengthBase[code] + (1 << kLengthExtra[code]) && l < 258; ++l)
            t[l - 3] = uint8_t(code);
    t[255] = 28;
    return t;
}();

// Distance code by distance: index distance - 1 for distances up to 256,
// 256 + ((distance - 1) >> 7) above (codes 16 and up span multiples of 128).
inline constexpr std::array<uint8_t, 512> kDistCode = [] {
    std::array<uint8_t, 512> t{};
    for (int code = 0; code < 30; ++code) {
        const int first = kDistBase[code], last = first + (1 << kDistExtra[code]) - 1;
        for (int d = first; d <= last; ++d) {
            if (d <= 256) t[d - 1] = uint8_t(code);
            else t[256 + ((d - 1) >> 7)] = uint8_t(code);
        }
    }
    return t;
}();

constexpr int dist_code(int distance) {
    return distance <= 256 ? kDistCode[distance - 1] : kDistCode[256 + ((distance - 1) >> 7)];
}

static_assert(kLengthCode[0] == 0 && kLengthCode[8] == 8 && kLengthCode[254] == 27 && kLengthCode[255] == 28);
static_assert(dist_code(1) == 0 && dist_code(4) == 3 && dist_code(5) == 4 && dist_code(256) == 15 &&
              dist_code(257) == 16 && dist_code(32768) == 29);

// Order in which a dynamic block header lists the code-length code lengths.
inline constexpr std::array<uint8_t, 19> kCodeLengthOrder = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5,
                                                              11, 4, 12, 3, 13, 2, 14, 1, 15};

// Fixed Huffman code lengths (block type 1): 288 literal/length, 30 distance.
constexpr int fixed_litlen_length(int symbol) {
    return symbol < 144 ? 8 : symbol < 256 ? 9 : symbol < 280 ? 7 : 8;
}
inline constexpr int kFixedDistLength = 5;

}  // namespace nux::rfc1951
