// Stream side of Inflate: wrappers, block headers, stored blocks, dynamic
// code lengths and the history window around nuxsInflate_8u.
#include "streams/inflate_stream.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "nuxzo.h"

namespace nuxzo::inflate {
namespace {

constexpr uint32_t kWindow = 32768;

// Order of the code-length code lengths in a dynamic block header (RFC 1951
// section 3.2.7).
constexpr uint8_t kCodeLengthOrder[19] = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};

uint32_t crc32_update(uint32_t crc, const uint8_t* p, size_t n) {
    while (n) {
        const int chunk = int(std::min<size_t>(n, 1u << 30));
        nuxsCRC32_8u(p, chunk, &crc);
        p += chunk;
        n -= size_t(chunk);
    }
    return crc;
}

uint32_t adler32_update(uint32_t adler, const uint8_t* p, size_t n) {
    while (n) {
        const int chunk = int(std::min<size_t>(n, 1u << 30));
        nuxsAdler32_8u(p, chunk, &adler);
        p += chunk;
        n -= size_t(chunk);
    }
    return adler;
}

}  // namespace

struct Reader::Impl {
    Source* source;
    Sink& sink;
    Options opt;

    // Input: [in, inEnd) not yet taken; `pulled` bytes came from the source
    // in total. The bit buffer is the decoder's own 32-bit one.
    std::vector<uint8_t> inBuf;
    const uint8_t* in = nullptr;
    const uint8_t* inEnd = nullptr;
    uint64_t pulled = 0;
    bool eof = false;
    uint32_t code = 0, bits = 0;

    // Output: `pos` bytes of `out` not yet passed on; `flushed` bytes passed
    // on in total, the last 32 KiB of which are in the circular window at
    // their position modulo 32 KiB.
    std::vector<uint8_t> ownOut;
    uint8_t* out;
    size_t room;  // size of `out`
    size_t pos = 0;
    uint64_t flushed = 0;
    std::vector<uint8_t> window;
    NuxInflateHuffTable table;

    enum class Check { kNone, kCrc32, kAdler32 } check = Check::kNone;
    uint32_t sum = 0;

    Impl(Source* s, Sink& k, const Options& o) : source(s), sink(k), opt(o), window(kWindow) {
        if (opt.outRoom == 0 && !opt.outBuffer) opt.outRoom = 1;
        room = opt.outRoom;
        if (opt.outBuffer) {
            out = opt.outBuffer;
        } else {
            ownOut.resize(opt.outRoom);
            out = ownOut.data();
        }
        if (opt.inMemory) {
            in = opt.inMemory;
            inEnd = in + opt.inMemorySize;
            pulled = opt.inMemorySize;
            eof = true;
        } else {
            inBuf.resize(std::max<size_t>(opt.inBuffer, 64));
            in = inEnd = inBuf.data();
        }
        std::memset(&table, 0, sizeof table);
        table.pWindow = window.data();
    }

    // Byte offset of the next input byte not yet taken into the bit buffer
    // minus the whole bytes still in it: where decoding stands.
    uint64_t offset() const { return pulled - uint64_t(inEnd - in) - bits / 8; }

    [[noreturn]] void fail(const std::string& what) const { throw StreamError(offset(), what); }

    // Reads more input behind what is left; false at the end of the input.
    bool pull() {
        if (eof) return false;
        const size_t left = size_t(inEnd - in);
        if (in != inBuf.data()) std::memmove(inBuf.data(), in, left);
        const size_t got = source->read(inBuf.data() + left, inBuf.size() - left);
        in = inBuf.data();
        inEnd = in + left + got;
        pulled += got;
        if (got == 0) eof = true;
        return got != 0;
    }

    void need(uint32_t n) {
        while (bits < n) {
            if (in == inEnd && !pull()) fail("unexpected end of input");
            code |= uint32_t(*in++) << bits;
            bits += 8;
        }
    }

    uint32_t take(uint32_t n) {
        need(n);
        const uint32_t v = code & ((1u << n) - 1);
        code >>= n;
        bits -= n;
        return v;
    }

    void align() {
        code >>= bits & 7;
        bits &= ~7u;
    }

    uint32_t byte() { return take(8); }

    // True when no input is left at all (after align()).
    bool at_end() { return bits == 0 && in == inEnd && !pull(); }

    void flush() {
        if (pos == 0) return;
        if (check == Check::kCrc32) sum = crc32_update(sum, out, pos);
        else if (check == Check::kAdler32) sum = adler32_update(sum, out, pos);
        const size_t keep = std::min<size_t>(pos, kWindow);
        uint64_t at = flushed + pos - keep;
        const uint8_t* p = out + pos - keep;
        for (size_t left = keep; left;) {
            const uint32_t w = uint32_t(at % kWindow);
            const size_t chunk = std::min<size_t>(left, kWindow - w);
            std::memcpy(window.data() + w, p, chunk);
            p += chunk;
            at += chunk;
            left -= chunk;
        }
        sink.write(out, pos);
        flushed += pos;
        if (opt.outBuffer) {  // the caller's buffer: carry on behind what is done
            out += pos;
            room -= pos;
        }
        pos = 0;
    }

    // Called when the output room is used up in the middle of a block.
    void make_room() {
        if (opt.outBuffer) fail("output larger than the destination buffer");
        flush();
    }

    void stored_block() {
        align();
        const uint32_t len = byte() | (byte() << 8);
        const uint32_t nlen = byte() | (byte() << 8);
        if ((len ^ 0xFFFF) != nlen) fail("stored block length check failed");
        uint32_t left = len;
        while (left) {
            if (pos == room) make_room();
            if (bits) {  // whole bytes still in the bit buffer come first
                out[pos++] = uint8_t(take(8));
                --left;
                continue;
            }
            if (in == inEnd && !pull()) fail("unexpected end of input");
            const size_t chunk = std::min<size_t>({left, size_t(inEnd - in), room - pos});
            std::memcpy(out + pos, in, chunk);
            in += chunk;
            pos += chunk;
            left -= uint32_t(chunk);
        }
    }

    // Reads the code lengths of a dynamic block (RFC 1951 section 3.2.7) and
    // builds its tables. The checks match what zlib refuses.
    void dynamic_header() {
        const uint32_t nLitLen = take(5) + 257, nDist = take(5) + 1, nCodeLen = take(4) + 4;
        if (nLitLen > 286 || nDist > 30) fail("too many length or distance codes");
        uint8_t clLens[19] = {};
        for (uint32_t i = 0; i < nCodeLen; ++i) clLens[kCodeLengthOrder[i]] = uint8_t(take(3));
        // The code-length code: at most 7 bits, must be complete.
        uint32_t count[8] = {}, next[8] = {};
        for (uint8_t l : clLens) ++count[l];
        count[0] = 0;
        int left = 1;
        for (int l = 1; l < 8; ++l) {
            left = 2 * left - int(count[l]);
            if (left < 0) fail("invalid code lengths set");
        }
        if (left != 0) fail("invalid code lengths set");
        for (int l = 1, c = 0; l < 8; ++l) {
            c = (c + int(count[l - 1])) << 1;
            next[l] = uint32_t(c);
        }
        uint16_t clTable[128];  // (symbol << 3) | length, by the next 7 bits
        for (uint32_t s = 0; s < 19; ++s) {
            const uint32_t l = clLens[s];
            if (!l) continue;
            uint32_t c = next[l]++, r = 0;
            for (uint32_t i = 0; i < l; ++i) r |= ((c >> i) & 1u) << (l - 1 - i);
            for (uint32_t i = r; i < 128; i += 1u << l) clTable[i] = uint16_t((s << 3) | l);
        }
        Nux16u lens[286 + 30] = {};
        const uint32_t total = nLitLen + nDist;
        for (uint32_t i = 0; i < total;) {
            // A code and its extra bits take at most 14 bits: topped up here,
            // the bit-exact need() below and in take() rarely has to read.
            while (bits <= 24 && in != inEnd) {
                code |= uint32_t(*in++) << bits;
                bits += 8;
            }
            uint32_t e = clTable[code & 127];
            while ((e & 7) > bits) {
                need(bits + 1);
                e = clTable[code & 127];
            }
            code >>= e & 7;
            bits -= e & 7;
            const uint32_t sym = e >> 3;
            if (sym < 16) {
                lens[i++] = Nux16u(sym);
                continue;
            }
            uint32_t value = 0, repeat;
            if (sym == 16) {
                if (i == 0) fail("invalid bit length repeat");
                value = lens[i - 1];
                repeat = 3 + take(2);
            } else if (sym == 17) {
                repeat = 3 + take(3);
            } else {
                repeat = 11 + take(7);
            }
            if (i + repeat > total) fail("invalid bit length repeat");
            while (repeat--) lens[i++] = Nux16u(value);
        }
        if (lens[256] == 0) fail("invalid code -- missing end-of-block");
        // `lens` holds the literal/length lengths directly followed by the
        // distance lengths, as the builder takes them.
        if (nuxsInflateBuildHuffTable(lens, nLitLen, nDist, &table) != NuxStatusOk)
            fail("invalid literal/length or distance code set");
    }

    void huffman_block() {
        uint32_t mode = 0;
        for (;;) {
            table.winSize = uint32_t(std::min<uint64_t>(flushed, kWindow));
            const uint32_t winIdx = flushed < kWindow ? uint32_t(flushed) : uint32_t(flushed % kWindow);
            const Nux8u* src = in;
            Nux32u srcLen = Nux32u(std::min<size_t>(size_t(inEnd - in), 0x7FFFFFFF));
            Nux8u* dst = out + pos;
            Nux32u dstLen = Nux32u(std::min<size_t>(room - pos, 0xFFFFFFFFu));
            const NuxStatus st = opt.decoder(&src, &srcLen, &code, &bits, winIdx, &dst, &dstLen, Nux32u(pos), &mode,
                                             &table);
            in = src;
            pos = size_t(dst - out);
            if (st != NuxStatusOk) fail("invalid compressed data");
            if (mode == 0) return;
            if (mode == 1) {
                if (!pull()) fail("unexpected end of input");
            } else {
                make_room();
            }
        }
    }

    void deflate_stream() {
        for (;;) {
            const uint32_t final = take(1);
            const uint32_t type = take(2);
            if (type == 0) {
                stored_block();
            } else if (type == 1) {
                table.kind = 0;
                huffman_block();
            } else if (type == 2) {
                dynamic_header();
                huffman_block();
            } else {
                fail("invalid block type");
            }
            if (final) break;
        }
        flush();
        align();
    }

    uint32_t le32() {
        uint32_t v = byte();
        v |= byte() << 8;
        v |= byte() << 16;
        return v | (byte() << 24);
    }

    void gzip_member(bool first) {
        // The header bytes feed the optional header CRC (FHCRC).
        uint32_t hcrc = 0;
        auto hbyte = [&] {
            const uint8_t b = uint8_t(byte());
            hcrc = crc32_update(hcrc, &b, 1);
            return uint32_t(b);
        };
        if (hbyte() != 0x1F || hbyte() != 0x8B)
            fail(first ? "not in gzip format" : "trailing garbage after the compressed data");
        if (hbyte() != 8) fail("unknown compression method");
        const uint32_t flags = hbyte();
        if (flags & 0xE0) fail("reserved gzip flags set");
        for (int i = 0; i < 6; ++i) hbyte();  // MTIME, XFL, OS
        if (flags & 4) {                      // FEXTRA
            uint32_t xlen = hbyte();
            xlen |= hbyte() << 8;
            while (xlen--) hbyte();
        }
        if (flags & 8) while (hbyte() != 0) {}   // FNAME
        if (flags & 16) while (hbyte() != 0) {}  // FCOMMENT
        if (flags & 2) {                         // FHCRC
            const uint32_t want = hcrc & 0xFFFF;
            const uint32_t got = byte() | (byte() << 8);
            if (got != want) fail("gzip header CRC mismatch");
        }
        check = Check::kCrc32;
        sum = 0;
        const uint64_t start = flushed;
        deflate_stream();
        if (le32() != sum) fail("CRC-32 mismatch");
        if (le32() != uint32_t(flushed - start)) fail("length (ISIZE) mismatch");
    }

    void run(Wrapper w) {
        if (w == Wrapper::kRaw) {
            deflate_stream();
            if (!opt.allowTrailing && !at_end()) fail("trailing garbage after the compressed data");
            return;
        }
        if (w == Wrapper::kZlib) {
            const uint32_t cmf = byte(), flg = byte();
            if ((cmf & 15) != 8 || (cmf >> 4) > 7) fail("not in zlib format");
            if ((cmf * 256 + flg) % 31) fail("zlib header check failed");
            if (flg & 0x20) fail("zlib preset dictionary not supported");
            check = Check::kAdler32;
            sum = 1;
            deflate_stream();
            uint32_t want = 0;
            for (int i = 0; i < 4; ++i) want = (want << 8) | byte();
            if (want != sum) fail("Adler-32 mismatch");
            if (!at_end()) fail("trailing garbage after the compressed data");
            return;
        }
        bool first = true;
        do {
            gzip_member(first);
            first = false;
        } while (!at_end());
    }
};

Reader::Reader(Source* source, Sink& sink, const Options& options)
    : impl_(std::make_unique<Impl>(source, sink, options)) {}
Reader::~Reader() = default;
void Reader::run(Wrapper wrapper) { impl_->run(wrapper); }
uint64_t Reader::output_size() const { return impl_->flushed + impl_->pos; }
uint64_t Reader::input_consumed() const { return impl_->offset(); }

namespace {
struct NullSink : Sink {
    void write(const uint8_t*, size_t) override {}
};
}  // namespace

size_t decompress_buffer(Wrapper wrapper, const uint8_t* in, size_t n, uint8_t* out, size_t cap,
                         BlockDecoder decoder) {
    NullSink sink;
    Options o;
    o.decoder = decoder;
    o.outBuffer = out;
    o.outRoom = cap;
    o.inMemory = in;
    o.inMemorySize = n;
    Reader r(nullptr, sink, o);
    r.run(wrapper);
    return size_t(r.output_size());
}

}  // namespace nuxzo::inflate
