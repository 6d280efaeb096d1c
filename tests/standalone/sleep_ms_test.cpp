// Interposes select() to see the time-out sleep_ms asks for, without waiting for it.
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

struct SleepCase {
    unsigned int ms;
    long sec;
    long usec;
};

TEST(SleepMs, SplitsIntoSecondsAndWrappedMicroseconds) {
    const SleepCase cases[] = {
        {0, 0, 0},
        {1, 0, 1000},
        {999, 0, 999000},
        {1500, 1, 500000},
        {4294967, 4294, 967000},
        // ms * 1000 wraps in 32 bits: 4294968000 mod 2^32 = 704, so 704 us.
        {4294968, 4294, 704},
        {4294967295u, 4294967, static_cast<long>((4294967295u * 1000u) % 1000000u)},
    };
    for (const SleepCase& c : cases) {
        gCalls = 0;
        EXPECT_EQ(sleep_ms(c.ms), 0);
        EXPECT_EQ(gCalls, 1);
        EXPECT_EQ(gLast.tv_sec, c.sec) << c.ms;
        EXPECT_EQ(gLast.tv_usec, c.usec) << c.ms;
    }
}

TEST(SleepMs, ReturnsWhatSelectReturns) {
    gFake = false;
    EXPECT_EQ(sleep_ms(0), 0);
    const timespec t0 = util_get_timestamp();
    EXPECT_EQ(sleep_ms(20), 0);
    EXPECT_GE(util_get_timestamp_diff_us(t0, util_get_timestamp()), 19000);
    gFake = true;
}

}  // namespace
