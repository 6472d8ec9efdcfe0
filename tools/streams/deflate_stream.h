// A raw Deflate (RFC 1951) stream writer built on the library's public API,
// the way an application would use it. Header-only so that the tool, the
// benchmark, the tests and the fuzz target run the very same code.
//
// Data flow: the parser always sees the last 32 KiB of already-parsed bytes
// directly in front of the first unparsed byte, so the window pointer passed
// to it is the input pointer itself and every match into history is a plain
// backwards pointer. Small writes are appended to one buffer that keeps that
// history. A large write is parsed where the caller holds it: only its first
// bytes go through the buffer, until the parse is more than a window into
// it; the unparsed rest and its history are copied back at the end. The
// parser fills symbol arrays and the frequency tables; when the symbol
// arrays are full (or the stream ends) the block is written: length-limited
// Huffman codes are built from the frequencies, and the cheapest of a
// dynamic, a fixed and a stored block is chosen by exact bit count.
//
// Memory is bounded (about 1.6 MiB whatever the input size).
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <span>
#include <stdexcept>
#include <vector>

#include "nuxzo.h"

namespace nuxzo::deflate_stream {

inline constexpr int kNumLitLen = 286, kNumDist = 30, kNumCodeLen = 19;
inline constexpr int kMaxCodeBits = 15, kMaxCodeLenBits = 7;

// RFC 1951 3.2.5 extra-bit counts, as the block-cost estimate needs them.
inline constexpr uint8_t kLenExtra[29] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2,
                                          2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};
inline constexpr uint8_t kDistExtra[30] = {0, 0, 0, 0, 1, 1, 2, 2,  3,  3,  4,  4,  5,  5,  6,
                                           6, 7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13};
inline constexpr uint8_t kCodeLenOrder[19] = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};

// Huffman code lengths for `n` symbols with frequencies `freq`, none longer
// than `limit`. Unused symbols get length 0. The code is always complete
// (Kraft sum exactly 1): with fewer than two used symbols a second symbol is
// given a code too, since decoders reject incomplete or single-code sets.
//
// The tree is built by the two-queue method over the symbols sorted by
// frequency. Over-long codes are then limited the usual way: clamp every
// depth to `limit`, and while the Kraft sum exceeds one, move a leaf from
// the deepest level up by splitting the deepest shorter leaf. Lengths are
// finally handed out by frequency rank, so the order of the symbols is kept.
inline void build_lengths(const uint32_t* freq, int n, int limit, uint8_t* lens) {
    constexpr int kMaxSymbols = 288;
    if (n > kMaxSymbols) throw std::invalid_argument("too many symbols for a Deflate code");
    std::fill(lens, lens + n, uint8_t(0));
    // Used symbols by ascending frequency, ties in symbol order: a stable
    // radix sort, one pass per byte of frequency that any symbol uses.
    int syms[kMaxSymbols], spare[kMaxSymbols];
    int m = 0;
    uint32_t all = 0;
    for (int s = 0; s < n; ++s) {
        if (freq[s]) syms[m++] = s;
        all |= freq[s];
    }
    if (m < 2) {
        const int a = m ? syms[0] : 0;
        lens[a] = 1;
        lens[a == 0 ? 1 : 0] = 1;
        return;
    }
    for (int shift = 0; shift < 32 && (all >> shift) != 0; shift += 8) {
        int start[257] = {};
        for (int k = 0; k < m; ++k) ++start[((freq[syms[k]] >> shift) & 0xFF) + 1];
        for (int b = 0; b < 256; ++b) start[b + 1] += start[b];
        for (int k = 0; k < m; ++k) spare[start[(freq[syms[k]] >> shift) & 0xFF]++] = syms[k];
        std::copy(spare, spare + m, syms);
    }
    uint64_t weight[2 * kMaxSymbols];
    int parent[2 * kMaxSymbols];
    for (int k = 0; k < m; ++k) weight[k] = freq[syms[k]];
    int leaf = 0, inner = m;
    auto take = [&](int made) {
        if (leaf < m && (inner >= made || weight[leaf] <= weight[inner])) return leaf++;
        return inner++;
    };
    for (int made = m; made < 2 * m - 1; ++made) {
        const int a = take(made), b = take(made);
        weight[made] = weight[a] + weight[b];
        parent[a] = parent[b] = made;
    }
    int depth[2 * kMaxSymbols];
    depth[2 * m - 2] = 0;
    int count[64] = {};
    for (int k = 2 * m - 3; k >= 0; --k) depth[k] = depth[parent[k]] + 1;
    for (int k = 0; k < m; ++k) ++count[std::min(depth[k], limit)];
    uint64_t kraft = 0;
    for (int d = 1; d <= limit; ++d) kraft += uint64_t(count[d]) << (limit - d);
    while (kraft > (uint64_t(1) << limit)) {
        --count[limit];
        for (int d = limit - 1; d >= 1; --d) {
            if (count[d]) {
                --count[d];
                count[d + 1] += 2;
                break;
            }
        }
        --kraft;
    }
    // Least frequent symbols (front of `syms`) take the longest codes.
    int k = 0;
    for (int d = limit; d >= 1; --d)
        for (int c = 0; c < count[d]; ++c) lens[syms[k++]] = uint8_t(d);
}

// Canonical codes (RFC 1951 3.2.2), bit-reversed for LSB-first output.
inline void assign_codes(const uint8_t* lens, int n, NuxDeflateCode* codes) {
    int count[16] = {}, next[16] = {};
    for (int s = 0; s < n; ++s) ++count[lens[s]];
    count[0] = 0;
    for (int b = 1, code = 0; b < 16; ++b) {
        code = (code + count[b - 1]) << 1;
        next[b] = code;
    }
    for (int s = 0; s < n; ++s) {
        const int len = lens[s];
        uint32_t c = len ? uint32_t(next[len]++) : 0, r = 0;
        for (int b = 0; b < len; ++b, c >>= 1) r = (r << 1) | (c & 1);
        codes[s] = {uint16_t(r), uint16_t(len)};
    }
}

// Run-length coding of the code lengths of a dynamic header (RFC 1951
// 3.2.7): 16 repeats the previous length 3..6 times, 17 and 18 give 3..10
// and 11..138 zeros. Each item is a symbol and its extra-bit value; there
// are at most n of them. Returns their number.
struct LenRun {
    uint8_t sym, extra;
};
inline int run_length_code(const uint8_t* lens, int n, LenRun* items) {
    LenRun* out = items;
    for (int i = 0; i < n;) {
        const uint8_t v = lens[i];
        int run = 1;
        while (i + run < n && lens[i + run] == v) ++run;
        i += run;
        if (v == 0) {
            while (run >= 11) {
                const int r = std::min(run, 138);
                *out++ = {18, uint8_t(r - 11)};
                run -= r;
            }
            if (run >= 3) {
                *out++ = {17, uint8_t(run - 3)};
                run = 0;
            }
        } else {
            *out++ = {v, 0};
            --run;
            while (run >= 3) {
                const int r = std::min(run, 6);
                *out++ = {16, uint8_t(r - 3)};
                run -= r;
            }
        }
        for (; run > 0; --run) *out++ = {v, 0};
    }
    return int(out - items);
}

class RawWriter {
  public:
    using Sink = std::function<void(const uint8_t*, size_t)>;

    static constexpr uint32_t kWindow = 32768, kHashSize = 65536;
    static constexpr size_t kChunk = 1 << 20;       // input bytes buffered beyond the history
    // Symbols per block: small enough to follow changing statistics and to
    // keep every 16-bit count from overflowing.
    static constexpr uint32_t kBlockSymbols = 16383;
    // A block whose raw bytes exceed this is never stored: a fixed-code
    // block costs at most 31 bits per symbol (8-bit length code, 5 extra
    // bits, 5-bit distance code, 13 extra bits) plus 10 bits, and a stored
    // block 8 bits per byte. So only shorter blocks need their bytes kept.
    static constexpr size_t kStoredMax = 65536;
    static_assert(uint64_t(kBlockSymbols) * 31 + 10 < 8 * uint64_t(kStoredMax));
    // Bytes the parser keeps unparsed without flush: the longest match plus
    // the three bytes that hashing its last position reads (RFC 1951: at most
    // 258 bytes per match).
    static constexpr size_t kLookahead = 258 + 3;
    // Writes from this size on are parsed in the caller's buffer. The part
    // copied first takes the parse beyond one window and kStoredMax into it,
    // so that the history lies in the caller's bytes and an older block is
    // too long to be stored.
    static constexpr size_t kInPlaceLead = kStoredMax + kLookahead, kInPlaceMin = 4 * kStoredMax;
    static_assert(kStoredMax >= kWindow);

    RawWriter(int level, Sink sink, const uint8_t* dict = nullptr, size_t dict_len = 0)
        : level_(uint32_t(level)), sink_(std::move(sink)), buf_(kWindow + kChunk), head_(kHashSize, -32768),
          chain_(kWindow, -32768), lit_(kBlockSymbols), dist_(kBlockSymbols) {
        if (level < 0 || level > 29) throw std::invalid_argument("Deflate level must be 0..29");
        out_.resize(size_t(kBlockSymbols) * 6 + 1024);
        reset_stats();
        if (dict && dict_len >= 4) {
            // The single-probe levels hash with the shift hash, which the
            // loader uses for level 0 only.
            const int dict_level = level % 10 == 0 ? 0 : level;
            const size_t n = std::min<size_t>(dict_len, kWindow);
            nuxsDeflateDictionarySet_8u(dict, int(std::min<size_t>(dict_len, 1 << 30)), head_.data(), kHashSize,
                                        chain_.data(), buf_.data(), kWindow, dict_level);
            start_ = end_ = block_start_ = n;
            pos_ = uint32_t(n);
        }
    }

    void write(const uint8_t* data, size_t n) {
        while (n > 0) {
            const bool large = n >= kInPlaceMin;
            if (buf_.size() - end_ < (large ? kInPlaceLead : 1)) compact();
            const size_t take = std::min({n, buf_.size() - end_, large ? kInPlaceLead : n});
            const size_t data_at = end_;
            std::memcpy(buf_.data() + end_, data, take);
            end_ += take;
            parse(0);
            if (large && start_ > data_at + kStoredMax) return parse_in_place(data, n, data_at);
            data += take;
            n -= take;
        }
    }

    // Parses the rest, writes the final block and pads to a byte boundary.
    void finish() {
        parse(2);
        emit_block(true);
        if (bit_count_) out_[out_len_++] = uint8_t(bit_buf_);
        bit_buf_ = 0, bit_count_ = 0;
        drain();
    }

  private:
    void reset_stats() {
        std::memset(lit_freq_, 0, sizeof lit_freq_);
        std::memset(dist_freq_, 0, sizeof dist_freq_);
        symbols_ = 0;
    }

    // The first byte still needed: 32 KiB before the first unparsed one, or
    // the block start while the block may still be stored.
    size_t keep_from() const {
        const size_t history = start_ > kWindow ? start_ - kWindow : 0;
        return block_bytes() < kStoredMax ? std::min(history, block_start_) : history;
    }

    // Offsets now count from `first` of the old ones.
    void drop_front(size_t first) { start_ -= first, end_ -= first, block_start_ -= first; }

    size_t block_bytes() const { return start_ - block_start_; }

    void compact() {
        const size_t keep = keep_from();
        std::memmove(buf_.data(), buf_.data() + keep, end_ - keep);
        drop_front(keep);
    }

    // The buffer holds data[0..) from data_at on, parsed up to start_; the
    // parse goes on in `data`, and what the next call needs moves back.
    void parse_in_place(const uint8_t* data, size_t n, size_t data_at) {
        drop_front(data_at);
        end_ = n;
        src_ = data;
        parse(0);
        const size_t keep = keep_from();
        std::memcpy(buf_.data(), data + keep, n - keep);
        drop_front(keep);
        src_ = buf_.data();
    }

    void parse(int flush) {
        for (;;) {
            const uint8_t* p = src_ + start_;
            uint32_t len = uint32_t(end_ - start_), slots = kBlockSymbols - symbols_;
            nuxsDeflateLZ77_8u(&p, &len, &pos_, p, kWindow, head_.data(), chain_.data(), kHashSize, lit_freq_,
                               dist_freq_, lit_.data() + symbols_, dist_.data() + symbols_, &slots, level_, flush);
            const size_t used = size_t(p - (src_ + start_));
            start_ += used;
            symbols_ = kBlockSymbols - slots;
            if (slots == 0) {
                emit_block(false);
                continue;
            }
            // The lazy parser stops with one slot left (it needs two for a
            // deferred decision), so only a call that consumed nothing means
            // that the lookahead ran out.
            if (used == 0 || start_ == end_) return;
        }
    }

    void put_bits(uint32_t v, unsigned n) {
        uint32_t acc = bit_buf_ | (v << bit_count_);
        bit_count_ += n;
        while (bit_count_ >= 8) {
            out_[out_len_++] = uint8_t(acc);
            acc >>= 8;
            bit_count_ -= 8;
        }
        bit_buf_ = uint16_t(acc);
    }

    void ensure_out(size_t more) {
        if (out_len_ + more > out_.size()) out_.resize(out_len_ + more);
    }

    void drain() {
        if (out_len_) sink_(out_.data(), out_len_);
        out_len_ = 0;
    }

    void emit_block(bool final) {
        uint32_t lf[kNumLitLen], df[kNumDist];
        for (int s = 0; s < kNumLitLen; ++s) lf[s] = lit_freq_[s].code;
        for (int s = 0; s < kNumDist; ++s) df[s] = dist_freq_[s].code;
        lf[256] = 1;
        if (!final && symbols_ == 0) return;

        uint8_t lens[kNumLitLen + kNumDist];
        build_lengths(lf, kNumLitLen, kMaxCodeBits, lens);
        build_lengths(df, kNumDist, kMaxCodeBits, lens + kNumLitLen);
        int hlit = kNumLitLen, hdist = kNumDist;
        while (hlit > 257 && lens[hlit - 1] == 0) --hlit;
        while (hdist > 1 && lens[kNumLitLen + hdist - 1] == 0) --hdist;
        uint8_t packed[kNumLitLen + kNumDist];
        std::memcpy(packed, lens, size_t(hlit));
        std::memcpy(packed + hlit, lens + kNumLitLen, size_t(hdist));
        LenRun runs[kNumLitLen + kNumDist];
        const int num_runs = run_length_code(packed, hlit + hdist, runs);
        uint32_t cf[kNumCodeLen] = {};
        for (int k = 0; k < num_runs; ++k) ++cf[runs[k].sym];
        uint8_t cl[kNumCodeLen];
        build_lengths(cf, kNumCodeLen, kMaxCodeLenBits, cl);
        int hclen = kNumCodeLen;
        while (hclen > 4 && cl[kCodeLenOrder[hclen - 1]] == 0) --hclen;

        // Exact sizes in bits of the three block kinds.
        uint64_t extra = 0, dyn = 17 + 3 * uint64_t(hclen), fixed = 3;
        for (int s = 257; s < kNumLitLen; ++s) extra += uint64_t(lf[s]) * kLenExtra[s - 257];
        for (int s = 0; s < kNumDist; ++s) extra += uint64_t(df[s]) * kDistExtra[s];
        for (int s = 0; s < kNumCodeLen; ++s) dyn += uint64_t(cf[s]) * cl[s];
        dyn += 2 * uint64_t(cf[16]) + 3 * uint64_t(cf[17]) + 7 * uint64_t(cf[18]);
        for (int s = 0; s < kNumLitLen; ++s) {
            dyn += uint64_t(lf[s]) * lens[s];
            fixed += uint64_t(lf[s]) * uint64_t(s < 144 ? 8 : s < 256 ? 9 : s < 280 ? 7 : 8);
        }
        for (int s = 0; s < kNumDist; ++s) {
            dyn += uint64_t(df[s]) * lens[kNumLitLen + s];
            fixed += uint64_t(df[s]) * 5;
        }
        dyn += extra, fixed += extra;
        const size_t raw = block_bytes(), stored_room = raw < kStoredMax ? raw + raw / 65535 * 5 : 0;
        uint64_t stored = UINT64_MAX;
        if (raw < kStoredMax) {
            const uint64_t pieces = std::max<uint64_t>(1, (raw + 65534) / 65535);
            stored = (bit_count_ + 3 + 7) / 8 * 8 - bit_count_ + 32 + (pieces - 1) * 40 + 8 * uint64_t(raw);
        }

        ensure_out(std::max<size_t>(size_t(symbols_) * 6, stored_room) + 1024);
        if (stored <= dyn && stored <= fixed) {
            write_stored(src_ + block_start_, raw, final);
        } else if (fixed <= dyn) {
            put_bits(final ? 3 : 2, 3);
            static const std::vector<NuxDeflateCode> fixed_codes = [] {
                uint8_t l[288 + 30];
                for (int s = 0; s < 288; ++s) l[s] = uint8_t(s < 144 ? 8 : s < 256 ? 9 : s < 280 ? 7 : 8);
                std::fill(l + 288, l + 318, uint8_t(5));
                std::vector<NuxDeflateCode> c(318);
                assign_codes(l, 288, c.data());
                assign_codes(l + 288, 30, c.data() + 288);
                return c;
            }();
            code_body(fixed_codes.data(), fixed_codes.data() + 288);
        } else {
            put_bits(final ? 5 : 4, 3);
            put_bits(uint32_t(hlit - 257), 5);
            put_bits(uint32_t(hdist - 1), 5);
            put_bits(uint32_t(hclen - 4), 4);
            for (int k = 0; k < hclen; ++k) put_bits(cl[kCodeLenOrder[k]], 3);
            NuxDeflateCode clc[kNumCodeLen];
            assign_codes(cl, kNumCodeLen, clc);
            static constexpr uint8_t kRunExtraBits[3] = {2, 3, 7};
            for (const LenRun& r : std::span(runs, size_t(num_runs))) {
                put_bits(clc[r.sym].code, clc[r.sym].len);
                if (r.sym >= 16) put_bits(r.extra, kRunExtraBits[r.sym - 16]);
            }
            NuxDeflateCode codes[kNumLitLen + kNumDist];
            assign_codes(lens, kNumLitLen, codes);
            assign_codes(lens + kNumLitLen, kNumDist, codes + kNumLitLen);
            code_body(codes, codes + kNumLitLen);
        }
        block_start_ = start_;
        reset_stats();
        drain();
    }

    void code_body(const NuxDeflateCode* ll, const NuxDeflateCode* dc) {
        uint32_t pos = uint32_t(out_len_), count = bit_count_;
        nuxsDeflateHuff_8u(lit_.data(), dist_.data(), symbols_, &bit_buf_, &count, ll, dc, out_.data(), &pos);
        out_len_ = pos;
        bit_count_ = count;
        put_bits(ll[256].code, ll[256].len);
    }

    void write_stored(const uint8_t* data, size_t n, bool final) {
        do {
            const size_t piece = std::min<size_t>(n, 65535);
            n -= piece;
            put_bits(final && n == 0 ? 1 : 0, 3);
            if (bit_count_) put_bits(0, 8 - bit_count_);
            const uint8_t hdr[4] = {uint8_t(piece), uint8_t(piece >> 8), uint8_t(~piece), uint8_t(~piece >> 8)};
            std::memcpy(out_.data() + out_len_, hdr, 4);
            std::memcpy(out_.data() + out_len_ + 4, data, piece);
            out_len_ += 4 + piece;
            data += piece;
        } while (n > 0);
    }

    uint32_t level_;
    Sink sink_;
    std::vector<uint8_t> buf_;
    const uint8_t* src_ = buf_.data();  // where the offsets below point: buf_, or a write's data
    std::vector<int32_t> head_, chain_;
    std::vector<uint8_t> lit_;
    std::vector<uint16_t> dist_;
    std::vector<uint8_t> out_;
    size_t out_len_ = 0;
    NuxDeflateCode lit_freq_[kNumLitLen], dist_freq_[kNumDist];
    uint32_t symbols_ = 0;
    size_t start_ = 0, end_ = 0;  // first unparsed byte, end of the input at hand
    // First input byte of the current block. Its bytes are kept while it is
    // shorter than kStoredMax; after that the offset may point before the
    // data at hand (modulo 2^64), and start_ - block_start_ is still its length.
    size_t block_start_ = 0;
    uint32_t pos_ = 0;            // position of buf_[start_] for the parser
    uint16_t bit_buf_ = 0;
    uint32_t bit_count_ = 0;
};

// Whole-buffer convenience, used by the tests and the benchmark.
inline std::vector<uint8_t> compress_raw(const uint8_t* data, size_t n, int level, const uint8_t* dict = nullptr,
                                         size_t dict_len = 0) {
    std::vector<uint8_t> out;
    RawWriter w(level, [&](const uint8_t* p, size_t k) { out.insert(out.end(), p, p + k); }, dict, dict_len);
    w.write(data, n);
    w.finish();
    return out;
}

}  // namespace nuxzo::deflate_stream
