#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <dirent.h>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "log_capture.h"
#include "qcom_test_util.h"

namespace {

using namespace qcom_test;
using pxrt_test::Op;
using QCOM_VAINR_YUV_PROC::VAINR_Init;
using QCOM_VAINR_YUV_PROC::VAINR_Process;
using QCOM_VAINR_YUV_PROC::VAINR_Uninit;

constexpr int kW = 32, kH = 16;

class QcomProcessTest : public ::testing::Test {
  protected:
    void SetUp() override { g_log_level = 1; }
    void TearDown() override {
        if (handle_ != nullptr) {
            EXPECT_EQ(VAINR_Uninit(handle_), 0);
        }
        EXPECT_TRUE(AllReleased());
        EXPECT_TRUE(RegistryEmpty());
    }
    // An instance whose sessions fit kW x kH frames; SwitchFrameNum 0 unless the text says otherwise.
    void Start(CfgText t, int cam = 0, Init* init = nullptr) {
        pxrt_test::SetDefaultLayout(LayoutFor(kW, kH, t.processType == 1));
        Init own(WriteText(TestFile(".json"), t.Json()), cam);
        if (init != nullptr) {
            init->cfg = own.cfg;
            init->p.cfg_path = init->cfg.c_str();
            init->p.cam_type = cam;
        }
        handle_ = VAINR_Init(init != nullptr ? &init->p : &own.p);
        ASSERT_NE(handle_, nullptr);
    }
    static CfgText Quick(unsigned processType = 1) {
        CfgText t;
        t.processType = processType;
        t.SwitchFrameNum = 0;
        return t;
    }
    int Process(Frame& out, Frame& in, int cam, float iso = 100.0f, float drc = 1.0f) {
        const vAIPROC::ProcParams_ p = Params(cam, iso, drc);
        return VAINR_Process(handle_, &out.img, &in.img, &p);
    }

    Env env_;
    LogCapture log_;
    void* handle_ = nullptr;
};

struct StrengthCase {
    const char* name;
    float iso, drc;
    std::function<void(CamText&)> table;
    int y, uv;
};

// With a black frame and a network answering 1 everywhere, each output sample is 4 x strength.
TEST_F(QcomProcessTest, StrengthsFollowTheGainTable) {
    const StrengthCase cases[] = {
        {"below the first bin", 799.0f, 1.0f, nullptr, 0, 32},
        {"at the first bin", 800.0f, 1.0f, nullptr, 0, 32},
        {"worked example", 1200.0f, 1.0f, nullptr, 6, 32},
        {"gain is ISO x DRC", 550.0f, 2.0f, nullptr, 4, 32},  // 1100: (0*500 + 12*300) / 800
        {"second bin", 2400.0f, 1.0f, nullptr, 15, 32},       // (12*800 + 19*800) / 1600
        {"both interpolate", 11000.0f, 1.0f, nullptr, 35, 34},
        {"9200 bin edge", 9200.0f, 1.0f, nullptr, 32, 32},
        {"at the last bin", 25600.0f, 1.0f, nullptr, 51, 40},
        {"above the last bin", 1e9f, 1.0f, nullptr, 51, 40},
        {"last used bin, not the table end", 5000.0f, 1.0f, [](CamText& c) { c.BinNumber = 3; }, 19, 32},
        {"equal neighbours", 1000.0f, 1.0f,
         [](CamText& c) {
             c.nr = {20, 20};
             c.chroma = {9, 9};
         },
         20, 9},
        {"low byte of a wide strength", 100.0f, 1.0f,
         [](CamText& c) {
             c.nr = {300};
             c.chroma = {257};
         },
         44, 1},
        {"strengths above 64 are clamped", 100.0f, 1.0f,
         [](CamText& c) {
             c.nr = {100};
             c.chroma = {65};
         },
         64, 64},
        {"BinNumber 0 counts as one bin", 5000.0f, 1.0f, [](CamText& c) { c.BinNumber = 0; }, 0, 32},
        {"falling table", 1200.0f, 1.0f,
         [](CamText& c) {
             c.nr = {40, 20};
             c.chroma = {8, 0};
         },
         30, 4},
    };
    for (const StrengthCase& c : cases) {
        SCOPED_TRACE(c.name);
        pxrt_test::Reset();
        pxrt_test::SetRunHook(FillOutput(1));
        CfgText t = Quick();
        if (c.table) c.table(t.cams[2]);
        Start(t, 2);
        Frame in(kW, kH, 0, 0), out(kW, kH, 0xFFFF, 0xFFFF);
        ASSERT_EQ(Process(out, in, 2, c.iso, c.drc), 0);
        EXPECT_EQ(out.luma, std::vector<uint16_t>(out.luma.size(), static_cast<uint16_t>(4 * c.y)));
        EXPECT_EQ(out.chroma, std::vector<uint16_t>(out.chroma.size(), static_cast<uint16_t>(4 * c.uv)));
        EXPECT_EQ(VAINR_Uninit(handle_), 0);
        handle_ = nullptr;
    }
}

// An identity network at full strength gives back the high byte of every sample: the tensor really
// carries the packed input through Run to the unpacker.
TEST_F(QcomProcessTest, PackRunUnpackChain) {
    for (unsigned type : {1u, 0u}) {
        SCOPED_TRACE(type);
        pxrt_test::Reset();
        pxrt_test::SetRunHook([](void*, PXRT::TensorArray* in, PXRT::TensorArray* out) {
            pxrt_test::TensorInfo info;
            if (!pxrt_test::Describe((*in)[0].get(), &info)) return -7;
            std::memcpy((*out)[0]->GetData(), (*in)[0]->GetData(), info.bytes);
            return 0;
        });
        CfgText t = Quick(type);
        for (auto& c : t.cams) c.nr = c.chroma = {64};
        Start(t, 0);
        Frame in(kW, kH), out(kW, kH);
        for (size_t i = 0; i < in.luma.size(); ++i) in.luma[i] = static_cast<uint16_t>(i * 2654435761u >> 7);
        for (size_t i = 0; i < in.chroma.size(); ++i) in.chroma[i] = static_cast<uint16_t>(i * 40503u + 77);
        ASSERT_EQ(Process(out, in, 0), 0);
        for (size_t i = 0; i < in.luma.size(); ++i) ASSERT_EQ(out.luma[i], in.luma[i] & 0xFF00) << i;
        for (size_t i = 0; i < in.chroma.size(); ++i) {
            // Luma-only models leave chroma to the traced copy.
            ASSERT_EQ(out.chroma[i], type == 1 ? (in.chroma[i] & 0xFF00) : in.chroma[i]) << i;
        }
        EXPECT_EQ(VAINR_Uninit(handle_), 0);
        handle_ = nullptr;
    }
}

TEST_F(QcomProcessTest, InPlaceGivesTheSameFrame) {
    for (unsigned type : {1u, 0u}) {
        SCOPED_TRACE(type);
        pxrt_test::Reset();
        pxrt_test::SetRunHook(FillOutput(0x9C));
        Start(Quick(type), 0);
        Frame a(kW, kH), out(kW, kH);
        for (size_t i = 0; i < a.luma.size(); ++i) a.luma[i] = static_cast<uint16_t>(i * 977u);
        for (size_t i = 0; i < a.chroma.size(); ++i) a.chroma[i] = static_cast<uint16_t>(i * 3331u);
        ASSERT_EQ(Process(out, a, 0, 1200.0f), 0);
        ASSERT_EQ(Process(a, a, 0, 1200.0f), 0);
        EXPECT_TRUE(a == out);
        EXPECT_EQ(VAINR_Uninit(handle_), 0);
        handle_ = nullptr;
    }
}

TEST_F(QcomProcessTest, InferenceFailureLeavesTheOutputAlone) {
    pxrt_test::Fail(Op::kRun, 42);
    Start(Quick(), 0);
    Frame in(kW, kH, 0x1234, 0x5678), out(kW, kH, 0xABAB, 0xCDCD);
    EXPECT_EQ(Process(out, in, 0), 6);
    EXPECT_EQ(out.luma, std::vector<uint16_t>(out.luma.size(), 0xABAB));
    EXPECT_EQ(out.chroma, std::vector<uint16_t>(out.chroma.size(), 0xCDCD));
    EXPECT_TRUE(log_.Contains("Runtime_inference failed, err_code:42"));
}

TEST_F(QcomProcessTest, FramesThatAreNotProcessedAreCopied) {
    CfgText t = Quick();
    t.cams[1].processEnable = 0;
    t.RearCamNum = 3;  // camera types 0..3 configured
    Start(t, 0);
    pxrt_test::SetRunHook(FillOutput(1));
    struct {
        int cam;
        const char* message;
    } cases[] = {
        {1, "algo processing is disabled in cfg file! execute ALGO_MEMCPY in vAINR_yuv_qcom mode!"},
        {4, "cam_type(4) is out of the configured cameras(4)! execute ALGO_MEMCPY in vAINR_yuv_qcom mode!"},
        {5, "cam_type(5) is out of the configured cameras(4)! execute ALGO_MEMCPY in vAINR_yuv_qcom mode!"},
        {-2, "cam_type(-2) is out of the configured cameras(4)! execute ALGO_MEMCPY in vAINR_yuv_qcom mode!"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.cam);
        log_.Clear();
        Frame in(kW, kH, 0x1234, 0x5678), out(kW, kH);
        EXPECT_EQ(Process(out, in, c.cam), 0);
        EXPECT_TRUE(out == in);
        EXPECT_EQ(log_.Texts(), std::vector<std::string>{c.message});
        // Such frames do not count as a camera change.
        EXPECT_EQ(Ctx(handle_)->last_cam_type, 0u);
        EXPECT_EQ(Ctx(handle_)->switch_pending, 0);
    }
    EXPECT_EQ(pxrt_test::CallCount(Op::kRun), 0u);
    // A copy's own status comes back.
    Frame in(kW, kH), out(kW, kH);
    in.img.img_num = 2;
    EXPECT_EQ(Process(out, in, 1), 4);
}

TEST_F(QcomProcessTest, TensorsTooSmallForTheFrameAreNotWrittenPast) {
    Start(Quick(), 0);
    Frame in(kW * 2, kH, 0x1234, 0x5678), out(kW * 2, kH);
    EXPECT_EQ(Process(out, in, 0), 0);
    EXPECT_TRUE(out == in);
    EXPECT_TRUE(log_.Contains("tensors (in:768, out:768 bytes) cannot hold the 64x16 frame (1536 bytes)!"));
    EXPECT_EQ(pxrt_test::CallCount(Op::kRun), 0u);
}

TEST_F(QcomProcessTest, NullArguments) {
    Start(Quick(), 0);
    Frame f(kW, kH);
    const vAIPROC::ProcParams_ p = Params(0);
    EXPECT_EQ(VAINR_Process(nullptr, &f.img, &f.img, &p), 3);
    EXPECT_EQ(VAINR_Process(handle_, &f.img, &f.img, nullptr), 3);
    EXPECT_EQ(VAINR_Process(handle_, nullptr, &f.img, &p), 10);
    EXPECT_EQ(VAINR_Process(handle_, &f.img, nullptr, &p), 10);
    EXPECT_EQ(log_.Count("input handle or params is nullptr in processing function!"), 2u);
    EXPECT_EQ(log_.Count("input image is nullptr in processing!"), 2u);
    EXPECT_EQ(vai::qcom::ModelSwitch(nullptr, 1), 3);
    EXPECT_TRUE(log_.Contains("Input handle is nullptr in uninit!"));
}

// Frames in the dump range are written, input and output under the same tag.
TEST_F(QcomProcessTest, DumpsTheRequestRange) {
    const std::string dir = TestFile("_dumps/");
    mkdir(dir.c_str(), 0775);
    setenv("VAI_DUMP_DIR", dir.c_str(), 1);
    CfgText t = Quick();
    t.DumpRangeIdx = 1003;  // requests 1 and 2
    pxrt_test::SetRunHook(FillOutput(7));
    Start(t, 0);
    Frame in(kW, kH, 0x1234, 0x5678), out(kW, kH);
    for (uint64_t req = 0; req < 5; ++req) {
        in.img.req_id = out.img.req_id = req;
        ASSERT_EQ(Process(out, in, 0), 0);
    }
    unsetenv("VAI_DUMP_DIR");
    std::vector<std::string> files;
    if (DIR* d = opendir(dir.c_str())) {
        while (dirent* e = readdir(d)) {
            if (e->d_name[0] != '.') files.push_back(e->d_name);
        }
        closedir(d);
    }
    ASSERT_FALSE(files.empty());
    for (const std::string& f : files) {
        EXPECT_TRUE(f.find("_req1_32x16_qcom_yuv_vainr_in.packed_word") != std::string::npos ||
                    f.find("_req2_32x16_qcom_yuv_vainr_in.packed_word") != std::string::npos)
            << f;
        std::ifstream file(dir + f, std::ios::binary);
        const std::vector<char> bytes((std::istreambuf_iterator<char>(file)),
                                      std::istreambuf_iterator<char>());
        EXPECT_EQ(bytes.size(), out.luma.size() * 2) << f;
    }
}

// The frame-by-frame state machine around a camera change, with the switch thread held in
// CreateSession until the test lets it go.
TEST_F(QcomProcessTest, CameraChangeSwitchesModelsInTheBackground) {
    CfgText t;
    t.LogLevel = 3;
    t.SwitchFrameNum = 3;
    t.cams[1].BoostValue = 77;
    Latch latch;
    pxrt_test::SetCreateSessionHook([&latch](const std::string& model) {
        if (model == "model1") latch.Wait();
    });
    pxrt_test::SetRunHook(FillOutput(0x11));
    Start(t, 0);
    auto* ctx = Ctx(handle_);
    Frame in(kW, kH, 0x1234, 0x5678);
    auto frame = [&](int cam) {
        Frame out(kW, kH);
        EXPECT_EQ(Process(out, in, cam), 0);
        return !(out == in);  // processed
    };

    for (int i = 1; i <= 3; ++i) {
        EXPECT_FALSE(frame(0));
        EXPECT_TRUE(log_.Contains("duration num:" + std::to_string(i) + " samllar than switch_thr:3"));
    }
    EXPECT_TRUE(frame(0));
    EXPECT_EQ(pxrt_test::CallCount(Op::kRun), 1u);

    EXPECT_FALSE(frame(1));  // the change itself
    EXPECT_EQ(ctx->switch_pending, 1);
    EXPECT_EQ(ctx->frame_count, 0u);
    EXPECT_EQ(ctx->last_cam_type, 1u);
    for (int i = 0; i < 3; ++i) EXPECT_FALSE(frame(1));  // warm-up
    EXPECT_EQ(pxrt_test::CallCount(Op::kCreateSession), 1u);
    log_.Clear();
    EXPECT_FALSE(frame(1));  // starts the switch
    EXPECT_EQ(log_.Texts(), std::vector<std::string>{"Start switch to 1"});
    EXPECT_EQ(ctx->switch_pending, 0);
    ASSERT_TRUE(latch.AwaitWaiter(std::chrono::seconds(20)));

    log_.Clear();
    for (int i = 0; i < 3; ++i) EXPECT_FALSE(frame(1));
    EXPECT_EQ(log_.Count("Last ModelSwitch not finish! bypass the vainr process"), 3u);
    EXPECT_EQ(pxrt_test::CallCount(Op::kRun), 1u);

    latch.Open();
    ASSERT_TRUE(WaitFor([&] { return ctx->switch_done.load(std::memory_order_acquire) == 1; }));
    EXPECT_TRUE(frame(1));
    const std::vector<pxrt_test::Call> sessions = pxrt_test::Calls(Op::kCreateSession);
    ASSERT_EQ(sessions.size(), 2u);
    EXPECT_EQ(sessions[1].model_path, "model1");
    EXPECT_EQ(sessions[1].boost, 77);
    EXPECT_EQ(sessions[1].device, 5);
    EXPECT_EQ(sessions[1].output_names, std::vector<std::string>{"Identity"});
    EXPECT_EQ(pxrt_test::Calls(Op::kRun).back().session, sessions[1].session);
    EXPECT_EQ(pxrt_test::Calls(Op::kReleaseSession).at(0).session, sessions[0].session);
    // The arrays keep their length: element 0 was replaced.
    EXPECT_EQ(ctx->vai_handle.input_tensors[0].size(), 1u);
    const pxrt_test::Live live = pxrt_test::LiveObjects();
    EXPECT_EQ(live.interpreters, 1);
    EXPECT_EQ(live.sessions, 1);
    EXPECT_EQ(live.tensors, 2);
}

class QcomTeardownTest : public QcomProcessTest, public ::testing::WithParamInterface<unsigned> {};

// Teardown while the switch thread is held in CreateSession: Uninit waits (logging each poll while
// the level allows), the switch completes, and then everything is released.
TEST_P(QcomTeardownTest, WaitsForARunningSwitch) {
    const unsigned level = GetParam();
    CfgText t;
    t.LogLevel = level;
    t.SwitchFrameNum = 0;
    Latch latch;
    pxrt_test::SetCreateSessionHook([&latch](const std::string& model) {
        if (model == "model1") latch.Wait();
    });
    Start(t, 0);
    Frame in(kW, kH), out(kW, kH);
    Process(out, in, 1);  // change
    Process(out, in, 1);  // starts the switch
    ASSERT_TRUE(latch.AwaitWaiter(std::chrono::seconds(20)));

    std::atomic<bool> tearing_down{false};
    std::thread opener([&] {
        WaitFor([&] { return tearing_down.load(); });
        if (level != 0) WaitFor([&] { return log_.Contains("On model switching! Wait in VAINR_Uninit!"); });
        latch.Open();
    });
    tearing_down = true;
    EXPECT_EQ(VAINR_Uninit(handle_), 0);
    handle_ = nullptr;
    opener.join();
    EXPECT_EQ(pxrt_test::CallCount(Op::kCreateInputTensor), 2u);  // the switch got to its end
    EXPECT_TRUE(AllReleased());
    EXPECT_EQ(g_hDllLib, nullptr);
    if (level != 0) {
        EXPECT_GE(log_.Count("On model switching! Wait in VAINR_Uninit!"), 1u);
    }
}

INSTANTIATE_TEST_SUITE_P(LogLevel, QcomTeardownTest, ::testing::Values(1u, 0u));

// A switch to a camera type without a model fails in CreateSession and destroys the instance.
TEST_F(QcomProcessTest, FailedSwitchDestroysTheInstance) {
    CfgText t;
    t.LogLevel = 5;
    t.SwitchFrameNum = 0;
    Init init("", 0);
    init.p.model_path[2] = nullptr;
    Start(t, 0, &init);
    Frame in(kW, kH), out(kW, kH);
    Process(out, in, 2);
    Process(out, in, 2);  // starts the switch; the handle must not be used again
    handle_ = nullptr;
    ASSERT_TRUE(WaitFor([&] { return log_.Contains("uninit elapsed time is"); }));
    EXPECT_TRUE(log_.Contains("CreateSession failed, return value:-2, session addr:(nil), model path:"));
    EXPECT_TRUE(log_.Contains("Release session sucess!"));
    EXPECT_FALSE(log_.Contains("Model Switch sucess!"));
    EXPECT_TRUE(AllReleased());
    EXPECT_TRUE(RegistryEmpty());
    EXPECT_EQ(g_hDllLib, nullptr);
}

// The switch routine on its own: old tensors and session go, new ones replace element 0.
TEST_F(QcomProcessTest, SwitchReplacesSessionAndTensors) {
    CfgText t;
    t.LogLevel = 5;
    Start(t, 0);
    auto* ctx = Ctx(handle_);
    void* old_session = ctx->m_session[0];
    log_.Clear();
    EXPECT_EQ(vai::qcom::ModelSwitch(handle_, 3), 0);
    EXPECT_EQ(ctx->switch_done.load(), 1);
    // (The allocator may hand the new session the old one's address.)
    ASSERT_EQ(pxrt_test::Calls(Op::kReleaseSession).size(), 1u);
    EXPECT_EQ(pxrt_test::Calls(Op::kReleaseSession)[0].session, old_session);
    ASSERT_EQ(pxrt_test::Calls(Op::kCreateSession).size(), 2u);
    EXPECT_EQ(pxrt_test::Calls(Op::kCreateSession)[1].session, ctx->m_session[0]);
    EXPECT_EQ(pxrt_test::Calls(Op::kCreateSession)[1].model_path, "model3");
    ASSERT_EQ(pxrt_test::Calls(Op::kCreateInputTensor).size(), 2u);
    EXPECT_EQ(pxrt_test::Calls(Op::kCreateInputTensor)[1].tensor, ctx->vai_handle.input_tensors[0][0].get());
    EXPECT_EQ(pxrt_test::Calls(Op::kCreateOutputTensor)[1].tensor,
              ctx->vai_handle.output_tensors[0][0].get());
    EXPECT_TRUE(pxrt_test::Describe(ctx->vai_handle.input_tensors[0][0].get(), nullptr));
    const std::vector<std::string> expected = {
        "resetting input tensor 0",
        "resetting output tensor 0",
        "Release session sucess!",
        "BoostValue is 100",
        "mInputTensorByteSize[0] 768",
        "mOutputTensorByteSize 768",
        "input tensor vecotr not empty, totoal length 1, replace [0] tensor 0",
        "output tensor vecotr not empty, totoal length 1, replace [0] tensor 0",
        "Model Switch sucess! Switched to model3",
    };
    EXPECT_EQ(log_.Texts(), expected);
    EXPECT_EQ(pxrt_test::LiveObjects().sessions, 1);
    EXPECT_EQ(pxrt_test::LiveObjects().tensors, 2);
}

}  // namespace
