// Status names, the two logging paths and the property readers.
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>

#include "algocore/utils/LogPrintf.h"
#include "algocore/utils/Properties.h"
#include "algocore/utils/status_code.h"
#include "algocore/utils/vai_log.h"
#include "log_capture.h"

namespace {

using vemo::LogPrintf;

constexpr const char* kP = "vendor.p";

// Every status the public header names maps back to that name, and no other number has one.
TEST(StatusToString, NamesExactlyTheHeadersStatuses) {
    std::ifstream header(VAI_TEST_SOURCE_DIR "/jni/algocore/utils/status_code.h");
    std::map<int, std::string> named;
    char name[64];
    int value = 0;
    for (std::string line; std::getline(header, line);) {
        if (std::sscanf(line.c_str(), " SDK_%60[A-Z0-9_] = %d,", name, &value) != 2) continue;
        EXPECT_TRUE(named.emplace(value, std::string("SDK_") + name).second) << name;
    }
    ASSERT_GT(named.size(), 100u);
    for (int s = -2; s <= 65536; ++s) {
        const auto it = named.find(s);
        EXPECT_EQ(statusToString(s) ? statusToString(s) : "", it == named.end() ? "" : it->second) << s;
    }
    EXPECT_STREQ(statusToString(SDK_UNINIT_ERROR), "SDK_UNINIT_ERROR");
    EXPECT_FALSE(statusToString(INT_MIN) || statusToString(INT_MAX) || statusToString(kNullImage));
}

class LoggingTest : public ::testing::Test {
  protected:
    void SetUp() override { vai_host_reset_properties(); }
    void TearDown() override { vai_host_reset_properties(); }
    ScopedValue<unsigned char> level_{g_log_level, 1};
    ScopedValue<unsigned int> mask_{LogPrintf::mLogLevel, LogPrintf::kError | LogPrintf::kInfo};
    LogCapture log_;
};

TEST_F(LoggingTest, DirectPathGatesEachPriorityByLevel) {
    const int kByLevel[] = {ANDROID_LOG_ERROR, ANDROID_LOG_WARN, ANDROID_LOG_INFO, ANDROID_LOG_DEBUG,
                            ANDROID_LOG_VERBOSE};
    for (int level = 0; level <= 6; ++level) {
        g_log_level = static_cast<unsigned char>(level);
        log_.Clear();
        VAI_LOGE("e");
        VAI_LOGW("w");
        VAI_LOGI("i");
        VAI_LOGD("d");
        VAI_LOGV("v%d", 5);
        std::vector<int> seen, expected(kByLevel, kByLevel + std::min(level, 5));
        for (const LogLine& l : log_.Lines()) seen.push_back(l.tag == "Video_AI_PROC" ? l.prio : -1);
        EXPECT_EQ(seen, expected) << "g_log_level " << level;
    }
    // Disabled call sites evaluate no argument.
    int evaluated = 0;
    g_log_level = 0;
    VAI_LOGE("%d", ++evaluated);
    LogPrintf::mLogLevel = 1;
    VEMO_LOGI("%d", ++evaluated);
    LogPrintf::mLogLevel = 0;
    VEMO_LOGE("%d", ++evaluated);
    EXPECT_EQ(evaluated, 0);
}

// The vemo prefix: kind, module, file base name, line, two blanks, function.
TEST_F(LoggingTest, VemoPrefix) {
    const int line = __LINE__ + 1;
    VEMO_LOGE("value %d", 7);
    VEMO_LOGI("info %s", "x");
    const auto lines = log_.Lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].text,
              "[ERROR] [VEMO] [foundation_test.cpp] " + std::to_string(line) + "  TestBody() value 7");
    EXPECT_EQ(lines[1].text,
              "[INFO] [VEMO] [foundation_test.cpp] " + std::to_string(line + 1) + "  TestBody() info x");
}

// One output per call: the first enabled Android bit, else the mask's console bit; 255 is console only.
TEST_F(LoggingTest, LogPrintRoutesByMask) {
    const auto android = [](int prio) { return "Algorithm " + std::to_string(prio) + " msg"; };
    const struct {
        unsigned int mask, level;
        std::string out;  // standard output, then the Android log as "tag prio text"
    } cases[] = {         // clang-format off
        {0, 1, ""}, {1, 1, android(ANDROID_LOG_ERROR)}, {1, 4, ""}, {5, 4, android(ANDROID_LOG_INFO)},
        {2, 2, android(ANDROID_LOG_WARN)}, {8, 8, android(ANDROID_LOG_DEBUG)},
        {16, 16, android(ANDROID_LOG_VERBOSE)}, {31, 31, android(ANDROID_LOG_ERROR)}, {32, 1, "Algorithm msg\n"},
        {33, 4, "Algorithm msg\n"}, {36, 4, android(ANDROID_LOG_INFO)}, {255, 1, "msg \n"}, {255, 64, "msg \n"},
        {64, 64, ""}};
    // clang-format on
    for (const auto& c : cases) {
        LogPrintf::mLogLevel = c.mask;
        log_.Clear();
        testing::internal::CaptureStdout();
        LogPrintf::logPrint(c.level, "%s", "msg");
        fflush(stdout);
        std::string got = testing::internal::GetCapturedStdout();
        for (const LogLine& l : log_.Lines()) got += l.tag + " " + std::to_string(l.prio) + " " + l.text;
        EXPECT_EQ(got, c.out) << c.mask << " " << c.level;
    }
    // Formatted into a bounded buffer; a null string is tolerated.
    static const char* volatile kNull = nullptr;  // hidden from the compiler's format check
    LogPrintf::mLogLevel = 1;
    log_.Clear();
    LogPrintf::logPrint(1, "%s", std::string(2000, 'x').c_str());
    LogPrintf::logPrint(1, "name %s", static_cast<const char*>(kNull));
    EXPECT_EQ(log_.Texts(), (std::vector<std::string>{std::string(1022, 'x'), "name (null)"}));
}

// One table for the property readers: which reader, the property's value (null: unset), the default, and the
// result (for property_get "length:text", for setLogStatusByProp "result:mask" starting from mask 1), after a
// "|" the reason of the one info line an integer reader logs when it falls back. errno stays the caller's.
TEST_F(LoggingTest, PropertyReaders) {
    using Reader = std::string (*)(const char* fallback);
    const Reader kGet = [](const char* d) {
        char value[kPropertyValueMax] = {};
        return std::to_string(property_get(kP, value, d)) + ":" + value;
    };
    const Reader kBool = [](const char* d) { return std::to_string(property_get_bool(kP, *d == '1')); };
    const Reader kInt32 = [](const char* d) { return std::to_string(property_get_int32(kP, std::atoi(d))); };
    const Reader kInt64 = [](const char* d) { return std::to_string(property_get_int64(kP, std::atoi(d))); };
    const Reader kLogStatus = [](const char* d) {
        LogPrintf::mLogLevel = 1;
        const int result = LogPrintf::setLogStatusByProp(kP, d);
        return std::to_string(result) + ":" + std::to_string(LogPrintf::mLogLevel);
    };
    const std::string d200(200, 'd'), d91 = "91:" + d200.substr(0, 91);
    const struct {
        Reader reader;
        const char *value, *fallback, *expected;
    } cases[] = {// clang-format off
        {kGet, nullptr, "abc", "3:abc"}, {kGet, nullptr, d200.c_str(), d91.c_str()},
        {kGet, "hello", "abc", "5:hello"}, {kGet, nullptr, nullptr, "0:"}, {kBool, "0", "1", "0"},
        {kBool, "n", "1", "0"}, {kBool, "1", "0", "1"}, {kBool, "y", "0", "1"}, {kBool, "x", "0", "0"},
        {kBool, "N", "1", "1"}, {kBool, "no", "1", "0"}, {kBool, "false", "1", "0"}, {kBool, "off", "1", "0"},
        {kBool, "yes", "0", "1"}, {kBool, "true", "0", "1"}, {kBool, "on", "0", "1"},
        {kBool, "TRUE", "0", "0"}, {kBool, "yes ", "0", "0"}, {kBool, "", "1", "1"}, {kBool, nullptr, "1", "1"},
        {kInt32, "123", "-42", "123"}, {kInt32, " -7", "-42", "-7"}, {kInt32, "0x10", "-42", "16"},
        {kInt32, "010", "-42", "8"}, {kInt32, "12abc", "-42", "12"}, {kInt32, "7", "-42", "7"},
        {kInt64, "+5", "-42", "5"}, {kInt32, "2147483647", "-42", "2147483647"},
        {kInt32, "-2147483648", "-42", "-2147483648"}, {kInt32, "2147483648", "-42", "-42|out of range"},
        {kInt32, "-2147483649", "-42", "-42|out of range"}, {kInt64, "2147483648", "-42", "2147483648"},
        {kInt64, "9223372036854775807", "-42", "9223372036854775807"},
        {kInt64, "99999999999999999999", "-42", "-42|overflow"},
        {kInt32, "99999999999999999999", "-42", "-42|overflow"},
        {kInt32, "abc", "-42", "-42|numeric conversion failed"}, {kInt64, nullptr, "-42", "-42"},
        {kLogStatus, "0", nullptr, "0:1"}, {kLogStatus, "255", nullptr, "255:63"},
        {kLogStatus, "-1", nullptr, "-1:63"}, {kLogStatus, "100", nullptr, "100:36"},
        {kLogStatus, nullptr, "4", "4:4"}, {kLogStatus, nullptr, nullptr, "0:1"}, {kLogStatus, "6", "4", "6:6"}};
    // clang-format on
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string("'") + (c.value ? c.value : "(unset)") + "' " +
                     (c.fallback ? c.fallback : ""));
        vai_host_reset_properties();
        if (c.value != nullptr) property_set(kP, c.value);
        log_.Clear();
        LogPrintf::mLogLevel = LogPrintf::kError | LogPrintf::kInfo;
        errno = EINTR;
        std::string got = c.reader(c.fallback);
        EXPECT_EQ(errno, EINTR);
        // The line number is left out.
        for (const std::string& t : log_.Texts()) {
            got += t.rfind("[INFO] [VEMO] [Properties.cpp] ", 0) == 0 ? "|" + t.substr(t.find("  ") + 2) : t;
        }
        std::string expected = c.expected;
        if (expected.find('|') != std::string::npos) {
            expected.insert(expected.find('|') + 1, "property_get_imax() property_get_imax(vendor.p,-42) - ");
        }
        EXPECT_EQ(got, expected);
    }
    EXPECT_EQ(
        property_get_int32(nullptr, 9) + property_get_int64(nullptr, 9) + property_get_bool(nullptr, true),
        19);
    EXPECT_FALSE(property_get_bool(nullptr, false));
}

TEST_F(LoggingTest, LogStatusAndPropertyList) {
    LogPrintf::mLogLevel = 17;
    {
        LogPrintf logger;
        EXPECT_EQ(LogPrintf::mLogLevel, 1u);
        LogPrintf::setLogStatus(1000);  // stored unmasked
        EXPECT_EQ(LogPrintf::mLogLevel, 1000u);
    }
    EXPECT_EQ(LogPrintf::mLogLevel, 1u);
    property_set("vendor.a", "1");
    property_set("vendor.b", "two");
    std::map<std::string, std::string> seen;
    auto collect = [](const char* k, const char* v, void* m) {
        (*static_cast<std::map<std::string, std::string>*>(m))[k] = v;
    };
    EXPECT_EQ(property_list(collect, &seen), 0);
    EXPECT_EQ(seen, (std::map<std::string, std::string>{{"vendor.a", "1"}, {"vendor.b", "two"}}));
}

}  // namespace
