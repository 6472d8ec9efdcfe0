// Arbitrary bytes as an LZ4 block into both decoders (plain, prefix and
// separate-dictionary forms) with fuzz-chosen capacity, dstIdx and
// dictionary: no crash, no byte written outside the output range, the fast
// and careful loops agree, and blocks that liblz4 accepts decode the same.
#include <lz4.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "lz4/decode.h"
#include "fuzz_check.h"
#include "nuxzo.h"

namespace {

// Offset 0 is outside the format: liblz4 fills such a match with bytes of
// its own choosing while we leave the destination as it was, so blocks with
// one are not compared.
bool has_zero_offset(const uint8_t* p, size_t n) {
    size_t i = 0;
    while (i < n) {
        const unsigned token = p[i++];
        size_t lit = token >> 4;
        if (lit == 15)
            for (unsigned b = 255; b == 255 && i < n;) lit += (b = p[i++]);
        i += lit;
        if (i + 2 > n) return false;
        if ((p[i] | p[i + 1]) == 0) return true;
        i += 2;
        if ((token & 15) == 15)
            for (unsigned b = 255; b == 255 && i < n;) b = p[i++];
    }
    return false;
}

// liblz4 also decodes a sequence whose literals end within 8 bytes of the
// source end when a few more bytes follow; we stop there with SrcEmpty. So a
// block liblz4 accepts gives its output in full, or a prefix with SrcEmpty.
void agrees_with_peer(NuxStatus st, int len, const uint8_t* ours, int n, const uint8_t* peer) {
    check(st == NuxStatusOk || st == NuxStatusSrcEmpty);
    check(st == NuxStatusSrcEmpty ? len <= n : len == n);
    check(std::memcmp(ours, peer, size_t(len)) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 6) return 0;
    const unsigned mode = data[0] % 4;                      // plain export, Dict plain, prefix, separate
    const int cap = 1 + (data[1] | data[2] << 8) % 70000;   // capacity from the output start
    const int dict_size = 1 + (data[3] | data[4] << 8);     // 1 .. 65536
    const int dst_idx = data[5] & 1 ? dict_size : (data[5] >> 1) * 37;
    data += 6;
    size -= 6;
    if (size == 0) return 0;
    // Exact-size copies, so that any over-read is seen by the sanitizer.
    std::unique_ptr<uint8_t[]> src(new uint8_t[size]);
    std::memcpy(src.get(), data, size);
    std::vector<uint8_t> dict_bytes(static_cast<size_t>(dict_size));
    for (int i = 0; i < dict_size; ++i) dict_bytes[size_t(i)] = uint8_t(i * 31 + 7);

    int src_len = int(size), len = cap;
    NuxStatus st;
    if (mode == 0) {
        std::unique_ptr<uint8_t[]> out(new uint8_t[size_t(cap)]());
        st = nuxsDecodeLZ4_8u(src.get(), int(size), out.get(), &len);
        check(st < 0 || (len >= 0 && len <= cap));
        // The careful loop alone must give the same result.
        std::unique_ptr<uint8_t[]> alone(new uint8_t[size_t(cap)]());
        nux::lz4::DecodeCursor c{src.get(), src.get() + size, alone.get(), alone.get() + cap, alone.get(), nullptr, nullptr};
        if (size > 1) {
            const NuxStatus st2 = nux::lz4::decode_careful<nux::lz4::History::kPlain>(c);
            check(st2 == st);
            // Lengths always agree; the bytes too unless an offset-0 match
            // kept what the fast loop's wide copies had left there.
            if (st >= 0) check(c.op - alone.get() == len);
            if (st >= 0 && !has_zero_offset(src.get(), size))
                check(std::memcmp(alone.get(), out.get(), size_t(len)) == 0);
        }
        // A block liblz4 accepts in full decodes identically.
        std::unique_ptr<uint8_t[]> peer(new uint8_t[size_t(cap)]());
        const int n = LZ4_decompress_safe(reinterpret_cast<const char*>(src.get()), reinterpret_cast<char*>(peer.get()),
                                          int(size), cap);
        if (n > 0 && size > 1 && !has_zero_offset(src.get(), size)) agrees_with_peer(st, len, out.get(), n, peer.get());
    } else if (mode == 1 || mode == 3) {
        // Plain form at dstIdx (null dictionary), or a separate dictionary:
        // bytes in front of the output start must stay as they were.
        const size_t total = size_t(dst_idx) + size_t(cap);
        std::unique_ptr<uint8_t[]> out(new uint8_t[total]);
        std::memset(out.get(), 0xA5, total);
        std::unique_ptr<uint8_t[]> dict(new uint8_t[size_t(dict_size)]);
        std::memcpy(dict.get(), dict_bytes.data(), size_t(dict_size));
        st = nuxsDecodeLZ4Dict_8u(src.get(), &src_len, out.get(), dst_idx, &len, mode == 1 ? nullptr : dict.get(),
                                  mode == 1 ? 0 : dict_size);
        check(st < 0 || (len >= 0 && len <= cap && src_len >= 0 && src_len <= int(size)));
        for (int i = 0; i < dst_idx; ++i) check(out[size_t(i)] == 0xA5);
        check(std::memcmp(dict.get(), dict_bytes.data(), size_t(dict_size)) == 0);
        if (mode == 3 && dst_idx == dict_size && size > 1) {
            std::unique_ptr<uint8_t[]> peer(new uint8_t[size_t(cap)]());
            const int n = LZ4_decompress_safe_usingDict(reinterpret_cast<const char*>(src.get()),
                                                        reinterpret_cast<char*>(peer.get()), int(size), cap,
                                                        reinterpret_cast<const char*>(dict.get()), dict_size);
            if (n > 0 && !has_zero_offset(src.get(), size)) agrees_with_peer(st, len, out.get() + dst_idx, n, peer.get());
        }
    } else {
        // Prefix: the dictionary in front of the output in one buffer.
        const size_t total = size_t(dict_size) + size_t(cap);
        std::unique_ptr<uint8_t[]> buf(new uint8_t[total]());
        std::memcpy(buf.get(), dict_bytes.data(), size_t(dict_size));
        st = nuxsDecodeLZ4Dict_8u(src.get(), &src_len, buf.get(), dict_size, &len, buf.get(), dict_size);
        check(st < 0 || (len >= 0 && len <= cap && src_len <= int(size)));
        check(std::memcmp(buf.get(), dict_bytes.data(), size_t(dict_size)) == 0);
    }
    return 0;
}
