// Every checksum kernel the processor can run agrees with the portable one on
// the input (placed at a fuzz-chosen address, from a fuzz-chosen start value,
// repeated to reach the wide kernels' lengths), and the exports split at a
// fuzz-chosen point equal one call.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "checksum/kernels.h"
#include "core/cpu.h"
#include "nuxzo.h"

namespace {

using namespace nux::checksum;
using Fn = Nux32u (*)(Nux32u, const Nux8u*, size_t);

struct Variant {
    Fn fn;
    Nux64u needs;
};

void check(Fn reference, std::initializer_list<Variant> variants, Nux32u start, const Nux8u* p, size_t n) {
    const Nux32u want = reference(start, p, n);
    for (const Variant& v : variants)
        if (!v.needs || nux::ownGetFeature(v.needs))
            if (v.fn(start, p, n) != want) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 8) return 0;
    const size_t offset = data[0] & 63, repeat = 1 + (data[1] & 63);
    Nux32u start;
    std::memcpy(&start, data + 2, 4);
    const size_t split_at = size_t(data[6]) << 8 | data[7];
    data += 8;
    size -= 8;
    std::vector<Nux8u> buf(offset + size * repeat + 64);
    Nux8u* p = buf.data() + offset;
    for (size_t r = 0; r < repeat; ++r)
        if (size) std::memcpy(p + r * size, data, size);
    const size_t n = size * repeat;

    using nux::kFeatureAvx2, nux::kFeatureAvx512Vnni, nux::kFeaturePclmul, nux::kFeatureSse42Crc,
        nux::kFeatureVpclmul;
    const Nux32u adler_start = (start & 0xFFFF) % 65521 | ((start >> 16) % 65521) << 16;
    check(adler32_bytes, {{adler32_vec16, 0}, {adler32_avx2, kFeatureAvx2}, {adler32_avx512vnni, kFeatureAvx512Vnni}},
          adler_start, p, n);
    check(crc32_slice8, {{crc32_pclmul, kFeaturePclmul}, {crc32_vpclmul, kFeaturePclmul | kFeatureVpclmul}}, start, p,
          n);
    check(crc32c_slice4,
          {{crc32c_hw_table, kFeatureSse42Crc},
           {crc32c_hw_clmul, kFeatureSse42Crc | kFeaturePclmul},
           {crc32c_vpclmul, kFeatureSse42Crc | kFeaturePclmul | kFeatureVpclmul}},
          start, p, n);
    check(bzip2_slice8, {{bzip2_pclmul, kFeaturePclmul}, {bzip2_vpclmul, kFeaturePclmul | kFeatureVpclmul}}, start, p,
          n);

    // Exports: two pieces equal one call.
    if (n >= 2) {
        const size_t k = 1 + split_at % (n - 1);
        Nux32u whole = start, a = start, b = start;
        nuxsCRC32_8u(p, int(n), &whole);
        nuxsCRC32_8u(p, int(k), &a);
        nuxsCRC32_8u(p + k, int(n - k), &a);
        nuxsCRC32C_8u(p, Nux32u(k), &b);
        nuxsCRC32C_8u(p + k, Nux32u(n - k), &b);
        Nux32u whole_c = start;
        nuxsCRC32C_8u(p, Nux32u(n), &whole_c);
        if (a != whole || b != whole_c) std::abort();
        whole = a = adler_start;
        nuxsAdler32_8u(p, int(n), &whole);
        nuxsAdler32_8u(p, int(k), &a);
        nuxsAdler32_8u(p + k, int(n - k), &a);
        if (a != whole) std::abort();
    }
    return 0;
}
