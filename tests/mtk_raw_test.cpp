#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "algocore/utils/status_code.h"
#include "interface/VideoAIProc.h"
#include "log_capture.h"
#include "mtk/vainr_raw/mtk_vainr_raw_proc.h"
#include "mtk_test_util.h"

namespace {

namespace raw = MTK_VAINR_RAW_PROC;
using pxrt_test::Op;
using qcom_test::WriteTestFile;
using namespace mtk_test;

const std::string kCam = R"({"processEnable": 1, "BoostValue": 100, "BinNumber": 8,
    "NrStrength": [0, 51, 76, 102, 127, 153, 178, 204], "DetailStrength": [153, 140, 127, 114, 102, 89, 76, 63],
    "ISOBinIndex": [800, 1600, 3200, 6400, 9200, 12800, 19200, 25600]})";

// By default four cameras holding the built-in values.
std::string Json(const std::string& head = kHead,
                 const std::vector<std::string>& cams = {kCam, kCam, kCam, kCam}) {
    return mtk_test::Json(head, cams);
}

raw::VAINR_CfgPars_ Defaults() {
    raw::VAINR_CfgPars_ c;
    vai::mtk_raw::SetDefaultCfg(&c);
    return c;
}

class MtkRawCfgTest : public ::testing::Test {
  protected:
    bool Load(const std::string& json) {
        cfg_ = Defaults();
        return raw::LoadVAINRCfg_MTK(WriteTestFile(".json", json).c_str(), "TestProject", &cfg_);
    }
    ScopedValue<unsigned char> level_{g_log_level, 1};
    LogCapture log_;
    raw::VAINR_CfgPars_ cfg_{};
};

// The sample file spells out the built-in defaults; tables are read up to BinNumber; no cameras at all
// keeps every default.
TEST_F(MtkRawCfgTest, SampleFileAndPartialTables) {
    cfg_ = Defaults();
    ASSERT_TRUE(
        raw::LoadVAINRCfg_MTK(VAI_TEST_SOURCE_DIR "/configs/mtk_vainr_raw.json", "DemoProject", &cfg_));
    raw::VAINR_CfgPars_ expected = Defaults();
    for (uint32_t i = 0; i < 4; ++i) expected.camPars[i].camId = i;
    EXPECT_EQ(std::memcmp(&cfg_, &expected, sizeof(cfg_)), 0);

    const std::string cam = R"({"processEnable": 0, "BoostValue": 44, "BinNumber": 2,
        "NrStrength": [1, 2, 99], "DetailStrength": [4, 5], "ISOBinIndex": [10, 20]})";
    ASSERT_TRUE(Load(Json(Set(kHead, "RearCamNum", "1"), {kCam, cam, "{}"})));
    const raw::VAINR_CamPars_& c = cfg_.camPars[1];
    EXPECT_EQ(
        (std::vector<uint32_t>{c.camId, c.processEnable, c.BoostValue, c.NrStrength[1], c.NrStrength[2],
                               c.DetailStrength[1], c.DetailStrength[2], c.ISOBinIndex[1], c.ISOBinIndex[2]}),
        (std::vector<uint32_t>{1, 0, 44, 2, 76, 5, 127, 20, 3200}));
    EXPECT_EQ(std::memcmp(&cfg_.camPars[2], &expected.camPars[0], sizeof(c)), 0);
    ASSERT_TRUE(Load(Set(Set(Json(), "FrontCamNum", "0"), "RearCamNum", "0")));
    const raw::VAINR_CfgPars_ defaults = Defaults();
    EXPECT_EQ(std::memcmp(cfg_.camPars, defaults.camPars, sizeof(cfg_.camPars)), 0);
    EXPECT_TRUE(log_.Lines().empty());
}

TEST_F(MtkRawCfgTest, RejectsBadFiles) {
    std::vector<std::pair<std::string, std::string>> cases;  // file, a line it must log
    for (const std::string key :
         {"LogLevel", "processType", "DumpRangeIdx", "FrontCamNum", "RearCamNum", "SwitchFrameNum",
          "processEnable", "BinNumber", "NrStrength", "DetailStrength", "ISOBinIndex"}) {
        cases.emplace_back(Edit(Json(), "\"" + key + "\"", "\"x\""), "");
    }
    cases.insert(
        cases.end(),
        {
            {Edit(Json(), "\"BoostValue\"", "\"BoostValue4K\""), ""},
            {Edit(Json(), "\"VideoAIProcPars\"", "\"x\""),
             "TestProject project have no \"VideoAIProcPars\" in "},
            {Set(Json(), "BinNumber", "0"), "BinNumber of camera 3 is 0 in "},
            {Set(Json(), "BinNumber", "17"), "BinNumber(17) of camera 3 exceeds 16 bins"},
            {Json(kHead, {kCam, kCam, kCam}), "exceeds the 4 cameras of the record or the 3 entries"},
            {Set(Json(kHead, std::vector<std::string>(5, kCam)), "FrontCamNum", "2"),
             "RearCamNum(3) + FrontCamNum(2)"},
            {Set(Json(), "RearCamNum", "4294967295"), "exceeds the 4 cameras"},  // wraps to 0 in 32 bits
            {Edit(Json(), "[800,", "[\"800\","), ""},
            {"{\"OtherProject\": {\"LogLevel\": 4}}", ""},
            {"{\"TestProject\": []}", ""},
            {"{ not json", ""},
        });
    for (const auto& [json, line] : cases) {
        log_.Clear();
        EXPECT_FALSE(Load(json)) << json;
        EXPECT_TRUE(line.empty() || log_.Contains(line)) << line;
    }
}

// ---- instance, model set-up and frames ----

// Init parameters with model paths "model<type>", in mode 10.
struct Init : qcom_test::Init {
    explicit Init(const std::string& json, int cam = 0) : qcom_test::Init(WriteTestFile(".json", json), cam) {
        p.algo_mode = 10;
    }
};

class MtkRawTest : public ::testing::Test {
  protected:
    void TearDown() override {
        EXPECT_EQ(handle_ != nullptr ? raw::VAINR_Uninit(handle_) : SDK_SUCCESS, SDK_SUCCESS);
        EXPECT_TRUE(qcom_test::TornDown());
    }
    raw::VAINR_Ctx_* Ctx() { return static_cast<raw::VAINR_Ctx_*>(handle_); }
    qcom_test::Env env_;
    LogCapture log_;
    void* handle_ = nullptr;
};

TEST_F(MtkRawTest, InitAndItsFailures) {
    Init init(Set(Set(Json(Set(kHead, "RearCamNum", "2")), "LogLevel", "5"), "DumpRangeIdx", "10020"));
    const std::string long_path(300, 'x');
    init.p.model_path[2] = long_path.c_str();
    init.p.model_path[4] = nullptr;
    ASSERT_NE(handle_ = raw::VAINR_Init(&init.p), nullptr);
    EXPECT_EQ(std::string(Ctx()->model_name[2]), long_path.substr(0, 255));
    EXPECT_EQ(std::string(Ctx()->model_name[3]) + Ctx()->model_name[4], "model3");
    const DumpPars_& d = Ctx()->dump_pars;
    EXPECT_EQ((Rows{{d.dump_enable, d.dump_start, d.dump_end, g_log_level, Ctx()->cur_cam_type,
                     int64_t(pxrt_test::Calls().size())}}),
              (Rows{{1, 10, 20, 5, -1, 1}}));
    const raw::VAINR_CfgPars_ defaults = Defaults();  // camera 3 is not configured
    EXPECT_EQ(std::memcmp(&Ctx()->cfg.camPars[3], &defaults.camPars[3], sizeof(defaults.camPars[3])), 0);
    EXPECT_STREQ(Video_AI_Proc_GetVersion(10), "MTK_Video_AINR_RAW_v0.0.5");
    EXPECT_EQ(raw::VAINR_Uninit(std::exchange(handle_, nullptr)), SDK_SUCCESS);
    EXPECT_TRUE(log_.Contains("runtime session is nullptr in uninit!"));
    ExpectInitFailuresLeaveNothing(init, raw::VAINR_Init);
    EXPECT_TRUE(log_.Contains("Cfg parse failed in mtk_vainr_raw_proc!"));
}

// Parameter tensors by model layout, for camera 2.
TEST_F(MtkRawTest, ModelSetUp) {
    Init init(Json(Set(kHead, "RearCamNum", "2"), {kCam, kCam, Set(kCam, "BoostValue", "33")}), 2);
    const std::pair<pxrt_test::SessionLayout, Rows> cases[] = {
        {{{64}, {64}}, {}},
        {{{64, 16}, {64}}, {{1, 0, 16, 1, 1, 10, -1, 0}}},
        {{{64, 16, 200}, {64, 8}},
         {{1, 0, 16, 1, 1, 10, -1, 0}, {1, 0, 200, 2, 1, 10, -1, 0}, {1, 0, 8, 1, 1, 10, -1, 0}}},
        {{{64, 256, 4}, {64}}, {}},  // input 1 too large to be a parameter
    };
    for (const auto& [layout, expected] : cases) {
        pxrt_test::Reset();
        pxrt_test::SetDefaultLayout(layout);
        ASSERT_NE(handle_ = raw::VAINR_Init(&init.p), nullptr);
        ASSERT_EQ(raw::VAINR_Model_Init(handle_, &init.p), 2);
        const pxrt_test::Call s = pxrt_test::Calls(Op::kCreateSession).at(0);
        EXPECT_EQ((std::vector<int64_t>{s.device, s.flags, s.mode[0], s.mode[1], s.mode[2], s.boost,
                                        int64_t(s.output_names.size())}),
                  (std::vector<int64_t>{1, 2048, 2, 0, 1, 33, 0}));
        EXPECT_EQ(s.model_path, "model2");
        EXPECT_EQ(TensorCalls(Ctx()->m_session[0]), expected);
        EXPECT_EQ(pxrt_test::CallCount(Op::kCreateOutputTensor), expected.size() == 3 ? 1u : 0u);
        // The first parameter tensor is listed twice: its first place is the frame's.
        for (const PXRT::TensorArray* a :
             {&Ctx()->vai_handle.input_tensors[0], &Ctx()->vai_handle.output_tensors[0]}) {
            EXPECT_TRUE(a->empty() || (a->size() >= 2 && (*a)[0] == (*a)[1]));
        }
        EXPECT_EQ(raw::VAINR_Uninit(std::exchange(handle_, nullptr)), SDK_SUCCESS);
        EXPECT_TRUE(qcom_test::TornDown());
    }
}

// Every failed set-up destroys the instance: no runtime object, traced block or library is left.
TEST_F(MtkRawTest, FailedModelSetUpDestroysTheHandle) {
    Init init(Json(), 1);
    const std::vector<std::function<void()>> cases = {
        [] { pxrt_test::Fail(Op::kCreateSession, 7); },
        [] { pxrt_test::Fail(Op::kCreateSession, 0); },  // success without a session
        [] { pxrt_test::Fail(Op::kGetSessionInputNumber, 7); },
        [] { pxrt_test::Fail(Op::kGetSessionInputSize, 7, 1); },
        [] { pxrt_test::Fail(Op::kGetSessionOutputNumber, 7); },
        [] { pxrt_test::Fail(Op::kGetSessionOutputSize, 7); },
        [] {
            pxrt_test::SetDefaultLayout({{64, 1, 1, 1, 1}, {64}});
        },
        [] {
            pxrt_test::SetDefaultLayout({{64}, {64, 1, 1, 1, 1}});
        },
        [this] { Ctx()->vai_handle.interpreter.reset(), pxrt_test::Fail(Op::kCreateInterpreter, 0); },
        [&init] { init.p.cam_type = 4; },
        [&init] { init.p.cam_type = -1; },
    };
    for (size_t i = 0; i < cases.size(); ++i) {
        pxrt_test::Reset();
        pxrt_test::SetDefaultLayout({{64, 16, 16}, {64, 16}});
        init.p.cam_type = 1;
        ASSERT_NE(handle_ = Video_AI_Proc_Init(&init.p), nullptr);
        cases[i]();
        EXPECT_EQ(Video_AI_Model_Init(std::exchange(handle_, nullptr), &init.p), -1) << i;
        EXPECT_TRUE(qcom_test::TornDown()) << i;
    }
    EXPECT_EQ(raw::VAINR_Model_Init(nullptr, &init.p), -1);
    EXPECT_EQ(raw::VAINR_Model_Uninit(nullptr), SDK_UNINIT_ERROR);
    EXPECT_EQ(raw::VAINR_Uninit(nullptr), SDK_UNINIT_ERROR);
}

class MtkRawFrameTest : public MtkRawTest {
  protected:
    // Through the entry points. Camera 1 uses one bin, camera 3 is disabled.
    void Start(const pxrt_test::SessionLayout& layout, const std::string& head = kHead) {
        pxrt_test::SetDefaultLayout(layout);
        const std::string one_bin = R"({"processEnable": 1, "BoostValue": 1, "BinNumber": 1,
            "NrStrength": [40], "DetailStrength": [200], "ISOBinIndex": [1000]})";
        Init init(Json(head, {kCam, one_bin, kCam, Set(kCam, "processEnable", "0")}));
        ASSERT_NE(handle_ = Video_AI_Proc_Init(&init.p), nullptr);
        ASSERT_EQ(Video_AI_Model_Init(handle_, &init.p), 0);
    }
    int Process(int cam, float iso = 100, float drc = 1, int32_t* extend = nullptr) {
        vAIPROC::ProcParams_ p = qcom_test::Params(cam, iso, drc);
        p.extend_pars = extend;
        return Video_AI_Proc_Process(handle_, out_->img(), in_->img(), &p);
    }
    std::vector<uint8_t> Bytes(size_t i, size_t n) {
        const auto* p = static_cast<const uint8_t*>(Ctx()->vai_handle.input_tensors[0].at(i)->GetData());
        return std::vector<uint8_t>(p, p + n);
    }
    ScopedValue<int32_t> mode_{g_algo_mode, 0};
    std::unique_ptr<qcom_test::Frame> in_ = qcom_test::MakeFrame(16, 8, 0x12, 0x34, 8);
    std::unique_ptr<qcom_test::Frame> out_ = qcom_test::MakeFrame(16, 8, 0, 0, 8);
};

// The signed strengths as the runtime sees them: 16 bytes of nr in input 1 (20 bytes), the detail
// strength in input 2, cut to its 8 bytes.
TEST_F(MtkRawFrameTest, StrengthBytes) {
    Start({{64, 20, 8}, {64}});
    int32_t ext[] = {300, -200}, ext2[] = {-5, 6};
    const std::tuple<int, float, float, int32_t*, int8_t, int8_t> cases[] = {
        {0, 100, 1, ext, 127, -128},     {0, 100, 1, ext2, -5, 6},        {0, 100, 1, nullptr, -128, 25},
        {0, 1200, 2, nullptr, -65, 5},   {0, 25600, 1, nullptr, 76, -65}, {0, 1e9f, 1, nullptr, 76, -65},
        {0, 1200, 1, nullptr, -103, 18}, {1, 10, 1, nullptr, -88, 72},    {1, 5000, 1, nullptr, -88, 72},
    };
    for (const auto& [cam, iso, drc, ext_pars, nr, ee] : cases) {
        ASSERT_EQ(Process(cam, iso, drc, ext_pars), SDK_SUCCESS);
        std::vector<uint8_t> expected(20, 0);
        std::fill_n(expected.begin(), 16, uint8_t(nr));
        EXPECT_EQ(Bytes(1, 20), expected) << cam << " " << iso << " " << drc;
        EXPECT_EQ(Bytes(2, 8), std::vector<uint8_t>(8, uint8_t(ee))) << cam << " " << iso << " " << drc;
    }
}

// One-, two- and three-input models: what reaches each input, and the frame tensors over the
// caller's buffers and descriptors.
TEST_F(MtkRawFrameTest, WhatEachInputReceives) {
    in_->img()->fd[0] = 21, out_->img()->fd[0] = 22;
    const auto in = reinterpret_cast<intptr_t>(in_->plane(0)),
               out = reinterpret_cast<intptr_t>(out_->plane(0));
    int32_t ext[] = {-3, 9};
    const std::pair<pxrt_test::SessionLayout, std::vector<std::vector<uint8_t>>> cases[] = {
        {{{96}, {48}}, {}},
        {{{96, 16}, {48, 4}}, {std::vector<uint8_t>(16, 0xFD)}},
        {{{96, 16, 16}, {48}}, {std::vector<uint8_t>(16, 0xFD), std::vector<uint8_t>(16, 9)}},
    };
    for (const auto& [layout, params] : cases) {
        pxrt_test::Reset();
        Start(layout);
        for (int frame = 0; frame < 2; ++frame) {  // the second frame's tensors replace the first's
            pxrt_test::Reset();
            ASSERT_EQ(Process(0, 100, 1, ext), SDK_SUCCESS);
            EXPECT_EQ(TensorCalls(Ctx()->m_session[0]),
                      (Rows{{1, in, 96, 0, 1, 11, 21, 0}, {1, out, 48, 0, 1, 11, 22, 0}}));
            EXPECT_EQ(pxrt_test::Calls(Op::kRun).at(0).result, 0);
            EXPECT_EQ(pxrt_test::LiveObjects().tensors,
                      int64_t(layout.input_bytes.size() + layout.output_bytes.size()));
        }
        for (size_t i = 0; i < params.size(); ++i) EXPECT_EQ(Bytes(i + 1, 16), params[i]);
        EXPECT_EQ(Video_AI_Proc_Uninit(std::exchange(handle_, nullptr)), SDK_SUCCESS);
    }
}

// Frames in inaccessible pages: the processor neither reads nor writes a single frame byte.
TEST_F(MtkRawFrameTest, NoFrameByteCopiedOnTheProcessor) {
    Start({{64, 16, 16}, {64}});
    for (auto* f : {&in_, &out_}) {
        *f =
            std::make_unique<qcom_test::Frame>(vai_frame::Format{64, 32, 10, 1}, vai_frame::Memory::kGuarded);
        (*f)->Seal(true);
    }
    for (int i = 0; i < 3; ++i) EXPECT_EQ(Process(i % 3, 1000.0f * i), SDK_SUCCESS);
    in_->Seal(false), out_->Seal(false);
    const pxrt_test::Call c = pxrt_test::Calls(Op::kCreateOutputTensor).back();
    EXPECT_EQ(c.buffer, out_->plane(0));
}

// Frames the network cannot take are copied; a failed Run leaves the output to the runtime.
TEST_F(MtkRawFrameTest, CopyPathsAndStatuses) {
    Start({{64, 16}, {64}});
    pxrt_test::Fail(Op::kRun, 9, 0, 1);
    EXPECT_EQ(Process(0), SDK_INVALID_MODEL_ERR);
    EXPECT_TRUE(*out_ == *qcom_test::MakeFrame(16, 8, 0, 0, 8));
    const std::vector<std::pair<int, std::function<void()>>> cases = {
        {3, [] {}},  // disabled
        {4, [] {}},
        {-1, [] {}},                                                     // outside the record
        {0, [] { pxrt_test::Fail(Op::kCreateOutputTensor, 0, 0, 1); }},  // no frame tensor
        {0, [this] { Video_AI_Model_Uninit(handle_); }},                 // no session
    };
    for (const auto& [cam, before] : cases) {
        before();
        out_->Fill(0, 0);
        EXPECT_EQ(Process(cam), SDK_SUCCESS);
        EXPECT_TRUE(*out_ == *in_) << cam;
    }
    EXPECT_TRUE(
        log_.Contains("algo processing is disabled in cfg file! execute copy in vAINR_raw_mtk mode!"));
    in_->img()->img_num = 2;
    EXPECT_EQ(Process(3), kImageCountMismatch);
    EXPECT_EQ(pxrt_test::CallCount(Op::kRun), 1u);
    EXPECT_EQ(raw::VAINR_Process(nullptr, out_->img(), in_->img(), nullptr), SDK_UNINIT_ERROR);
    const vAIPROC::ProcParams_ params = qcom_test::Params(0);
    EXPECT_EQ(raw::VAINR_Process(handle_, nullptr, in_->img(), &params), kNullImage);
}

// Requests 10..19 are dumped as "packed_word" files of plane 0, before and after the network.
TEST_F(MtkRawFrameTest, Dumps) {
    const std::string dir = qcom_test::TestFile("_dumps/");
    std::filesystem::remove_all(dir);
    setenv("VAI_DUMP_DIR", dir.c_str(), 1);
    Start({{64, 16}, {64}}, Set(kHead, "DumpRangeIdx", "10020"));
    for (uint64_t req : {9, 10, 19, 20}) {
        in_->img()->req_id = out_->img()->req_id = req;
        ASSERT_EQ(Process(2), SDK_SUCCESS);
    }
    unsetenv("VAI_DUMP_DIR");
    const std::vector<uint8_t> in = in_->PlaneCopy(0), out = out_->PlaneCopy(0);
    EXPECT_EQ(Dumps(dir), (std::map<std::string, std::vector<uint8_t>>{
                              {"_req10_16x8_s[2]_mtk_raw_vainr_in.packed_word", in},
                              {"_req10_16x8_s[2]_mtk_raw_vainr_out.packed_word", out},
                              {"_req19_16x8_s[2]_mtk_raw_vainr_in.packed_word", in},
                              {"_req19_16x8_s[2]_mtk_raw_vainr_out.packed_word", out}}));
}

// 1,000 frames, a model uninit/init cycle and more frames; TearDown finds every counter at zero.
TEST_F(MtkRawFrameTest, Lifecycle) {
    Start({{64, 16, 16}, {64, 16}});
    pxrt_test::SetRecording(false);
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(Process(i % 4, float(i * 37 % 30000), 1.5f), SDK_SUCCESS);
    EXPECT_EQ(Video_AI_Model_Uninit(handle_), SDK_SUCCESS);
    EXPECT_EQ(pxrt_test::LiveObjects().sessions + pxrt_test::LiveObjects().tensors, 0);
    Init init(Json(), 2);
    ASSERT_EQ(Video_AI_Model_Init(handle_, &init.p), 2);
    ASSERT_EQ(Video_AI_Model_Init(handle_, &init.p), 2);  // a second set-up replaces the first
    for (int i = 0; i < 10; ++i) ASSERT_EQ(Process(i % 4, 3000), SDK_SUCCESS);
    EXPECT_EQ(pxrt_test::CallCount(Op::kRun), 750u + 8u);  // camera 3 is copied
    EXPECT_EQ(Video_AI_Proc_Uninit(std::exchange(handle_, nullptr)), SDK_SUCCESS);
}

}  // namespace
