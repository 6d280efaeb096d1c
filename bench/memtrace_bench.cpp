// Cost of the traced bounded copy against the C library's memcpy, measured side by side in each
// iteration so both see the same caches. "ratio" is traced time over plain time.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "algocore/memory/ALGOGalloc.h"
#include "algocore/memory/ALGONativeGalloc.h"
#include "algocore/utils/LogPrintf.h"

namespace {

using vemo::AlgorithmMemory;
using vemo::Native;
using Clock = std::chrono::steady_clock;

constexpr unsigned long kMaxBlocks = 100000;
constexpr unsigned long kFillerSize = 32;
constexpr unsigned long kMaxCopy = 1ul << 20;

// Filler blocks live in one arena that is never touched; only their registry entries matter.
struct Registry {
    std::vector<unsigned char> arena = std::vector<unsigned char>(kMaxBlocks * kFillerSize);
    unsigned long registered = 0;
    unsigned char* src = static_cast<unsigned char*>(std::aligned_alloc(64, kMaxCopy));
    unsigned char* dst = static_cast<unsigned char*>(std::aligned_alloc(64, kMaxCopy));

    Registry() {
        vemo::LogPrintf::mLogLevel = 0;
        AlgorithmMemory::memTraceInit(256);
        std::memset(src, 1, kMaxCopy);
        std::memset(dst, 2, kMaxCopy);
        AlgorithmMemory::mapInsert(src, kMaxCopy, 0, __FILE__, __LINE__);
        AlgorithmMemory::mapInsert(dst, kMaxCopy, 0, __FILE__, __LINE__);
    }

    // Copy buffers plus `blocks` fillers, the rest of the registry left as it is.
    void Hold(unsigned long blocks) {
        AlgorithmMemory::sDebugEnable = 1;
        for (; registered < blocks; ++registered) {
            AlgorithmMemory::mapInsert(arena.data() + registered * kFillerSize, kFillerSize, 0, __FILE__,
                                       __LINE__);
        }
        for (; registered > blocks; --registered) {
            AlgorithmMemory::mapDelete(arena.data() + (registered - 1) * kFillerSize, __FILE__, __LINE__);
        }
    }
};

Registry& TheRegistry() {
    static Registry registry;
    return registry;
}

void BM_NativeMemcpy(benchmark::State& state) {
    unsigned long size = static_cast<unsigned long>(state.range(0));
    const unsigned long blocks = static_cast<unsigned long>(state.range(1));
    const bool tracing = state.range(2) != 0;
    Registry& r = TheRegistry();
    r.Hold(blocks);
    AlgorithmMemory::sDebugEnable = tracing ? 1 : 0;

    const int batch = size <= 4096 ? 1024 : 2;
    unsigned char* dst = r.dst;
    void* src = r.src;
    benchmark::DoNotOptimize(size);  // keep the baseline a real call with a run-time size
    double plain = 0;
    double traced = 0;
    for (auto _ : state) {
        const auto t0 = Clock::now();
        for (int i = 0; i < batch; ++i) {
            std::memcpy(dst, src, size);
            benchmark::ClobberMemory();
        }
        const auto t1 = Clock::now();
        for (int i = 0; i < batch; ++i) {
            benchmark::DoNotOptimize(Native::memcpy(dst, src, kMaxCopy, kMaxCopy, size, __FILE__, __LINE__));
            benchmark::ClobberMemory();
        }
        const auto t2 = Clock::now();
        plain += std::chrono::duration<double>(t1 - t0).count();
        traced += std::chrono::duration<double>(t2 - t1).count();
        state.SetIterationTime(std::chrono::duration<double>(t2 - t1).count());
    }
    state.counters["ratio"] = plain > 0 ? traced / plain : 0;
    // One iteration is a batch of traced copies; the rate counts bytes of the traced copies only.
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * batch * static_cast<int64_t>(size));
    AlgorithmMemory::sDebugEnable = 1;
}

void Args(benchmark::internal::Benchmark* b) {
    b->ArgNames({"bytes", "blocks", "traced"});
    for (long blocks : {10l, 1000l, 100000l}) {
        for (long bytes : {64l, 1l << 20}) {
            for (long traced : {0l, 1l}) b->Args({bytes, blocks, traced});
        }
    }
}

BENCHMARK(BM_NativeMemcpy)->Apply(Args)->UseManualTime();

}  // namespace

BENCHMARK_MAIN();
