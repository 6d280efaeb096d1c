// The memory trace: traced native operations, the registry, its reports and final check, the host hand-off.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "algocore/memory/ALGOGalloc.h"
#include "algocore/memory/ALGONativeGalloc.h"
#include "algocore/memory/APSAlgoMemTrace.h"
#include "algocore/utils/LogPrintf.h"
#include "algocore/utils/Properties.h"
#include "log_capture.h"
#include "vai_host_platform.h"

namespace {

using vemo::Native;
using AM = vemo::AlgorithmMemory;
using APS = vemo::APSAlgoMemTrace;
using N = unsigned long;
using P = void*;
using CV = const void*;

constexpr const char* kF = "caller.cpp";
constexpr int kL = 42;
const std::string kRefusal = "Native memcpy error! Source File: caller.cpp, Line Num: 42 ";
const std::string kFillRefusal = "Native memset error! Source File: caller.cpp, Line Num: 42 ";
const std::string kComplaint = "Native out of memory! Source File: caller.cpp, Line Num: 42 ";

// Addresses the registry records but never dereferences.
alignas(64) unsigned char gArena[1 << 14];
unsigned char* const A = gArena + 1024;

class MemoryTraceTest : public ::testing::Test {
  protected:
    void SetUp() override { initNumber_ = AM::sInitNumber.load(); }

    // Whatever a test registered it must also have released; tracing ends off, the hand-off disabled.
    void TearDown() override {
        EXPECT_TRUE(AM::sMemMap.empty());
        EXPECT_EQ(AM::sNativeUsingSize + AM::sExternalUsingSize + AM::sVirtureUsingSize, 0u);
        AM::sDebugEnable = 0;
        AM::sInitNumber = initNumber_;
        for (auto* m : {&AM::sMemMap, &AM::sRefNum, &AM::sGBMap}) m->clear();
        for (auto* m : {&AM::sGLTextureMap, &AM::sGLBufferMap, &AM::sGLVaoMap}) m->clear();
        AM::sGLContextMap.clear();
        AM::sNativeUsingSize = AM::sNativeUsingMaxSize = AM::sExternalUsingSize = AM::sVirtureUsingSize = 0;
        APS::sAPSMemEnable = 0;
        APS::sAPSMemInfo = {};
        vai_host_reset_properties();
    }

    // Opens a tracing period and forgets its log lines.
    void StartTracing() {
        AM::memTraceInit(256);
        if (log_) log_->Clear();
    }

    ScopedValue<unsigned int> mask_{vemo::LogPrintf::mLogLevel,
                                    vemo::LogPrintf::kError | vemo::LogPrintf::kInfo};
    // Death tests drop it: captured lines never reach the stderr their matchers read.
    std::unique_ptr<LogCapture> log_ = std::make_unique<LogCapture>();
    int32_t initNumber_ = 0;
};

// The fills and copies: complaints while tracing per side outside its block, and their overlap handling.
enum Overlap { kCopies, kReports, kRefuses };  // kReports: copies, and complains while tracing
const struct {
    void* (*op)(void* dst, void* src, N dstSize, N srcSize, N size);
    bool fill;
    size_t dstChecks, srcChecks;
    Overlap overlap;
} kOps[] = {
    {[](P d, P, N, N, N n) { return Native::memset(d, 3, n, kF, kL); }, true, 1, 0, kCopies},
    {[](P d, P, N, N, N n) { return Native::defectMemset(d, 3, n, kF, kL); }, true, 0, 0, kCopies},
    {[](P d, P s, N, N, N n) { return Native::defectMemcpy(d, s, n, kF, kL); }, false, 1, 1, kCopies},
    {[](P d, P s, N, N, N n) { return Native::defectMemcpy(d, CV(s), n, kF, kL); }, false, 1, 0, kCopies},
    {[](P d, P s, N ds, N ss, N n) { return Native::memcpy(d, s, ds, ss, n, kF, kL); }, false, 2, 2,
     kRefuses},
    {[](P d, P s, N ds, N ss, N n) { return Native::memcpy(d, CV(s), ds, ss, n, kF, kL); }, false, 2, 0,
     kRefuses},
    {[](P d, P s, N ds, N ss, N n) { return Native::memncpy(d, s, 0, 1, ds, 0, 1, ss, n, kF, kL); }, false, 1,
     1, kReports},
};

// Every rule of the traced operations holds with tracing off and on; only the complaints differ.
class NativeTest : public MemoryTraceTest, public ::testing::WithParamInterface<bool> {
  protected:
    void SetUp() override {
        MemoryTraceTest::SetUp();
        if (tracing_) StartTracing();
    }

    const bool tracing_ = GetParam();
};

INSTANTIATE_TEST_SUITE_P(Tracing, NativeTest, ::testing::Bool());

TEST_P(NativeTest, EachOperationRefusesNullOrEmptyArgumentsAndReportsSidesOutsideTheirBlock) {
    std::vector<unsigned char> own(64), other(64);
    unsigned char *const o = own.data(), *const x = other.data();
    Native::attach(o, 32, kF, kL);  // only half of it registered
    const struct {
        unsigned char *dst, *src;
        N size;
    } args[] = {{nullptr, x, 4}, {x, nullptr, 4}, {x, o, 0}, {o, x, 32}, {x, o, 32}, {o, x, 48}, {x, o, 48}};
    for (const auto& op : kOps) {
        for (const auto& a : args) {
            SCOPED_TRACE(::testing::Message() << "op " << &op - kOps << " args " << &a - args);
            std::fill(own.begin(), own.end(), 5);
            std::fill(other.begin(), other.end(), 9);
            log_->Clear();
            const bool refused = a.dst == nullptr || a.size == 0 || (!op.fill && a.src == nullptr);
            EXPECT_EQ(op.op(a.dst, a.src, a.size, a.size, a.size), refused ? nullptr : a.dst);
            EXPECT_EQ(log_->Count(op.fill ? kFillRefusal : kRefusal), refused ? 1u : 0u);
            if (refused) continue;
            EXPECT_EQ(std::count(a.dst, a.dst + 48, op.fill ? 3 : a.src[0]), static_cast<long>(a.size));
            EXPECT_EQ(log_->Count(kComplaint),
                      tracing_ && a.size > 32 ? (a.dst == o ? op.dstChecks : op.srcChecks) : 0);
        }
    }
    Native::detach(o, kF, kL);
}

// The bounded copies copy the one short side and refuse two, or overlapping sides; the others move.
TEST_P(NativeTest, CopiesFollowTheirSizeAndOverlapRules) {
    const struct {
        int dstAt, srcAt;
        N dstSize, srcSize, size;
        long bounded;  // bytes the bounded copies copy, -1 when they refuse
        const char* overlap;
    } cases[] = {
        {0, 128, 80, 80, 80, 80, nullptr},          {0, 128, 100, 50, 80, 50, nullptr},
        {0, 128, 50, 100, 80, 50, nullptr},         {0, 128, 79, 80, 80, 79, nullptr},
        {0, 128, 50, 50, 80, -1, nullptr},          {0, 10, 64, 64, 20, -1, "right memory :10"},
        {10, 0, 64, 64, 20, -1, "left memory :10"}, {5, 5, 64, 64, 1, -1, "right memory :1"},
        {0, 20, 64, 64, 20, 20, nullptr},           {20, 0, 64, 64, 20, 20, nullptr},
    };
    for (const auto& c : cases) {
        for (const auto& o : kOps) {
            if (o.fill || (o.overlap != kRefuses && !c.overlap)) continue;  // the others only for overlap
            SCOPED_TRACE(::testing::Message() << "case " << &c - cases << " op " << &o - kOps);
            unsigned char buf[256], want[256];
            for (int i = 0; i < 256; ++i) buf[i] = want[i] = static_cast<unsigned char>(i);
            const long copied = o.overlap == kRefuses ? c.bounded : static_cast<long>(c.size);
            if (copied > 0) std::memmove(want + c.dstAt, want + c.srcAt, copied);
            log_->Clear();
            EXPECT_EQ(o.op(buf + c.dstAt, buf + c.srcAt, c.dstSize, c.srcSize, c.size),
                      copied < 0 ? nullptr : buf + c.dstAt);
            EXPECT_EQ(0, std::memcmp(buf, want, sizeof(buf)));
            const bool shortSide = !c.overlap && (c.dstSize < c.size || c.srcSize < c.size);
            EXPECT_EQ(log_->Count(kRefusal + "dstSize: " + std::to_string(c.dstSize)), shortSide ? 1u : 0u);
            const bool reported = c.overlap && (o.overlap == kRefuses || (tracing_ && o.overlap == kReports));
            EXPECT_EQ(log_->Count(kComplaint), reported ? 1u : 0u);
            EXPECT_TRUE(!reported || log_->Contains(std::string("override ") + c.overlap));
        }
    }
}

TEST_P(NativeTest, OffsetCopyClampsToTheShortestSide) {
    const struct {
        N dstOff, dstElem, dstSize, srcOff, srcElem, srcSize, size;
        long to;  // the result's byte offset from dst
        N from, copied;
    } cases[] = {
        {1, 2, 16, 10, 3, 100, 6, 2, 30, 6},
        {4, 1, 16, 0, 1, 16, 12, 4, 0, 12},
        {2, 4, 16, 0, 1, 100, 12, 8, 0, 8},
        {0, 1, 16, 95, 1, 100, 10, 0, 95, 5},
        {0, 1, 8, 0, 1, 6, 10, 0, 0, 6},
        {16, 1, 16, 0, 1, 16, 4, 16, 0, 0},
        {(1ul << 32) + 4, 1, 16, 0, 1, 16, 4, 4, 0, 4},      // byte offsets are 32-bit
        {1ul << 30, 2, 16, 0, 1, 16, 4, -(1l << 31), 0, 0},  // and signed
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        std::vector<unsigned char> dst(64, 0xEE), src(128);
        for (size_t i = 0; i < src.size(); ++i) src[i] = static_cast<unsigned char>(i);
        void* r = Native::memncpy(dst.data(), src.data(), c.dstOff, c.dstElem, c.dstSize, c.srcOff, c.srcElem,
                                  c.srcSize, c.size, kF, kL);
        EXPECT_EQ(reinterpret_cast<intptr_t>(r) - reinterpret_cast<intptr_t>(dst.data()), c.to);
        std::vector<unsigned char> want(64, 0xEE);
        if (c.copied != 0) std::memcpy(&want[c.to], &src[c.from], c.copied);
        EXPECT_EQ(dst, want);
    }
}

TEST_P(NativeTest, AllocationsAreRegisteredCountedAndCheckedOnlyWhileTracing) {
    const N on = tracing_ ? 1 : 0;
    void* m = Native::malloc(64, kF, kL);
    auto* c = static_cast<unsigned char*>(Native::calloc(4, 16, kF, 7));
    ASSERT_TRUE(m != nullptr && c != nullptr);
    m = Native::realloc(m, 256, kF, kL);
    Native::create(m, 999, kF, 7);  // already registered: the first registration stays
    EXPECT_EQ(AM::mapFind(m) + AM::mapFind(c), 320 * on);
    void* mapped =
        Native::mmap(nullptr, 8192, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0, kF, kL);
    EXPECT_EQ(AM::mapFind(mapped), 8192 * on);
    EXPECT_EQ(Native::munmap(mapped, 8192, kF, kL), 0);
    unsigned char borrowed[40];
    EXPECT_EQ(Native::attach(borrowed, 40, kF, kL), borrowed);
    EXPECT_EQ(AM::getInternalMemSize() * 1000 + AM::getTotalMemSize(), 320360 * on);
    Native::detach(borrowed, kF, kL);

    // Allocating nothing is refused before the C library is asked; a refused realloc keeps its block.
    EXPECT_FALSE(Native::malloc(0, kF, kL) || Native::calloc(4, 0, kF, kL) || Native::realloc(m, 0, kF, kL));
    EXPECT_EQ(Native::get(c, 15, 4, 4, kF, kL), c + 60);  // refused while tracing: out of, or not at, a block
    EXPECT_EQ(Native::get(c, 15, 4, 5, kF, kL), tracing_ ? nullptr : c + 60);
    for (void* p : {static_cast<void*>(c), m, static_cast<void*>(nullptr)}) Native::free(p, kF, kL);
    EXPECT_EQ(AM::getTotalMemSize(), 0u);
    EXPECT_EQ(AM::getInternalMemMaxSize(), (320 + 8192) * on);
    Native::create(nullptr, 16, kF, kL);
    EXPECT_EQ(Native::attach(nullptr, 16, kF, kL), nullptr);
    EXPECT_EQ(log_->Count("Native new error! Source File: caller.cpp, Line Num: 42"), 1u);
    EXPECT_EQ(log_->Count("Native malloc error! Source File: caller.cpp, Line Num: 42"), tracing_ ? 1u : 0u);
}

// Each init re-decides whether anything is traced; while nothing is, the registry takes nothing in.
TEST_F(MemoryTraceTest, TraceInitFollowsTheModeOrTheDebugProperty) {
    const struct {
        const char* property;  // null: unset
        int mode, enabled, returned;
    } cases[] = {{nullptr, 256, 1, 0}, {"0", 256, 1, 0},   {"2", 256, 1, 2}, {"1", 0, 1, 1},
                 {"2", 0, 0, 2},       {nullptr, 0, 0, 0}, {"1", 255, 1, 1}, {"abc", 1, 0, 0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        vai_host_reset_properties();
        ASSERT_EQ(c.property ? property_set("vendor.camera.mem.debug.enable", c.property) : 0, 0);
        const int32_t count = AM::sInitNumber.load() + 1;
        EXPECT_EQ(AM::memTraceInit(c.mode), c.returned);
        EXPECT_EQ(AM::sDebugEnable, c.enabled);
        EXPECT_EQ(AM::sInitNumber.load(), count);
        AM::nativeMemAdd(AM::mapInsert(A, 100, 0, kF, kL));
        AM::setInputHandle(A);
        EXPECT_EQ(AM::getTotalMemSize() + AM::getInternalMemMaxSize(), c.enabled ? 200u : 0u);
        EXPECT_EQ(AM::sInputHandle, c.enabled ? A : nullptr);
        EXPECT_EQ(AM::mapCheck(A, 100, 1, 1, kF, kL) && AM::checkMemcpyAddr(nullptr, 0, 1, 1, kF, kL),
                  !c.enabled);
        log_->Clear();
        AM::mapPrint(vemo::ALGO_HARDWARE_BUFFER);  // while off, only the switch is printed
        EXPECT_EQ(log_->Count("sDebugEnable: " + std::to_string(c.enabled)) + log_->Count("map print"),
                  c.enabled ? 3u : 1u);
        AM::nativeMemDec(AM::mapDelete(A, kF, kL));
        AM::sInputHandle = nullptr;
    }
}

// checkMemcpyAddr also finds a block by containment and accepts unknown memory; mapCheck wants the key.
TEST_F(MemoryTraceTest, RangeChecksFollowTheBlockTheyStartIn) {
    StartTracing();
    unsigned char *const B = A + 4096, *const C = B + 20;  // C is nested in B
    AM::nativeMemAdd(AM::mapInsert(A, 100, 0, kF, kL) + AM::mapInsert(B, 4096, 0, kF, kL));
    AM::externalMemAdd(AM::mapInsert(C, 10, 1, kF, kL));
    const struct {
        unsigned char* at;
        N offset, elem, size;
        bool copyOk, checkOk;
        N excess;  // reported beyond the block's end
    } cases[] = {
        {A, 0, 1, 100, true, true, 0},          {A, 0, 1, 101, false, false, 1},
        {A, 24, 4, 4, true, true, 0},           {A, 24, 4, 5, false, false, 1},
        {A, 100, 1, 1, false, false, 1},        {A, N(-1), 1, 1, false, false, 0},
        {A + 10, 0, 1, 90, true, false, 0},     {A + 10, 0, 1, 91, false, false, 1},
        {A + 100, 0, 1, 50, true, false, 0},    {A - 10, 0, 1, 50, true, false, 0},
        {C + 5, 0, 1, 50, true, false, 0},      {C, 0, 1, 11, false, false, 1},
        {B + 2000, 0, 1, 2096, true, false, 0}, {B + 2000, 0, 1, 3000, false, false, 904},
        // A size whose end wraps the address space must not land back inside the block.
        {A, 0, 1, N(-1), false, false, N(-101)}, {A + 50, 0, 1, N(-40), false, false, N(-90)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        log_->Clear();
        EXPECT_EQ(AM::checkMemcpyAddr(c.at, c.offset, c.elem, c.size, kF, kL), c.copyOk);
        EXPECT_EQ(log_->Contains("out of right memory size " + std::to_string(c.excess)), c.excess != 0);
        EXPECT_EQ(log_->Contains("out of left memory"), !c.copyOk && c.excess == 0);
        EXPECT_EQ(AM::mapCheck(c.at, c.offset, c.elem, c.size, kF, kL), c.checkOk);
    }
    EXPECT_FALSE(AM::checkMemcpyAddr(nullptr, 0, 1, 1, kF, kL) || AM::mapCheck(nullptr, 0, 1, 1, kF, kL));
    // Unknown addresses are refused silently on insertion, and reported when deleted or looked up.
    log_->Clear();
    EXPECT_EQ(AM::mapInsert(A, 0, 0, kF, kL) + AM::mapDelete(A + 1, kF, kL), 0u);
    EXPECT_EQ(AM::mapFind(A + 1), 0u);
    EXPECT_TRUE(log_->Contains("not in map!, Source File: caller.cpp, Line Num:42"));
    AM::externalMemDec(AM::mapDelete(C, kF, kL));
    AM::nativeMemDec(AM::mapDelete(B, kF, kL) + AM::mapDelete(A, kF, kL));
}

// Reports and the final check: attached, virtual and released memory is no leak.
TEST_F(MemoryTraceTest, OnlyTheLastPeriodChecksAndOnlyInternalMemoryLeaks) {
    StartTracing();
    StartTracing();
    void* block = Native::malloc(64, kF, kL);
    AM::externalMemAdd(AM::mapInsert(A, 16, 1, kF, kL));
    AM::virtureMemAdd(AM::virtureMapInsert(99, A + 256, 64, 2, kF, kL));  // removed by handle, lowest first
    AM::virtureMemAdd(AM::virtureMapInsert(99, A + 128, 8, 2, kF, kL));
    AM::sRefNum[A].size = AM::sGBMap[A].size = 4096;  // released: no reference left
    EXPECT_EQ(AM::memFinalCheck(), 0);                // a period is still open
    EXPECT_TRUE(log_->Contains("[memFinalCheck] sInitNumber:" + std::to_string(initNumber_ + 1)));
    Native::free(block, kF, kL);
    EXPECT_EQ(AM::memFinalCheck(), 0);
    EXPECT_TRUE(log_->Contains("release memory is OK!"));
    AM::externalMemDec(AM::mapDelete(A, kF, kL));
    EXPECT_EQ(AM::virtureMapDelete(99), 8u);
    AM::virtureMemDec(AM::virtureMapDelete(99) + 8);
}

using MemoryTraceDeathTest = MemoryTraceTest;

// A leak at the end of the last period prints the report of its kind alone, both leak lines, and aborts.
TEST_F(MemoryTraceDeathTest, LeaksAbortAfterTheirReport) {
    // Re-executing the binary fails under a user-mode emulator; there the child is forked as it is.
#ifdef VAI_TEST_UNDER_EMULATOR
    GTEST_FLAG_SET(death_test_style, "fast");
#else
    GTEST_FLAG_SET(death_test_style, "threadsafe");
#endif
    log_.reset();
    const std::string report[] = {
        "Total mem use is 80 B.*internal use is 64 B.*Max Native mem use is 64 B.*Line :00003 attach Native "
        "Memory.*Line :00042 allocate Native Memory.*Log Print X",
        "hardware buffer use is 4096 B.*allocate HardwareBuffer.*REFS: 1.*allocate HardwareBuffer.*REFS: 0.*"
        "graphic buffer use is 4096 B.*allocate GraphicBuffer.*Refs Print X",
        // Buffers and vertex arrays are not checked.
        "gl id: 3 is not deleted.*gl id: 4 is not deleted.*texture:SDK_OUT_OF_MEMORY_ERR, fb:SDK_SUCCESS.*"
        "retContext:SDK_OUT_OF_MEMORY_ERR"};
    for (int kind = 0; kind < 3; ++kind) {
        AM::sInitNumber = initNumber_;
        StartTracing();
        if (kind == 0) AM::externalMemAdd(AM::mapInsert(A, 16, 1, kF, 3));
        if (kind == 0) AM::nativeMemAdd(AM::mapInsert(A + 512, 64, 0, kF, kL));
        if (kind == 1) AM::sRefNum[A].size = AM::sRefNum[A + 64].size = AM::sGBMap[A].size = 4096;
        if (kind == 1) AM::sRefNum[A].refs = AM::sGBMap[A].refs = 1;  // A + 64 released: listed, not totalled
        if (kind == 2) AM::sGLTextureMap[3] = AM::sGLBufferMap[3] = AM::sGLVaoMap[3] = {3, "gl.cpp", 8};
        if (kind == 2) AM::sGLContextMap[4] = {4, "egl.cpp", 8};
        const std::string leak =
            kind < 2 ? "[^\n]*\n[^\n]*map print  X[^\n]*\n[^\n]*There is memory leak!" : "";
        EXPECT_DEATH(AM::memFinalCheck(),
                     report[kind] + leak + "[^\n]*\n[^\n]*Memory leak! Please check memory!");
        AM::nativeMemDec(AM::mapDelete(A + 512, kF, kL));
        AM::externalMemDec(AM::mapDelete(A, kF, kL));
        for (auto* m : {&AM::sRefNum, &AM::sGBMap}) m->clear();
    }
}

TEST_F(MemoryTraceTest, OnlyACompleteRecordEnablesTheHandOffToTheHostsTrace) {
    // The host's own trace: a counter and two maps, each with its lock.
    std::mutex memLock, mapLock, hardBuffLock;
    uint64_t usingSize = 0;
    vemo::APSNativeMemMap memMap;
    vemo::APSHardwareBuffMap refNum;
    const vemo::APSMemMapInfo full = {&memLock, &usingSize, &mapLock, &hardBuffLock, &memMap, &refNum};
    auto Key = [](const void* p) { return ~static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(p)); };
    // A refusal, of no record or of one with a member missing, disables whatever record was accepted.
    for (size_t member = 0; member <= 6; ++member) {
        vemo::APSMemMapInfo info = full;
        ASSERT_EQ(APS::setAPSMemInfo(&info), 0);
        if (member < 6) std::memset(reinterpret_cast<void**>(&info) + member, 0, sizeof(void*));
        EXPECT_EQ(APS::setAPSMemInfo(member < 6 ? &info : nullptr), 1027);
        memMap[Key(A)].size = 8;
        EXPECT_EQ(APS::mapAPSNativeMapInsert(A + 8, 64, kF, kL) + APS::mapAPSNativeMapDelete(A, kF, kL), 0u);
        EXPECT_EQ(APS::mapAPSHardwareBuffInsert(A + 8, 64, kF, kL, 1, 2, 3), 0);
        APS::mapAPSNativeMemAdd(64);
        EXPECT_EQ(memMap.size() + refNum.size() + usingSize, 1u);
        memMap.clear();
    }
    vemo::APSMemMapInfo info = full;
    EXPECT_EQ(APS::setAPSMemInfo(&info), 0);

    // Internal blocks are mirrored, keyed by the complemented address; attached ones are not.
    StartTracing();
    void* a = Native::malloc(100, kF, kL);
    unsigned char borrowed[16];
    Native::attach(borrowed, 16, kF, kL);
    a = Native::realloc(a, 300, kF, 9);
    EXPECT_EQ(memMap.at(Key(a)).size * 100 + memMap.at(Key(a)).line, 30009u);
    EXPECT_EQ(memMap.size() * 1000 + usingSize, 2316u);
    Native::detach(borrowed, kF, kL);
    Native::free(a, kF, kL);
    EXPECT_EQ(memMap.size() + usingSize, 0u);
    EXPECT_EQ(APS::mapAPSNativeMapInsert(A, 64, kF, kL), 64u);
    EXPECT_EQ(APS::mapAPSNativeMapInsert(A, 128, kF, kL), 0u);  // the first wins
    EXPECT_EQ(APS::mapAPSNativeMapDelete(A + 8, kF, kL) + APS::mapAPSNativeMapDelete(A, kF, kL), 64u);
    EXPECT_EQ(APS::mapAPSHardwareBuffInsert(A, 4096, kF, kL, 11, 22, 33), 1);  // counted by reference
    EXPECT_EQ(APS::mapAPSHardwareBuffInsert(A, 999, kF, 5, 0, 0, 0), 2);
    for (int refs : {1, -1, -1}) {  // -1: gone; the third release is of an unknown buffer
        APS::mapAPSHardwareBuffDelete(A, kF, kL);
        EXPECT_EQ(refNum.empty() ? -1 : refNum.at(Key(A)).refs, refs);
    }
    EXPECT_EQ(log_->Count("Hardware buff release :"), 1u);

    // Threads allocate, fill, copy, resize and free while the host reads its trace under its own locks:
    // everything balances and no check fails.
    log_->Clear();
    std::atomic<bool> done{false};
    std::thread reader([&] {
        while (!done) {
            std::lock_guard<std::mutex> map(mapLock), counter(memLock);
            EXPECT_LE(usingSize, 4 * 3 * 1024u);  // two blocks per worker at most
        }
    });
    std::vector<std::thread> workers;
    for (N seed = 1; seed <= 4; ++seed) {
        workers.emplace_back([seed] {
            for (N i = 0; i < 500; ++i) {
                const N size = 1 + (i * seed * 7919) % 1024;
                void* a = Native::malloc(size, kF, kL);
                void* b = Native::calloc(1, size, kF, kL);
                Native::memcpy(b, Native::memset(a, 1, size, kF, kL), size, size, size, kF, kL);
                b = Native::realloc(b, 2 * size, kF, kL);
                for (void* p : {a, b}) Native::free(p, kF, kL);
            }
        });
    }
    for (auto& t : workers) t.join();
    done = true;
    reader.join();
    EXPECT_EQ(memMap.size() + usingSize + AM::getTotalMemSize(), 0u);
    EXPECT_FALSE(log_->Contains("[ERROR]"));
}

}  // namespace
