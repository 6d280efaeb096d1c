#include "algocore/utils/status_code.h"

#include <gtest/gtest.h>

#include <climits>
#include <set>
#include <string>

namespace {

struct Named {
    int status;
    const char* name;
};

TEST(StatusToString, NamesAtBlockEdges) {
    const Named cases[] = {
        {0, "SDK_SUCCESS"},
        {9, "SDK_BAD_INDEX"},
        {16, "SDK_TYPE_NOT_DEFINE"},
        {256, "SDK_FILE_BASE_ERR"},
        {270, "SDK_FILE_NO_EXCUTE_PERMISSION_ERR"},
        {272, "SDK_FILE_REWIND_ERR"},
        {512, "SDK_IMAGE_BASE_ERR"},
        {529, "SDK_IMAGE_UNKNOW_RESOLUTION"},
        {768, "SDK_DATA_BASE_ERR"},
        {777, "SDK_UNDEFINED_ASPECT_RATIO"},
        {784, "SDK_UNDEFINED_FXY"},
        {1024, "SDK_SYS_BASE_ERR"},
        {1025, "SDK_NULL_POINTER_ERR"},
        {1027, "SDK_INPUT_BUFFER_NULL_ERR"},
        {1041, "SDK_OUT_OF_MEMORY_ERR"},
        {1042, "SDK_NOT_FOUND"},
        {1280, "SDK_IMAGEALGOAPI_BASE"},
        {1291, "SDK_GETMEMORYINFO_ERROR"},
        {1536, "SDK_ERR_UNSUPPORT"},
        {1537, "SDK_ERR_ZERO_DIVISION"},
        {1792, "SDK_MESH_NOT_INIT"},
        {1796, "SDK_MESH_CALC_WI_NULL"},
        {57344, "SDK_WARNING_FACE_STR_NULL"},
        {57348, "SDK_WARNING_NEED_FLAG_IS_0"},
        {57353, "SDK_WARNING_NOT_SUPPORT_IMAGE_FORMAT"},
        {57360, "SDK_WARNING_NOT_SUPPORT_SET_PARAMS"},
        {57361, "SDK_WARNING_NOT_SUPPORT_FUNCTION"},
        {65534, "SDK_UNKNOWN_ERR"},
        {65535, "SDK_FAILURE"},
    };
    for (const Named& c : cases) {
        const char* name = statusToString(c.status);
        ASSERT_NE(name, nullptr) << c.status;
        EXPECT_STREQ(name, c.name) << c.status;
    }
}

TEST(StatusToString, GapsAndOutsideAreNull) {
    const int unnamed[] = {-1,   -2,   INT_MIN, 10,    15,    17,    255,   273,   511,    530,
                           767,  778,  783,     785,   1023,  1043,  1279,  1292,  1535,   1538,
                           1791, 1797, 57343,   57354, 57359, 57362, 65533, 65536, INT_MAX};
    for (int s : unnamed) EXPECT_EQ(statusToString(s), nullptr) << s;
}

TEST(StatusToString, ConstantsMatchTheirNames) {
    EXPECT_STREQ(statusToString(SDK_UNINIT_ERROR), "SDK_UNINIT_ERROR");
    EXPECT_STREQ(statusToString(SDK_OUT_OF_MEMORY_ERR), "SDK_OUT_OF_MEMORY_ERR");
    EXPECT_EQ(SDK_FAILURE, 0xFFFF);
    EXPECT_EQ(SDK_WARNING_NOT_SUPPORT_SET_PARAMS, 0xE010);
}

// Every name in the table is distinct and maps back to its own number.
TEST(StatusToString, NamesAreUnique) {
    std::set<std::string> seen;
    int named = 0;
    for (int s = -10; s <= 70000; ++s) {
        if (const char* n = statusToString(s)) {
            ++named;
            EXPECT_TRUE(seen.insert(n).second) << n;
            EXPECT_EQ(std::string(n).rfind("SDK_", 0), 0u) << n;
        }
    }
    EXPECT_EQ(named, 109);
}

}  // namespace
