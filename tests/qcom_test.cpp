#include <gtest/gtest.h>

#include <filesystem>

#include <algorithm>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "algocore/utils/status_code.h"
#include "log_capture.h"
#include "qcom/vainr_yuv/qcom_vainr_yuv_cfg.h"
#include "qcom_test_util.h"

namespace {

using namespace qcom_test;
using pxrt_test::Op;
using QCOM_VAINR_YUV_PROC::VAINR_CamPars_;
using QCOM_VAINR_YUV_PROC::VAINR_Init;
using QCOM_VAINR_YUV_PROC::VAINR_Process;
using QCOM_VAINR_YUV_PROC::VAINR_Uninit;

constexpr int kW = 32, kH = 16;

class QcomTest : public ::testing::Test {
  protected:
    void TearDown() override { Stop(); }
    bool Load(const std::string& json, const char* project = "TestProject") {
        cfg_ = Defaults();
        return QCOM_VAINR_YUV_PROC::LoadVAINRCfg_Qcom(Cfg(json).c_str(), project, &cfg_);
    }
    std::string Cfg(const std::string& json) { return WriteTestFile(".json", json); }
    // An instance whose sessions fit kW x kH frames.
    void Start(const VAINR_CfgPars_& t, int cam = 0, const std::function<void(Init&)>& edit = nullptr) {
        pxrt_test::SetDefaultLayout(LayoutFor(kW, kH, t.processType == 1));
        Init init(Cfg(Json(t)), cam);
        if (edit) edit(init);
        ASSERT_NE(handle_ = VAINR_Init(&init.p), nullptr);
    }
    void Stop() {
        EXPECT_EQ(handle_ != nullptr ? VAINR_Uninit(handle_) : 0, 0);
        handle_ = nullptr;
        EXPECT_TRUE(TornDown());
    }
    static VAINR_CfgPars_ Edited(const std::function<void(VAINR_CfgPars_&)>& edit) {
        VAINR_CfgPars_ t = Record();
        edit(t);
        return t;
    }
    // The built-in record with the YUV model, and without warm-up frames unless asked for.
    static VAINR_CfgPars_ Record(unsigned processType = 1, unsigned switchFrames = 0) {
        VAINR_CfgPars_ t = Defaults();
        t.processType = processType;
        t.SwitchFrameNum = switchFrames;
        return t;
    }
    int Process(Frame& out, Frame& in, int cam, float iso = 100.0f, float drc = 1.0f) {
        const vAIPROC::ProcParams_ p = Params(cam, iso, drc);
        return VAINR_Process(handle_, out.img(), in.img(), &p);
    }

    Env env_;
    LogCapture log_;
    void* handle_ = nullptr;
    VAINR_CfgPars_ cfg_{};
};

// The sample file spells out the built-in defaults. A file's keys land in their fields; cameras beyond the
// counts and entries past BinNumber keep what the record held.
TEST_F(QcomTest, ReadsFilesOverTheRecord) {
    VAINR_CfgPars_ expected = Defaults();
    for (uint32_t i = 0; i < 5; ++i) expected.cam[i].camIdx = i;
    cfg_ = Defaults();
    ASSERT_TRUE(QCOM_VAINR_YUV_PROC::LoadVAINRCfg_Qcom(VAI_TEST_SOURCE_DIR "/configs/qcom_vainr_yuv.json",
                                                       "DemoProject", &cfg_));
    EXPECT_EQ(std::memcmp(&cfg_, &expected, sizeof(cfg_)), 0);

    VAINR_CfgPars_ t = Record();
    t.LogLevel = 3;
    t.DumpRangeIdx = 5010;
    t.RearCamNum = 2;
    t.SwitchFrameNum = 9;
    expected = t;
    for (uint32_t i = 0; i < 5; ++i) {
        VAINR_CamPars_ &c = t.cam[i], &e = expected.cam[i];
        c = {7, i % 2, i == 1 ? 16 : 3 + i, 70 + i, {}, {}, {}};
        for (uint32_t j = 0; j < 16; ++j) {
            c.NrStrength[j] = i * 100 + j;
            c.ChromaNrStrength[j] = j * 3 + i;
            c.ISOBinIndex[j] = 1000 * i + j;
        }
        if (i < 3) {
            e = c;
            e.camIdx = i;
        }
        for (uint32_t j = c.BinNumber; i < 3 && j < 16; ++j) {
            e.NrStrength[j] = Defaults().cam[i].NrStrength[j];
            e.ChromaNrStrength[j] = Defaults().cam[i].ChromaNrStrength[j];
            e.ISOBinIndex[j] = Defaults().cam[i].ISOBinIndex[j];
        }
    }
    ASSERT_TRUE(Load(Json(t, 3)));
    EXPECT_EQ(std::memcmp(&cfg_, &expected, sizeof(cfg_)), 0);

    // Only the first 16 bytes of the project name count: it needs no terminator.
    EXPECT_TRUE(Load(Edit(Json(t), "TestProject", "ABCDEFGHIJKLMNOP"), "ABCDEFGHIJKLMNOPQRSTUVW"));
}

TEST_F(QcomTest, RejectsBadFiles) {
    // Each key missing in turn: the scalar keys before it are read (LogLevel comes first).
    const std::string json = Json(Edited([](auto& t) { t.LogLevel = 4; }));
    for (const char* key :
         {"LogLevel", "processType", "DumpRangeIdx", "FrontCamNum", "RearCamNum", "SwitchFrameNum",
          "processEnable", "BoostValue", "BinNumber", "NrStrength", "ChromaNrStrength", "ISOBinIndex"}) {
        EXPECT_FALSE(Load(Edit(json, std::string("\"") + key + "\":", "\"x\":"))) << key;
        EXPECT_EQ(cfg_.LogLevel, std::string(key) == "LogLevel" ? 1u : 4u) << key;
    }
    const struct {
        const char* name;
        std::string json;
    } cases[] = {
        {"six cameras", Json(Edited([](auto& t) { t.FrontCamNum = 2; }), 6)},
        {"camera count wraps", Json(Edited([](auto& t) { t.RearCamNum = 4294967295u, t.FrontCamNum = 2; }))},
        {"17 bins", Json(Edited([](auto& t) { t.cam[3].BinNumber = 17; }))},
        {"fewer elements than cameras", Json(Record(), 4)},
        {"empty camera array", Json(Edited([](auto& t) { t.RearCamNum = t.FrontCamNum = 0; }), 0)},
        {"other project", Edit(Json(Record()), "TestProject", "OtherProject")},
    };
    for (const auto& c : cases) {
        EXPECT_FALSE(Load(c.json)) << c.name;
    }
    EXPECT_FALSE(Load("{ not json") || Load("[1, 2]"));
    // A readable file, so that a missing check would be passed.
    const std::string good = Cfg(Json(Record()));
    EXPECT_FALSE(QCOM_VAINR_YUV_PROC::LoadVAINRCfg_Qcom(nullptr, "TestProject", &cfg_));
    EXPECT_FALSE(QCOM_VAINR_YUV_PROC::LoadVAINRCfg_Qcom(good.c_str(), nullptr, &cfg_));
    EXPECT_FALSE(QCOM_VAINR_YUV_PROC::LoadVAINRCfg_Qcom(good.c_str(), "TestProject", nullptr));
}

TEST_F(QcomTest, InitHandsTheRuntimeItsArguments) {
    pxrt_test::SetLayout("model3", {{600, 70}, {900}});
    pxrt_test::Fail(Op::kCreateInputTensor, 0, 1);  // a null tensor is not fatal here
    VAINR_CfgPars_ t = Record();
    t.LogLevel = 5;
    t.cam[3].BoostValue = 321;
    Init init(Cfg(Json(t)), 3);
    const std::string long_path(300, 'm');
    init.p.model_path[1] = long_path.c_str();
    ASSERT_NE(handle_ = VAINR_Init(&init.p), nullptr);
    auto* ctx = Ctx(handle_);
    init.models[0] = "changed after init";  // the instance keeps copies

    EXPECT_EQ(Ops(),
              (std::vector<Op>{Op::kCreateInterpreter, Op::kCreateSession, Op::kGetSessionInputNumber,
                               Op::kGetSessionOutputNumber, Op::kGetSessionInputSize, Op::kCreateInputTensor,
                               Op::kGetSessionInputSize, Op::kCreateInputTensor, Op::kGetSessionOutputSize,
                               Op::kCreateOutputTensor, Op::kGetVersion}));
    const std::vector<pxrt_test::Call> calls = pxrt_test::Calls();
    const pxrt_test::Call& cs = calls[1];
    EXPECT_EQ(cs.output_names, std::vector<std::string>{"Identity"});
    // device, flags, option integers, boost, reserved words
    EXPECT_EQ((std::vector<int64_t>{cs.device, cs.flags, cs.mode[0], cs.mode[1], cs.mode[2], cs.boost,
                                    cs.reserved0, cs.reserved1}),
              (std::vector<int64_t>{5, 2048, 2, 3, 0, 321, 0, 0}));
    EXPECT_EQ(cs.session, ctx->m_session[0]);
    std::vector<std::vector<int64_t>> tensors;  // on the session, bytes, index, one, kind, buffer, fd, zero
    for (const pxrt_test::Call* c : {&calls[5], &calls[7], &calls[9]}) {
        tensors.push_back({c->session == ctx->m_session[0], int64_t(c->bytes), c->tensor_index, c->one,
                           c->kind, c->buffer != nullptr, c->fd, c->zero});
    }
    EXPECT_EQ(tensors,
              (std::vector<std::vector<int64_t>>{
                  {1, 600, 0, 1, 2, 0, -1, 0}, {1, 70, 1, 1, 2, 0, -1, 0}, {1, 900, 0, 1, 2, 0, -1, 0}}));
    // tensor count and size, camera, hand-off, log level from the file
    EXPECT_EQ((std::vector<size_t>{ctx->vai_handle.m_in_num[0], ctx->vai_handle.mInputTensorByteSize[0][1],
                                   ctx->last_cam_type, ctx->switch_done.load(),
                                   ctx->switch_pending + ctx->frame_count, g_log_level}),
              (std::vector<size_t>{2, 70, 3, 1, 0, 5}));
    EXPECT_STREQ(ctx->model_name[0], "model0");
    EXPECT_EQ(std::string(ctx->model_name[1]), long_path.substr(0, 255));
    EXPECT_EQ(ctx->vai_handle.input_tensors[0].at(1), nullptr);
    EXPECT_EQ(vemo::AlgorithmMemory::mapFind(ctx), sizeof(*ctx));
    // The one informational line logged at error priority.
    EXPECT_TRUE(log_.Contains("cam_type:3, model_name:model3, m_session[0]:(nil)"));
}

// Each failure returns null and leaves nothing behind; the last runtime call shows where it stopped.
TEST_F(QcomTest, EveryInitFailureTearsDownCompletely) {
    const auto fail = [](Op op, int result) { return [=](Init&) { pxrt_test::Fail(op, result); }; };
    const struct {
        const char* name;
        std::function<void(Init&)> setup;
        Op last;  // kOpCount: the runtime was never called
    } cases[] = {
        {"dlopen", [](Init&) { setenv("VAI_PXRT_LIBRARY", "/nonexistent/libPXRT.so", 1); }, Op::kOpCount},
        {"CreateInterpreter", fail(Op::kCreateInterpreter, 0), Op::kCreateInterpreter},
        {"configuration", [](Init& i) { i.p.cfg_path = "/nonexistent.json"; }, Op::kCreateInterpreter},
        {"camera type above the record", [](Init& i) { i.p.cam_type = 5; }, Op::kCreateInterpreter},
        {"CreateSession without a session", fail(Op::kCreateSession, 0), Op::kCreateSession},
        {"no model path", [](Init& i) { i.p.model_path[0] = nullptr; }, Op::kCreateSession},
        {"GetSessionInputNumber", fail(Op::kGetSessionInputNumber, 11), Op::kGetSessionInputNumber},
        {"five inputs",
         [](Init&) {
             pxrt_test::SetDefaultLayout({{1, 2, 3, 4, 5}});
         },
         Op::kGetSessionInputNumber},
        {"second input size",
         [](Init&) {
             pxrt_test::SetDefaultLayout({{8, 8}});
             pxrt_test::Fail(Op::kGetSessionInputSize, 13, 1);
         },
         Op::kGetSessionInputSize},
        {"GetSessionOutputSize", fail(Op::kGetSessionOutputSize, 14), Op::kGetSessionOutputSize},
    };
    for (const auto& f : cases) {
        SCOPED_TRACE(f.name);
        pxrt_test::Reset();
        setenv("VAI_PXRT_LIBRARY", VAI_TEST_RUNTIME_PATH, 1);
        Init init(Cfg(Json(Record())), 0);
        f.setup(init);
        EXPECT_EQ(VAINR_Init(&init.p), nullptr);
        std::vector<Op> ops = Ops();  // up to the teardown's release
        ops.erase(std::remove(ops.begin(), ops.end(), Op::kReleaseSession), ops.end());
        EXPECT_EQ(ops.empty() ? Op::kOpCount : ops.back(), f.last);
        EXPECT_TRUE(TornDown());
    }
    EXPECT_EQ(VAINR_Init(nullptr), nullptr);
    EXPECT_EQ(VAINR_Uninit(nullptr), SDK_UNINIT_ERROR);
}

// With a black frame and a network answering 1 everywhere, each output sample is 4 x strength.
TEST_F(QcomTest, StrengthsFollowTheGainTable) {
    const struct {
        const char* name;
        float iso, drc;
        int y, uv;
        std::vector<unsigned> nr = {}, chroma = {};  // empty: the defaults
        unsigned bins = 8, rear = 4;
    } cases[] = {
        {"below the first bin", 799.0f, 1.0f, 0, 32},
        {"worked example", 1200.0f, 1.0f, 6, 32},
        {"gain is ISO x DRC", 550.0f, 2.0f, 4, 32},  // 1100: (0*500 + 12*300) / 800
        {"second bin", 2400.0f, 1.0f, 15, 32},       // (12*800 + 19*800) / 1600
        {"both interpolate", 11000.0f, 1.0f, 35, 34},
        {"at the last bin", 25600.0f, 1.0f, 51, 40},
        {"last used bin, not the table end", 5000.0f, 1.0f, 19, 32, {}, {}, 3},
        {"equal neighbours", 1000.5f, 1.0f, 20, 9, {20, 20}, {9, 9}},  // weights 599 + 200 of 800
        {"low byte of a wide strength", 100.0f, 1.0f, 44, 1, {300}, {257}},
        {"above 64 clamps", 100.0f, 1.0f, 64, 64, {100}, {65}},
        {"BinNumber 0 counts as one bin", 5000.0f, 1.0f, 0, 32, {}, {}, 0},
        {"falling table", 1200.0f, 1.0f, 30, 4, {40, 20}, {8, 0}},
        // Camera 4 is disabled in the file; when the file does not configure it, the defaults apply.
        {"camera beyond the configured ones", 1200.0f, 1.0f, 6, 32, {}, {}, 8, 3},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        pxrt_test::Reset();
        pxrt_test::SetRunHook(FillOutput(1));
        VAINR_CfgPars_ t = Record();
        t.RearCamNum = c.rear;
        t.cam[4].processEnable = 0;
        const int cam = c.rear == 4 ? 2 : 4;
        auto& rc = t.cam[cam];
        std::copy(c.nr.begin(), c.nr.end(), rc.NrStrength);
        std::copy(c.chroma.begin(), c.chroma.end(), rc.ChromaNrStrength);
        rc.BinNumber = c.bins;
        Start(t, cam);
        auto in = MakeFrame(kW, kH), out = MakeFrame(kW, kH, 0xFFFF, 0xFFFF);
        ASSERT_EQ(Process(*out, *in, cam, c.iso, c.drc), 0);
        EXPECT_TRUE(*out ==
                    *MakeFrame(kW, kH, static_cast<uint16_t>(4 * c.y), static_cast<uint16_t>(4 * c.uv)));
        Stop();
    }
}

// An identity network at full strength gives back the high byte of every sample, in place or not:
// the tensor really carries the packed input through Run to the unpacker.
TEST_F(QcomTest, PackRunUnpackChain) {
    for (unsigned type : {1u, 0u}) {
        SCOPED_TRACE(type);
        pxrt_test::Reset();
        const std::string bytes = std::to_string(LayoutFor(kW, kH, type == 1).input_bytes[0]);
        const std::string model =
            WriteTestFile(".model", "pxrt-test-model\ninput " + bytes + "\noutput " + bytes + "\nrun copy\n");
        VAINR_CfgPars_ t = Record(type);
        for (auto& c : t.cam) c.NrStrength[0] = c.ChromaNrStrength[0] = 64;
        Start(t, 0, [&](Init& i) { i.p.model_path[0] = model.c_str(); });
        auto in = MakeFrame(kW, kH), out = MakeFrame(kW, kH);
        in->FillRandom(type);
        ASSERT_EQ(Process(*out, *in, 0), 0);
        // Each sample's low byte goes; luma-only models leave chroma to the traced copy.
        std::vector<uint8_t> expected = in->Bytes();
        const size_t processed = type == 1 ? expected.size() : in->plane_bytes(0);
        for (size_t i = 0; i < processed; i += 2) expected[i] = 0;
        ASSERT_TRUE(out->Bytes() == expected);
        if (type == 1) {  // (in place, a luma-only frame's chroma copy onto itself is refused)
            ASSERT_EQ(Process(*in, *in, 0), 0);
            EXPECT_TRUE(*in == *out);
        }
        Stop();
    }
}

// Frames the network cannot take are copied unchanged, with an error line, and never reach Run;
// errors return before anything is written.
TEST_F(QcomTest, FramesThatCannotBeProcessedAreCopied) {
    Start(Edited([](auto& t) { t.cam[1].processEnable = 0; }));
    using Img = vAIPROC::VAI_IMG_;
    const struct {
        const char* name;
        int cam;
        int width, in_bits, out_bits;
        void (*edit)(Img& in, Img& out);
    } cases[] = {
        {"disabled camera type", 1, kW, 10, 10, nullptr},
        {"camera type above the record", 5, kW, 10, 10, nullptr},
        {"negative camera type", -2, kW, 10, 10, nullptr},
        {"8-bit input", 0, kW, 8, 10, nullptr},
        {"8-bit output", 0, kW, 10, 8, nullptr},
        {"tensors smaller than the frame", 0, 2 * kW, 10, 10, nullptr},
        {"input narrower than the output", 0, kW, 10, 10, [](Img& in, Img&) { in.width -= 2; }},
        {"input taller than its planes", 0, kW, 10, 10, [](Img& in, Img&) { in.height += 2; }},
        {"rows longer than the stride", 0, kW, 10, 10,
         [](Img& in, Img& out) { in.stride[0] = out.stride[0] = 2 * kW - 4; }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        log_.Clear();
        auto in = MakeFrame(c.width, kH, 0x1234, 0x5678), out = MakeFrame(c.width, kH);
        in->img()->btw = static_cast<int8_t>(c.in_bits), out->img()->btw = static_cast<int8_t>(c.out_bits);
        if (c.edit) c.edit(*in->img(), *out->img());
        EXPECT_EQ(Process(*out, *in, c.cam), 0);
        EXPECT_EQ(out->Bytes(), in->Bytes());
        EXPECT_EQ(log_.Lines().size(), 1u);
        EXPECT_EQ(log_.Lines().at(0).prio, ANDROID_LOG_ERROR);
        // Such frames do not count as a camera change.
        EXPECT_EQ(Ctx(handle_)->last_cam_type, 0u);
    }
    EXPECT_EQ(pxrt_test::CallCount(Op::kRun), 0u);
    // A copy's own status comes back.
    auto in = MakeFrame(kW, kH, 0x1234, 0x5678), out = MakeFrame(kW, kH, 0xABAB, 0xCDCD);
    in->img()->img_num = 2;
    EXPECT_EQ(Process(*out, *in, 1), kImageCountMismatch);
    in->img()->img_num = 1;
    pxrt_test::Fail(Op::kRun, 42);
    const vAIPROC::ProcParams_ p = Params(0);
    EXPECT_EQ(VAINR_Process(nullptr, out->img(), in->img(), &p), SDK_UNINIT_ERROR);
    EXPECT_EQ(VAINR_Process(handle_, out->img(), in->img(), &p), SDK_INVALID_MODEL_ERR);
    EXPECT_TRUE(*out == *MakeFrame(kW, kH, 0xABAB, 0xCDCD));
    EXPECT_EQ(vai::qcom::ModelSwitch(nullptr, 1), SDK_UNINIT_ERROR);
}

// Frames in the dump range are written, input and output under the same tag.
TEST_F(QcomTest, DumpsTheRequestRange) {
    const std::string dir = TestFile("_dumps/");
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    setenv("VAI_DUMP_DIR", dir.c_str(), 1);
    Start(Edited([](auto& t) { t.DumpRangeIdx = 1003; }));  // requests 1 and 2
    auto in = MakeFrame(kW, kH, 0x1234, 0x5678), out = MakeFrame(kW, kH);
    for (uint64_t req = 0; req < 5; ++req) {
        in->img()->req_id = out->img()->req_id = req;
        ASSERT_EQ(Process(*out, *in, 0), 0);
    }
    unsetenv("VAI_DUMP_DIR");
    std::set<std::string> names;  // after the time stamp, which input and output share
    for (const auto& e : std::filesystem::directory_iterator(dir)) {
        const std::string name = e.path().filename();
        names.insert(name.substr(name.find("_req")));  // (throws, failing the test, without one)
        EXPECT_EQ(e.file_size(), out->plane_bytes(0)) << name;
    }
    EXPECT_EQ(names, (std::set<std::string>{"_req1_32x16_qcom_yuv_vainr_in.packed_word",
                                            "_req2_32x16_qcom_yuv_vainr_in.packed_word"}));
}

// The frame-by-frame state machine around camera changes, with each switch thread held in
// CreateSession until the test lets it go; teardown during the second switch waits for it.
TEST_F(QcomTest, CameraChangeSwitchesModelsInTheBackground) {
    Gate gates[3];
    pxrt_test::SetCreateSessionHook([&gates](const std::string& model) {
        if (model != "model0") gates[model.back() - '0'].Wait();
    });
    pxrt_test::SetRunHook(FillOutput(0x11));
    Start(Record(1, 3));
    auto in = MakeFrame(kW, kH, 0x1234, 0x5678);
    const auto processed = [&](int cam) {
        auto out = MakeFrame(kW, kH);
        EXPECT_EQ(Process(*out, *in, cam), 0);
        return !(*out == *in);
    };

    for (int i = 1; i <= 3; ++i) EXPECT_FALSE(processed(0)) << "warm-up after init " << i;
    EXPECT_TRUE(processed(0));
    EXPECT_FALSE(processed(1));                              // the change itself
    for (int i = 0; i < 3; ++i) EXPECT_FALSE(processed(1));  // warm-up
    EXPECT_EQ(pxrt_test::CallCount(Op::kCreateSession), 1u);
    EXPECT_FALSE(processed(1));  // starts the switch
    ASSERT_TRUE(gates[1].Reached());
    for (int i = 0; i < 3; ++i) EXPECT_FALSE(processed(1));  // while it runs

    gates[1].Open();
    ASSERT_TRUE(WaitFor([&] { return Ctx(handle_)->switch_done.load(std::memory_order_acquire) == 1; }));
    EXPECT_TRUE(processed(1));
    EXPECT_EQ(pxrt_test::Calls(Op::kRun).back().session, Ctx(handle_)->m_session[0]);  // the new one

    for (int i = 0; i < 5; ++i) EXPECT_FALSE(processed(2));  // change, warm-up, start
    ASSERT_TRUE(gates[2].Reached());
    std::thread opener([&] {
        EXPECT_TRUE(WaitFor([&] { return log_.Contains("On model switching! Wait in VAINR_Uninit!"); }));
        gates[2].Open();
    });
    Stop();
    opener.join();
    EXPECT_EQ(pxrt_test::CallCount(Op::kCreateInputTensor), 3u);  // the switch got to its end
}

// The switch routine on its own: old tensors and session go, new ones replace element 0, and the
// runtime sees all sizes before any tensor.
TEST_F(QcomTest, SwitchReplacesSessionAndTensors) {
    pxrt_test::SessionLayout layout = LayoutFor(kW, kH, true);
    layout.output_bytes.push_back(16);
    Start(Record(1, 7), 0, [&](Init&) { pxrt_test::SetDefaultLayout(layout); });
    auto* ctx = Ctx(handle_);
    void* old_session = ctx->m_session[0];
    pxrt_test::Reset();
    pxrt_test::SetDefaultLayout(layout);
    EXPECT_EQ(vai::qcom::ModelSwitch(handle_, 3), SDK_SUCCESS);
    EXPECT_EQ(Ops(),
              (std::vector<Op>{Op::kReleaseSession, Op::kCreateSession, Op::kGetSessionInputNumber,
                               Op::kGetSessionInputSize, Op::kGetSessionOutputNumber,
                               Op::kGetSessionOutputSize, Op::kGetSessionOutputSize, Op::kCreateInputTensor,
                               Op::kCreateOutputTensor, Op::kCreateOutputTensor}));
    EXPECT_EQ(pxrt_test::Calls(Op::kReleaseSession)[0].session, old_session);
    EXPECT_EQ(pxrt_test::Calls(Op::kCreateSession)[0].model_path, "model3");
    EXPECT_EQ(pxrt_test::Calls(Op::kCreateSession)[0].session, ctx->m_session[0]);
    EXPECT_EQ(pxrt_test::Calls(Op::kCreateInputTensor)[0].tensor, ctx->vai_handle.input_tensors[0][0].get());
    // Both new outputs went into element 0 in turn; the old second output was released, its slot kept.
    ASSERT_EQ(ctx->vai_handle.output_tensors[0].size(), 2u);
    EXPECT_EQ(pxrt_test::Calls(Op::kCreateOutputTensor)[1].tensor,
              ctx->vai_handle.output_tensors[0][0].get());
    EXPECT_EQ(ctx->vai_handle.output_tensors[0][1], nullptr);
    EXPECT_EQ(pxrt_test::LiveObjects().tensors, 2);
}

// A switch that fails destroys the instance: the caller's handle dangles, nothing is left behind.
// The first row goes through the frame path and the switch thread, the others call the routine.
TEST_F(QcomTest, FailedSwitchDestroysTheInstance) {
    const struct {
        const char* name;
        std::function<void(Init&)> setup;
        int result;
    } cases[] = {
        {"no model path", [](Init& i) { i.p.model_path[2] = nullptr; }, vai::qcom::kSwitchSessionFailed},
        {"size query", [](Init&) { pxrt_test::Fail(Op::kGetSessionOutputSize, 5, 1); },
         vai::qcom::kSwitchRuntimeFailed},
        {"no tensor count", [](Init&) { pxrt_test::Fail(Op::kGetSessionInputNumber, 5, 1); },
         vai::qcom::kSwitchRuntimeFailed},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        pxrt_test::Reset();
        Start(Record(), 0, c.setup);
        EXPECT_EQ(vai::qcom::ModelSwitch(handle_, 2), c.result);
        handle_ = nullptr;
        EXPECT_TRUE(TornDown());
    }
}

}  // namespace
