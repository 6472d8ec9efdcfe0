// Instantiations of the encoder kernel for blocks without history.
#include "lz4/encode_core.h"

namespace nux::lz4 {

template EncodeResult encode_block<uint16_t, 12, Search::kDefault, Source::kPlain, false>(const EncodeJob&);
template EncodeResult encode_block<int32_t, 12, Search::kDefault, Source::kPlain, false>(const EncodeJob&);
template EncodeResult encode_block<uint16_t, 12, Search::kDefault, Source::kPlain, true>(const EncodeJob&);
template EncodeResult encode_block<int32_t, 12, Search::kDefault, Source::kPlain, true>(const EncodeJob&);
template EncodeResult encode_block<uint16_t, 13, Search::kFast, Source::kPlain, false>(const EncodeJob&);
template EncodeResult encode_block<int32_t, 12, Search::kFast, Source::kPlain, false>(const EncodeJob&);

}  // namespace nux::lz4
