// LZ4 block decoder internals: the fast loop and the careful loop, reachable
// separately so that tests can hold one against the other.
//
// The fast loop runs while the source has more than 33 bytes and the
// destination more than 64 bytes left; inside those margins it copies
// literals and matches with wild 16- and 32-byte moves and never tests a
// bound per byte. Whenever a sequence would come near either margin (or
// looks damaged) it stops at that sequence's token, having changed nothing
// that the careful loop will not write again, and the careful loop decodes
// the rest exactly. So the careful loop alone defines every result.
#pragma once

#include <cstddef>
#include <cstdint>

#include "nuxzo.h"

namespace nux::lz4 {

// Where back-references may reach.
enum class History {
    kPlain,    // only the output of this call
    kPrefix,   // also `dict_size` bytes physically in front of the output
    kExtDict,  // positions pDst .. pDst+dictSize come from a separate buffer
};

struct DecodeCursor {
    const uint8_t* ip;  // next source byte
    const uint8_t* iend;
    uint8_t* op;  // next destination byte
    uint8_t* oend;
    // Lowest permitted match start (plain: output start; prefix: output start
    // minus the dictionary size; separate dictionary: pDst).
    const uint8_t* low;
    // Separate dictionary only: match starts below dict_limit (= pDst +
    // dictSize) read dict[match - low].
    const uint8_t* dict;
    const uint8_t* dict_limit;
};

constexpr ptrdiff_t kFastSrcMargin = 33;
constexpr ptrdiff_t kFastDstMargin = 64;

// Decodes whole sequences while both margins hold; leaves the cursor at the
// token of the first sequence that it did not decode.
template <History H>
void decode_fast(DecodeCursor& c);

// Decodes exactly from the cursor to the end of the block or of a buffer.
// Returns NuxStatusOk, NuxStatusSrcEmpty, NuxStatusDstFull (cursor updated)
// or NuxStatusDataErr / NuxStatusSize (cursor meaningless).
template <History H>
NuxStatus decode_careful(DecodeCursor& c);

// A whole block: the fast loop, then the careful loop. Writes back the bytes
// consumed and produced unless the status is negative.
template <History H>
NuxStatus decode_block(DecodeCursor c, int* consumed, int* produced);

}  // namespace nux::lz4
