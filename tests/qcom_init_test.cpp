#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "interface/VideoAIProc.h"
#include "log_capture.h"
#include "qcom_test_util.h"

namespace {

using namespace qcom_test;
using pxrt_test::Op;
using QCOM_VAINR_YUV_PROC::VAINR_Init;
using QCOM_VAINR_YUV_PROC::VAINR_Uninit;

class QcomInitTest : public ::testing::Test {
  protected:
    void SetUp() override { g_log_level = 1; }
    // Everything an instance made is gone, and the runtime is unloaded.
    void ExpectTornDown() {
        EXPECT_TRUE(AllReleased());
        EXPECT_TRUE(RegistryEmpty());
        EXPECT_EQ(g_hDllLib, nullptr);
        EXPECT_EQ(mPXRTCreateInterpreterFunc, nullptr);
        EXPECT_EQ(mPXRTCreateInTensorFunc, nullptr);
        EXPECT_EQ(mPXRTCreateOutTensorFunc, nullptr);
        EXPECT_EQ(pxrt_test::Loads(), pxrt_test::Unloads());
    }
    std::string Cfg(const CfgText& t = CfgText()) { return WriteText(TestFile(".json"), t.Json()); }

    Env env_;
    LogCapture log_;
};

TEST_F(QcomInitTest, RuntimeSeesTheExpectedArguments) {
    pxrt_test::SessionLayout layout;
    layout.input_bytes = {600, 70};
    layout.output_bytes = {900};
    pxrt_test::SetLayout("model3", layout);
    CfgText t;
    t.LogLevel = 5;
    t.DumpRangeIdx = 12345;
    t.cams[3].BoostValue = 321;
    Init init(Cfg(t), 3);
    void* h = VAINR_Init(&init.p);
    ASSERT_NE(h, nullptr);
    auto* ctx = Ctx(h);

    const std::vector<pxrt_test::Call> calls = pxrt_test::Calls();
    std::vector<Op> ops;
    for (const auto& c : calls) ops.push_back(c.op);
    EXPECT_EQ(ops, (std::vector<Op>{Op::kCreateInterpreter, Op::kCreateSession, Op::kGetSessionInputNumber,
                                    Op::kGetSessionOutputNumber, Op::kGetSessionInputSize,
                                    Op::kCreateInputTensor, Op::kGetSessionInputSize, Op::kCreateInputTensor,
                                    Op::kGetSessionOutputSize, Op::kCreateOutputTensor, Op::kGetVersion}));
    const pxrt_test::Call& cs = calls[1];
    EXPECT_EQ(cs.model_path, "model3");
    EXPECT_EQ(cs.device, 5);
    EXPECT_EQ(cs.flags, 2048);
    ASSERT_TRUE(cs.has_options);
    EXPECT_EQ(cs.output_names, std::vector<std::string>{"Identity"});
    EXPECT_EQ(cs.mode[0], 2);
    EXPECT_EQ(cs.mode[1], 3);
    EXPECT_EQ(cs.mode[2], 0);
    EXPECT_EQ(cs.boost, 321);
    EXPECT_EQ(cs.reserved0, 0);
    EXPECT_EQ(cs.reserved1, 0);
    EXPECT_EQ(cs.session, ctx->m_session[0]);
    const size_t sizes[] = {600, 70, 900};
    const pxrt_test::Call* tensors[] = {&calls[5], &calls[7], &calls[9]};
    for (int i = 0; i < 3; ++i) {
        const pxrt_test::Call& c = *tensors[i];
        EXPECT_EQ(c.session, ctx->m_session[0]);
        EXPECT_EQ(c.bytes, sizes[i]);
        EXPECT_EQ(c.tensor_index, i == 1 ? 1 : 0);
        EXPECT_EQ(c.one, 1);
        EXPECT_EQ(c.kind, 2);
        EXPECT_EQ(c.buffer, nullptr);
        EXPECT_EQ(c.fd, -1);
        EXPECT_EQ(c.zero, 0);
    }
    EXPECT_EQ(calls[4].index, 0u);
    EXPECT_EQ(calls[6].index, 1u);

    EXPECT_EQ(ctx->vai_handle.m_in_num[0], 2u);
    EXPECT_EQ(ctx->vai_handle.m_out_num[0], 1u);
    EXPECT_EQ(ctx->vai_handle.mInputTensorByteSize[0][1], 70u);
    EXPECT_EQ(ctx->vai_handle.input_tensors[0].size(), 2u);
    EXPECT_EQ(ctx->last_cam_type, 3u);
    EXPECT_EQ(ctx->switch_done.load(), 1);
    EXPECT_EQ(ctx->switch_pending, 0);
    EXPECT_EQ(ctx->frame_count, 0u);
    EXPECT_TRUE(ctx->dump_pars.dump_enable);
    EXPECT_EQ(ctx->dump_pars.dump_start, 12u);
    EXPECT_EQ(ctx->dump_pars.dump_end, 345u);
    EXPECT_STREQ(ctx->model_name[4], "model4");
    EXPECT_EQ(g_log_level, 5);
    EXPECT_EQ(pxrt_test::LiveObjects().tensors, 3);
    EXPECT_EQ(vemo::AlgorithmMemory::mapFind(ctx), sizeof(*ctx));

    EXPECT_TRUE(log_.Contains("cam_type:3, model_name:model3, m_session[0]:(nil)"));
    EXPECT_TRUE(log_.Contains("BoostValue is 321"));
    EXPECT_TRUE(log_.Contains("mInputTensorByteSize[1] 70"));
    EXPECT_TRUE(log_.Contains("mOutputTensorByteSize 900"));
    EXPECT_TRUE(log_.Contains("m_in_num[0] and m_out_num[0] of model3 are: 2, 1"));
    EXPECT_TRUE(log_.Contains(std::string("pxrt version  ") + pxrt_test::kVersion));
    EXPECT_TRUE(log_.Contains("init elapsed time is "));

    log_.Clear();
    EXPECT_EQ(VAINR_Uninit(h), 0);
    ExpectTornDown();
    EXPECT_EQ(pxrt_test::CallCount(Op::kReleaseSession), 1u);
    EXPECT_TRUE(log_.Contains("uninit elapsed time is "));
    EXPECT_FALSE(log_.Contains("runtime session is nullptr in uninit!"));
}

TEST_F(QcomInitTest, ModelPathsAreCopiedAndBounded) {
    Init init(Cfg(), 0);
    const std::string long_path(300, 'm');
    init.p.model_path[1] = long_path.c_str();
    init.p.model_path[2] = nullptr;
    void* h = VAINR_Init(&init.p);
    ASSERT_NE(h, nullptr);
    init.models[0] = "changed after init";
    EXPECT_STREQ(Ctx(h)->model_name[0], "model0");
    EXPECT_EQ(std::string(Ctx(h)->model_name[1]), long_path.substr(0, 255));
    EXPECT_STREQ(Ctx(h)->model_name[2], "");
    EXPECT_EQ(VAINR_Uninit(h), 0);
}

struct Failure {
    const char* name;
    std::function<void(Init&, CfgText&)> setup;
    std::vector<std::string> messages;  // lines that must appear, in order
    bool keeps_factories = false;       // a failed dlsym leaves the pointers it got
};

TEST_F(QcomInitTest, EveryFailureTearsDownCompletely) {
    const std::string kCfgFail = "Cfg parse failed in qcom_vainr_yuv_proc!";
    const std::string kNoSession = "runtime session is nullptr in uninit!";
    const Failure cases[] = {
        {"dlopen",
         [](Init&, CfgText&) { setenv("VAI_PXRT_LIBRARY", "/nonexistent/libPXRT.so", 1); },
         {"g_hDllLib is nullptr! dlopen libPXRT fail, reason: "}},
        {"dlsym",
         [](Init&, CfgText&) { setenv("VAI_PXRT_LIBRARY", VAI_TEST_RUNTIME_INCOMPLETE_PATH, 1); },
         {"mPXRTFunc is nullptr! dlsym Func fail, resaon: "},
         true},
        {"CreateInterpreter",
         [](Init&, CfgText&) { pxrt_test::Fail(Op::kCreateInterpreter, 0); },
         {"interpreter == nullptr", "interpreter is nullptr in uninit!"}},
        {"configuration",
         [](Init& i, CfgText&) {
             i.cfg = "/nonexistent.json";
             i.p.cfg_path = i.cfg.c_str();
         },
         {"file \"/nonexistent.json\" fopen failed!", kCfgFail, kNoSession}},
        {"project name",
         [](Init& i, CfgText&) { std::snprintf(i.p.project_name, 16, "Other"); },
         {kCfgFail, kNoSession}},
        {"camera type above the table",
         [](Init& i, CfgText&) { i.p.cam_type = 5; },
         {"cam_type(5) is out of the configured cameras(5) in initial function!", kNoSession}},
        {"camera type beyond the configured",
         [](Init& i, CfgText& t) {
             i.p.cam_type = 3;
             t.RearCamNum = 2;
         },
         {"cam_type(3) is out of the configured cameras(3) in initial function!", kNoSession}},
        {"negative camera type",
         [](Init& i, CfgText&) { i.p.cam_type = -1; },
         {"cam_type(-1) is out of the configured cameras(5) in initial function!", kNoSession}},
        {"CreateSession",
         [](Init&, CfgText&) { pxrt_test::Fail(Op::kCreateSession, -9); },
         {"CreateSession failed, return value:-9, session addr:(nil), model path:model0", kNoSession}},
        {"CreateSession without a session",
         [](Init&, CfgText&) { pxrt_test::Fail(Op::kCreateSession, 0); },
         {"CreateSession failed, return value:0, session addr:(nil), model path:model0", kNoSession}},
        {"no model path",
         [](Init& i, CfgText&) { i.p.model_path[0] = nullptr; },
         {"CreateSession failed, return value:-2, session addr:(nil), model path:", kNoSession}},
        {"GetSessionInputNumber",
         [](Init&, CfgText&) { pxrt_test::Fail(Op::kGetSessionInputNumber, 11); },
         {"GetSessionInputNumber failed, return value:11"}},
        {"GetSessionOutputNumber",
         [](Init&, CfgText&) { pxrt_test::Fail(Op::kGetSessionOutputNumber, 12); },
         {"GetSessionOutputNumber failed, return value:12"}},
        {"too many inputs",
         [](Init&, CfgText&) {
             pxrt_test::SessionLayout s;
             s.input_bytes = {1, 2, 3, 4, 5};
             pxrt_test::SetDefaultLayout(s);
         },
         {"GetSessionInputNumber reported 5 tensors, more than 4!"}},
        {"GetSessionInputSize of the second input",
         [](Init&, CfgText&) {
             pxrt_test::SessionLayout s;
             s.input_bytes = {8, 8};
             pxrt_test::SetDefaultLayout(s);
             pxrt_test::Fail(Op::kGetSessionInputSize, 13, 1);
         },
         {"GetSessionInputSize failed, return value:13"}},
        {"GetSessionOutputSize",
         [](Init&, CfgText&) { pxrt_test::Fail(Op::kGetSessionOutputSize, 14); },
         {"GetSessionOutputSize failed, return value:14"}},
    };
    for (const Failure& f : cases) {
        SCOPED_TRACE(f.name);
        pxrt_test::Reset();
        setenv("VAI_PXRT_LIBRARY", VAI_TEST_RUNTIME_PATH, 1);
        g_log_level = 2;  // the teardown's note on a missing session is a warning
        CfgText t;
        t.LogLevel = 2;
        Init init("", 0);
        f.setup(init, t);
        if (init.cfg.empty()) {
            init.cfg = Cfg(t);
            init.p.cfg_path = init.cfg.c_str();
        }
        log_.Clear();
        EXPECT_EQ(VAINR_Init(&init.p), nullptr);
        if (f.keeps_factories) {
            EXPECT_NE(mPXRTCreateInTensorFunc, nullptr);
            mPXRTCreateInterpreterFunc = nullptr;
            mPXRTCreateInTensorFunc = nullptr;
        }
        ExpectTornDown();
        const std::vector<std::string> texts = log_.Texts();
        size_t at = 0;
        for (const std::string& m : f.messages) {
            while (at < texts.size() && texts[at].find(m) == std::string::npos) ++at;
            EXPECT_LT(at, texts.size()) << "missing, or out of order: " << m;
        }
    }
}

TEST_F(QcomInitTest, NullTensorsAreNotFatalAtInit) {
    pxrt_test::Fail(Op::kCreateInputTensor, 0);
    Init init(Cfg(), 0);
    void* h = VAINR_Init(&init.p);
    ASSERT_NE(h, nullptr);
    ASSERT_EQ(Ctx(h)->vai_handle.input_tensors[0].size(), 1u);
    EXPECT_EQ(Ctx(h)->vai_handle.input_tensors[0][0], nullptr);
    EXPECT_EQ(VAINR_Uninit(h), 0);
    ExpectTornDown();
}

TEST_F(QcomInitTest, NullArguments) {
    EXPECT_EQ(VAINR_Init(nullptr), nullptr);
    EXPECT_EQ(VAINR_Uninit(nullptr), 3);
    EXPECT_EQ(log_.Texts(), (std::vector<std::string>{"Input init pars is nullptr in initial function!",
                                                      "Input handle is nullptr in uninit!"}));
    EXPECT_EQ(pxrt_test::Loads(), pxrt_test::Unloads());
}

// Mode 1 through the public entry points, model stage excluded.
TEST_F(QcomInitTest, EntryPointsRouteModeOne) {
    ScopedValue<int32_t> mode(g_algo_mode, 0);
    Init init(Cfg(), 0);
    void* h = Video_AI_Proc_Init(&init.p);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(g_algo_mode, 1);
    EXPECT_STREQ(Video_AI_Proc_GetVersion(1), "QCOM_Video_AINR_YUV_v0.0.2");
    log_.Clear();
    EXPECT_EQ(Video_AI_Model_Init(h, &init.p), 0);
    EXPECT_EQ(Video_AI_Model_Uninit(h), 0);
    EXPECT_EQ(log_.Count("Unsupported algo mode(1) now!"), 2u);
    Frame in(32, 16, 0x1000, 0x2000), out(32, 16);
    vAIPROC::ProcParams_ params = Params(0);
    EXPECT_EQ(Video_AI_Proc_Process(h, &out.img, &in.img, &params), 0);
    EXPECT_TRUE(out == in);  // a warm-up frame is copied
    EXPECT_EQ(Video_AI_Proc_Uninit(h), 0);
    ExpectTornDown();
}

}  // namespace
