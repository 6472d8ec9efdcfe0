// Instantiations of the encoder kernel for blocks with history: a prefix in
// the same buffer or a separate dictionary, 4096 32-bit table entries.
#include "lz4/encode_core.h"

namespace nux::lz4 {

template EncodeResult encode_block<int32_t, 12, Search::kDefault, Source::kPrefix, false>(const EncodeJob&);
template EncodeResult encode_block<int32_t, 12, Search::kDefault, Source::kPrefix, true>(const EncodeJob&);
template EncodeResult encode_block<int32_t, 12, Search::kDefault, Source::kExtDict, false>(const EncodeJob&);
template EncodeResult encode_block<int32_t, 12, Search::kDefault, Source::kExtDict, true>(const EncodeJob&);

}  // namespace nux::lz4
