// The benchmarks' clock.
#pragma once

#include <time.h>

namespace vai_bench {

// Thread CPU time, so that time slices lost to other processes on a shared machine do not count.
inline double Now() {
    timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return ts.tv_sec + ts.tv_nsec * 1e-9;
}

}  // namespace vai_bench
