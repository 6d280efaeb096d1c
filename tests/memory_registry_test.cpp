#include <gtest/gtest.h>

#include <android/log.h>

#include <cstdint>
#include <string>

#include "algocore/utils/Properties.h"
#include "memory_trace_fixture.h"

namespace {

constexpr const char* kFile = "caller.cpp";
constexpr int kLine = 7;

// Distinct addresses that are never dereferenced by the registry.
alignas(64) unsigned char gArena[1 << 14];
unsigned char* const A = gArena + 1024;

using RegistryTest = MemoryTraceLogTest;

TEST_F(RegistryTest, EverythingIsInertWhileTracingIsOff) {
    EXPECT_EQ(AM::mapInsert(A, 100, 0, kFile, kLine), 0u);
    EXPECT_EQ(AM::virtureMapInsert(9, A, 100, 2, kFile, kLine), 0u);
    EXPECT_TRUE(AM::sMemMap.empty());
    EXPECT_TRUE(AM::mapCheck(A, 200, 1, 1, kFile, kLine));
    EXPECT_TRUE(AM::checkMemcpyAddr(nullptr, 0, 1, 1, kFile, kLine));
    AM::nativeMemAdd(10);
    AM::externalMemAdd(10);
    AM::virtureMemAdd(10);
    EXPECT_EQ(AM::sNativeUsingSize + AM::sExternalUsingSize + AM::sVirtureUsingSize, 0u);
    EXPECT_EQ(AM::sNativeUsingMaxSize, 0u);
    EXPECT_EQ(AM::mapDelete(A, kFile, kLine), 0u);
    EXPECT_EQ(AM::mapFind(A), 0u);
    AM::setInputHandle(A);
    EXPECT_EQ(AM::sInputHandle, nullptr);
    EXPECT_TRUE(log_.Lines().empty());
}

TEST_F(RegistryTest, FirstRegistrationWinsAndCountsOnce) {
    StartTracing();
    AM::nativeMemAdd(AM::mapInsert(A, 100, 0, "first.cpp", 1));
    AM::nativeMemAdd(AM::mapInsert(A, 300, 1, "second.cpp", 2));
    EXPECT_EQ(AM::getInternalMemSize(), 100u);
    ASSERT_EQ(AM::sMemMap.size(), 1u);
    const vemo::AlgoMemInfo& info = AM::sMemMap.begin()->second;
    EXPECT_EQ(info.file, "first.cpp");
    EXPECT_EQ(info.size, 100u);
    EXPECT_EQ(info.type, 0);
    EXPECT_EQ(info.virtureAddr, reinterpret_cast<uintptr_t>(A));
    EXPECT_TRUE(log_.Lines().empty());  // duplicates are silent

    EXPECT_EQ(AM::mapInsert(A + 200, 0, 0, kFile, kLine), 0u);
    EXPECT_EQ(AM::mapInsert(nullptr, 8, 0, kFile, kLine), 0u);
    EXPECT_EQ(AM::sMemMap.size(), 1u);

    AM::nativeMemDec(AM::mapDelete(A, kFile, kLine));
    EXPECT_EQ(AM::getInternalMemSize(), 0u);
}

TEST_F(RegistryTest, UnknownAddressesAreReportedWithoutHarm) {
    StartTracing();
    AM::nativeMemAdd(AM::mapInsert(A, 16, 0, kFile, kLine));
    EXPECT_EQ(AM::mapDelete(A + 1, kFile, kLine), 0u);
    const auto lines = log_.Lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].prio, ANDROID_LOG_INFO);
    EXPECT_NE(lines[0].text.find("not in map!, Source File: caller.cpp, Line Num:7"), std::string::npos);

    log_.Clear();
    EXPECT_EQ(AM::mapFind(A + 1), 0u);
    ASSERT_EQ(log_.Lines().size(), 1u);
    EXPECT_EQ(log_.Lines()[0].prio, ANDROID_LOG_ERROR);
    EXPECT_NE(log_.Lines()[0].text.find("not in map!"), std::string::npos);

    EXPECT_EQ(AM::mapFind(A), 16u);
    AM::nativeMemDec(AM::mapDelete(A, kFile, kLine));
    EXPECT_EQ(AM::getInternalMemSize(), 0u);
}

struct RangeCase {
    long at;  // from A
    unsigned long offset;
    unsigned long elementSize;
    unsigned long size;
    bool copyOk;   // checkMemcpyAddr
    bool checkOk;  // mapCheck
    const char* message;
};

TEST_F(RegistryTest, RangeChecksFollowTheBlockTheyStartIn) {
    StartTracing();
    AM::nativeMemAdd(AM::mapInsert(A, 100, 0, kFile, kLine));
    const RangeCase cases[] = {
        {0, 0, 1, 100, true, true, nullptr},
        {0, 0, 1, 101, false, false, "out of right memory size 1"},
        {0, 24, 4, 4, true, true, nullptr},
        {0, 24, 4, 5, false, false, "size 5, out of right memory size 1"},
        {0, 100, 1, 1, false, false, "offset 100, elementSize 1, size 1, out of right memory size 1"},
        {10, 0, 1, 90, true, false, nullptr},  // found by containment; mapCheck wants the exact key
        {10, 0, 1, 91, false, false, "out of right memory size 1"},
        {99, 0, 1, 1, true, false, nullptr},
        {100, 0, 1, 50, true, false, nullptr},  // just past the end: not known, accepted
        {-10, 0, 1, 50, true, false, nullptr},
    };
    for (const RangeCase& c : cases) {
        SCOPED_TRACE(::testing::Message() << "at " << c.at << " offset " << c.offset << " x " << c.elementSize
                                          << " size " << c.size);
        log_.Clear();
        EXPECT_EQ(AM::checkMemcpyAddr(A + c.at, c.offset, c.elementSize, c.size, kFile, kLine), c.copyOk);
        if (!c.copyOk) {
            EXPECT_TRUE(log_.Contains(c.message));
            EXPECT_TRUE(
                log_.Contains("SDK_OUT_OF_MEMORY_ERR! Source File: caller.cpp, Line Num: 7 begin 0x"));
        }
        log_.Clear();
        EXPECT_EQ(AM::mapCheck(A + c.at, c.offset, c.elementSize, c.size, kFile, kLine), c.checkOk);
        if (!c.checkOk && c.at == 0) {
            EXPECT_TRUE(log_.Contains("SDK_OUT_OF_MEMORY_ERR! begin 0x"));
        }
        if (c.at != 0) {
            EXPECT_TRUE(log_.Lines().empty());
        }
    }
    log_.Clear();
    EXPECT_FALSE(AM::checkMemcpyAddr(nullptr, 0, 1, 1, kFile, kLine));
    EXPECT_FALSE(AM::mapCheck(nullptr, 0, 1, 1, kFile, kLine));
    EXPECT_EQ(log_.Count("SDK_NULL_POINTER_ERR! addr is NULL"), 2u);
    AM::nativeMemDec(AM::mapDelete(A, kFile, kLine));
}

TEST_F(RegistryTest, ContainmentTakesTheFirstBlockInAddressOrder) {
    StartTracing();
    // A small block nested inside a large one, and an unrelated one far below.
    AM::nativeMemAdd(AM::mapInsert(gArena, 64, 0, kFile, kLine));
    AM::nativeMemAdd(AM::mapInsert(A, 4096, 0, kFile, kLine));
    AM::externalMemAdd(AM::mapInsert(A + 20, 10, 1, kFile, kLine));
    EXPECT_TRUE(AM::checkMemcpyAddr(A + 25, 0, 1, 50, kFile, kLine));
    EXPECT_TRUE(AM::checkMemcpyAddr(A + 2000, 0, 1, 2096, kFile, kLine));
    log_.Clear();
    EXPECT_FALSE(AM::checkMemcpyAddr(A + 2000, 0, 1, 3000, kFile, kLine));
    EXPECT_TRUE(log_.Contains("out of right memory size 904"));
    // The exact key wins over containment.
    EXPECT_FALSE(AM::checkMemcpyAddr(A + 20, 0, 1, 11, kFile, kLine));
    EXPECT_TRUE(AM::checkMemcpyAddr(gArena + 63, 0, 1, 1, kFile, kLine));
    EXPECT_FALSE(AM::checkMemcpyAddr(gArena + 63, 0, 1, 2, kFile, kLine));

    AM::externalMemDec(AM::mapDelete(A + 20, kFile, kLine));
    AM::nativeMemDec(AM::mapDelete(A, kFile, kLine));
    AM::nativeMemDec(AM::mapDelete(gArena, kFile, kLine));
}

TEST_F(RegistryTest, OverlapCheckNeedsNoRegistryAndNamesTheSide) {
    unsigned char* const d = A;
    struct Case {
        unsigned char* dst;
        const unsigned char* src;
        unsigned long dstOffset, dstElementSize, srcOffset, srcElementSize, size;
        const char* message;  // null: no overlap
    } const cases[] = {
        {d, d, 0, 1, 0, 1, 1, "override right memory :1"},
        {d, d + 10, 0, 1, 0, 1, 20, "override right memory :10"},
        {d + 10, d, 0, 1, 0, 1, 20, "override left memory :10"},
        {d, d + 20, 0, 1, 0, 1, 20, nullptr},
        {d + 20, d, 0, 1, 0, 1, 20, nullptr},
        {d, d + 16, 3, 4, 0, 1, 4, nullptr},  // dst point d + 12
        {d, d + 16, 3, 4, 0, 1, 5, "override right memory :1"},
        {d + 16, d, 0, 1, 2, 4, 9, "override left memory :1"},  // src point d + 8
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.message != nullptr ? c.message : "no overlap");
        log_.Clear();
        EXPECT_EQ(AM::checkOverrideMemcpyAddr(c.dst, c.src, c.dstOffset, c.dstElementSize, 0, c.srcOffset,
                                              c.srcElementSize, 0, c.size, kFile, kLine),
                  c.message == nullptr);
        if (c.message != nullptr) {
            EXPECT_TRUE(log_.Contains(c.message));
            EXPECT_TRUE(
                log_.Contains("SDK_OUT_OF_MEMORY_ERR! Source File: caller.cpp, Line Num: 7  dstPoint: "));
        } else {
            EXPECT_TRUE(log_.Lines().empty());
        }
    }
    log_.Clear();
    EXPECT_FALSE(AM::checkOverrideMemcpyAddr(nullptr, d, 0, 1, 0, 0, 1, 0, 1, kFile, kLine));
    EXPECT_TRUE(log_.Contains("SDK_NULL_POINTER_ERR! src:"));
    EXPECT_TRUE(log_.Contains("  is NULL"));
}

TEST_F(RegistryTest, CountersKeepAHighWaterMarkUntilTheNextInit) {
    StartTracing();
    AM::nativeMemAdd(100);
    AM::nativeMemAdd(50);
    AM::nativeMemDec(100);
    AM::externalMemAdd(7);
    AM::virtureMemAdd(3);
    EXPECT_EQ(AM::getInternalMemSize(), 50u);
    EXPECT_EQ(AM::getInternalMemMaxSize(), 150u);
    EXPECT_EQ(AM::getTotalMemSize(), 60u);
    AM::nativeMemAdd(20);
    EXPECT_EQ(AM::getInternalMemMaxSize(), 150u);

    StartTracing();  // a nested period resets the mark, not the counts
    EXPECT_EQ(AM::getInternalMemMaxSize(), 0u);
    EXPECT_EQ(AM::getInternalMemSize(), 70u);
    AM::nativeMemDec(70);
    AM::externalMemDec(7);
    AM::virtureMemDec(3);
    EXPECT_EQ(AM::getTotalMemSize(), 0u);
    EXPECT_EQ(AM::sInitNumber.load(), initNumber_ + 2);
}

TEST_F(RegistryTest, VirtualEntriesAreFoundByTheirHandle) {
    StartTracing();
    EXPECT_EQ(AM::virtureMapInsert(0xBEEF, A + 64, 32, 2, kFile, kLine), 32u);
    EXPECT_EQ(AM::virtureMapInsert(0xBEEF, A, 16, 2, kFile, kLine), 16u);
    EXPECT_EQ(AM::virtureMapInsert(0xF00D, A, 8, 2, kFile, kLine), 0u);  // address taken
    AM::virtureMemAdd(48);
    AM::nativeMemAdd(AM::mapInsert(A + 512, 8, 0, kFile, kLine));
    EXPECT_EQ(AM::sMemMap.at(A).virtureAddr, 0xBEEFu);
    EXPECT_EQ(AM::sMemMap.at(A).type, 2);
    EXPECT_EQ(AM::getTotalMemSize(), 56u);
    // Lowest address first, and only one entry per call.
    EXPECT_EQ(AM::virtureMapDelete(0xBEEF), 16u);
    EXPECT_EQ(AM::virtureMapDelete(0xBEEF), 32u);
    EXPECT_EQ(AM::virtureMapDelete(0xBEEF), 0u);
    AM::virtureMemDec(48);
    // An ordinary entry's handle is its own address.
    EXPECT_EQ(AM::virtureMapDelete(reinterpret_cast<uintptr_t>(A + 512)), 8u);
    AM::nativeMemDec(8);
    EXPECT_TRUE(log_.Lines().empty());
}

TEST_F(RegistryTest, TraceInitFollowsTheModeOrTheDebugProperty) {
    struct Case {
        const char* property;  // null: unset
        int mode;
        int64_t enabled;
        int returned;
    } const cases[] = {
        {nullptr, 256, 1, 0}, {"0", 256, 1, 0},   {"2", 256, 1, 2}, {"1", 0, 1, 1},
        {"2", 0, 0, 2},       {nullptr, 0, 0, 0}, {"1", 255, 1, 1}, {"abc", 1, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << (c.property ? c.property : "unset") << " mode " << c.mode);
        vai_host_reset_properties();
        if (c.property != nullptr) {
            ASSERT_EQ(property_set("vendor.camera.mem.debug.enable", c.property), 0);
        }
        log_.Clear();
        const int32_t before = AM::sInitNumber.load();
        EXPECT_EQ(AM::memTraceInit(c.mode), c.returned);
        EXPECT_EQ(AM::sDebugEnable, c.enabled);
        EXPECT_EQ(AM::sInitNumber.load(), before + 1);
        EXPECT_TRUE(log_.Contains("[memTraceInit] sInitNumber:" + std::to_string(before + 1)));
        EXPECT_TRUE(log_.Contains("debug enbale:" + std::to_string(c.returned)));
    }
}

}  // namespace
