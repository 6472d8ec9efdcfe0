// Round trips through liblz4 both ways: our encoders' blocks (default, fast
// at a fuzz-chosen acceleration, safe at a fuzz-chosen capacity, dictionary
// forms) decode with liblz4 to the input, and liblz4's blocks decode with ours.
#include <lz4.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "fuzz_check.h"
#include "nuxzo.h"

namespace {

using Bytes = std::vector<uint8_t>;

Bytes peer_decode(const Bytes& block, int max, const uint8_t* dict, int dict_size) {
    Bytes out(size_t(max) + 1);
    const int n = dict_size ? LZ4_decompress_safe_usingDict(reinterpret_cast<const char*>(block.data()),
                                                            reinterpret_cast<char*>(out.data()), int(block.size()),
                                                            int(out.size()), reinterpret_cast<const char*>(dict), dict_size)
                            : LZ4_decompress_safe(reinterpret_cast<const char*>(block.data()),
                                                  reinterpret_cast<char*>(out.data()), int(block.size()), int(out.size()));
    check(n >= 0);
    out.resize(size_t(n));
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) return 0;
    const unsigned mode = data[0] % 6;
    const int param = data[1] | data[2] << 8;
    const size_t split = size > 4 ? data[3] % (size - 4) : 0;  // dictionary length for the dictionary forms
    data += 4;
    size -= 4;
    if (size == 0) return 0;
    alignas(8) Nux8u table[16384];
    const int n = int(size);
    Bytes out(size_t(LZ4_compressBound(n)) + 16);
    int len = 0;

    if (mode <= 2) {
        const Bytes in(data, data + size);
        if (mode == 0) {
            check(nuxsEncodeLZ4_8u(in.data(), n, out.data(), &len, table) == NuxStatusOk);
        } else if (mode == 1) {
            check(nuxsEncodeLZ4Fast_8u(in.data(), n, out.data(), &len, table, 1 + param % 100) == NuxStatusOk);
        } else {
            int src_len = n;
            len = 1 + param % (int(out.size()) - 16);
            Bytes exact(static_cast<size_t>(len));
            const NuxStatus st = nuxsEncodeLZ4Safe_8u(in.data(), &src_len, exact.data(), &len, table);
            check(st == (src_len == n ? NuxStatusOk : NuxStatusDstFull));
            check(src_len >= 0 && src_len <= n && len <= int(exact.size()));
            exact.resize(size_t(len));
            const Bytes got = peer_decode(exact, n, nullptr, 0);
            check(got.size() == size_t(src_len) && std::memcmp(got.data(), in.data(), got.size()) == 0);
            return 0;
        }
        out.resize(size_t(len));
        check(peer_decode(out, n, nullptr, 0) == in);
    } else if (mode <= 4) {
        // Dictionary forms: the first `split` bytes are history, as a
        // separate buffer (mode 3) or in front of the data (mode 4).
        const Bytes dict(data, data + split);
        const Bytes joined(data, data + size);
        const Nux8u* d = mode == 3 ? dict.data() : joined.data();
        const Nux8u* src = joined.data() + split;
        const int m = n - int(split);
        if (m < 1) return 0;
        check(nuxsEncodeLZ4DictHashTableInit_8u(table, m) == NuxStatusOk);
        if (split) check(nuxsEncodeLZ4LoadDict_8u(table, d, int(split)) == NuxStatusOk);
        const bool safe = param & 1;
        int src_len = m;
        NuxStatus st;
        if (safe) {
            len = 1 + (param >> 1) % (int(out.size()) - 16);
            st = nuxsEncodeLZ4DictSafe_8u(src, int(split), &src_len, out.data(), &len, table, split ? d : nullptr,
                                          int(split));
        } else {
            st = nuxsEncodeLZ4Dict_8u(src, int(split), m, out.data(), &len, table, split ? d : nullptr, int(split));
        }
        check(st == (src_len == m ? NuxStatusOk : NuxStatusDstFull));
        out.resize(size_t(len));
        const Bytes got = peer_decode(out, m, d, int(split));
        check(got.size() == size_t(src_len) && std::memcmp(got.data(), src, got.size()) == 0);
    } else {
        const int c = LZ4_compress_fast(reinterpret_cast<const char*>(data), reinterpret_cast<char*>(out.data()), n,
                                        int(out.size()), 1 + param % 20);
        check(c > 0);
        Bytes got(size);
        len = n;
        const NuxStatus st = nuxsDecodeLZ4_8u(out.data(), c, got.data(), &len);
        check((st == NuxStatusOk || (c == 1 && st == NuxStatusSrcEmpty)) && len == (c == 1 ? 0 : n));
        if (c > 1) check(std::memcmp(got.data(), data, size) == 0);
    }
    return 0;
}
