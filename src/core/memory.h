// Memory kernels shared by the codec families (not exported).
#pragma once

#include "nuxzo.h"

namespace nux {

// Copies `len` bytes (non-overlapping). Up to 32767 bytes with 32-byte vector
// moves (separate paths below 256 and from 16384 bytes on); above that with
// the string-move instructions. Returns dst. len <= 0 copies nothing.
void* copy_bytes(const void* src, void* dst, int len);

// Clears `len` bytes: vector stores up to 32768 bytes, string stores above.
void* zero_bytes(void* dst, int len);

// Stores `count` copies of `value`. Past the largest cache (from 524289
// elements, 4-byte-aligned destination) it streams around the cache so that
// a huge table initialisation does not evict the caller's working set.
void fill32(Nux32u value, Nux32u* dst, int count);

// The fill with the streaming decision made by the caller, for tests.
void fill32_cached(Nux32u value, Nux32u* dst, int count);
void fill32_streaming(Nux32u value, Nux32u* dst, int count);

// Status-returning copy for caller data: NullPtr, then Size (len < 1).
NuxStatus copy_checked(const void* src, void* dst, int len);

}  // namespace nux
