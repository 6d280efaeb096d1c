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

}  // namespace vai
