// Whole streams through the stream reader and the decoder: raw streams from
// zlib, libdeflate and isa-l on the interop inputs decode byte-exactly with
// input in random pieces and output rooms of 1, 7 and 4096 bytes, and whole
// through each compilation of the decoder's fast loop; the gzip and zlib
// wrappers are checked and faults are refused with an offset.
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "core/cpu.h"
#include "deflate/inflate_tables.h"
#include "streams/inflate_stream.h"
#include "streams/sample_data.h"
#include "support/peers.h"
#ifdef NUXZO_HAVE_DEFLATE
#include <libdeflate.h>
#endif
#ifdef NUXZO_HAVE_ISAL
#include <isa-l.h>
#endif

namespace {

using nuxtest::Bytes;
using nuxzo::inflate::Wrapper;

struct ChunkSource : nuxzo::inflate::Source {
    ChunkSource(const Bytes& d, size_t maxChunk, uint64_t seed) : data(d), max(maxChunk), rng(seed) {}
    size_t read(uint8_t* buf, size_t n) override {
        size_t k = std::min({n, data.size() - at, size_t(1 + rng() % max)});
        std::memcpy(buf, data.data() + at, k);
        at += k;
        return k;
    }
    const Bytes& data;
    size_t at = 0, max;
    std::mt19937_64 rng;
};

struct VecSink : nuxzo::inflate::Sink {
    void write(const uint8_t* p, size_t n) override { data.insert(data.end(), p, p + n); }
    Bytes data;
};

Bytes inflate_pieces(Wrapper w, const Bytes& comp, size_t room, size_t maxChunk, uint64_t seed) {
    ChunkSource src(comp, maxChunk, seed);
    VecSink sink;
    nuxzo::inflate::Options o;
    o.outRoom = room;
    o.inBuffer = std::max<size_t>(maxChunk, 64);
    nuxzo::inflate::Reader r(&src, sink, o);
    r.run(w);
    return sink.data;
}

Bytes inflate_whole(Wrapper w, const Bytes& comp, size_t size,
                    nuxzo::inflate::BlockDecoder decoder = nuxsInflate_8u) {
    Bytes out(size + 1);
    const size_t n = nuxzo::inflate::decompress_buffer(w, comp.data(), comp.size(), out.data(), out.size(), decoder);
    out.resize(n);
    return out;
}

// The block decoder with each compilation of its fast loop, whatever the
// processor would choose.
template <nux::inflate::FastLoop kLoop>
NuxStatus decode_with(const Nux8u** src, Nux32u* srcLen, Nux32u* code, Nux32u* bits, Nux32u winIdx, Nux8u** dst,
                      Nux32u* dstLen, Nux32u dstIdx, Nux32u* mode, NuxInflateHuffTable* st) {
    return nux::inflate::inflate_block(kLoop, src, srcLen, code, bits, winIdx, dst, dstLen, dstIdx, mode, st);
}

// ---- Stream makers ------------------------------------------------------

using nuxtest::zlib_compress;

struct Maker {
    const char* name;
    Bytes (*make)(const Bytes&);
    bool generatedOnly = false;  // zlib's special strategies: not worth the corpus time
};

std::vector<Maker> makers() {
    std::vector<Maker> m = {
        {"zlib-1", [](const Bytes& d) { return zlib_compress(d, 1); }},
        {"zlib-6 fixed", [](const Bytes& d) { return zlib_compress(d, 6, -15, Z_FIXED); }, true},
        {"zlib-6 huffman only", [](const Bytes& d) { return zlib_compress(d, 6, -15, Z_HUFFMAN_ONLY); }, true},
        {"zlib-0 stored", [](const Bytes& d) { return zlib_compress(d, 0); }, true},
        {"zlib-6", [](const Bytes& d) { return zlib_compress(d, 6); }},
        {"zlib-9", [](const Bytes& d) { return zlib_compress(d, 9); }},
    };
#ifdef NUXZO_HAVE_DEFLATE
    m.push_back({"libdeflate-12", [](const Bytes& d) {
                     libdeflate_compressor* c = libdeflate_alloc_compressor(12);
                     Bytes out(libdeflate_deflate_compress_bound(c, d.size()));
                     out.resize(libdeflate_deflate_compress(c, d.data(), d.size(), out.data(), out.size()));
                     libdeflate_free_compressor(c);
                     return out;
                 }});
#endif
#ifdef NUXZO_HAVE_ISAL
    m.push_back({"isal-1", [](const Bytes& d) {
                     isal_zstream s;
                     isal_deflate_init(&s);
                     Bytes level(ISAL_DEF_LVL1_DEFAULT);
                     Bytes out(d.size() + d.size() / 8 + 1024);
                     s.level = 1;
                     s.level_buf = level.data();
                     s.level_buf_size = uint32_t(level.size());
                     s.end_of_stream = 1;
                     s.flush = NO_FLUSH;
                     s.next_in = const_cast<uint8_t*>(d.data());
                     s.avail_in = uint32_t(d.size());
                     s.next_out = out.data();
                     s.avail_out = uint32_t(out.size());
                     EXPECT_EQ(isal_deflate(&s), COMP_OK);
                     out.resize(s.total_out);
                     return out;
                 }});
#endif
    return m;
}

// The whole buffer at once; then, thorough, output rooms of 1, 7 and 4096
// bytes with input in pieces of up to 1, 13 and 5000 bytes, else room 4096
// with pieces of up to 70000 bytes.
void expect_decodes(const Bytes& comp, const Bytes& want, const std::string& what, bool thorough) {
    ASSERT_EQ(inflate_whole(Wrapper::kRaw, comp, want.size()), want) << what << " whole buffer";
    ASSERT_EQ(inflate_whole(Wrapper::kRaw, comp, want.size(), decode_with<nux::inflate::FastLoop::kPlain>), want)
        << what << " whole buffer, plain fast loop";
    if (nux::ownGetFeature(nux::kFeatureBmi2)) {
        ASSERT_EQ(inflate_whole(Wrapper::kRaw, comp, want.size(), decode_with<nux::inflate::FastLoop::kBmi2>), want)
            << what << " whole buffer, BMI2 fast loop";
    }
    uint64_t seed = 11;
    for (size_t room : {size_t(1), size_t(7), size_t(4096)})
        for (size_t maxChunk : {size_t(1), size_t(13), size_t(5000), size_t(70000)}) {
            if (thorough ? maxChunk == 70000 : room < 4096 || maxChunk < 70000) continue;
            ASSERT_EQ(inflate_pieces(Wrapper::kRaw, comp, room, maxChunk, ++seed), want)
                << what << " room " << room << " chunks up to " << maxChunk;
        }
}

// Every maker on every interop input, and thoroughly on its first 64 KiB;
// plus inputs that reach the decoder's corners: nothing, one byte, every
// short period, and repeats exactly a window back.
TEST(InflateStream, EveryMakerOnTheInteropInputs) {
    Bytes periods, far = nuxtest::random_bytes(32768, 3);
    for (int d = 1; d <= 40; ++d)
        for (int i = 0; i < 700; ++i) periods.push_back(uint8_t("abcdefghijklmnopqrstuvwxyz0123456789ABCDEF"[i % d]));
    for (int i = 0; i < 3; ++i) far.insert(far.end(), far.begin(), far.begin() + 32768);
    const std::pair<std::string, Bytes> corners[] = {{"empty", {}}, {"one byte", {42}}, {"periods", periods}, {"far", far}};
    for (const auto& [name, data] : corners)
        for (const Maker& m : makers()) expect_decodes(m.make(data), data, name + " / " + m.name, true);
    for (const auto& f : nuxtest::interop_inputs()) {
        const Bytes head = nuxtest::head(f.data, nuxtest::sanitized() ? (96 << 10) : (1 << 20));
        const Bytes tiny = nuxtest::head(f.data, nuxtest::sanitized() ? (16 << 10) : (64 << 10));
        for (const Maker& m : makers()) {
            if (m.generatedOnly && f.data.size() > (256 << 10)) continue;  // a corpus file
            expect_decodes(m.make(head), head, f.name + " / " + m.name, false);
            expect_decodes(m.make(tiny), tiny, f.name + " (prefix) / " + m.name, true);
        }
    }
}

// ---- Wrappers -----------------------------------------------------------

uint32_t crc_of(const Bytes& d) { return uint32_t(crc32(0, d.data(), uInt(d.size()))); }

void put_le32(Bytes& b, uint32_t v) {
    for (int i = 0; i < 4; ++i) b.push_back(uint8_t(v >> (8 * i)));
}

// A gzip member with every optional header field.
Bytes gzip_member(const Bytes& data, bool headerCrc = true) {
    Bytes m;
    // ID, CM, FLG, MTIME, XFL, OS, then FEXTRA with XLEN 5.
    for (int c : {0x1F, 0x8B, 8, 4 | 8 | 16 | (headerCrc ? 2 : 0), 1, 2, 3, 4, 0, 3, 5, 0, int('A'), int('B'), 2, 0, 9})
        m.push_back(uint8_t(c));
    for (char c : std::string("name.txt")) m.push_back(uint8_t(c));
    m.push_back(0);
    for (char c : std::string("a comment")) m.push_back(uint8_t(c));
    m.push_back(0);
    if (headerCrc) {
        const uint32_t c = crc_of(m);
        m.push_back(uint8_t(c));
        m.push_back(uint8_t(c >> 8));
    }
    const Bytes body = zlib_compress(data, 6);
    m.insert(m.end(), body.begin(), body.end());
    put_le32(m, crc_of(data));
    put_le32(m, uint32_t(data.size()));
    return m;
}

void expect_refused(Wrapper w, const Bytes& comp, const std::string& what) {
    for (size_t room : {size_t(7), size_t(1 << 16)}) {
        EXPECT_THROW(inflate_pieces(w, comp, room, 100, 3), nuxzo::inflate::StreamError) << what;
    }
}

// `good` with the byte at `at` (negative: from the end) flipped in bit 0.
Bytes flipped(Bytes good, long at) {
    good[size_t(at < 0 ? long(good.size()) + at : at)] ^= 1;
    return good;
}

Bytes plus(Bytes b, uint8_t extra) {
    b.push_back(extra);
    return b;
}

TEST(InflateStream, GzipMembersAndFaults) {
    const Bytes a = nuxzo::sample::text(50000, 4), b = nuxtest::random_bytes(3000, 5);
    Bytes two = gzip_member(a), both = a;
    const Bytes second = gzip_member(b, false);
    two.insert(two.end(), second.begin(), second.end());
    both.insert(both.end(), b.begin(), b.end());
    EXPECT_EQ(inflate_pieces(Wrapper::kGzip, two, 4096, 777, 1), both);
    EXPECT_EQ(inflate_whole(Wrapper::kGzip, two, both.size()), both);

    expect_refused(Wrapper::kGzip, flipped(two, -9), "CRC-32 of the second member");
    expect_refused(Wrapper::kGzip, flipped(two, -4), "ISIZE");
    expect_refused(Wrapper::kGzip, flipped(two, 30), "inside the header, covered by FHCRC");
    expect_refused(Wrapper::kGzip, plus(two, 0), "trailing byte");
    for (size_t cut : {size_t(1), size_t(10), size_t(40), two.size() / 2, two.size() - 1})
        expect_refused(Wrapper::kGzip, nuxtest::head(two, cut), "truncated at " + std::to_string(cut));
    try {
        inflate_pieces(Wrapper::kGzip, nuxtest::head(two, two.size() - 1), 4096, 100, 1);
        ADD_FAILURE();
    } catch (const nuxzo::inflate::StreamError& e) {
        EXPECT_GE(e.offset, two.size() - 8);  // the offset names where it stopped
        EXPECT_LE(e.offset, two.size());
    }
}

TEST(InflateStream, ZlibAndRawFaults) {
    const Bytes data = nuxzo::sample::text(40000, 6);
    const Bytes z = zlib_compress(data, 9, 15), raw = zlib_compress(data, 6);
    EXPECT_EQ(inflate_pieces(Wrapper::kZlib, z, 4096, 33, 2), data);
    expect_refused(Wrapper::kZlib, flipped(z, -1), "adler");
    expect_refused(Wrapper::kZlib, flipped(z, 1), "header check");
    expect_refused(Wrapper::kZlib, plus(z, 7), "trailing");
    expect_refused(Wrapper::kRaw, plus(raw, 0), "raw trailing");
    expect_refused(Wrapper::kRaw, nuxtest::head(raw, raw.size() - 1), "raw truncated");
    expect_refused(Wrapper::kRaw, {0x07}, "block type 3");
    expect_refused(Wrapper::kRaw, {0x01, 0x05, 0x00, 0xFB, 0xFF, 1, 2, 3, 4, 5}, "stored length check");
    // A match before the start of the output: fixed block, length 3 at distance 1.
    expect_refused(Wrapper::kRaw, {0x03, 0x02, 0x00}, "distance too far");
}

}  // namespace
