#include "algocore/utils/json_utils.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "log_capture.h"
#include "algocore/utils/vai_log.h"

namespace {

class JsonTest : public ::testing::Test {
  protected:
    std::string Write(const std::string& name, const std::string& text) {
        // Test cases run in parallel processes: keep their files apart.
        const std::string path = std::string(VAI_TEST_BINARY_DIR) + "/" +
                                 ::testing::UnitTest::GetInstance()->current_test_info()->name() + "_" + name;
        std::ofstream(path) << text;
        return path;
    }
    rapidjson::Document Parse(const std::string& text) {
        rapidjson::Document doc;
        EXPECT_TRUE(JsonParseFile(Write("json_test.json", text).c_str(), doc));
        return doc;
    }

    ScopedValue<unsigned char> level_{g_log_level, 1};
    LogCapture log_;
};

TEST_F(JsonTest, ParsesCommentsAndFullPrecision) {
    auto doc = Parse(
        "// leading comment\n{ /* block */ \"a\": 1, // tail\n \"b\": 0.1000000000000000055511151231257827 "
        "}");
    unsigned a = 0;
    EXPECT_TRUE(JsonGet(doc, "a", a));
    EXPECT_EQ(a, 1u);
    EXPECT_DOUBLE_EQ(doc["b"].GetDouble(), 0.1);
}

TEST_F(JsonTest, MissingAndBrokenFiles) {
    rapidjson::Document doc;
    const std::string missing = std::string(VAI_TEST_BINARY_DIR) + "/no_such.json";
    EXPECT_FALSE(JsonParseFile(missing.c_str(), doc));
    EXPECT_TRUE(log_.Contains("file \"" + missing + "\" fopen failed!"));

    const std::string broken = Write("broken.json", "{ \"a\": [1, 2 }");
    EXPECT_FALSE(JsonParseFile(broken.c_str(), doc));
    EXPECT_TRUE(log_.Contains("\"" + broken + "\" parse failed!"));
}

TEST_F(JsonTest, FileLargerThanTheReadBufferParses) {
    std::string text = "{\n";
    for (int i = 0; i < 2000; ++i) text += "  \"key" + std::to_string(i) + "\": " + std::to_string(i) + ",\n";
    text += "  \"last\": 4242\n}\n";
    ASSERT_GT(text.size(), 30000u);
    auto doc = Parse(text);
    unsigned v = 0;
    EXPECT_TRUE(JsonGet(doc, "key1999", v));
    EXPECT_EQ(v, 1999u);
    EXPECT_TRUE(JsonGet(doc, "last", v));
    EXPECT_EQ(v, 4242u);
}

struct GetCase {
    const char* json;  // value of member "k"
    bool ok;
    unsigned value;
};

TEST_F(JsonTest, GetAcceptsOnlyUnsigned) {
    const GetCase cases[] = {
        {"7", true, 7},
        {"0", true, 0},
        {"4294967295", true, 4294967295u},
        {"4294967296", false, 99},
        {"-1", false, 99},
        {"1.5", false, 99},
        {"1.0", false, 99},
        {"\"7\"", false, 99},
        {"true", false, 99},
        {"[1]", false, 99},
        {"null", false, 99},
    };
    for (const GetCase& c : cases) {
        auto doc = Parse(std::string("{\"k\": ") + c.json + "}");
        log_.Clear();
        unsigned out = 99;
        EXPECT_EQ(JsonGet(doc, "k", out), c.ok) << c.json;
        EXPECT_EQ(out, c.value) << c.json;
        EXPECT_EQ(log_.Count("parse \"k\" pars failed!"), c.ok ? 0u : 1u) << c.json;
    }
    auto doc = Parse("{}");
    unsigned out = 5;
    EXPECT_FALSE(JsonGet(doc, "absent", out));
    EXPECT_EQ(out, 5u);
    EXPECT_TRUE(log_.Contains("parse \"absent\" pars failed!"));
}

TEST_F(JsonTest, GetOnNonObjectOrNullKeyFailsCleanly) {
    auto doc = Parse("[1, 2]");
    unsigned out = 5;
    EXPECT_FALSE(JsonGet(doc, "k", out));
    unsigned arr[2] = {};
    EXPECT_FALSE(JsonGetArray(doc, "k", arr, 2));
    auto obj = Parse("{\"k\": 1}");
    EXPECT_FALSE(JsonGet(obj, nullptr, out));
    EXPECT_EQ(out, 5u);
}

struct ArrayCase {
    const char* json;
    unsigned char max_count;
    bool ok;
    std::vector<unsigned> expected;  // contents of the 8-entry output afterwards (pre-filled with 99)
    const char* message;
};

TEST_F(JsonTest, GetArrayBoundsAndTypes) {
    const ArrayCase cases[] = {
        {"[1,2,3]", 8, true, {1, 2, 3, 99, 99, 99, 99, 99}, nullptr},
        {"[1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18,19,20]", 8, true, {1, 2, 3, 4, 5, 6, 7, 8}, nullptr},
        {"[1,2,3,4,5]", 2, true, {1, 2, 99, 99, 99, 99, 99, 99}, nullptr},
        {"[]", 8, true, {99, 99, 99, 99, 99, 99, 99, 99}, nullptr},
        {"[1,2,3]", 0, true, {99, 99, 99, 99, 99, 99, 99, 99}, nullptr},
        {"[1,2,\"x\",4]",
         8,
         false,
         {1, 2, 99, 99, 99, 99, 99, 99},
         "datatype is diff, parse \"k\" pars failed!"},
        {"[1,2,3,-4]", 3, true, {1, 2, 3, 99, 99, 99, 99, 99}, nullptr},
        {"[1,2,3,-4]", 4, false, {1, 2, 3, 99, 99, 99, 99, 99}, "datatype is diff, parse \"k\" pars failed!"},
        {"5", 8, false, {99, 99, 99, 99, 99, 99, 99, 99}, "parse \"k\" pars failed!"},
        {"{\"a\":1}", 8, false, {99, 99, 99, 99, 99, 99, 99, 99}, "parse \"k\" pars failed!"},
    };
    for (const ArrayCase& c : cases) {
        auto doc = Parse(std::string("{\"k\": ") + c.json + "}");
        log_.Clear();
        std::vector<unsigned> out(8, 99);
        EXPECT_EQ(JsonGetArray(doc, "k", out.data(), c.max_count), c.ok) << c.json;
        EXPECT_EQ(out, c.expected) << c.json;
        if (c.message) {
            EXPECT_EQ(log_.Texts(), std::vector<std::string>{c.message}) << c.json;
        } else {
            EXPECT_TRUE(log_.Lines().empty()) << c.json;
        }
    }
}

}  // namespace
