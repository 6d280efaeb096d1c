#include <gtest/gtest.h>

#include <android/log.h>

#include <cstdint>
#include <string>

#include "algocore/memory/ALGONativeGalloc.h"
#include "memory_trace_fixture.h"

namespace {

using vemo::Native;

constexpr const char* kFile = "caller.cpp";
constexpr int kLine = 21;

alignas(64) unsigned char gArena[1024];

class HandOffTest : public MemoryTraceLogTest {
  protected:
    unsigned long long Key(const void* p) {
        return ~static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(p));
    }

    HostTrace host_;
};

TEST_F(HandOffTest, EverythingIsANoOpUntilAValidRecordArrives) {
    EXPECT_EQ(APS::mapAPSNativeMapInsert(gArena, 64, kFile, kLine), 0u);
    host_.memMap[Key(gArena)] = {"host.cpp", 1, 64};
    EXPECT_EQ(APS::mapAPSNativeMapDelete(gArena, kFile, kLine), 0u);
    EXPECT_EQ(APS::mapAPSHardwareBuffInsert(gArena, 64, kFile, kLine, 1, 2, 3), 0);
    APS::mapAPSHardwareBuffDelete(gArena, kFile, kLine);
    APS::mapAPSNativeMemAdd(64);
    EXPECT_EQ(host_.memMap.size(), 1u);
    EXPECT_TRUE(host_.refNum.empty());
    EXPECT_EQ(host_.usingSize, 0u);
    EXPECT_TRUE(log_.Lines().empty());
    host_.memMap.clear();

    EXPECT_EQ(APS::setAPSMemInfo(nullptr), 1027);
    EXPECT_EQ(APS::sAPSMemEnable, 0);
    EXPECT_TRUE(log_.Contains("APSMemInfo is nullptr"));

    vemo::APSMemMapInfo info = host_.Info();
    log_.Clear();
    EXPECT_EQ(APS::setAPSMemInfo(&info), 0);
    EXPECT_EQ(APS::sAPSMemEnable, 1);
    ASSERT_EQ(log_.Lines().size(), 1u);
    EXPECT_EQ(log_.Lines()[0].prio, ANDROID_LOG_INFO);
    EXPECT_NE(log_.Lines()[0].text.find("input sAPSNativeMemLock:"), std::string::npos);

    EXPECT_EQ(APS::mapAPSNativeMapInsert(gArena, 64, kFile, kLine), 64u);
    ASSERT_EQ(host_.memMap.count(Key(gArena)), 1u);
    EXPECT_EQ(host_.memMap[Key(gArena)].file, kFile);
    EXPECT_EQ(host_.memMap[Key(gArena)].line, kLine);
    EXPECT_EQ(APS::mapAPSNativeMapInsert(gArena, 0, kFile, kLine), 0u);
    EXPECT_EQ(APS::mapAPSNativeMapInsert(nullptr, 8, kFile, kLine), 0u);
    EXPECT_EQ(APS::mapAPSNativeMapDelete(gArena, kFile, kLine), 64u);
    EXPECT_TRUE(host_.memMap.empty());
}

TEST_F(HandOffTest, ARecordWithANullMemberDisablesTheHandOff) {
    for (int member = 0; member < 6; ++member) {
        SCOPED_TRACE(member);
        vemo::APSMemMapInfo good = host_.Info();
        ASSERT_EQ(APS::setAPSMemInfo(&good), 0);
        vemo::APSMemMapInfo bad = host_.Info();
        switch (member) {
            case 0:
                bad.sAPSNativeMemLock = nullptr;
                break;
            case 1:
                bad.sAPSNativeUsingSize = nullptr;
                break;
            case 2:
                bad.sAPSMapLock = nullptr;
                break;
            case 3:
                bad.sAPSHardBuffLock = nullptr;
                break;
            case 4:
                bad.sAPSMemMap = nullptr;
                break;
            default:
                bad.sAPSRefNum = nullptr;
                break;
        }
        log_.Clear();
        EXPECT_EQ(APS::setAPSMemInfo(&bad), 1027);
        EXPECT_EQ(APS::sAPSMemEnable, 0);
        ASSERT_EQ(log_.Lines().size(), 1u);
        EXPECT_EQ(log_.Lines()[0].prio, ANDROID_LOG_ERROR);
        EXPECT_NE(log_.Lines()[0].text.find("input sAPSNativeMemLock:"), std::string::npos);
        EXPECT_NE(log_.Lines()[0].text.find(",sAPSMemMap:"), std::string::npos);
        EXPECT_EQ(APS::mapAPSNativeMapInsert(gArena, 64, kFile, kLine), 0u);
        EXPECT_TRUE(host_.memMap.empty());
    }
}

TEST_F(HandOffTest, DuplicatesAndUnknownAddressesAreReported) {
    vemo::APSMemMapInfo info = host_.Info();
    ASSERT_EQ(APS::setAPSMemInfo(&info), 0);
    EXPECT_EQ(APS::mapAPSNativeMapInsert(gArena, 64, "first.cpp", 1), 64u);
    log_.Clear();
    EXPECT_EQ(APS::mapAPSNativeMapInsert(gArena, 128, kFile, kLine), 0u);
    EXPECT_TRUE(log_.Contains("had insert into aps map, ignore it!, Source File: caller.cpp, Line Num:21"));
    EXPECT_EQ(host_.memMap[Key(gArena)].size, 64u);
    EXPECT_EQ(host_.memMap[Key(gArena)].file, "first.cpp");

    log_.Clear();
    EXPECT_EQ(APS::mapAPSNativeMapDelete(gArena + 8, kFile, kLine), 0u);
    ASSERT_EQ(log_.Lines().size(), 1u);
    EXPECT_EQ(log_.Lines()[0].prio, ANDROID_LOG_INFO);
    EXPECT_NE(log_.Lines()[0].text.find("not in aps map!, Source File: caller.cpp, Line Num:21"),
              std::string::npos);
    EXPECT_EQ(APS::mapAPSNativeMapDelete(gArena, kFile, kLine), 64u);
}

TEST_F(HandOffTest, HardwareBuffersAreReferenceCounted) {
    vemo::APSMemMapInfo info = host_.Info();
    ASSERT_EQ(APS::setAPSMemInfo(&info), 0);
    EXPECT_EQ(APS::mapAPSHardwareBuffInsert(gArena, 4096, kFile, kLine, 11, 22, 33), 1);
    log_.Clear();
    EXPECT_EQ(APS::mapAPSHardwareBuffInsert(gArena, 999, "other.cpp", 5, 0, 0, 0), 2);
    EXPECT_TRUE(log_.Contains("had insert into aps map,refs add 1"));
    const vemo::APSHardwareBuffRecord& rec = host_.refNum.at(Key(gArena));
    EXPECT_EQ(rec.size, 4096u);
    EXPECT_EQ(rec.file, kFile);
    EXPECT_EQ(rec.a + rec.b + rec.c, 66u);

    APS::mapAPSHardwareBuffDelete(gArena, kFile, kLine);
    ASSERT_EQ(host_.refNum.count(Key(gArena)), 1u);
    EXPECT_EQ(host_.refNum.at(Key(gArena)).refs, 1);
    APS::mapAPSHardwareBuffDelete(gArena, kFile, kLine);
    EXPECT_TRUE(host_.refNum.empty());
    log_.Clear();
    APS::mapAPSHardwareBuffDelete(gArena, kFile, kLine);
    EXPECT_TRUE(log_.Contains("Hardware buff release :"));
    EXPECT_TRUE(log_.Contains(" error! Source File: caller.cpp, Line Num: 21"));
    EXPECT_EQ(APS::mapAPSHardwareBuffInsert(nullptr, 1, kFile, kLine, 0, 0, 0), 0);
}

TEST_F(HandOffTest, TracedAllocationsAreMirroredIntoTheHostTrace) {
    vemo::APSMemMapInfo info = host_.Info();
    ASSERT_EQ(APS::setAPSMemInfo(&info), 0);
    void* untraced = Native::malloc(32, kFile, kLine);  // tracing off: not mirrored
    EXPECT_TRUE(host_.memMap.empty());
    Native::free(untraced, kFile, kLine);

    StartTracing();
    void* a = Native::malloc(100, kFile, kLine);
    void* b = Native::calloc(10, 10, kFile, 99);
    unsigned char borrowed[16];
    Native::attach(borrowed, 16, kFile, kLine);
    EXPECT_EQ(host_.usingSize, 216u);
    ASSERT_EQ(host_.memMap.size(), 3u);
    EXPECT_EQ(host_.memMap.at(Key(b)).line, 99);

    a = Native::realloc(a, 300, kFile, kLine);
    EXPECT_EQ(host_.usingSize, 416u);
    EXPECT_EQ(host_.memMap.at(Key(a)).size, 300u);

    Native::detach(borrowed, kFile, kLine);
    Native::free(a, kFile, kLine);
    Native::free(b, kFile, kLine);
    EXPECT_TRUE(host_.memMap.empty());
    EXPECT_EQ(host_.usingSize, 0u);
    EXPECT_FALSE(log_.Contains("aps map"));
}

}  // namespace
