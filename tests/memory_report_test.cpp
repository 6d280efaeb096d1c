#include <gtest/gtest.h>

#include <android/log.h>

#include <string>
#include <vector>

#include "algocore/memory/ALGONativeGalloc.h"
#include "memory_trace_fixture.h"

namespace {

using vemo::Native;

constexpr const char* kFile = "caller.cpp";
constexpr int kLine = 12;

alignas(64) unsigned char gArena[4096];

using ReportTest = MemoryTraceLogTest;

// Texts of the captured lines, each without the "[INFO] [VEMO] [file] line  func() " prefix.
std::vector<std::string> Bodies(const LogCapture& log) {
    std::vector<std::string> out;
    for (const std::string& t : log.Texts()) {
        const size_t at = t.find("() ");
        out.push_back(at == std::string::npos ? t : t.substr(at + 3));
    }
    return out;
}

std::string Ptr(const void* p) {
    char buf[32];
    std::snprintf(buf, sizeof(buf), "%p", p);
    return buf;
}

TEST_F(ReportTest, LineTextDependsOnKindStateAndType) {
    StartTracing();
    void* const p = gArena;
    const std::string at = Ptr(p);
    struct Case {
        vemo::AlgoMemFlag flag;
        int isFree;
        int type;
        std::string text;
    } const cases[] = {
        {vemo::ALGO_HARDWARE_BUFFER, 0, 0, "allocate HardwareBuffer " + at + " size: 64 B  REFS: 3"},
        {vemo::ALGO_HARDWARE_BUFFER, 1, 0, "free HardwareBuffer " + at + " size: 64 B REFS: 3"},
        {vemo::ALGO_GRAPHIC_BUFFER, 0, 1, "allocate GraphicBuffer " + at + " size: 64 B  REFS: 3"},
        {vemo::ALGO_GRAPHIC_BUFFER, 1, 1, "free GraphicBuffer " + at + " size: 64 B REFS: 3"},
        {vemo::ALGO_NATIVE_MEM, 0, 0, "allocate Native Memory " + at + " size: 64 B"},
        {vemo::ALGO_NATIVE_MEM, 1, 0, "free Native Memory " + at + " size: 64 B"},
        {vemo::ALGO_NATIVE_MEM, 0, 1, "attach Native Memory " + at + " size: 64 B"},
        {vemo::ALGO_NATIVE_MEM, 1, 1, "detach Native Memory " + at + " size: 64 B"},
        {vemo::ALGO_NATIVE_MEM, 0, 2, "virture Memory " + at + " size: 64 B"},
        {vemo::ALGO_NATIVE_MEM, 1, 5, "free virture Memory " + at + " size: 64 B"},
    };
    for (const Case& c : cases) {
        log_.Clear();
        AM::memLogPrint(p, 64, c.flag, c.isFree, kFile, 7, 3, c.type);
        ASSERT_EQ(log_.Lines().size(), 1u) << c.text;
        EXPECT_EQ(log_.Lines()[0].prio, ANDROID_LOG_INFO);
        EXPECT_EQ(Bodies(log_)[0], "File: caller.cpp Line :00007 " + c.text);
    }
}

TEST_F(ReportTest, WithTracingOffOnlyTheSwitchIsPrinted) {
    AM::memLogPrint(gArena, 64, vemo::ALGO_NATIVE_MEM, 0, kFile, kLine, 1, 0);
    EXPECT_TRUE(log_.Lines().empty());
    for (vemo::AlgoMemFlag flag :
         {vemo::ALGO_NATIVE_MEM, vemo::ALGO_HARDWARE_BUFFER, vemo::ALGO_GRAPHIC_BUFFER}) {
        log_.Clear();
        AM::mapPrint(flag);
        EXPECT_EQ(Bodies(log_), std::vector<std::string>{"sDebugEnable: 0"});
    }
}

TEST_F(ReportTest, InternalReportListsCountersAndBlocksInAddressOrder) {
    StartTracing();
    AM::nativeMemAdd(AM::mapInsert(gArena + 256, 32, 0, "b.cpp", 2));
    AM::nativeMemAdd(AM::mapInsert(gArena, 64, 0, "a.cpp", 1));
    AM::externalMemAdd(AM::mapInsert(gArena + 512, 16, 1, "c.cpp", 3));
    AM::nativeMemDec(AM::mapDelete(gArena + 256, kFile, kLine));
    AM::nativeMemAdd(AM::mapInsert(gArena + 256, 8, 0, "b.cpp", 4));
    log_.Clear();

    AM::mapPrint(vemo::ALGO_NATIVE_MEM);
    const std::vector<std::string> expected = {
        "sDebugEnable: 1",
        "ALGOGalloc map print E",
        "Native MemTrace Log Print E Total mem use is 88 B",
        "Native MemTrace Log Print E internal use is 72 B",
        "########## Max Native mem use is 96 B##########",
        "File: a.cpp Line :00001 allocate Native Memory " + Ptr(gArena) + " size: 64 B",
        "File: b.cpp Line :00004 allocate Native Memory " + Ptr(gArena + 256) + " size: 8 B",
        "File: c.cpp Line :00003 attach Native Memory " + Ptr(gArena + 512) + " size: 16 B",
        "Native MemTrace Log Print X",
        "ALGOGalloc map print  X",
    };
    EXPECT_EQ(Bodies(log_), expected);

    AM::nativeMemDec(AM::mapDelete(gArena, kFile, kLine));
    AM::nativeMemDec(AM::mapDelete(gArena + 256, kFile, kLine));
    AM::externalMemDec(AM::mapDelete(gArena + 512, kFile, kLine));
}

TEST_F(ReportTest, BufferReportsListEveryEntryAndTotalTheLiveOnes) {
    StartTracing();
    vemo::AlgoMemInfo live;
    live.size = 4096;
    live.refs = 2;
    live.file = "hal.cpp";
    live.line = 90;
    vemo::AlgoMemInfo released = live;
    released.refs = 0;
    AM::sRefNum[gArena] = live;
    AM::sRefNum[gArena + 64] = released;
    AM::sGBMap[gArena] = live;

    AM::mapPrint(vemo::ALGO_HARDWARE_BUFFER);
    std::vector<std::string> expected = {
        "sDebugEnable: 1",
        "ALGOGalloc map print E",
        "HardwareBuffer MemTrace Refs Print E total hardware buffer use is 4096 B",
        "File: hal.cpp Line :00090 allocate HardwareBuffer " + Ptr(gArena) + " size: 4096 B  REFS: 2",
        "File: hal.cpp Line :00090 allocate HardwareBuffer " + Ptr(gArena + 64) + " size: 4096 B  REFS: 0",
        "HardwareBuffer MemTrace Refs Print X",
        "ALGOGalloc map print  X",
    };
    EXPECT_EQ(Bodies(log_), expected);

    log_.Clear();
    AM::mapPrint(vemo::ALGO_GRAPHIC_BUFFER);
    expected = {
        "sDebugEnable: 1",
        "ALGOGalloc map print E",
        "GraphicBuffer MemTrace Refs Print E total graphic buffer use is 4096 B",
        "File: hal.cpp Line :00090 allocate GraphicBuffer " + Ptr(gArena) + " size: 4096 B  REFS: 2",
        "GraphicBuffer MemTrace Refs Print X",
        "ALGOGalloc map print  X",
    };
    EXPECT_EQ(Bodies(log_), expected);
}

TEST_F(ReportTest, GlChecksReportLeftOverObjectsOfTheCheckedMapsOnly) {
    EXPECT_EQ(AM::glFinalCheck(), 0);
    AM::sGLTextureMap[7] = {7, "gl.cpp", 33};
    EXPECT_EQ(AM::glFinalCheck(), 0);  // tracing off
    StartTracing();
    AM::sGLBufferMap[1] = {1, "gl.cpp", 1};
    AM::sGLVaoMap[2] = {2, "gl.cpp", 2};
    AM::sGLContextMap[0x1234567890ull] = {0x1234567890ull, "egl.cpp", 5};
    EXPECT_EQ(AM::glCheckMem(AM::sGLShaderMapLock, AM::sGLShaderMap), 0);
    EXPECT_EQ(AM::glCheckMem(AM::sGLBufferMapLock, AM::sGLBufferMap), 1041);
    log_.Clear();

    EXPECT_EQ(AM::glFinalCheck(), 1041);
    const std::vector<std::string> expected = {
        "File: gl.cpp Line :00033 gl id: 7 is not deleted, memory leak!",
        "File: egl.cpp Line :00005 gl id: 78187493520 is not deleted, memory leak!",
        "gl check memory failed! check result texture:SDK_OUT_OF_MEMORY_ERR, fb:SDK_SUCCESS, "
        "shader:SDK_SUCCESS, "
        "retProgram:SDK_SUCCESS, retSurface:SDK_SUCCESS, retContext:SDK_OUT_OF_MEMORY_ERR",
    };
    EXPECT_EQ(Bodies(log_), expected);
    for (const LogLine& l : log_.Lines()) EXPECT_EQ(l.prio, ANDROID_LOG_ERROR);

    AM::sGLTextureMap.clear();
    AM::sGLContextMap.clear();
    EXPECT_EQ(AM::glFinalCheck(), 0);  // vertex arrays and buffers are not checked
}

TEST_F(ReportTest, OnlyTheLastOfNestedPeriodsChecks) {
    StartTracing();
    StartTracing();
    void* block = Native::malloc(64, kFile, kLine);
    log_.Clear();
    EXPECT_EQ(AM::memFinalCheck(), 0);  // one period still open: a registered block is no leak yet
    EXPECT_EQ(AM::sInitNumber.load(), initNumber_ + 1);
    EXPECT_TRUE(log_.Contains("[memFinalCheck] sInitNumber:" + std::to_string(initNumber_ + 1)));
    EXPECT_FALSE(log_.Contains("release memory is OK!"));
    EXPECT_FALSE(log_.Contains("leak"));

    Native::free(block, kFile, kLine);
    EXPECT_EQ(AM::memFinalCheck(), 0);
    EXPECT_TRUE(log_.Contains("release memory is OK!"));
    EXPECT_EQ(AM::sInitNumber.load(), initNumber_);
}

TEST_F(ReportTest, AttachedAndVirtualMemoryIsNoLeak) {
    StartTracing();
    AM::externalMemAdd(AM::mapInsert(gArena, 128, 1, kFile, kLine));
    AM::virtureMemAdd(AM::virtureMapInsert(99, gArena + 256, 64, 2, kFile, kLine));
    EXPECT_EQ(AM::memFinalCheck(), 0);
    EXPECT_TRUE(log_.Contains("release memory is OK!"));
    EXPECT_FALSE(log_.Contains("leak"));
    AM::sDebugEnable = 1;  // the fixture's cleanup needs the registry live
    AM::externalMemDec(AM::mapDelete(gArena, kFile, kLine));
    AM::virtureMemDec(AM::virtureMapDelete(99));
}

TEST_F(ReportTest, NothingIsCheckedWithTracingOff) {
    AM::memTraceInit(0);
    AM::sNativeUsingSize = 64;  // as if left over by an earlier traced period
    EXPECT_EQ(AM::memFinalCheck(), 0);
    EXPECT_FALSE(log_.Contains("leak"));
    AM::sNativeUsingSize = 0;
}

// Death tests re-execute the binary in the threadsafe style; under a user-mode emulator that exec
// fails, so there the child is forked as it is.
class FinalCheckDeathTest : public MemoryTraceTest {
  protected:
    void SetUp() override {
#ifdef VAI_TEST_UNDER_EMULATOR
        GTEST_FLAG_SET(death_test_style, "fast");
#else
        GTEST_FLAG_SET(death_test_style, "threadsafe");
#endif
        MemoryTraceTest::SetUp();
    }
};

TEST_F(FinalCheckDeathTest, LeakedBlockAbortsAfterTheReport) {
    StartTracing();
    void* block = Native::malloc(64, kFile, kLine);
    EXPECT_DEATH(AM::memFinalCheck(),
                 "Native MemTrace Log Print E internal use is 64 B.*allocate Native Memory.*"
                 "There is memory leak!.*Memory leak! Please check memory!");
    Native::free(block, kFile, kLine);
}

TEST_F(FinalCheckDeathTest, LeakedHardwareBufferAborts) {
    StartTracing();
    vemo::AlgoMemInfo buffer;
    buffer.size = 4096;
    buffer.refs = 1;
    AM::sRefNum[gArena] = buffer;
    EXPECT_DEATH(AM::memFinalCheck(),
                 "total hardware buffer use is 4096 B.*There is memory leak!.*"
                 "Memory leak! Please check memory!");
}

TEST_F(FinalCheckDeathTest, LeftOverGlObjectAborts) {
    StartTracing();
    AM::sGLProgramMap[3] = {3, "gl.cpp", 8};
    EXPECT_DEATH(AM::memFinalCheck(), "retProgram:SDK_OUT_OF_MEMORY_ERR.*Memory leak! Please check memory!");
}

}  // namespace
