// Deterministic generated data of the kinds compressors meet, so that the
// benchmark and the tests run on a fresh clone with nothing beside it. Each
// kind stands in for a corner of the Silesia corpus: prose, structured
// binary, fixed records, long runs and incompressible bytes. The same
// (kind, size, seed) always gives the same bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace nuxzo::sample {

using Bytes = std::vector<uint8_t>;

// Words from a Zipf-like vocabulary with punctuation and line breaks;
// repeats at every distance, about 3:1 for Deflate.
Bytes text(size_t n, uint64_t seed);
// Executable-like binary: little-endian words with small deltas, opcode-like
// byte pairs, pointer tables and zero padding; mixed short and long matches.
Bytes binary(size_t n, uint64_t seed);
// Fixed 16-byte records of slowly changing integer fields (a table dump).
Bytes records(size_t n, uint64_t seed);
// Runs of one byte with lengths from 1 to well over 64 KiB, and short
// periodic stretches: the degenerate inputs of match finders and sorts.
Bytes runs(size_t n, uint64_t seed);
// Uniform random bytes: incompressible.
Bytes noise(size_t n, uint64_t seed);

struct Named {
    std::string name;
    Bytes data;
};
// One input of every kind, each `n` bytes, named after its kind.
std::vector<Named> all_kinds(size_t n, uint64_t seed);

}  // namespace nuxzo::sample
