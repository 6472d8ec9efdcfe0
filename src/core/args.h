// Argument checking shared by every export.
//
// An export is a thin entry: it checks its arguments in a fixed order --
// pointers, then sizes, then modes -- returns the first failure without
// writing anything, and only then calls its worker. Each check is one line,
// so the order stays visible at the call site:
//
//   NUX_CHECK_PTRS(ppSrc, pSrcLen);
//   NUX_CHECK_PTRS(*ppSrc);          // after ppSrc itself is known non-null
//   NUX_CHECK_SIZE(len >= 1);
//   NUX_CHECK_MODE(level <= 29);
//   return worker(...);
#pragma once

#include "nuxzo.h"

namespace nux {

template <typename... P>
constexpr bool any_null(const P&... p) {
    return ((p == nullptr) || ...);
}

}  // namespace nux

#define NUX_CHECK(cond, status)          \
    do {                                 \
        if (!(cond)) return (status);    \
    } while (0)

#define NUX_CHECK_PTRS(...) NUX_CHECK(!::nux::any_null(__VA_ARGS__), NuxStatusNullPtr)
#define NUX_CHECK_SIZE(cond) NUX_CHECK(cond, NuxStatusSize)
#define NUX_CHECK_MODE(cond) NUX_CHECK(cond, NuxStatusBadArg)
