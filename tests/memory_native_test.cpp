#include "algocore/memory/ALGONativeGalloc.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "memory_trace_fixture.h"

namespace {

using vemo::Native;

constexpr const char* kFile = "caller.cpp";
constexpr int kLine = 42;
constexpr unsigned char kSrcByte = 0x5A;
constexpr unsigned char kDstByte = 0xEE;

size_t CountBytes(const unsigned char* p, size_t n, unsigned char v) {
    size_t count = 0;
    for (size_t i = 0; i < n; ++i) count += p[i] == v;
    return count;
}

struct CopyCase {
    unsigned long dstSize;
    unsigned long srcSize;
    unsigned long size;
    unsigned long copied;
    bool returnsDst;
};

// Tracing on or off, and the overload with a const source (which never checks the source).
struct CopyMode {
    bool tracing;
    bool constSrc;
};

class NativeCopyTest : public MemoryTraceLogTest, public ::testing::WithParamInterface<CopyMode> {};

TEST_P(NativeCopyTest, SizeRulesCopyTheShortSideOrRefuseWhenBothAreShort) {
    const CopyMode mode = GetParam();
    if (mode.tracing) StartTracing();
    const CopyCase cases[] = {
        {100, 100, 80, 80, true},                          // both sides large enough
        {80, 80, 80, 80, true},                            // exactly large enough
        {100, 50, 80, 50, true},                           // short source: copies what it has
        {50, 100, 80, 50, true},                           // short destination: copies what fits
        {79, 80, 80, 79, true},   {50, 50, 80, 0, false},  // both short: refused
    };
    for (const CopyCase& c : cases) {
        SCOPED_TRACE(::testing::Message()
                     << "dstSize " << c.dstSize << " srcSize " << c.srcSize << " size " << c.size);
        // Both sides in one arena, far enough apart that no case overlaps.
        std::vector<unsigned char> arena(512);
        unsigned char* const dst = arena.data();
        unsigned char* const src = arena.data() + 256;
        Native::create(dst, c.dstSize, kFile, kLine);
        Native::create(src, c.srcSize, kFile, kLine);
        std::memset(dst, kDstByte, 256);
        std::memset(src, kSrcByte, c.srcSize);
        log_.Clear();

        void* r = mode.constSrc ? Native::memcpy(dst, static_cast<const void*>(src), c.dstSize, c.srcSize,
                                                 c.size, kFile, kLine)
                                : Native::memcpy(dst, static_cast<void*>(src), c.dstSize, c.srcSize, c.size,
                                                 kFile, kLine);
        EXPECT_EQ(r, c.returnsDst ? dst : nullptr);
        EXPECT_EQ(CountBytes(dst, c.copied, kSrcByte), c.copied);
        EXPECT_EQ(CountBytes(dst + c.copied, 256 - c.copied, kDstByte), 256 - c.copied);

        const bool shortSide = c.srcSize < c.size || c.dstSize < c.size;
        const std::string sizes = "Native memcpy error! Source File: caller.cpp, Line Num: 42 dstSize: " +
                                  std::to_string(c.dstSize) + " srcSize: " + std::to_string(c.srcSize) +
                                  " size:" + std::to_string(c.size);
        EXPECT_EQ(log_.Count(sizes), shortSide ? 1u : 0u);
        // Traced copies check each registered side against the copy size.
        size_t failedChecks = 0;
        if (mode.tracing) failedChecks = (c.size > c.dstSize) + (!mode.constSrc && c.size > c.srcSize);
        EXPECT_EQ(log_.Count("Native out of memory! Source File: caller.cpp, Line Num: 42 dst: "),
                  failedChecks);

        AM::nativeMemDec(AM::mapDelete(dst, kFile, kLine));
        AM::nativeMemDec(AM::mapDelete(src, kFile, kLine));
    }
}

INSTANTIATE_TEST_SUITE_P(Modes, NativeCopyTest,
                         ::testing::Values(CopyMode{false, false}, CopyMode{false, true},
                                           CopyMode{true, false}, CopyMode{true, true}),
                         [](const ::testing::TestParamInfo<CopyMode>& info) {
                             return std::string(info.param.tracing ? "Traced" : "Untraced") +
                                    (info.param.constSrc ? "ConstSource" : "");
                         });

class NativeTest : public MemoryTraceLogTest, public ::testing::WithParamInterface<bool> {
  protected:
    void SetUp() override {
        MemoryTraceLogTest::SetUp();
        if (GetParam()) StartTracing();
    }
};

INSTANTIATE_TEST_SUITE_P(Tracing, NativeTest, ::testing::Bool(),
                         [](const ::testing::TestParamInfo<bool>& info) {
                             return std::string(info.param ? "On" : "Off");
                         });

TEST_P(NativeTest, OverlappingCopyIsRefusedWhateverTheTracing) {
    unsigned char buf[64];
    for (int i = 0; i < 64; ++i) buf[i] = static_cast<unsigned char>(i);
    struct Case {
        long dstAt;
        long srcAt;
        unsigned long size;
        const char* side;
    } const cases[] = {
        {0, 10, 20, "override right memory :10"},
        {10, 0, 20, "override left memory :10"},
        {5, 5, 1, "override right memory :1"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.side);
        log_.Clear();
        EXPECT_EQ(
            Native::memcpy(buf + c.dstAt, static_cast<void*>(buf + c.srcAt), 64, 64, c.size, kFile, kLine),
            nullptr);
        for (int i = 0; i < 64; ++i) ASSERT_EQ(buf[i], i);
        EXPECT_TRUE(log_.Contains(c.side));
        EXPECT_TRUE(log_.Contains("Native out of memory! Source File: caller.cpp, Line Num: 42"));
    }
    // Adjacent ranges do not overlap.
    log_.Clear();
    EXPECT_EQ(Native::memcpy(buf, static_cast<const void*>(buf + 20), 20, 20, 20, kFile, kLine), buf);
    EXPECT_EQ(buf[0], 20);
    EXPECT_TRUE(log_.Lines().empty());
}

TEST_P(NativeTest, LenientCopyAndFillNeverRefuseOverlap) {
    unsigned char buf[32];
    for (int i = 0; i < 32; ++i) buf[i] = static_cast<unsigned char>(i);
    EXPECT_EQ(Native::defectMemcpy(buf + 4, static_cast<void*>(buf), 8, kFile, kLine), buf + 4);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(buf[4 + i], i);
    EXPECT_EQ(Native::defectMemcpy(buf, static_cast<const void*>(buf + 2), 4, kFile, kLine), buf);
    EXPECT_EQ(buf[0], 2);
    EXPECT_EQ(Native::defectMemset(buf, 7, 32, kFile, kLine), buf);
    EXPECT_EQ(CountBytes(buf, 32, 7), 32u);
    EXPECT_FALSE(log_.Contains("out of memory"));
}

TEST_P(NativeTest, NullOrEmptyArgumentsReturnNullWithTheirMessage) {
    unsigned char a[16] = {};
    unsigned char b[16] = {};
    void* const null = nullptr;
    struct Case {
        void* dst;
        void* src;
        unsigned long size;
    } const cases[] = {{null, b, 4}, {a, null, 4}, {a, b, 0}};
    for (const Case& c : cases) {
        log_.Clear();
        EXPECT_EQ(Native::memcpy(c.dst, c.src, 16, 16, c.size, kFile, kLine), nullptr);
        EXPECT_EQ(Native::memcpy(c.dst, static_cast<const void*>(c.src), 16, 16, c.size, kFile, kLine),
                  nullptr);
        EXPECT_EQ(Native::defectMemcpy(c.dst, c.src, c.size, kFile, kLine), nullptr);
        EXPECT_EQ(Native::defectMemcpy(c.dst, static_cast<const void*>(c.src), c.size, kFile, kLine),
                  nullptr);
        EXPECT_EQ(Native::memncpy(c.dst, c.src, 0, 1, 16, 0, 1, 16, c.size, kFile, kLine), nullptr);
        EXPECT_EQ(log_.Count("Native memcpy error! Source File: caller.cpp, Line Num: 42 dst: "), 5u);
        EXPECT_EQ(log_.Count("size:" + std::to_string(c.size)), 5u);
    }
    log_.Clear();
    EXPECT_EQ(Native::memset(nullptr, 0, 4, kFile, kLine), nullptr);
    EXPECT_EQ(Native::memset(a, 0, 0, kFile, kLine), nullptr);
    EXPECT_EQ(Native::defectMemset(nullptr, 0, 4, kFile, kLine), nullptr);
    EXPECT_EQ(log_.Count("Native memset error! Source File: caller.cpp, Line Num: 42 addr "), 3u);

    log_.Clear();
    EXPECT_EQ(Native::malloc(0, kFile, kLine), nullptr);
    EXPECT_EQ(Native::calloc(4, 0, kFile, kLine), nullptr);
    void* keep = Native::malloc(8, kFile, kLine);
    EXPECT_EQ(Native::realloc(keep, 0, kFile, kLine), nullptr);
    EXPECT_TRUE(log_.Contains("malloc size:0 is error!"));
    EXPECT_TRUE(log_.Contains("calloc size:0 is error!"));
    EXPECT_TRUE(log_.Contains("realloc size:0 is error!"));
    Native::free(keep, kFile, kLine);  // a refused realloc leaves the block alive and registered
    EXPECT_EQ(AM::getInternalMemSize(), 0u);
}

TEST_P(NativeTest, ElementOffsetCopyClampsToTheShortestSide) {
    unsigned char dst[16];
    unsigned char src[100];
    std::memset(dst, kDstByte, sizeof(dst));
    std::memset(src, kSrcByte, sizeof(src));
    void* r = Native::memncpy(dst, src, 2, 4, 16, 0, 1, 100, 12, kFile, kLine);
    EXPECT_EQ(r, dst + 8);
    EXPECT_EQ(CountBytes(dst, 8, kDstByte), 8u);
    EXPECT_EQ(CountBytes(dst + 8, 8, kSrcByte), 8u);
    EXPECT_TRUE(
        log_.Contains("Native memcpy error add copy min size! Source File: caller.cpp, Line Num: 42 dstSize: "
                      "16 srcSize: 100 "
                      "size:12dstOffset: 2 dstElementSize: 4 srcOffset: 0 srcElementSize: 1 changeSize: 8"));

    // Fits on both sides: the whole size, from the source offset, and no message.
    for (int i = 0; i < 100; ++i) src[i] = static_cast<unsigned char>(i);
    log_.Clear();
    r = Native::memncpy(dst, src, 1, 2, 16, 10, 3, 100, 6, kFile, kLine);
    EXPECT_EQ(r, dst + 2);
    for (int i = 0; i < 6; ++i) EXPECT_EQ(dst[2 + i], 30 + i);
    EXPECT_FALSE(log_.Contains("add copy min size"));

    // Short source: the remainder of the source.
    std::memset(dst, kDstByte, sizeof(dst));
    log_.Clear();
    r = Native::memncpy(dst, src, 0, 1, 16, 95, 1, 100, 10, kFile, kLine);
    EXPECT_EQ(r, dst);
    EXPECT_EQ(CountBytes(dst + 5, 11, kDstByte), 11u);
    EXPECT_EQ(dst[0], 95);
    EXPECT_TRUE(log_.Contains("changeSize: 5"));
}

TEST_P(NativeTest, ElementOffsetsAreTruncatedTo32Bits) {
    unsigned char dst[16];
    unsigned char src[16];
    std::memset(dst, kDstByte, sizeof(dst));
    std::memset(src, kSrcByte, sizeof(src));
    // 2^32 + 4 wraps to 4.
    EXPECT_EQ(Native::memncpy(dst, src, (1ul << 32) + 4, 1, 16, 0, 1, 16, 4, kFile, kLine), dst + 4);
    EXPECT_EQ(CountBytes(dst + 4, 4, kSrcByte), 4u);
    EXPECT_EQ(CountBytes(dst, 4, kDstByte), 4u);

    // 2^31 wraps to a negative offset: the result points before dst, and nothing is written.
    std::memset(dst, kDstByte, sizeof(dst));
    log_.Clear();
    void* r = Native::memncpy(dst, src, 1ul << 30, 2, 16, 0, 1, 16, 4, kFile, kLine);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(r), reinterpret_cast<uintptr_t>(dst) - (1ul << 31));
    EXPECT_EQ(CountBytes(dst, 16, kDstByte), 16u);
    EXPECT_TRUE(log_.Contains("changeSize: 0"));
}

TEST_P(NativeTest, GetChecksTheRegisteredBlockOnlyWhenTracing) {
    alignas(8) unsigned char raw[64];
    const bool tracing = GetParam();
    EXPECT_EQ(Native::get(raw, 3, 4, 4, kFile, kLine), tracing ? nullptr : raw + 12);  // unregistered

    void* block = Native::malloc(64, kFile, kLine);
    auto* base = static_cast<unsigned char*>(block);
    EXPECT_EQ(Native::get(block, 3, 4, 4, kFile, kLine), base + 12);
    EXPECT_EQ(Native::get(block, 15, 4, 4, kFile, kLine), base + 60);
    EXPECT_EQ(Native::get(block, 15, 4, 5, kFile, kLine), tracing ? nullptr : base + 60);
    EXPECT_EQ(Native::get(block, 16, 4, 1, kFile, kLine), tracing ? nullptr : base + 64);
    Native::free(block, kFile, kLine);
}

TEST_P(NativeTest, TracedFillOutsideItsBlockIsReportedButMade) {
    auto* raw = static_cast<unsigned char*>(std::malloc(64));
    ASSERT_NE(raw, nullptr);
    Native::attach(raw, 32, kFile, kLine);
    EXPECT_EQ(Native::memset(raw, 3, 48, kFile, kLine), raw);
    EXPECT_EQ(CountBytes(raw, 48, 3), 48u);
    EXPECT_EQ(log_.Contains("Native out of memory! Source File: caller.cpp, Line Num: 42 addr:"), GetParam());
    EXPECT_EQ(log_.Contains("out of right memory size 16"), GetParam());
    Native::detach(raw, kFile, kLine);
    std::free(raw);
}

TEST_F(MemoryTraceLogTest, TracedAllocationsAreRegisteredAndCounted) {
    StartTracing();
    void* m = Native::malloc(64, kFile, kLine);
    void* c = Native::calloc(4, 16, kFile, kLine);
    ASSERT_NE(m, nullptr);
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(CountBytes(static_cast<unsigned char*>(c), 64, 0), 64u);
    EXPECT_EQ(AM::mapFind(m), 64u);
    EXPECT_EQ(AM::mapFind(c), 64u);
    EXPECT_EQ(AM::getInternalMemSize(), 128u);
    {
        std::lock_guard<std::mutex> lock(AM::sMapLock);
        const vemo::AlgoMemInfo& info = AM::sMemMap.at(m);
        EXPECT_EQ(info.file, kFile);
        EXPECT_EQ(info.line, kLine);
        EXPECT_EQ(info.type, 0);
        EXPECT_EQ(info.refs, 1);
        EXPECT_EQ(info.endAddr, static_cast<unsigned char*>(m) + 64);
    }

    m = Native::realloc(m, 256, kFile, kLine);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(AM::mapFind(m), 256u);
    EXPECT_EQ(AM::getInternalMemSize(), 320u);
    void* fresh = Native::realloc(nullptr, 16, kFile, kLine);
    EXPECT_EQ(AM::getInternalMemSize(), 336u);

    void* mapped =
        Native::mmap(nullptr, 8192, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0, kFile, kLine);
    ASSERT_NE(mapped, MAP_FAILED);
    EXPECT_EQ(AM::mapFind(mapped), 8192u);
    EXPECT_EQ(AM::getInternalMemMaxSize(), 336u + 8192u);
    EXPECT_EQ(Native::munmap(mapped, 8192, kFile, kLine), 0);

    int* object = new int[4];
    Native::create(object, sizeof(int) * 4, kFile, kLine);
    EXPECT_EQ(AM::getInternalMemSize(), 336u + 16u);
    AM::nativeMemDec(AM::mapDelete(object, kFile, kLine));
    delete[] object;

    unsigned char borrowed[40];
    EXPECT_EQ(Native::attach(borrowed, 40, kFile, kLine), borrowed);
    EXPECT_EQ(AM::getInternalMemSize(), 336u);
    EXPECT_EQ(AM::getTotalMemSize(), 376u);
    Native::detach(borrowed, kFile, kLine);

    Native::free(nullptr, kFile, kLine);
    Native::free(fresh, kFile, kLine);
    Native::free(c, kFile, kLine);
    Native::free(m, kFile, kLine);
    EXPECT_EQ(AM::getTotalMemSize(), 0u);
    EXPECT_EQ(AM::getInternalMemMaxSize(), 336u + 8192u);
    EXPECT_FALSE(log_.Contains("not in map"));
}

TEST_F(MemoryTraceLogTest, UntracedOperationsLeaveTheRegistryAlone) {
    void* m = Native::malloc(64, kFile, kLine);
    unsigned char borrowed[8];
    Native::attach(borrowed, 8, kFile, kLine);
    Native::create(m, 64, kFile, kLine);  // refused by the registry while tracing is off
    EXPECT_TRUE(AM::sMemMap.empty());
    Native::free(m, kFile, kLine);
    EXPECT_EQ(AM::sNativeUsingSize, 0u);
    EXPECT_EQ(AM::sExternalUsingSize, 0u);
    EXPECT_TRUE(log_.Lines().empty());

    Native::create(nullptr, 16, kFile, kLine);
    EXPECT_TRUE(log_.Contains("Native new error! Source File: caller.cpp, Line Num: 42"));
}

}  // namespace
