#include <gtest/gtest.h>

#include <string>

#include "algocore/utils/LogPrintf.h"
#include "algocore/utils/Properties.h"
#include "log_capture.h"
#include "algocore/utils/vai_log.h"

namespace {

using vemo::LogPrintf;

class LoggingTest : public ::testing::Test {
  protected:
    ScopedValue<unsigned char> level_{g_log_level, 1};
    ScopedValue<unsigned int> mask_{LogPrintf::mLogLevel, 1};
    LogCapture log_;
};

// Path 1: one message of each priority, emitted when g_log_level reaches its threshold.
TEST_F(LoggingTest, DirectPathGatesEachPriorityByLevel) {
    struct {
        int priority;
        int min_level;
    } const kGates[] = {{ANDROID_LOG_ERROR, 1},
                        {ANDROID_LOG_WARN, 2},
                        {ANDROID_LOG_INFO, 3},
                        {ANDROID_LOG_DEBUG, 4},
                        {ANDROID_LOG_VERBOSE, 5}};
    for (int level = 0; level <= 6; ++level) {
        g_log_level = static_cast<unsigned char>(level);
        log_.Clear();
        VAI_LOGE("e%d", 1);
        VAI_LOGW("w%d", 2);
        VAI_LOGI("i%d", 3);
        VAI_LOGD("d%d", 4);
        VAI_LOGV("v%d", 5);
        std::vector<int> seen;
        for (const LogLine& l : log_.Lines()) {
            EXPECT_EQ(l.tag, "Video_AI_PROC");
            seen.push_back(l.prio);
        }
        std::vector<int> expected;
        for (const auto& g : kGates) {
            if (level >= g.min_level) expected.push_back(g.priority);
        }
        EXPECT_EQ(seen, expected) << "g_log_level " << level;
    }
}

TEST_F(LoggingTest, DisabledCallSitesDoNotEvaluateArguments) {
    int evaluated = 0;
    auto touch = [&] { return ++evaluated; };
    g_log_level = 0;
    VAI_LOGE("%d", touch());
    LogPrintf::mLogLevel = 1;
    VEMO_LOGI("%d", touch());
    LogPrintf::mLogLevel = 0;
    VEMO_LOGE("%d", touch());
    EXPECT_EQ(evaluated, 0);
    EXPECT_TRUE(log_.Lines().empty());
}

TEST_F(LoggingTest, VemoPrefixCarriesModuleFileLineAndFunction) {
    LogPrintf::mLogLevel = LogPrintf::kError | LogPrintf::kInfo;
    const int line = __LINE__ + 1;
    VEMO_LOGE("value %d", 7);
    VEMO_LOGI("info %s", "x");
    auto lines = log_.Lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].tag, "Algorithm");
    EXPECT_EQ(lines[0].prio, ANDROID_LOG_ERROR);
    EXPECT_EQ(lines[0].text,
              "[ERROR] [VEMO] [logging_test.cpp] " + std::to_string(line) + "  TestBody() value 7");
    EXPECT_EQ(lines[1].prio, ANDROID_LOG_INFO);
    EXPECT_EQ(lines[1].text.rfind("[INFO] [VEMO] [logging_test.cpp] ", 0), 0u) << lines[1].text;
}

struct MaskCase {
    unsigned int mask;
    unsigned int level;
    int android_prio;     // -1: nothing reaches the Android log
    const char* stdout_;  // what reaches standard output
};

TEST_F(LoggingTest, LogPrintRoutesByMask) {
    const MaskCase cases[] = {
        {0, 1, -1, ""},
        {1, 1, ANDROID_LOG_ERROR, ""},
        {1, 4, -1, ""},
        {5, 1, ANDROID_LOG_ERROR, ""},
        {5, 4, ANDROID_LOG_INFO, ""},
        {2, 2, ANDROID_LOG_WARN, ""},
        {8, 8, ANDROID_LOG_DEBUG, ""},
        {16, 16, ANDROID_LOG_VERBOSE, ""},
        {31, 31, ANDROID_LOG_ERROR, ""},  // first set bit wins: one output per call
        {32, 1, -1, "Algorithm msg\n"},
        {33, 4, -1, "Algorithm msg\n"},
        {36, 4, ANDROID_LOG_INFO, ""},
        {255, 1, -1, "msg \n"},
        {255, 4, -1, "msg \n"},
        {255, 64, -1, "msg \n"},
        {64, 64, -1, ""},
    };
    for (const MaskCase& c : cases) {
        LogPrintf::mLogLevel = c.mask;
        log_.Clear();
        testing::internal::CaptureStdout();
        LogPrintf::logPrint(c.level, "%s", "msg");
        fflush(stdout);
        const std::string out = testing::internal::GetCapturedStdout();
        const auto lines = log_.Lines();
        if (c.android_prio < 0) {
            EXPECT_TRUE(lines.empty()) << "mask " << c.mask << " level " << c.level;
        } else {
            ASSERT_EQ(lines.size(), 1u) << "mask " << c.mask << " level " << c.level;
            EXPECT_EQ(lines[0].prio, c.android_prio);
            EXPECT_EQ(lines[0].tag, "Algorithm");
            EXPECT_EQ(lines[0].text, "msg");
        }
        EXPECT_EQ(out, c.stdout_) << "mask " << c.mask << " level " << c.level;
    }
}

TEST_F(LoggingTest, LongMessagesAreCutTo1022Characters) {
    const std::string longText(2000, 'x');
    LogPrintf::logPrint(1, "%s", longText.c_str());
    ASSERT_EQ(log_.Lines().size(), 1u);
    EXPECT_EQ(log_.Lines()[0].text, std::string(1022, 'x'));
}

TEST_F(LoggingTest, NullStringArgumentIsTolerated) {
    static const char* volatile kNull = nullptr;  // hidden from the compiler's format check
    const char* nothing = kNull;
    VAI_LOGE("name %s", nothing);
    LogPrintf::logPrint(1, "name %s", nothing);
    ASSERT_EQ(log_.Lines().size(), 2u);
    EXPECT_EQ(log_.Lines()[1].text, "name (null)");
}

TEST_F(LoggingTest, ConstructorAndDestructorResetTheMask) {
    LogPrintf::mLogLevel = 17;
    {
        LogPrintf logger;
        EXPECT_EQ(LogPrintf::mLogLevel, 1u);
        LogPrintf::setLogStatus(255);
        EXPECT_EQ(LogPrintf::mLogLevel, 255u);
    }
    EXPECT_EQ(LogPrintf::mLogLevel, 1u);
    LogPrintf::setLogStatus(1000);  // stored unmasked
    EXPECT_EQ(LogPrintf::mLogLevel, 1000u);
}

struct PropCase {
    const char* value;     // null: property unset
    const char* fallback;  // default given to setLogStatusByProp
    int result;
    unsigned int mask;  // mask afterwards, starting from 1
};

TEST_F(LoggingTest, SetLogStatusByProp) {
    const PropCase cases[] = {
        {"0", nullptr, 0, 1},    {"abc", nullptr, 0, 1},   {"255", nullptr, 255, 63},
        {"-1", nullptr, -1, 63}, {"5", nullptr, 5, 5},     {"100", nullptr, 100, 36},
        {nullptr, "4", 4, 4},    {nullptr, nullptr, 0, 1}, {"6", "4", 6, 6},
    };
    const char* key = "vendor.test.log.level";
    for (const PropCase& c : cases) {
        vai_host_reset_properties();
        if (c.value != nullptr) {
            ASSERT_EQ(property_set(key, c.value), 0);
        }
        LogPrintf::mLogLevel = 1;
        EXPECT_EQ(LogPrintf::setLogStatusByProp(key, c.fallback), c.result)
            << (c.value ? c.value : "(unset)");
        EXPECT_EQ(LogPrintf::mLogLevel, c.mask) << (c.value ? c.value : "(unset)");
    }
    vai_host_reset_properties();
}

}  // namespace
