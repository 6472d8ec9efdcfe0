// The LZ4 frame format in the nuxzo tool: `compress -F lz4 [--linked]` and
// decompression of .lz4 files, streaming with bounded memory.
//
// Frame layout (little-endian): magic 0x184D2204; the descriptor (FLG, BD,
// optional 8-byte content size, optional 4-byte dictionary ID) closed by
// the header checksum byte (xxh32(descriptor) >> 8) & 0xFF; blocks, each a
// 4-byte size word (high bit: stored uncompressed; 0: end mark), the data
// and an optional xxh32 of the data; after the end mark an optional xxh32 of
// the whole content. Skippable frames (magic 0x184D2A50..5F, 4-byte size)
// carry no content. A file may hold any number of frames back to back.
//
// FLG: bits 7-6 version (01), bit 5 independent blocks, bit 4 block
// checksums, bit 3 content size, bit 2 content checksum, bit 1 reserved,
// bit 0 dictionary ID. BD: bits 6-4 maximum block size (4: 64 KiB, 5:
// 256 KiB, 6: 1 MiB, 7: 4 MiB); all other bits reserved and zero.
#include <algorithm>
#include <cstring>
#include <vector>

#include "nuxzo.h"
#include "tool.h"
#include "streams/xxh32.h"

namespace nuxzo {
namespace {

constexpr uint32_t kFrameMagic = 0x184D2204u;
constexpr uint32_t kSkippableMask = 0xFFFFFFF0u, kSkippableMagic = 0x184D2A50u;
constexpr uint32_t kUncompressedBit = 0x80000000u;
// Linked blocks may refer up to 64 KiB back, into earlier blocks.
constexpr size_t kHistory = 64 * 1024;
constexpr size_t kWriteBlock = size_t(4) << 20;

uint32_t get32(const uint8_t* p) { return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24; }
void put32(uint8_t* p, uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = uint8_t(v >> (8 * i));
}

size_t read_full(Input& in, uint8_t* buf, size_t n) {
    size_t got = 0;
    while (got < n) {
        const size_t r = in.read(buf + got, n - got);
        if (r == 0) break;
        got += r;
    }
    return got;
}

void write32(Output& out, uint32_t v) {
    uint8_t b[4];
    put32(b, v);
    out.write(b, 4);
}

// ---- writing ----------------------------------------------------------------

void compress(Input& in, Output& out, const Options& options) {
    const bool linked = options.flag("--linked");
    uint8_t header[7];
    put32(header, kFrameMagic);
    header[4] = uint8_t(0x40 | (linked ? 0 : 0x20) | 0x04);  // version 01, content checksum
    header[5] = 0x70;                                        // 4 MiB blocks
    header[6] = uint8_t(Xxh32::of(header + 4, 2) >> 8);
    out.write(header, sizeof header);

    // Linked blocks are encoded after up to 64 KiB of the previous input, in
    // the same buffer, so that the dictionary encoder reads it as a prefix.
    std::vector<uint8_t> buf(kHistory + kWriteBlock);
    std::vector<uint8_t> coded(kWriteBlock + kWriteBlock / 255 + 16);
    alignas(8) Nux8u table[16384];
    Xxh32 content;
    size_t history = 0;
    for (;;) {
        uint8_t* const block = buf.data() + history;
        const size_t n = read_full(in, block, kWriteBlock);
        if (n == 0) break;
        content.update(block, n);
        int len = 0;
        NuxStatus st;
        if (linked) {
            st = nuxsEncodeLZ4DictHashTableInit_8u(table, int(n));
            if (st == NuxStatusOk && history > 0) st = nuxsEncodeLZ4LoadDict_8u(table, buf.data(), int(history));
            if (st == NuxStatusOk)
                st = nuxsEncodeLZ4Dict_8u(block, int(history), int(n), coded.data(), &len, table, buf.data(),
                                          int(history));
        } else {
            st = nuxsEncodeLZ4_8u(block, int(n), coded.data(), &len, table);
        }
        if (st != NuxStatusOk) throw ToolError("LZ4 encoder failed with status " + std::to_string(st));
        if (size_t(len) < n) {
            write32(out, uint32_t(len));
            out.write(coded.data(), size_t(len));
        } else {
            write32(out, uint32_t(n) | kUncompressedBit);
            out.write(block, n);
        }
        if (linked) {
            const size_t keep = std::min(kHistory, history + n);
            std::memmove(buf.data(), block + n - keep, keep);
            history = keep;
        }
    }
    write32(out, 0);  // end mark
    write32(out, content.digest());
}

// ---- reading ----------------------------------------------------------------

bool detect(const uint8_t* head, size_t n) {
    if (n < 4) return false;
    const uint32_t magic = get32(head);
    return magic == kFrameMagic || (magic & kSkippableMask) == kSkippableMagic;
}

// Decodes one frame whose magic has been read (at `start`).
void decode_frame(Input& in, Output& out, uint64_t start) {
    uint8_t desc[15];
    in.read_exact(desc, 2);
    const uint8_t flg = desc[0], bd = desc[1];
    if ((flg >> 6) != 1) throw DataError(start + 4, "unsupported LZ4 frame version " + std::to_string(flg >> 6));
    if (flg & 0x02) throw DataError(start + 4, "unknown LZ4 frame descriptor flag (reserved bit 1 set)");
    if (bd & 0x8F) throw DataError(start + 5, "unknown LZ4 block descriptor bits");
    const unsigned size_code = (bd >> 4) & 7;
    if (size_code < 4) throw DataError(start + 5, "invalid LZ4 maximum block size code " + std::to_string(size_code));
    if (flg & 0x01) throw DataError(start + 4, "LZ4 frame needs a dictionary (dictionary ID set)");
    const bool independent = flg & 0x20, block_sums = flg & 0x10, has_size = flg & 0x08, content_sum = flg & 0x04;
    size_t desc_len = 2;
    if (has_size) {
        in.read_exact(desc + desc_len, 8);
        desc_len += 8;
    }
    uint8_t hc;
    in.read_exact(&hc, 1);
    if (hc != uint8_t(Xxh32::of(desc, desc_len) >> 8))
        throw DataError(start + 4 + desc_len, "LZ4 frame header checksum mismatch");
    uint64_t expected_size = 0;
    for (int i = 7; has_size && i >= 0; --i) expected_size = expected_size << 8 | desc[2 + i];

    const size_t block_max = size_t(1) << (8 + 2 * size_code);
    // Output is decoded behind up to 64 KiB of earlier output; for linked
    // blocks that history is the dictionary, read in place as a prefix.
    std::vector<uint8_t> buf(kHistory + block_max);
    std::vector<uint8_t> coded(block_max);
    size_t history = 0;
    Xxh32 content;
    uint64_t total = 0;
    for (;;) {
        const uint64_t at = in.offset();
        uint8_t w[4];
        in.read_exact(w, 4);
        const uint32_t word = get32(w);
        if (word == 0) break;
        const size_t size = word & ~kUncompressedBit;
        if (size > block_max) throw DataError(at, "LZ4 block larger than the frame's maximum block size");
        in.read_exact(coded.data(), size);
        if (block_sums) {
            in.read_exact(w, 4);
            if (get32(w) != Xxh32::of(coded.data(), size)) throw DataError(at, "LZ4 block checksum mismatch");
        }
        uint8_t* const dst = buf.data() + history;
        size_t produced;
        if (word & kUncompressedBit) {
            std::memcpy(dst, coded.data(), size);
            produced = size;
        } else {
            int src_len = int(size), dst_len = int(block_max);
            const NuxStatus st =
                independent || history == 0
                    ? nuxsDecodeLZ4Dict_8u(coded.data(), &src_len, dst, 0, &dst_len, nullptr, 0)
                    : nuxsDecodeLZ4Dict_8u(coded.data(), &src_len, buf.data(), int(history), &dst_len, buf.data(),
                                           int(history));
            if (st != NuxStatusOk || size_t(src_len) != size)
                throw DataError(at, st == NuxStatusDataErr  ? "LZ4 block refers before the start of its history"
                                    : st == NuxStatusDstFull ? "LZ4 block decodes to more than the maximum block size"
                                                             : "LZ4 block is truncated or malformed");
            produced = size_t(dst_len);
        }
        out.write(dst, produced);
        content.update(dst, produced);
        total += produced;
        const size_t keep = std::min(kHistory, history + produced);
        std::memmove(buf.data(), dst + produced - keep, keep);
        history = keep;
    }
    if (has_size && total != expected_size) throw DataError(in.offset(), "LZ4 frame content size mismatch");
    if (content_sum) {
        const uint64_t at = in.offset();
        uint8_t w[4];
        in.read_exact(w, 4);
        if (get32(w) != content.digest()) throw DataError(at, "LZ4 content checksum mismatch");
    }
}

void decompress(Input& in, Output& out, const Options&) {
    bool first = true;
    for (;;) {
        const uint64_t start = in.offset();
        uint8_t m[4];
        const size_t got = read_full(in, m, 4);
        if (got == 0 && !first) return;
        if (got < 4) throw DataError(start, "truncated LZ4 frame magic");
        const uint32_t magic = get32(m);
        if ((magic & kSkippableMask) == kSkippableMagic) {
            in.read_exact(m, 4);
            std::vector<uint8_t> skip(64 * 1024);
            for (uint64_t left = get32(m); left > 0;) {
                const size_t n = size_t(std::min<uint64_t>(left, skip.size()));
                in.read_exact(skip.data(), n);
                left -= n;
            }
        } else if (magic == kFrameMagic) {
            decode_frame(in, out, start);
        } else {
            throw DataError(start, "not an LZ4 frame (bad magic number)");
        }
        first = false;
    }
}

const FormatRegistrar lz4_format({.name = "lz4", .suffixes = {".lz4"}, .min_level = 1, .max_level = 1,
                                  .default_level = 1,
                                  .options = {{"--linked", false, "blocks refer back into the previous 64 KiB"}},
                                  .detect = detect, .compress = compress, .decompress = decompress});

}  // namespace
}  // namespace nuxzo
