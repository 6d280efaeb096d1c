// Monotonic time stamps and waits for the back-ends' elapsed-time lines.
#pragma once

#include <cstdint>
#include <ctime>

#include "interface/vai_export.h"

VAI_EXPORT timespec util_get_timestamp();
// Microseconds from `start` to `end` (negative when `end` is earlier).
VAI_EXPORT int64_t util_get_timestamp_diff_us(timespec start, timespec end);
VAI_EXPORT int sleep_ms(unsigned int ms);

namespace vai {

// Microseconds as the elapsed-time lines print them (%ld).
inline long ElapsedUs(timespec from, timespec to) {
    return static_cast<long>(util_get_timestamp_diff_us(from, to));
}

}  // namespace vai
