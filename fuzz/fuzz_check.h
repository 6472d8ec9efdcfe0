// check(cond): a failed property aborts with its line, which libFuzzer
// reports as a crash and saves the input for.
#pragma once

#include <cstdio>
#include <cstdlib>

inline void fuzz_check_at(bool ok, int line) {
    if (ok) return;
    std::fprintf(stderr, "check failed at line %d\n", line);
    std::abort();
}
#define check(ok) fuzz_check_at((ok), __LINE__)
