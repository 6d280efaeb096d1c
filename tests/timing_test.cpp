#include "algocore/utils/timing.h"

#include <gtest/gtest.h>

namespace {

struct DiffCase {
    timespec start;
    timespec end;
    int64_t us;
};

TEST(Timing, DiffInMicroseconds) {
    const DiffCase cases[] = {
        {{5, 999999000}, {6, 1000}, 2},
        {{0, 0}, {1, 0}, 1000000},
        {{10, 500}, {10, 1499}, 0},       // truncates toward zero
        {{6, 1000}, {5, 999999000}, -2},  // earlier end: negative
        {{10, 1499}, {10, 500}, 0},       // -999 ns truncates to 0, not -1
        {{0, 0}, {3000000000LL, 0}, 3000000000000000LL},
    };
    for (const DiffCase& c : cases) {
        EXPECT_EQ(util_get_timestamp_diff_us(c.start, c.end), c.us)
            << c.start.tv_sec << "." << c.start.tv_nsec << " -> " << c.end.tv_sec << "." << c.end.tv_nsec;
    }
}

TEST(Timing, TimestampsAreMonotonic) {
    const timespec a = util_get_timestamp();
    const timespec b = util_get_timestamp();
    EXPECT_GE(util_get_timestamp_diff_us(a, b), 0);
    EXPECT_TRUE(a.tv_sec > 0 || a.tv_nsec > 0);
}

}  // namespace
