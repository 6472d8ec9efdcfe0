// The LZ4 decoder's careful loop: exact copies, every bound tested. It
// decodes short blocks whole and the tail of long ones, and it alone decides
// how a block that ends early (source used up, destination full, damaged
// offset) is reported.
#include <climits>

#include "lz4/decode.h"
#include "lz4/decode_copy.h"
#include "lz4/lz4_common.h"

namespace nux::lz4 {

template <History H>
NuxStatus decode_careful(DecodeCursor& c) {
    const uint8_t* ip = c.ip;
    const uint8_t* const iend = c.iend;
    uint8_t* op = c.op;
    uint8_t* const oend = c.oend;
    NuxStatus status = NuxStatusOk;

    for (;;) {
        // A block ends after its last literal run; a lone byte left over
        // cannot start another sequence.
        if (iend - ip <= 1) break;
        const unsigned token = *ip++;
        uint64_t lit = token >> 4;
        if (lit == 15) {
            while (ip < iend) {
                const unsigned b = *ip++;
                lit += b;
                if (b != 255) break;
            }
        }
        const size_t in_left = size_t(iend - ip);
        const size_t out_left = size_t(oend - op);
        if (lit > out_left) {
            const size_t n = in_left < out_left ? in_left : out_left;
            std::memcpy(op, ip, n);
            ip += n;
            op += n;
            status = NuxStatusDstFull;
            break;
        }
        if (lit != in_left && lit + 8 > in_left) {
            // The literals end inside the last 8 bytes, where no complete
            // sequence can follow: copy what there is and ask for more.
            const size_t n = lit < in_left ? size_t(lit) : in_left;
            std::memcpy(op, ip, n);
            ip += n;
            op += n;
            status = NuxStatusSrcEmpty;
            break;
        }
        std::memcpy(op, ip, size_t(lit));
        ip += lit;
        op += lit;
        if (ip == iend || op == oend) break;

        const size_t off = load16(ip);
        ip += 2;
        if (op - c.low < ptrdiff_t(off)) return NuxStatusDataErr;
        const uint8_t* const match = op - off;
        uint64_t len = token & 15;
        if (len == 15) {
            while (ip < iend) {
                const unsigned b = *ip++;
                len += b;
                if (b != 255) break;
            }
        }
        len += kMinMatch;
        if (len > uint64_t(INT_MAX)) return NuxStatusSize;

        size_t n = size_t(len);
        if (n > size_t(oend - op)) {
            n = size_t(oend - op);
            status = NuxStatusDstFull;
        }
        if (H == History::kExtDict && match < c.dict_limit) {
            if (!copy_dict_match(op, match, n, c)) return NuxStatusDataErr;
        } else {
            copy_forward_exact(op, match, n);
        }
        op += n;
        if (status != NuxStatusOk) break;
    }
    c.ip = ip;
    c.op = op;
    return status;
}

template <History H>
NuxStatus decode_block(DecodeCursor c, int* consumed, int* produced) {
    const uint8_t* const src = c.ip;
    uint8_t* const dst = c.op;
    NuxStatus status;
    if (c.iend - c.ip == 1) {
        status = NuxStatusSrcEmpty;  // a single byte is never decoded
    } else {
        decode_fast<H>(c);
        status = decode_careful<H>(c);
        if (status < 0) return status;
    }
    *consumed = int(c.ip - src);
    *produced = int(c.op - dst);
    return status;
}

template NuxStatus decode_careful<History::kPlain>(DecodeCursor&);
template NuxStatus decode_careful<History::kPrefix>(DecodeCursor&);
template NuxStatus decode_careful<History::kExtDict>(DecodeCursor&);
template NuxStatus decode_block<History::kPlain>(DecodeCursor, int*, int*);
template NuxStatus decode_block<History::kPrefix>(DecodeCursor, int*, int*);
template NuxStatus decode_block<History::kExtDict>(DecodeCursor, int*, int*);

}  // namespace nux::lz4
