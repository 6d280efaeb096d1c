// Timing helpers. select() is interposed to see the time-out sleep_ms asks for, without waiting for it.
#include <dlfcn.h>
#include <sys/select.h>

#include <gtest/gtest.h>

#include "algocore/utils/timing.h"

namespace {
bool gFake = true;
int gCalls = 0;
timeval gLast{};
}  // namespace

extern "C" int select(int nfds, fd_set* r, fd_set* w, fd_set* e, timeval* tv) {
    ++gCalls;
    if (tv != nullptr) gLast = *tv;
    if (gFake) return 0;
    using Fn = int (*)(int, fd_set*, fd_set*, fd_set*, timeval*);
    static Fn real = reinterpret_cast<Fn>(dlsym(RTLD_NEXT, "select"));
    return real(nfds, r, w, e, tv);
}

namespace {

// Truncated toward zero, negative for an earlier end.
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
}

// ms * 1000 is taken in 32 bits: 4294968000 wraps to 704, so 704 us.
TEST(SleepMs, SplitsIntoSecondsAndWrappedMicroseconds) {
    const struct {
        unsigned int ms;
        long sec, usec;
    } cases[] = {{0, 0, 0},
                 {1, 0, 1000},
                 {999, 0, 999000},
                 {1500, 1, 500000},
                 {4294967, 4294, 967000},
                 {4294968, 4294, 704},
                 {4294967295u, 4294967, static_cast<long>((4294967295u * 1000u) % 1000000u)}};
    for (const auto& c : cases) {
        gCalls = 0;
        EXPECT_EQ(sleep_ms(c.ms), 0);
        EXPECT_EQ(gCalls, 1);
        EXPECT_EQ(gLast.tv_sec * 1000000 + gLast.tv_usec, c.sec * 1000000 + c.usec) << c.ms;
    }
}

// Real waits, measured on the monotonic clock.
TEST(SleepMs, WaitsOnTheMonotonicClock) {
    gFake = false;
    EXPECT_EQ(sleep_ms(0), 0);
    const timespec t0 = util_get_timestamp();
    EXPECT_EQ(sleep_ms(20), 0);
    const timespec t1 = util_get_timestamp();
    gFake = true;
    timespec raw{};
    clock_gettime(CLOCK_MONOTONIC, &raw);
    EXPECT_GE(util_get_timestamp_diff_us(t0, t1), 19000);
    EXPECT_TRUE(util_get_timestamp_diff_us(t1, raw) >= 0 && util_get_timestamp_diff_us(t1, raw) < 5000000);
}

}  // namespace
