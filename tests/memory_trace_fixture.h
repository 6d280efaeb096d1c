// Shared set-up of the memory-trace suites: every test starts and ends with tracing off, the registry
// empty and the host hand-off disabled, even when all suites run in one process.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <mutex>

#include "algocore/memory/ALGOGalloc.h"
#include "algocore/memory/APSAlgoMemTrace.h"
#include "algocore/utils/LogPrintf.h"
#include "log_capture.h"
#include "vai_host_platform.h"
#include "interface/vai_memtrace.h"

// A host's own trace, handed to the library through APSAlgoMemTrace::setAPSMemInfo.
struct HostTrace {
    std::mutex memLock;
    uint64_t usingSize = 0;
    std::mutex mapLock;
    std::mutex hardBuffLock;
    vemo::APSNativeMemMap memMap;
    vemo::APSHardwareBuffMap refNum;

    vemo::APSMemMapInfo Info() { return {&memLock, &usingSize, &mapLock, &hardBuffLock, &memMap, &refNum}; }
};

class MemoryTraceTest : public ::testing::Test {
  protected:
    using AM = vemo::AlgorithmMemory;
    using APS = vemo::APSAlgoMemTrace;

    void SetUp() override {
        vai_host_reset_properties();
        initNumber_ = AM::sInitNumber.load();
        ASSERT_EQ(AM::sDebugEnable, 0);
        ASSERT_TRUE(AM::sMemMap.empty());
        ASSERT_EQ(APS::sAPSMemEnable, 0);
    }

    void TearDown() override {
        // Whatever a test registered it must also have released.
        EXPECT_TRUE(AM::sMemMap.empty());
        EXPECT_EQ(AM::sNativeUsingSize, 0u);
        EXPECT_EQ(AM::sExternalUsingSize, 0u);
        EXPECT_EQ(AM::sVirtureUsingSize, 0u);
        ResetGlobalState();
    }

    // Opens a tracing period the fixture closes again.
    void StartTracing() { AM::memTraceInit(256); }

    void ResetGlobalState() {
        AM::sDebugEnable = 0;
        AM::sInitNumber = initNumber_;
        AM::sInputHandle = nullptr;
        {
            std::lock_guard<std::mutex> lock(AM::sMapLock);
            AM::sMemMap.clear();
        }
        {
            std::lock_guard<std::mutex> lock(AM::sHardBuffLock);
            AM::sRefNum.clear();
        }
        {
            std::lock_guard<std::mutex> lock(AM::sGraphicBuffLock);
            AM::sGBMap.clear();
        }
        AM::sGLTextureMap.clear();
        AM::sGLFBMap.clear();
        AM::sGLShaderMap.clear();
        AM::sGLProgramMap.clear();
        AM::sGLBufferMap.clear();
        AM::sGLVaoMap.clear();
        AM::sGLSurfaceMap.clear();
        AM::sGLContextMap.clear();
        {
            std::lock_guard<std::mutex> lock(AM::sMemLock);
            AM::sNativeUsingSize = AM::sNativeUsingMaxSize = AM::sExternalUsingSize = AM::sVirtureUsingSize =
                0;
        }
        APS::sAPSMemEnable = 0;
        APS::sAPSMemInfo = {nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};
        vai_host_reset_properties();
    }

    ScopedValue<unsigned int> mask_{vemo::LogPrintf::mLogLevel,
                                    vemo::LogPrintf::kError | vemo::LogPrintf::kInfo};
    int32_t initNumber_ = 0;
};

// The same, with every log line captured (not for death tests: captured lines never reach stderr).
class MemoryTraceLogTest : public MemoryTraceTest {
  protected:
    // Opens a tracing period and forgets its log lines.
    void StartTracing() {
        MemoryTraceTest::StartTracing();
        log_.Clear();
    }

    LogCapture log_;
};
