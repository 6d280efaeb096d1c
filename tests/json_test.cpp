#include "algocore/utils/json_utils.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "log_capture.h"
#include "qcom_test_util.h"
#include "algocore/utils/vai_log.h"

namespace {

class JsonTest : public ::testing::Test {
  protected:
    std::string Write(const std::string& text) { return qcom_test::WriteTestFile(".json", text); }
    ScopedValue<unsigned char> level_{g_log_level, 1};
    LogCapture log_;
    rapidjson::Document doc_;
};

TEST_F(JsonTest, ParseFile) {
    // Comments, full precision, and a file larger than the read buffer.
    std::string text = "// leading\n{ /* block */ \"b\": 0.1000000000000000055511151231257827, // tail\n";
    for (int i = 0; i < 2000; ++i) text += "  \"key" + std::to_string(i) + "\": " + std::to_string(i) + ",\n";
    ASSERT_TRUE(JsonParseFile(Write(text + "  \"last\": 4242\n}\n").c_str(), doc_));
    EXPECT_DOUBLE_EQ(doc_["b"].GetDouble(), 0.1);
    EXPECT_EQ(doc_["key1999"].GetUint() + doc_["last"].GetUint(), 1999u + 4242u);

    // A valid number whose conversion in RapidJSON 1.1.0 reads far outside its tables (and crashes,
    // found by fuzzing); numbers keep the types RapidJSON gives them.
    const std::string long_fraction = "55550000050.0555" + std::string(60, '0') + "26043" +
                                      std::string(70, '0') + "26043806" + std::string(180, '0') + "3e-350";
    ASSERT_TRUE(JsonParseFile(Write("{\"a\": " + long_fraction + ", \"u\": 4294967295, \"i\": -2147483648, "
                                    "\"u64\": 4294967296, \"i64\": -2147483649, \"big\": 18446744073709551616, "
                                    "\"e\": 1e2, \"neg\": -0}")
                                  .c_str(),
                              doc_));
    EXPECT_EQ(doc_["a"].GetDouble(), 0.0);  // 5.6e-340 is below the smallest double
    EXPECT_TRUE(doc_["u"].IsUint() && doc_["i"].IsInt() && !doc_["i"].IsUint());
    EXPECT_EQ(doc_["u"].GetUint(), 4294967295u);
    EXPECT_EQ(doc_["i"].GetInt(), -2147483647 - 1);
    EXPECT_TRUE(doc_["u64"].IsUint64() && !doc_["u64"].IsUint() && doc_["i64"].IsInt64() && !doc_["i64"].IsInt());
    EXPECT_EQ(doc_["i64"].GetInt64(), -2147483649LL);
    EXPECT_TRUE(doc_["big"].IsDouble() && doc_["e"].IsDouble() && doc_["neg"].IsUint());
    EXPECT_DOUBLE_EQ(doc_["big"].GetDouble() + doc_["e"].GetDouble(), 18446744073709551616.0 + 100.0);

    // Nesting is refused past 128 levels, before the recursive parser can exhaust a small stack.
    const std::string deep = std::string(128, '[') + std::string(128, ']');
    ASSERT_TRUE(JsonParseFile(Write("{\"a\": " + deep.substr(1, 254) + "}").c_str(), doc_));
    EXPECT_TRUE(doc_["a"].IsArray());

    const std::string missing = std::string(VAI_TEST_BINARY_DIR) + "/no_such.json",
                      broken = Write("{ \"a\": [1, 2 }"), deeper = Write("[" + deep + "]"),
                      abyss = Write(std::string(1000000, '['));
    EXPECT_FALSE(JsonParseFile(missing.c_str(), doc_));
    EXPECT_FALSE(JsonParseFile(broken.c_str(), doc_));
    EXPECT_FALSE(JsonParseFile(deeper.c_str(), doc_));
    EXPECT_FALSE(JsonParseFile(abyss.c_str(), doc_));
    EXPECT_EQ(log_.Texts(), (std::vector<std::string>{"file \"" + missing + "\" fopen failed!",
                                                      "\"" + broken + "\" parse failed!",
                                                      "\"" + deeper + "\" parse failed!",
                                                      "\"" + abyss + "\" parse failed!"}));
}

// Member "k" of {"k": json} read into 8 entries pre-filled with 99: with JsonGet where max is kOne, else with
// JsonGetArray. Absent keys, null keys and non-objects fail like wrong types.
TEST_F(JsonTest, GetAndGetArrayAcceptOnlyUnsigned) {
    constexpr int kOne = -1;
    const struct {
        const char* json;
        int max;
        std::vector<unsigned> written;
        bool ok;
    } cases[] = {// clang-format off
        {"{\"k\": 7}", kOne, {7}, true}, {"{\"k\": 0}", kOne, {0}, true},
        {"{\"k\": 4294967295}", kOne, {4294967295u}, true}, {"{\"k\": 4294967296}", kOne, {}, false},
        {"{\"k\": -1}", kOne, {}, false}, {"{\"k\": 1.5}", kOne, {}, false},
        {"{\"k\": 1.0}", kOne, {}, false}, {"{\"k\": \"7\"}", kOne, {}, false},
        {"{\"k\": [1]}", kOne, {}, false}, {"{\"j\": 1}", kOne, {}, false}, {"[1, 2]", kOne, {}, false},
        {"{\"k\": [1,2,3]}", 8, {1, 2, 3}, true},
        {"{\"k\": [1,2,3,4,5,6,7,8,9,10,11,12]}", 8, {1, 2, 3, 4, 5, 6, 7, 8}, true},
        {"{\"k\": [1,2,3,4,5]}", 2, {1, 2}, true}, {"{\"k\": []}", 8, {}, true},
        {"{\"k\": [1,2,3]}", 0, {}, true}, {"{\"k\": [1,2,\"x\",4]}", 8, {1, 2}, false},
        {"{\"k\": [1,2,3,-4]}", 3, {1, 2, 3}, true}, {"{\"k\": [1,2,3,-4]}", 4, {1, 2, 3}, false},
        {"{\"k\": 5}", 8, {}, false}, {"{\"j\": [1]}", 8, {}, false}, {"[1, 2]", 8, {}, false}};
    // clang-format on
    for (const auto& c : cases) {
        SCOPED_TRACE(c.json);
        ASSERT_TRUE(JsonParseFile(Write(c.json).c_str(), doc_));
        log_.Clear();
        std::vector<unsigned> out(8, 99), expected = c.written;
        expected.resize(8, 99);
        const bool ok = c.max == kOne
                            ? JsonGet(doc_, "k", out[0])
                            : JsonGetArray(doc_, "k", out.data(), static_cast<unsigned char>(c.max));
        EXPECT_EQ(ok, c.ok);
        EXPECT_EQ(out, expected);
        EXPECT_EQ(log_.Lines().size(), c.ok ? 0u : 1u);  // a failure says so once
    }
    unsigned out = 5;
    EXPECT_FALSE(JsonGet(doc_, nullptr, out) || JsonGetArray(doc_, nullptr, &out, 1) || out != 5);
}

}  // namespace
