#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "algocore/utils/status_code.h"
#include "algocore/utils/vai_log.h"
#include "interface/VideoAIProc.h"
#include "interface/backend.h"
#include "log_capture.h"
#include "qcom_test_util.h"

using vAIPROC::InitParams_;
using vAIPROC::ProcParams_;
using vAIPROC::VAI_IMG_;

namespace {

const char kBypass[] = "Get Bypass Algo setting from HAL now!";
InitParams_ gInit{};
ProcParams_ gParams{};

std::string Unsupported(int mode) {
    return "Unsupported algo mode(" + std::to_string(mode) + ") now!";
}

// An 8-bit image with every byte `fill`.
std::unique_ptr<vai_frame::Frame> Image(uint8_t fill) {
    return qcom_test::MakeFrame(32, 2, fill, fill, 8);
}

class EntryPointsTest : public ::testing::Test {
  protected:
    // Init stores the mode before checking it; it fails here for every mode.
    void SelectMode(int32_t mode) {
        InitParams_ p{};
        p.algo_mode = mode;
        log_.Clear();
        EXPECT_EQ(Video_AI_Proc_Init(&p), nullptr);
        EXPECT_EQ(g_algo_mode, mode);
        if (mode != 1) {  // mode 1 fails in its back-end
            EXPECT_EQ(log_.Texts(), std::vector<std::string>{mode == 0 ? kBypass : Unsupported(mode)});
        }
        log_.Clear();
    }

    ScopedValue<int32_t> mode_{g_algo_mode, 0};
    ScopedValue<unsigned char> level_{g_log_level, 1};
    LogCapture log_;
    int token_ = 0;
    void* handle_ = &token_;
};

// GetVersion goes by its argument, not by the stored mode.
TEST_F(EntryPointsTest, InitStoresTheModeAndGetVersionIgnoresIt) {
    SelectMode(256);
    EXPECT_EQ(Video_AI_Proc_Init(nullptr), nullptr);
    log_.Clear();
    EXPECT_STREQ(Video_AI_Proc_GetVersion(0), "Invalid");
    EXPECT_STREQ(Video_AI_Proc_GetVersion(3), "Invalid");
    EXPECT_STREQ(Video_AI_Proc_GetVersion(1), "QCOM_Video_AINR_YUV_v0.0.2");
    EXPECT_EQ(log_.Texts(), (std::vector<std::string>{kBypass, Unsupported(3)}));
    EXPECT_EQ(g_algo_mode, 256);
}

// Each entry point in bypass, in mode 1 (no model stage) and in unsupported modes: result, images
// untouched but for the bypass copy of the second argument over the third, and the one line it logs.
TEST_F(EntryPointsTest, DispatchTable) {
    using Call = int (*)(void* h, VAI_IMG_* out, VAI_IMG_* in);
    const struct {
        Call call;
        bool bypass_logs;
        bool has_mode_one;  // mode 1 reaches its back-end (not called here)
        bool copies;
    } rows[] = {
        {[](void* h, VAI_IMG_*, VAI_IMG_*) { return Video_AI_Model_Init(h, &gInit); }, true, false, false},
        {[](void* h, VAI_IMG_* o, VAI_IMG_* in) { return Video_AI_Proc_Process(h, o, in, &gParams); }, true,
         true, true},
        {[](void* h, VAI_IMG_*, VAI_IMG_*) { return Video_AI_Model_Uninit(h); }, false, false, false},
        {[](void* h, VAI_IMG_*, VAI_IMG_*) { return Video_AI_Proc_Uninit(h); }, false, true, false},
    };
    for (const auto& row : rows) {
        for (int32_t mode : {0, 1, 2, 5, 8, 11, -3}) {
            if (mode == 1 && row.has_mode_one) continue;
            SCOPED_TRACE("entry " + std::to_string(&row - rows) + " mode " + std::to_string(mode));
            SelectMode(mode);
            auto out = Image(1), in = Image(2);
            EXPECT_EQ(row.call(handle_, out->img(), in->img()), SDK_SUCCESS);
            std::vector<std::string> expected;
            if (mode != 0) expected.push_back(Unsupported(mode));
            if (mode == 0 && row.bypass_logs) expected.push_back(kBypass);
            EXPECT_EQ(log_.Texts(), expected);
            EXPECT_TRUE(*in == *Image(mode == 0 && row.copies ? 1 : 2) && *out == *Image(1));
        }
    }
}

// Each refusal is one error line.
TEST_F(EntryPointsTest, NullArgumentStatuses) {
    // The checks come before the mode is looked at.
    SelectMode(0);
    auto out = Image(1), in = Image(2);
    EXPECT_EQ(Video_AI_Model_Init(nullptr, &gInit), SDK_UNINIT_ERROR);
    EXPECT_EQ(Video_AI_Model_Init(handle_, nullptr), SDK_UNINIT_ERROR);
    EXPECT_EQ(Video_AI_Proc_Process(nullptr, out->img(), in->img(), &gParams), SDK_UNINIT_ERROR);
    EXPECT_EQ(Video_AI_Proc_Process(handle_, out->img(), in->img(), nullptr), SDK_UNINIT_ERROR);
    EXPECT_EQ(Video_AI_Proc_Process(handle_, nullptr, in->img(), &gParams), kNullImage);
    EXPECT_EQ(Video_AI_Proc_Process(handle_, out->img(), nullptr, &gParams), kNullImage);
    EXPECT_EQ(Video_AI_Model_Uninit(nullptr), SDK_UNINIT_ERROR);
    EXPECT_EQ(Video_AI_Proc_Uninit(nullptr), SDK_UNINIT_ERROR);
    std::vector<int> prios;
    for (const LogLine& l : log_.Lines()) prios.push_back(l.prio);
    EXPECT_EQ(prios, std::vector<int>(8, ANDROID_LOG_ERROR));
    in->img()->img_num = 2;  // a bypass copy's own status comes back
    EXPECT_EQ(Video_AI_Proc_Process(handle_, out->img(), in->img(), &gParams), kImageCountMismatch);
}

TEST(StatusNarrowing, KeepsTheLowSignedByte) {
    const int cases[][2] = {{0, 0},     {127, 127}, {128, -128}, {255, -1},  {256, 0},
                            {1041, 17}, {-1, -1},   {-129, 127}, {65535, -1}};
    for (const auto& c : cases) EXPECT_EQ(vai::NarrowStatus(c[0]), c[1]) << c[0];
}

}  // namespace
