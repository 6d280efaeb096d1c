// Helpers the back-ends share to pick strengths from per-camera ISO bin tables.
#pragma once

#include <cstdint>

namespace vai {

// Bins a table of `capacity` entries really uses: BinNumber 0 counts as one bin, so nothing reads
// before the table, and more than the table holds is clamped.
inline uint32_t UsedBins(uint32_t bin_number, uint32_t capacity) {
    const uint32_t n = bin_number == 0 ? 1 : bin_number;
    return n > capacity ? capacity : n;
}

// Truncation toward zero of a gain difference; out-of-range values (unsorted tables, absurd gains)
// wrap instead of being undefined.
inline uint32_t TruncWeight(float v) {
    if (!(v == v)) return 0;
    if (v >= 9.2e18f) return UINT32_MAX;
    if (v <= -9.2e18f) return 0;
    return static_cast<uint32_t>(static_cast<int64_t>(v));
}

// Where a gain falls in a table of ascending bin bounds, and the weights of the two bins around it.
struct IsoBinPos {
    enum Kind { kFirst, kLast, kBetween, kNone } kind = kNone;  // kNone: no bin (a NaN gain)
    // The bin taken, or for kBetween the lower of the two.
    uint32_t lo = 0;
    uint32_t w_lo = 0, w_hi = 0, range = 0;
};

// Below bins[0]: the first bin; at or above bins[used - 1]: the last used one; otherwise between the
// first two neighbours that enclose the gain. Bounds are compared as floats.
inline IsoBinPos FindIsoBin(const uint32_t* bins, uint32_t used, float gain) {
    IsoBinPos p;
    if (gain < static_cast<float>(bins[0])) {
        p.kind = IsoBinPos::kFirst;
        return p;
    }
    if (gain >= static_cast<float>(bins[used - 1])) {
        p.kind = IsoBinPos::kLast;
        p.lo = used - 1;
        return p;
    }
    for (uint32_t i = 0; i + 1 < used; ++i) {
        if (gain < static_cast<float>(bins[i + 1])) {
            p.kind = IsoBinPos::kBetween;
            p.lo = i;
            p.range = bins[i + 1] - bins[i];
            p.w_lo = TruncWeight(static_cast<float>(bins[i + 1]) - gain);
            p.w_hi = TruncWeight(gain - static_cast<float>(bins[i]));
            return p;
        }
    }
    return p;
}

// The table's value at `p`, in 32-bit unsigned arithmetic; 0 for kNone and for an empty range.
inline uint32_t IsoBinValue(const uint32_t* table, const IsoBinPos& p) {
    switch (p.kind) {
        case IsoBinPos::kFirst:
        case IsoBinPos::kLast:
            return table[p.lo];
        case IsoBinPos::kBetween:
            return p.range == 0 ? 0 : (table[p.lo] * p.w_lo + table[p.lo + 1] * p.w_hi) / p.range;
        case IsoBinPos::kNone:
            break;
    }
    return 0;
}

}  // namespace vai
