// Whole streams through the stream reader and the decoder: raw streams from
// zlib, libdeflate and isa-l on edge data and the corpus decode byte-exactly
// with input in random pieces and output rooms of 1, 7 and 4096 bytes; the
// gzip and zlib wrappers are checked, faults are refused with an offset; and
// the built tool decodes what the gzip program makes.
#include <gtest/gtest.h>
#include <zlib.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>

#include "inflate_stream.h"
#include "support/test_support.h"
#ifdef NUXZO_HAVE_DEFLATE
#include <libdeflate.h>
#endif
#ifdef NUXZO_HAVE_ISAL
#include <isa-l.h>
#endif

namespace {

using nuxtest::Bytes;
using nuxzo::inflate::Wrapper;

bool sanitized() { return std::getenv("NUXZO_SANITIZED") != nullptr; }

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

Bytes inflate_whole(Wrapper w, const Bytes& comp, size_t size) {
    Bytes out(size + 1);
    const size_t n = nuxzo::inflate::decompress_buffer(w, comp.data(), comp.size(), out.data(), out.size());
    out.resize(n);
    return out;
}

// ---- Stream makers ------------------------------------------------------

Bytes zlib_raw(const Bytes& in, int level, int strategy = Z_DEFAULT_STRATEGY) {
    z_stream z{};
    EXPECT_EQ(deflateInit2(&z, level, Z_DEFLATED, -15, 8, strategy), Z_OK);
    Bytes out(deflateBound(&z, uLong(in.size())) + 16);
    z.next_in = const_cast<Bytef*>(in.data());
    z.avail_in = uInt(in.size());
    z.next_out = out.data();
    z.avail_out = uInt(out.size());
    EXPECT_EQ(deflate(&z, Z_FINISH), Z_STREAM_END);
    out.resize(z.total_out);
    deflateEnd(&z);
    return out;
}

struct Maker {
    const char* name;
    Bytes (*make)(const Bytes&);
};

std::vector<Maker> makers() {
    std::vector<Maker> m = {
        {"zlib-1", [](const Bytes& d) { return zlib_raw(d, 1); }},
        {"zlib-6", [](const Bytes& d) { return zlib_raw(d, 6); }},
        {"zlib-9", [](const Bytes& d) { return zlib_raw(d, 9); }},
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

std::vector<std::pair<std::string, Bytes>> edge_inputs() {
    std::vector<std::pair<std::string, Bytes>> v;
    v.push_back({"empty", {}});
    v.push_back({"one byte", {42}});
    v.push_back({"zeros", Bytes(70000, 0)});
    v.push_back({"random", nuxtest::random_bytes(70000, 1)});
    v.push_back({"text", nuxtest::compressible_bytes(150000, 2)});
    Bytes periods;
    for (int d = 1; d <= 40; ++d)
        for (int i = 0; i < 700; ++i) periods.push_back(uint8_t("abcdefghijklmnopqrstuvwxyz0123456789ABCDEF"[i % d]));
    v.push_back({"short periods", periods});
    // Repeats exactly 32768 bytes back.
    Bytes far = nuxtest::random_bytes(32768, 3);
    for (int i = 0; i < 3; ++i) far.insert(far.end(), far.begin(), far.begin() + 32768);
    v.push_back({"window-size repeats", far});
    return v;
}

void expect_decodes(const Bytes& comp, const Bytes& want, const std::string& what, size_t maxRoomBytes) {
    ASSERT_EQ(inflate_whole(Wrapper::kRaw, comp, want.size()), want) << what << " whole buffer";
    uint64_t seed = 11;
    for (size_t room : {size_t(1), size_t(7), size_t(4096)}) {
        if (room < 4096 && want.size() > maxRoomBytes) continue;
        for (size_t maxChunk : {size_t(1), size_t(13), size_t(5000)}) {
            if (maxChunk == 1 && comp.size() > maxRoomBytes) continue;
            ASSERT_EQ(inflate_pieces(Wrapper::kRaw, comp, room, maxChunk, ++seed), want)
                << what << " room " << room << " chunks up to " << maxChunk;
        }
    }
}

TEST(InflateStream, EdgeDataFromEveryMaker) {
    for (const auto& [name, data] : edge_inputs()) {
        for (const Maker& m : makers()) expect_decodes(m.make(data), data, name + " / " + m.name, 1 << 20);
        expect_decodes(zlib_raw(data, 6, Z_FIXED), data, name + " / fixed", 1 << 20);
        expect_decodes(zlib_raw(data, 6, Z_HUFFMAN_ONLY), data, name + " / huffman only", 1 << 20);
        expect_decodes(zlib_raw(data, 0), data, name + " / stored", 1 << 20);
    }
}

TEST(InflateStream, CorpusFromEveryMaker) {
    const auto& files = nuxtest::corpus();
    if (files.empty()) GTEST_SKIP() << "no corpus";
    const size_t prefix = sanitized() ? (96 << 10) : (1 << 20);
    const size_t small = sanitized() ? (16 << 10) : (64 << 10);
    for (const auto& f : files) {
        const Bytes head(f.data.begin(), f.data.begin() + std::min(prefix, f.data.size()));
        const Bytes tiny(f.data.begin(), f.data.begin() + std::min(small, f.data.size()));
        for (const Maker& m : makers()) {
            const Bytes comp = m.make(head);
            const std::string what = f.name + " / " + m.name;
            ASSERT_EQ(inflate_whole(Wrapper::kRaw, comp, head.size()), head) << what;
            ASSERT_EQ(inflate_pieces(Wrapper::kRaw, comp, 4096, 70000, 5), head) << what;
            expect_decodes(m.make(tiny), tiny, what + " (prefix)", small);
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
    const Bytes body = zlib_raw(data, 6);
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

TEST(InflateStream, GzipMembersAndFaults) {
    const Bytes a = nuxtest::compressible_bytes(50000, 4), b = nuxtest::random_bytes(3000, 5);
    Bytes two = gzip_member(a);
    const Bytes second = gzip_member(b, false);
    two.insert(two.end(), second.begin(), second.end());
    Bytes both = a;
    both.insert(both.end(), b.begin(), b.end());
    EXPECT_EQ(inflate_pieces(Wrapper::kGzip, two, 4096, 777, 1), both);
    EXPECT_EQ(inflate_whole(Wrapper::kGzip, two, both.size()), both);

    Bytes bad = two;
    bad[two.size() - 9] ^= 1;  // CRC-32 of the second member
    expect_refused(Wrapper::kGzip, bad, "crc");
    bad = two;
    bad[two.size() - 4] ^= 1;  // ISIZE
    expect_refused(Wrapper::kGzip, bad, "isize");
    bad = two;
    bad[30] ^= 1;  // inside the header, covered by FHCRC
    expect_refused(Wrapper::kGzip, bad, "header crc");
    bad = two;
    bad.push_back(0);
    expect_refused(Wrapper::kGzip, bad, "trailing byte");
    for (size_t cut : {size_t(1), size_t(10), size_t(40), two.size() / 2, two.size() - 1}) {
        const Bytes truncated(two.begin(), two.begin() + cut);
        expect_refused(Wrapper::kGzip, truncated, "truncated at " + std::to_string(cut));
    }
    try {
        inflate_pieces(Wrapper::kGzip, Bytes(two.begin(), two.end() - 1), 4096, 100, 1);
        ADD_FAILURE();
    } catch (const nuxzo::inflate::StreamError& e) {
        EXPECT_GE(e.offset, two.size() - 8);  // the offset names where it stopped
        EXPECT_LE(e.offset, two.size());
    }
}

TEST(InflateStream, ZlibAndRawFaults) {
    const Bytes data = nuxtest::compressible_bytes(40000, 6);
    uLongf n = compressBound(uLong(data.size()));
    Bytes z(n);
    ASSERT_EQ(compress2(z.data(), &n, data.data(), uLong(data.size()), 9), Z_OK);
    z.resize(n);
    EXPECT_EQ(inflate_pieces(Wrapper::kZlib, z, 4096, 33, 2), data);
    Bytes bad = z;
    bad.back() ^= 1;
    expect_refused(Wrapper::kZlib, bad, "adler");
    bad = z;
    bad[1] ^= 1;
    expect_refused(Wrapper::kZlib, bad, "header check");
    bad = z;
    bad.push_back(7);
    expect_refused(Wrapper::kZlib, bad, "trailing");

    const Bytes raw = zlib_raw(data, 6);
    Bytes rawBad = raw;
    rawBad.push_back(0);
    expect_refused(Wrapper::kRaw, rawBad, "raw trailing");
    expect_refused(Wrapper::kRaw, Bytes(raw.begin(), raw.end() - 1), "raw truncated");
    expect_refused(Wrapper::kRaw, {0x07}, "block type 3");
    expect_refused(Wrapper::kRaw, {0x01, 0x05, 0x00, 0xFB, 0xFF, 1, 2, 3, 4, 5}, "stored length check");
    // A match before the start of the output: fixed block, length 3 at distance 1.
    expect_refused(Wrapper::kRaw, {0x03, 0x02, 0x00}, "distance too far");
}

// Random corruptions decode to what zlib says, or are refused as zlib refuses.
TEST(InflateStream, CorruptedStreamsAgreeWithZlib) {
    const Bytes data = nuxtest::compressible_bytes(20000, 8);
    const Bytes comp = zlib_raw(data, 9);
    std::mt19937_64 rng(9);
    const int rounds = sanitized() ? 100 : 600;
    for (int r = 0; r < rounds; ++r) {
        Bytes c = comp;
        for (int k = 0; k < 1 + int(rng() % 3); ++k) c[rng() % c.size()] ^= uint8_t(1 + rng() % 255);
        Bytes want(1 << 20);
        z_stream z{};
        inflateInit2(&z, -15);
        z.next_in = c.data();
        z.avail_in = uInt(c.size());
        z.next_out = want.data();
        z.avail_out = uInt(want.size());
        const int zr = inflate(&z, Z_FINISH);
        want.resize(z.total_out);
        inflateEnd(&z);
        nuxzo::inflate::Options o;
        o.allowTrailing = true;
        o.outRoom = 1 << 20;
        o.inMemory = c.data();
        o.inMemorySize = c.size();
        VecSink sink;
        nuxzo::inflate::Reader reader(nullptr, sink, o);
        bool ok = true;
        try {
            reader.run(Wrapper::kRaw);
        } catch (const nuxzo::inflate::StreamError&) {
            ok = false;
        }
        ASSERT_EQ(ok, zr == Z_STREAM_END) << r;
        if (ok) {
            ASSERT_EQ(sink.data, want) << r;
        }
    }
}

// ---- The tool -----------------------------------------------------------

std::string tool() { return NUXZO_BUILD_DIR "/tools/nuxzo/nuxzo"; }

int sh(const std::string& cmd) { return std::system(cmd.c_str()); }

TEST(InflateTool, DecodesWhatGzipMakes) {
    namespace fs = std::filesystem;
    if (!fs::exists(tool()) || sh("gzip --version > /dev/null 2>&1") != 0) GTEST_SKIP() << "no tool or gzip";
    const fs::path dir = fs::path(NUXZO_BUILD_DIR) / "inflate_tool_test";
    fs::remove_all(dir);
    fs::create_directories(dir);
    std::vector<std::pair<std::string, Bytes>> files = {{"text", nuxtest::compressible_bytes(300000, 3)},
                                                        {"empty", {}}};
    const size_t limit = sanitized() ? (256 << 10) : (4 << 20);
    for (const auto& f : nuxtest::corpus()) files.push_back({f.name, Bytes(f.data.begin(), f.data.begin() + std::min(limit, f.data.size()))});
    for (const auto& [name, data] : files) {
        const fs::path p = dir / name;
        std::ofstream(p, std::ios::binary).write(reinterpret_cast<const char*>(data.data()), std::streamsize(data.size()));
        for (const char* level : {"-1", "-9"}) {
            ASSERT_EQ(sh("gzip -k -f " + std::string(level) + " '" + p.string() + "'"), 0);
            fs::rename(p.string() + ".gz", p.string() + "_copy.gz");
            ASSERT_EQ(sh(tool() + " decompress -f '" + p.string() + "_copy.gz'"), 0) << name;
            EXPECT_EQ(nuxtest::read_file(p.string() + "_copy"), data) << name << " " << level;
            EXPECT_FALSE(fs::exists(p.string() + "_copy.gz"));  // removed unless -k
        }
    }
    // Two members (gzip's own concatenation), read from stdin with -c.
    const fs::path a = dir / "text", b = dir / "empty", cat = dir / "cat.gz";
    ASSERT_EQ(sh("(gzip -c '" + a.string() + "'; gzip -c '" + b.string() + "'; gzip -c '" + a.string() + "') > '" +
                 cat.string() + "'"),
              0);
    ASSERT_EQ(sh(tool() + " decompress -c < '" + cat.string() + "' > '" + (dir / "cat.out").string() + "'"), 0);
    Bytes want = files[0].second;
    want.insert(want.end(), files[0].second.begin(), files[0].second.end());
    EXPECT_EQ(nuxtest::read_file((dir / "cat.out").string()), want);

    // Corrupt input: non-zero exit, an offset in the message, no output file.
    Bytes gz = nuxtest::read_file(cat.string());
    gz.resize(gz.size() - 3);
    std::ofstream(dir / "bad.gz", std::ios::binary).write(reinterpret_cast<const char*>(gz.data()), std::streamsize(gz.size()));
    EXPECT_NE(sh(tool() + " decompress -k '" + (dir / "bad.gz").string() + "' 2> '" + (dir / "err.txt").string() + "'"), 0);
    EXPECT_FALSE(fs::exists(dir / "bad"));
    const Bytes err = nuxtest::read_file((dir / "err.txt").string());
    const std::string msg(err.begin(), err.end());
    EXPECT_NE(msg.find("bad.gz"), std::string::npos) << msg;
    EXPECT_NE(msg.find("offset"), std::string::npos) << msg;
    fs::remove_all(dir);
}

}  // namespace
