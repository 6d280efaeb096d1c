#include "algocore/utils/Properties.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>

#include <android/log.h>

#include "algocore/utils/LogPrintf.h"
#include "log_capture.h"

namespace {

constexpr const char* kKey = "vendor.test.prop";

class PropertiesTest : public ::testing::Test {
  protected:
    void SetUp() override { vai_host_reset_properties(); }
    void TearDown() override { vai_host_reset_properties(); }
    void Set(const char* value) { ASSERT_EQ(property_set(kKey, value), 0); }

    ScopedValue<unsigned int> mask_{vemo::LogPrintf::mLogLevel,
                                    vemo::LogPrintf::kError | vemo::LogPrintf::kInfo};
    LogCapture log_;
};

TEST_F(PropertiesTest, GetFallsBackToBoundedDefault) {
    char value[kPropertyValueMax];
    EXPECT_EQ(property_get(kKey, value, "abc"), 3);
    EXPECT_STREQ(value, "abc");

    const std::string longDefault(200, 'd');
    EXPECT_EQ(property_get(kKey, value, longDefault.c_str()), 91);
    EXPECT_EQ(std::string(value), std::string(91, 'd'));

    EXPECT_EQ(property_get(kKey, value, nullptr), 0);

    Set("hello");
    EXPECT_EQ(property_get(kKey, value, "abc"), 5);
    EXPECT_STREQ(value, "hello");
}

struct BoolCase {
    const char* value;  // null: unset
    bool fallback;
    bool expected;
};

TEST_F(PropertiesTest, BoolConversions) {
    const BoolCase cases[] = {
        {"0", true, false},     {"n", true, false},    {"1", false, true},     {"y", false, true},
        {"x", true, true},      {"x", false, false},   {"no", true, false},    {"false", true, false},
        {"off", true, false},   {"yes", false, true},  {"true", false, true},  {"on", false, true},
        {"TRUE", false, false}, {"TRUE", true, true},  {"On", false, false},   {"", true, true},
        {"", false, false},     {nullptr, true, true}, {"yes ", false, false}, {"N", true, true},
    };
    for (const BoolCase& c : cases) {
        vai_host_reset_properties();
        if (c.value != nullptr) {
            Set(c.value);
        }
        EXPECT_EQ(property_get_bool(kKey, c.fallback), c.expected)
            << "'" << (c.value ? c.value : "(unset)") << "' default " << c.fallback;
    }
    EXPECT_TRUE(property_get_bool(nullptr, true));
    EXPECT_FALSE(property_get_bool(nullptr, false));
}

struct IntCase {
    const char* value;  // null: unset
    bool wide;          // int64 reader, else int32
    int64_t expected;
    const char* message;  // expected info message suffix, or null for none
};

TEST_F(PropertiesTest, IntegerConversionsBoundsAndMessages) {
    const int64_t kDefault = -42;
    const IntCase cases[] = {
        {"123", false, 123, nullptr},
        {" -7", false, -7, nullptr},
        {"0x10", false, 16, nullptr},
        {"010", false, 8, nullptr},
        {"12abc", false, 12, nullptr},
        {"+5", true, 5, nullptr},
        {"2147483647", false, 2147483647, nullptr},
        {"-2147483648", false, -2147483648LL, nullptr},
        {"2147483648", false, kDefault, "out of range"},
        {"-2147483649", false, kDefault, "out of range"},
        {"2147483648", true, 2147483648LL, nullptr},
        {"9223372036854775807", true, INT64_MAX, nullptr},
        {"99999999999999999999", true, kDefault, "overflow"},
        {"-99999999999999999999", true, kDefault, "overflow"},
        {"99999999999999999999", false, kDefault, "overflow"},
        {"abc", false, kDefault, "numeric conversion failed"},
        {"", false, kDefault, nullptr},
        {nullptr, true, kDefault, nullptr},
    };
    for (const IntCase& c : cases) {
        vai_host_reset_properties();
        if (c.value != nullptr && *c.value != 0) {
            Set(c.value);
        }
        log_.Clear();
        const int64_t got = c.wide ? property_get_int64(kKey, kDefault)
                                   : property_get_int32(kKey, static_cast<int32_t>(kDefault));
        EXPECT_EQ(got, c.expected) << (c.value ? c.value : "(unset)");
        const auto lines = log_.Lines();
        if (c.message == nullptr) {
            EXPECT_TRUE(lines.empty()) << (c.value ? c.value : "(unset)");
        } else {
            ASSERT_EQ(lines.size(), 1u) << c.value;
            EXPECT_EQ(lines[0].prio, ANDROID_LOG_INFO);
            const std::string& t = lines[0].text;
            EXPECT_EQ(t.rfind("[INFO] [VEMO] [Properties.cpp] ", 0), 0u) << t;
            const std::string tail =
                "  property_get_imax() property_get_imax(vendor.test.prop,-42) - " + std::string(c.message);
            EXPECT_NE(t.find(tail), std::string::npos) << t;
        }
    }
}

TEST_F(PropertiesTest, IntegerReadersPreserveErrno) {
    const char* values[] = {"99999999999999999999", "abc", "5", "2147483648"};
    for (const char* v : values) {
        Set(v);
        errno = EINTR;
        property_get_int32(kKey, 1);
        EXPECT_EQ(errno, EINTR) << v;
        errno = 0;
        property_get_int64(kKey, 1);
        EXPECT_EQ(errno, 0) << v;
    }
}

TEST_F(PropertiesTest, NullKeyGivesDefault) {
    EXPECT_EQ(property_get_int32(nullptr, 9), 9);
}

TEST_F(PropertiesTest, ListVisitsEveryProperty) {
    ASSERT_EQ(property_set("vendor.a", "1"), 0);
    ASSERT_EQ(property_set("vendor.b", "two"), 0);
    std::map<std::string, std::string> seen;
    auto collect = [](const char* key, const char* value, void* cookie) {
        (*static_cast<std::map<std::string, std::string>*>(cookie))[key] = value;
    };
    EXPECT_EQ(property_list(collect, &seen), 0);
    EXPECT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen["vendor.a"], "1");
    EXPECT_EQ(seen["vendor.b"], "two");
}

TEST_F(PropertiesTest, SeededFromPropertyFile) {
    const std::string path = std::string(VAI_TEST_BINARY_DIR) + "/props_test.txt";
    {
        std::ofstream f(path);
        f << "# comment\n vendor.seed.one = 17 \nvendor.seed.two=on\nnot a property line\n";
    }
    setenv("VAI_PROPERTY_FILE", path.c_str(), 1);
    vai_host_reset_properties();
    EXPECT_EQ(property_get_int32("vendor.seed.one", 0), 17);
    EXPECT_TRUE(property_get_bool("vendor.seed.two", false));
    unsetenv("VAI_PROPERTY_FILE");
    vai_host_reset_properties();
    EXPECT_EQ(property_get_int32("vendor.seed.one", 0), 0);
}

}  // namespace
