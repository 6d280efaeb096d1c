// Timing helpers. select() is interposed to see the time-out sleep_ms asks for,
// without waiting for it.
#include <sys/select.h>

#include <gtest/gtest.h>

#include "algocore/utils/timing.h"

namespace {
timeval gLast{};
}  // namespace

extern "C" int select(int, fd_set*, fd_set*, fd_set*, timeval* tv) {
    if (tv != nullptr) gLast = *tv;
    return 0;
}

namespace {

// Truncated toward zero, negative for an earlier end; timestamps are the monotonic clock's.
TEST(Timing, DiffInMicroseconds) {
    const struct {
        timespec start, end;
        int64_t us;
    } cases[] = {{{5, 999999000}, {6, 1000}, 2}, {{0, 0}, {1, 0}, 1000000},
                 {{10, 500}, {10, 1499}, 0},     {{6, 1000}, {5, 999999000}, -2},
                 {{10, 1499}, {10, 500}, 0},     {{0, 0}, {3000000000LL, 0}, 3000000000000000LL}};
    for (const auto& c : cases) {
        EXPECT_EQ(util_get_timestamp_diff_us(c.start, c.end), c.us)
            << c.start.tv_sec << "." << c.start.tv_nsec;
    }
    timespec before{}, after{};
    clock_gettime(CLOCK_MONOTONIC, &before);
    const timespec now = util_get_timestamp();
    clock_gettime(CLOCK_MONOTONIC, &after);
    EXPECT_GE(util_get_timestamp_diff_us(before, now), 0);
    EXPECT_GE(util_get_timestamp_diff_us(now, after), 0);
}

// ms * 1000 is taken in 32 bits: 4294968000 wraps to 704, so 704 us.
TEST(SleepMs, SplitsIntoSecondsAndWrappedMicroseconds) {
    const struct {
        unsigned int ms;
        long sec, usec;
    } cases[] = {{1, 0, 1000}, {1500, 1, 500000}, {4294968, 4294, 704}, {4294967295u, 4294967, 966296}};
    for (const auto& c : cases) {
        EXPECT_EQ(sleep_ms(c.ms), 0);
        EXPECT_EQ(gLast.tv_sec * 1000000 + gLast.tv_usec, c.sec * 1000000 + c.usec) << c.ms;
    }
}

}  // namespace
