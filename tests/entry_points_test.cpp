#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "interface/VideoAIProc.h"
#include "interface/dispatch.h"
#include "log_capture.h"
#include "algocore/utils/vai_log.h"

using vAIPROC::InitParams_;
using vAIPROC::ProcParams_;
using vAIPROC::VAI_IMG_;

namespace {

const char kBypass[] = "Get Bypass Algo setting from HAL now!";

// A one-plane image over its own buffer.
struct Image {
    std::vector<unsigned char> data;
    VAI_IMG_ img{};
    explicit Image(unsigned char fill, size_t size = 64) : data(size, fill) {
        img.img_num = 1;
        img.plane_num = 1;
        img.plane_addr[0] = data.data();
        img.plane_size[0] = static_cast<uint32_t>(size);
    }
};

class EntryPointsTest : public ::testing::Test {
  protected:
    void SelectMode(int32_t mode) {
        InitParams_ p{};
        p.algo_mode = mode;
        Video_AI_Proc_Init(&p);
        log_.Clear();
    }
    std::string Unsupported(int mode) { return "Unsupported algo mode(" + std::to_string(mode) + ") now!"; }

    ScopedValue<int32_t> mode_{g_algo_mode, 0};
    ScopedValue<unsigned char> level_{g_log_level, 1};
    LogCapture log_;
    int token_ = 0;
    void* handle_ = &token_;
    InitParams_ init_{};
    ProcParams_ params_{};
};

TEST_F(EntryPointsTest, InitStoresTheModeBeforeCheckingIt) {
    for (int32_t mode : {5, 0, -3, 2, 11, 256}) {
        InitParams_ p{};
        p.algo_mode = mode;
        log_.Clear();
        EXPECT_EQ(Video_AI_Proc_Init(&p), nullptr);
        EXPECT_EQ(g_algo_mode, mode);
        EXPECT_EQ(log_.Texts(), std::vector<std::string>{mode == 0 ? kBypass : Unsupported(mode)});
    }
}

TEST_F(EntryPointsTest, InitWithNullParamsKeepsTheMode) {
    SelectMode(7);
    EXPECT_EQ(Video_AI_Proc_Init(nullptr), nullptr);
    EXPECT_EQ(g_algo_mode, 7);
    EXPECT_TRUE(log_.Contains("Input init pars is nullptr in VIDEO_AI_PROC_Init function!"));
}

TEST_F(EntryPointsTest, GetVersionUsesItsArgumentNotTheMode) {
    SelectMode(5);
    EXPECT_STREQ(Video_AI_Proc_GetVersion(0), "Invalid");
    EXPECT_STREQ(Video_AI_Proc_GetVersion(3), "Invalid");
    EXPECT_EQ(log_.Texts(), (std::vector<std::string>{kBypass, Unsupported(3)}));
    EXPECT_EQ(g_algo_mode, 5);
}

// Each entry point against the bypass column and an unsupported mode: result and log lines.
struct Row {
    const char* entry;
    int (*call)(void* handle, InitParams_* init, ProcParams_* params, VAI_IMG_* out, VAI_IMG_* in);
    int bypass_result;
    bool bypass_logs;
    int other_result;
};

const Row kRows[] = {
    {"Video_AI_Model_Init",
     [](void* h, InitParams_* i, ProcParams_*, VAI_IMG_*, VAI_IMG_*) { return Video_AI_Model_Init(h, i); }, 0,
     true, 0},
    {"Video_AI_Proc_Process",
     [](void* h, InitParams_*, ProcParams_* p, VAI_IMG_* o, VAI_IMG_* in) {
         return Video_AI_Proc_Process(h, o, in, p);
     },
     0, true, 0},
    {"Video_AI_Model_Uninit",
     [](void* h, InitParams_*, ProcParams_*, VAI_IMG_*, VAI_IMG_*) { return Video_AI_Model_Uninit(h); }, 0,
     false, 0},
    {"Video_AI_Proc_Uninit",
     [](void* h, InitParams_*, ProcParams_*, VAI_IMG_*, VAI_IMG_*) { return Video_AI_Proc_Uninit(h); }, 0,
     false, 0},
};

TEST_F(EntryPointsTest, DispatchTable) {
    for (const Row& row : kRows) {
        for (int32_t mode : {0, 2, 5, 8, 11, -1}) {
            SelectMode(mode);
            Image out(1), in(2);
            const int result = row.call(handle_, &init_, &params_, &out.img, &in.img);
            std::vector<std::string> expected;
            if (mode == 0) {
                EXPECT_EQ(result, row.bypass_result) << row.entry;
                if (row.bypass_logs) expected.push_back(kBypass);
            } else {
                EXPECT_EQ(result, row.other_result) << row.entry << " mode " << mode;
                expected.push_back(Unsupported(mode));
            }
            EXPECT_EQ(log_.Texts(), expected) << row.entry << " mode " << mode;
        }
    }
}

// Mode 1 has no model stage: those two entry points keep treating it as unsupported, while the
// version comes from the Qualcomm back-end whatever the current mode is.
TEST_F(EntryPointsTest, QualcommModeHasNoModelStage) {
    SelectMode(1);
    EXPECT_EQ(Video_AI_Model_Init(handle_, &init_), 0);
    EXPECT_EQ(Video_AI_Model_Uninit(handle_), 0);
    EXPECT_EQ(log_.Texts(), (std::vector<std::string>{Unsupported(1), Unsupported(1)}));
    SelectMode(5);
    EXPECT_STREQ(Video_AI_Proc_GetVersion(1), "QCOM_Video_AINR_YUV_v0.0.2");
    EXPECT_TRUE(log_.Lines().empty());
}

TEST_F(EntryPointsTest, NullArgumentStatuses) {
    for (int32_t mode : {0, 5}) {
        SelectMode(mode);
        Image out(1), in(2);
        EXPECT_EQ(Video_AI_Model_Init(nullptr, &init_), 3);
        EXPECT_EQ(Video_AI_Model_Init(handle_, nullptr), 3);
        EXPECT_EQ(Video_AI_Proc_Process(nullptr, &out.img, &in.img, &params_), 3);
        EXPECT_EQ(Video_AI_Proc_Process(handle_, &out.img, &in.img, nullptr), 3);
        EXPECT_EQ(Video_AI_Proc_Process(nullptr, nullptr, nullptr, nullptr), 3);  // handle checked first
        EXPECT_EQ(Video_AI_Proc_Process(handle_, nullptr, &in.img, &params_), 10);
        EXPECT_EQ(Video_AI_Proc_Process(handle_, &out.img, nullptr, &params_), 10);
        EXPECT_EQ(Video_AI_Model_Uninit(nullptr), 3);
        EXPECT_EQ(Video_AI_Proc_Uninit(nullptr), 3);
        EXPECT_EQ(log_.Texts(), (std::vector<std::string>{
                                    "Handle or init pars is nullptr in Video_AI_Model_Init!",
                                    "Handle or init pars is nullptr in Video_AI_Model_Init!",
                                    "input handle or params is nullptr in processing function!",
                                    "input handle or params is nullptr in processing function!",
                                    "input handle or params is nullptr in processing function!",
                                    "input image is nullptr in processing!",
                                    "input image is nullptr in processing!",
                                    "Input handle is nullptr in uninit!",
                                    "Input handle is nullptr in uninit!",
                                }))
            << "mode " << mode;
        for (const LogLine& l : log_.Lines()) {
            EXPECT_EQ(l.prio, ANDROID_LOG_ERROR);
            EXPECT_EQ(l.tag, "Video_AI_PROC");
        }
    }
}

TEST_F(EntryPointsTest, BypassCopiesTheSecondArgumentOverTheThird) {
    SelectMode(0);
    Image second(0xAA), third(0x55);
    EXPECT_EQ(Video_AI_Proc_Process(handle_, &second.img, &third.img, &params_), 0);
    EXPECT_EQ(third.data, std::vector<unsigned char>(64, 0xAA));
    EXPECT_EQ(second.data, std::vector<unsigned char>(64, 0xAA));
}

TEST_F(EntryPointsTest, BypassPassesCopyStatusThrough) {
    SelectMode(0);
    Image a(1), b(2);
    b.img.img_num = 2;
    EXPECT_EQ(Video_AI_Proc_Process(handle_, &a.img, &b.img, &params_), 4);
}

TEST_F(EntryPointsTest, UnsupportedModeProcessLeavesImagesAlone) {
    SelectMode(5);
    Image out(1), in(2);
    EXPECT_EQ(Video_AI_Proc_Process(handle_, &out.img, &in.img, &params_), 0);
    EXPECT_EQ(out.data, std::vector<unsigned char>(64, 1));
    EXPECT_EQ(in.data, std::vector<unsigned char>(64, 2));
}

TEST_F(EntryPointsTest, SilentAtLogLevelZero) {
    g_log_level = 0;
    SelectMode(5);
    Image out(1), in(2);
    Video_AI_Proc_Process(handle_, &out.img, &in.img, &params_);
    Video_AI_Proc_Uninit(nullptr);
    EXPECT_TRUE(log_.Lines().empty());
}

TEST(StatusNarrowing, KeepsTheLowSignedByte) {
    const int cases[][2] = {{0, 0},       {6, 6},      {127, 127}, {128, -128}, {200, -56},
                            {255, -1},    {256, 0},    {300, 44},  {1041, 17},  {-1, -1},
                            {-128, -128}, {-129, 127}, {65535, -1}};
    for (const auto& c : cases) EXPECT_EQ(vai::NarrowStatus(c[0]), c[1]) << c[0];
}

}  // namespace
