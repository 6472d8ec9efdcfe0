// The LZ4 block encoder kernel, included by the files that instantiate it.
//
// Search: at a probed position p the five-byte hash names a table entry; the
// old entry is the candidate, p replaces it, and the candidate is a match
// when its first four bytes equal p's and it lies at most 65535 bytes back.
// Probing is cheap and blind (no chains), so the step between probes grows
// with the number of misses: incompressible stretches are crossed quickly.
//
// Block end: no search starts 28 bytes or fewer before the end and no match
// reaches into the last 5 bytes, so every block closes with a literal run.
#pragma once

#include <algorithm>
#include <cstring>

#include "lz4/encode.h"
#include "lz4/lz4_common.h"

namespace nux::lz4 {
namespace detail {

// Bytes that a length extension of `rest` (length minus 15) takes.
inline size_t extension_bytes(size_t rest) { return rest / 255 + 1; }

// Writes the extension of a length of 15 or more; `rest` is length - 15.
inline uint8_t* put_extension(uint8_t* op, size_t rest) {
    if (rest >= 255) {
        size_t n = rest / 255;
        rest -= n * 255;
        while (n >= 8) {
            store64(op, ~uint64_t(0));
            op += 8;
            n -= 8;
        }
        if (n >= 4) {
            store32(op, ~uint32_t(0));
            op += 4;
            n -= 4;
        }
        while (n--) *op++ = 255;
    }
    *op++ = uint8_t(rest);
    return op;
}

// Size of a literal-only sequence of n literals.
inline size_t closing_run_size(size_t n) { return 1 + n + (n >= 15 ? extension_bytes(n - 15) : 0); }

// The most literals whose closing run fits in `avail` (>= 1) bytes.
inline size_t closing_run_fit(size_t avail) {
    if (avail < 16) return avail - 1;
    size_t n = avail - 1 - extension_bytes(avail - 16);
    while (closing_run_size(n + 1) <= avail) ++n;
    while (closing_run_size(n) > avail) --n;
    return n;
}

}  // namespace detail

template <typename Entry, unsigned HashBits, Search S, Source M, bool Limited>
EncodeResult encode_block(const EncodeJob& job) {
    constexpr uint32_t kMask = (1u << HashBits) - 1;
    // 16-bit tables serve sources shorter than the largest offset + 1, so
    // every candidate is in reach.
    constexpr bool kCheckDistance = sizeof(Entry) == 4;
    Entry* const table = static_cast<Entry*>(job.table);
    const uint8_t* const src = job.src;
    const uint8_t* const iend = src + job.len;
    const uint32_t src_idx = uint32_t(job.src_idx);
    // History position q lives at base + q for the block and a prefix.
    const uint8_t* const base = M == Source::kPlain ? src : src - job.src_idx;
    const uint8_t* const hist_low = M == Source::kPrefix ? base : src;
    // Separate dictionary: positions below dict_end read dict + q. When the
    // dictionary is exactly as long as the history in front of the data,
    // a match may run on from its end into the data, as the decoder reads it.
    const uint32_t dict_end = M == Source::kExtDict ? uint32_t(job.dict_size < job.src_idx ? job.dict_size : job.src_idx) : 0;
    const bool dict_runs_on = M == Source::kExtDict && job.dict_size == job.src_idx;
    const uint8_t* const dict = job.dict;

    uint8_t* op = job.dst;
    uint8_t* const oend = job.dst + (Limited ? job.cap : 0);
    const uint8_t* anchor = src;

    if (job.len >= kSearchEndMargin + 2) {
        const uint8_t* const search_end = iend - kSearchEndMargin;
        // Derived from search_end where needed, which spares a register
        // in the search loops.
        auto match_limit = [search_end] { return search_end + (kSearchEndMargin - kLastLiterals); };
        const uint8_t* ip = src + 1;
        const uint8_t* ref = nullptr;
        bool in_dict = false;

        // One probe at p: returns the candidate's address or null.
        auto probe = [&](const uint8_t* p) -> const uint8_t* {
            // The fifth byte comes straight from memory as the CRC's
            // initial value (one zero-extending load; taking it out of an
            // 8-byte word costs a copy, a shift and an extension).
            const uint32_t word = load32(p);
            const uint32_t h = _mm_crc32_u32(p[4], word) & kMask;
            const uint32_t cur = uint32_t(p - base);
            const uint32_t cand = uint32_t(table[h]);
            table[h] = Entry(cur);
            if constexpr (M == Source::kPlain) {
                // Distance and content decided by one branch: every entry
                // names a position of this block at or before cur, so the
                // candidate can be read even when it is too far back.
                // (cur - cand) >> 16 is nonzero exactly when the candidate
                // lies more than 65535 bytes back.
                const uint8_t* const r = base + cand;
                const uint32_t far = kCheckDistance ? (cur - cand) >> 16 : 0;
                return ((load32(r) ^ word) | far) == 0 ? r : nullptr;
            }
            if (kCheckDistance && cur - cand > uint32_t(kMaxDistance)) return nullptr;
            const uint8_t* r;
            if constexpr (M == Source::kExtDict) {
                if (cand < src_idx) {
                    if (cand + 4 > dict_end) return nullptr;
                    r = dict + cand;
                    if (load32(r) != word) return nullptr;
                    in_dict = true;
                    return r;
                }
                // The decoder reads positions below the dictionary size from
                // the dictionary, so data there cannot be referenced.
                if (cand < uint32_t(job.dict_size)) return nullptr;
                in_dict = false;
            }
            r = base + cand;
            return load32(r) == word ? r : nullptr;
        };

        // Default schedule, phase one: step max(1, counter >> shift) with the
        // counter starting at the position, so positions 1..16 (short
        // sources, shift 4) or 1..63 (shift 6) are probed one by one.
        uint32_t counter = 1;
        unsigned shift = (M == Source::kPlain && sizeof(Entry) == 2) ? 4 : 6;
        // Fast schedule: step s = counter / 64, counter += 4 per group of three.
        size_t fast_counter = 64 * size_t(job.accel) + 4;
        size_t fast_step = size_t(job.accel);

        if constexpr (S == Search::kFast) {
            // Position 1 against position 0 finds a run of one repeated
            // pattern at once.
            table[hash5(src + 1, kMask)] = Entry(1);
            if (load32(src) == load32(src + 1)) {
                ref = src;
                goto found;
            }
            ip = src + 2;
        }

        for (;;) {
            if constexpr (S == Search::kDefault) {
                // While counter >> shift is 0 or 1 the step is 1: three
                // probes per pass, as many whole passes as both the counter
                // (up to 2 << shift) and the search end allow. The pass count
                // is fixed up front so the loop tests one pointer.
                {
                    const ptrdiff_t by_end = search_end - ip;
                    size_t passes = ((2u << shift) - counter) / 3;
                    if (by_end < ptrdiff_t(3 * passes)) passes = by_end > 0 ? size_t(by_end) / 3 : 0;
                    const uint8_t* const one_by_one_end = ip + 3 * passes;
                    while (ip != one_by_one_end) {
                        if ((ref = probe(ip))) goto found;
                        if ((ref = probe(ip + 1))) {
                            ip += 1;
                            goto found;
                        }
                        if ((ref = probe(ip + 2))) {
                            ip += 2;
                            goto found;
                        }
                        ip += 3;
                    }
                    counter += uint32_t(3 * passes);
                    // Passes cut short by the search end leave at most two
                    // positions, all probed at step 1 either way: raising the
                    // counter to step 1 changes no probe and spares the
                    // step-0 test below.
                    if (counter < (1u << shift)) counter = 1u << shift;
                }
                for (;;) {
                    if (ip >= search_end) goto last;
                    if ((ref = probe(ip))) goto found;
                    ip += counter++ >> shift;
                }
            } else {
                // Loop-local copies: the search keeps its counter and step in
                // registers rather than sharing them with the emission code.
                size_t counter4 = fast_counter, s = fast_step;
                for (;;) {
                    // One test for both "past the search end" and "the last
                    // probe of the group would be": addresses compared as
                    // integers, since ip + 2s may lie past the buffer.
                    if (uintptr_t(ip) + 2 * s >= uintptr_t(search_end)) {
                        while (ip < search_end) {
                            if ((ref = probe(ip))) goto found;
                            if (size_t(search_end - ip) <= s) break;
                            ip += s;
                        }
                        goto last;
                    }
                    if ((ref = probe(ip))) break;
                    if ((ref = probe(ip + s))) {
                        ip += s;
                        break;
                    }
                    if ((ref = probe(ip + 2 * s))) {
                        ip += 2 * s;
                        break;
                    }
                    ip += 3 * s;
                    counter4 += 4;
                    s = counter4 >> 6;
                }
            }

        found : {
            // Grow the match backwards over pending literals, then forwards.
            const uint8_t* const ref_low = (M == Source::kExtDict && in_dict) ? dict : hist_low;
            // Most matches do not grow backwards: one byte test decides.
            if (ip > anchor && ref > ref_low && ip[-1] == ref[-1]) {
                // Eight bytes at a time: the bytes just before ip are the
                // most significant ones of the word ending there.
                const size_t room = std::min(size_t(ip - anchor), size_t(ref - ref_low));
                size_t back = 0;
                for (;;) {
                    if (back + 8 > room) {
                        while (back < room && ip[-1 - ptrdiff_t(back)] == ref[-1 - ptrdiff_t(back)]) ++back;
                        break;
                    }
                    const uint64_t x = load64(ip - back - 8) ^ load64(ref - back - 8);
                    if (x) {
                        back += size_t(__builtin_clzll(x) >> 3);
                        break;
                    }
                    back += 8;
                }
                ip -= back;
                ref -= back;
            }
            size_t len;
            size_t offset;
            if (M == Source::kExtDict && in_dict) {
                const uint8_t* const dict_stop = dict + dict_end;
                const uint8_t* lim = match_limit();
                if (size_t(dict_stop - ref) < size_t(lim - ip)) lim = ip + (dict_stop - ref);
                len = kMinMatch + count_equal(ip + kMinMatch, ref + kMinMatch, lim);
                if (dict_runs_on && ip + len == lim && lim < match_limit())
                    len += count_equal(ip + len, src, match_limit());
                offset = size_t(src_idx) + size_t(ip - src) - size_t(ref - dict);
            } else {
                // A search position lies more than 28 bytes before the end,
                // so the first word compare needs no limit test.
                len = kMinMatch + count_equal_far(ip + kMinMatch, ref + kMinMatch, match_limit());
                offset = size_t(ip - ref);
            }

            const size_t lit = size_t(ip - anchor);
            if constexpr (Limited) {
                // Token, literals and their length bytes (one per 128,
                // generously) must end 8 bytes before the capacity, and the
                // whole sequence must leave room for a closing run of at
                // least 5 literals (the source always has them: no match
                // reaches into its last 5 bytes). Decoders rely on a block
                // never ending within 8 bytes of a sequence's literals.
                const size_t avail = size_t(oend - op);
                if (avail < 8 || lit + lit / 128 + 2 > avail - 8) goto last;
                const size_t need = 1 + lit + (lit >= 15 ? detail::extension_bytes(lit - 15) : 0) + 2 +
                                    (len - kMinMatch >= 15 ? detail::extension_bytes(len - kMinMatch - 15) : 0);
                if (need + 1 + kLastLiterals > avail) goto last;
            }
            uint8_t* const token = op++;
            if (lit >= 15) {
                *token = 0xF0;
                op = detail::put_extension(op, lit - 15);
            } else {
                *token = uint8_t(lit << 4);
            }
            // Literals end at least 28 bytes before the source end, so 16-byte
            // blocks never read past it; the unlimited forms may write up to
            // 15 bytes past the literals (inside the worst-case capacity).
            if (!Limited || size_t(oend - op) >= lit + 16) {
                uint8_t* d = op;
                const uint8_t* a = anchor;
                uint8_t* const e = op + lit;
                do {
                    copy16(d, a);
                    d += 16;
                    a += 16;
                } while (d < e);
            } else {
                std::memcpy(op, anchor, lit);
            }
            op += lit;
            store16(op, uint16_t(offset));
            op += 2;
            const size_t ml = len - kMinMatch;
            if (ml >= 15) {
                *token |= 15;
                op = detail::put_extension(op, ml - 15);
            } else {
                *token |= uint8_t(ml);
            }
            ip += len;
            anchor = ip;
            // Phase two: after a short literal run the next 48 positions one
            // by one (counter 80..127 >> 6 == 1), then steps from 2; after a
            // long run straight to the steps.
            counter = lit <= 63 ? 80 : 128;
            shift = 6;
            // Fast schedule: the step restarts at the acceleration, except
            // that the first group after a match probes at a quarter of it
            // (positions 0, 1, 2 past the match end up to acceleration 4; the
            // counter reaches 64 * accel + 4 after the group). A sequence very
            // often follows its predecessor within a few bytes, and probing
            // only every `accel`-th position there costs about 8% of size at
            // acceleration 8.
            fast_counter = 64 * size_t(job.accel);
            fast_step = (size_t(job.accel) + 3) / 4;
        }
        }
    }

last : {
    size_t n = size_t(src + job.len - anchor);
    if constexpr (Limited) {
        const size_t fit = detail::closing_run_fit(size_t(oend - op));
        if (n > fit) n = fit;
    }
    if (n >= 15) {
        *op++ = 0xF0;
        op = detail::put_extension(op, n - 15);
    } else {
        *op++ = uint8_t(n << 4);
    }
    std::memcpy(op, anchor, n);
    op += n;
    return EncodeResult{int(anchor + n - src), int(op - job.dst)};
}
}

}  // namespace nux::lz4
