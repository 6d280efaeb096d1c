#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include "algocore/memory/ALGONativeGalloc.h"
#include "memory_trace_fixture.h"

namespace {

using vemo::Native;

constexpr const char* kFile = "stress.cpp";

struct Block {
    unsigned char* p;
    unsigned long size;
};

// One worker: allocates, fills, copies, checks and frees its own blocks through the traced calls.
void Work(unsigned seed, int iterations, unsigned long* maxSeen) {
    std::mt19937 rng(seed);
    std::uniform_int_distribution<unsigned long> sizeOf(1, 2048);
    std::vector<Block> live;
    for (int i = 0; i < iterations; ++i) {
        const unsigned op = rng() % 6;
        if (live.size() < 2 || op == 0) {
            const unsigned long size = sizeOf(rng);
            auto* p = static_cast<unsigned char*>(Native::malloc(size, kFile, __LINE__));
            ASSERT_NE(p, nullptr);
            Native::memset(p, static_cast<int>(size & 0xFF), size, kFile, __LINE__);
            live.push_back({p, size});
        } else if (op == 1) {
            Block& a = live[rng() % live.size()];
            Block& b = live[rng() % live.size()];
            if (a.p == b.p) continue;
            const unsigned long n = std::min(a.size, b.size);
            ASSERT_EQ(Native::memcpy(a.p, static_cast<void*>(b.p), a.size, b.size, n, kFile, __LINE__), a.p);
        } else if (op == 2) {
            const Block& a = live[rng() % live.size()];
            const unsigned long at = rng() % a.size;
            ASSERT_TRUE(vemo::AlgorithmMemory::checkMemcpyAddr(a.p + at, 0, 1, a.size - at, kFile, __LINE__));
            ASSERT_EQ(Native::get(a.p, at, 1, a.size - at, kFile, __LINE__), a.p + at);
        } else if (op == 3) {
            Block& a = live[rng() % live.size()];
            const unsigned long size = sizeOf(rng);
            auto* p = static_cast<unsigned char*>(Native::realloc(a.p, size, kFile, __LINE__));
            ASSERT_NE(p, nullptr);
            a = {p, size};
        } else {
            const size_t at = rng() % live.size();
            Native::free(live[at].p, kFile, __LINE__);
            live.erase(live.begin() + static_cast<long>(at));
        }
        if (i % 64 == 0) {
            const unsigned long total = vemo::AlgorithmMemory::getTotalMemSize();
            if (total > *maxSeen) *maxSeen = total;
        }
    }
    for (const Block& b : live) Native::free(b.p, kFile, __LINE__);
}

using StressTest = MemoryTraceLogTest;

TEST_F(StressTest, ConcurrentTracedTrafficBalancesToZero) {
    HostTrace host;
    vemo::APSMemMapInfo info = host.Info();
    ASSERT_EQ(APS::setAPSMemInfo(&info), 0);
    StartTracing();

    constexpr int kThreads = 4;
    constexpr int kIterations = 20000;
    std::vector<unsigned long> maxSeen(kThreads, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) threads.emplace_back(Work, 1234u + t, kIterations, &maxSeen[t]);
    for (std::thread& t : threads) t.join();

    EXPECT_EQ(AM::getTotalMemSize(), 0u);
    EXPECT_TRUE(AM::sMemMap.empty());
    EXPECT_TRUE(host.memMap.empty());
    EXPECT_EQ(host.usingSize, 0u);
    unsigned long peak = 0;
    for (unsigned long m : maxSeen) peak = std::max(peak, m);
    EXPECT_GT(peak, 0u);
    EXPECT_GE(AM::getInternalMemMaxSize(), peak);
    // No check may have failed and no block may have been lost or registered twice.
    EXPECT_FALSE(log_.Contains("[ERROR]"));
    EXPECT_FALSE(log_.Contains("not in map"));
}

}  // namespace
