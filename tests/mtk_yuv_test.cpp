#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "algocore/utils/status_code.h"
#include "interface/VideoAIProc.h"
#include "log_capture.h"
#include "mtk/vainr_yuv/mtk_vainr_yuv_proc.h"
#include "mtk_test_util.h"

namespace {

namespace mtk = MTK_VAINR_YUV_PROC;
using mtk::LoadVAINRCfg_MTK;
using mtk::VAINR_CfgPars_;
using pxrt_test::Op;
using qcom_test::WriteTestFile;
using namespace mtk_test;

const std::string kCam = R"({"processEnable": 1, "BoostValue4K": 100, "BoostValue1080P": 100, "BinNumber": 8,
    "NrStrength": [0, 51, 76, 102, 127, 153, 178, 204], "DetailStrength": [153, 140, 127, 114, 102, 89, 76, 63],
    "ISOBinIndex": [800, 1600, 3200, 6400, 9200, 12800, 19200, 25600]})";

// By default four cameras holding the built-in values.
std::string Json(const std::string& head = kHead,
                 const std::vector<std::string>& cams = {kCam, kCam, kCam, kCam}) {
    return mtk_test::Json(head, cams);
}

class MtkCfgTest : public ::testing::Test {
  protected:
    bool Load(const std::string& json) {
        cfg_ = defaults_;
        return LoadVAINRCfg_MTK(WriteTestFile(".json", json).c_str(), "TestProject", &cfg_);
    }
    ScopedValue<unsigned char> level_{g_log_level, 1};
    LogCapture log_;
    VAINR_CfgPars_ cfg_{};
    const VAINR_CfgPars_ defaults_ = [] {
        VAINR_CfgPars_ c;
        vai::mtk_yuv::SetDefaultCfg(&c);
        return c;
    }();
};

// The sample file spells out the built-in defaults, so either drifting from the other shows here.
TEST_F(MtkCfgTest, SampleFileHoldsTheDefaults) {
    cfg_ = defaults_;
    ASSERT_TRUE(LoadVAINRCfg_MTK(VAI_TEST_SOURCE_DIR "/configs/mtk_vainr_yuv.json", "DemoProject", &cfg_));
    VAINR_CfgPars_ expected = defaults_;
    for (uint32_t i = 0; i < 4; ++i) expected.camPars[i].camId = i;  // the fifth is not read
    EXPECT_EQ(std::memcmp(&cfg_, &expected, sizeof(cfg_)), 0);
    EXPECT_TRUE(log_.Lines().empty());
}

// Tables are read up to BinNumber; cameras past the counts and BinNumber 0 keep the defaults.
TEST_F(MtkCfgTest, ReadsTablesUpToBinNumber) {
    const std::string cam1 =
        R"({"processEnable": 0, "BoostValue4K": 44, "BoostValue1080P": 55, "BinNumber": 3,
        "NrStrength": [1, 2, 3, 99], "DetailStrength": [4, 5, 6], "ISOBinIndex": [10, 20, 30]})";
    ASSERT_TRUE(Load(Json(Set(kHead, "RearCamNum", "2"), {Set(kCam, "BinNumber", "0"), cam1, cam1, "{}"})));
    const auto& c = cfg_.camPars[1];
    EXPECT_EQ((std::vector<uint32_t>{c.camId, c.NrStrength[2], c.NrStrength[3], c.DetailStrength[2],
                                     c.DetailStrength[3], c.ISOBinIndex[2], c.ISOBinIndex[3]}),
              (std::vector<uint32_t>{1, 3, 102, 6, 114, 30, 6400}));
    EXPECT_EQ(std::memcmp(cfg_.camPars[0].NrStrength, defaults_.camPars[0].NrStrength, 3 * 64), 0);
    EXPECT_EQ(std::memcmp(&cfg_.camPars[3], &defaults_.camPars[3], sizeof(c)), 0);
    ASSERT_TRUE(Load(Set(Set(Json(), "FrontCamNum", "0"), "RearCamNum", "0")));
    EXPECT_EQ(std::memcmp(cfg_.camPars, defaults_.camPars, sizeof(cfg_.camPars)), 0);
}

TEST_F(MtkCfgTest, RejectsBadFiles) {
    std::vector<std::pair<std::string, unsigned>> cases;  // file, LogLevel after the keys read before failing
    for (const std::string key :
         {"LogLevel", "processType", "DumpRangeIdx", "FrontCamNum", "RearCamNum", "SwitchFrameNum",
          "VideoAIProcPars", "processEnable", "BoostValue4K", "BoostValue1080P", "BinNumber", "NrStrength",
          "DetailStrength", "ISOBinIndex"}) {
        cases.emplace_back(Edit(Json(), "\"" + key + "\"", "\"x\""), key == "LogLevel" ? 1 : 4);
    }
    for (const std::string& json :
         {Set(Json(), "BoostValue1080P", "-1"), Edit(Json(), "[800,", "[\"800\","),
          Set(Json(), "BinNumber", "17"), Json(kHead, {kCam, kCam, kCam}), Json(kHead, {}),
          Set(Json(kHead, std::vector<std::string>(6, kCam)), "FrontCamNum", "3"),
          Set(Json(), "RearCamNum", "4294967295")}) {  // the last count wraps the sum in 32 bits
        cases.emplace_back(json, 4);
    }
    for (const char* json :
         {"{\"OtherProject\": {\"LogLevel\": 4}}", "{\"TestProject\": {}}", "{ not json", "[1, 2]"}) {
        cases.emplace_back(json, 1);
    }
    for (const auto& [json, level] : cases) {
        EXPECT_FALSE(Load(json)) << json;
        EXPECT_EQ(cfg_.LogLevel, level) << json;
    }
    EXPECT_TRUE(log_.Contains("TestProject project have no \"VideoAIProcPars\" in "));
}

// ---- instance, sessions and frames ----

// Init parameters with model paths "m<mode>_<type>".
struct Init {
    vAIPROC::InitParams_ p{};
    std::string cfg, models[2][5];
    explicit Init(const std::string& json, int cam = 0, int mode = 1, bool inline_mode = false)
        : cfg(WriteTestFile(".json", json)) {
        std::snprintf(p.project_name, sizeof(p.project_name), "TestProject");
        for (int i = 0; i < 10; ++i) {
            models[i / 5][i % 5] = "m" + std::to_string(i / 5) + "_" + std::to_string(i % 5);
            p.mtk_yuv_model_path[i / 5][i % 5] = models[i / 5][i % 5].c_str();
        }
        p.cfg_path = cfg.c_str(), p.cam_type = cam, p.cam_mode = mode, p.is_inline_mode = inline_mode;
    }
};

class MtkTest : public ::testing::Test {
  protected:
    void TearDown() override {
        EXPECT_EQ(handle_ != nullptr ? mtk::VAINR_Uninit(handle_) : SDK_SUCCESS, SDK_SUCCESS);
        EXPECT_TRUE(qcom_test::TornDown());
    }
    void Stop() {
        EXPECT_EQ(mtk::VAINR_Uninit(std::exchange(handle_, nullptr)), SDK_SUCCESS);
        EXPECT_TRUE(qcom_test::TornDown());
    }
    mtk::VAINR_Ctx_* Ctx() { return static_cast<mtk::VAINR_Ctx_*>(handle_); }
    qcom_test::Env env_;
    LogCapture log_;
    void* handle_ = nullptr;
};

TEST_F(MtkTest, InitAndItsFailures) {
    Init init(Set(Set(Json(), "LogLevel", "5"), "DumpRangeIdx", "120350"));
    const std::string long_path(300, 'x');
    init.p.mtk_yuv_model_path[1][2] = long_path.c_str();
    init.p.mtk_yuv_model_path[0][4] = nullptr;
    ASSERT_NE(handle_ = mtk::VAINR_Init(&init.p), nullptr);
    EXPECT_EQ(std::string(Ctx()->model_name[1][2]), long_path.substr(0, 255));
    EXPECT_EQ(std::string(Ctx()->model_name[0][3]) + Ctx()->model_name[0][4], "m0_3");
    EXPECT_TRUE(log_.Contains("cam_mode=0, cam_type=4 model path is null"));
    const DumpPars_& d = Ctx()->dump_pars;
    EXPECT_EQ(
        (std::vector<int64_t>{d.dump_enable, d.dump_start, d.dump_end, g_log_level, Ctx()->interp_failed,
                              Ctx()->cur_cam_type, int64_t(vemo::AlgorithmMemory::mapFind(handle_)),
                              int64_t(pxrt_test::Calls().size())}),
        (std::vector<int64_t>{1, 120, 350, 5, 1, -1, int64_t(sizeof(mtk::VAINR_Ctx_)), 1}));
    Stop();
    EXPECT_TRUE(log_.Contains("runtime session is nullptr in uninit!"));
    ExpectInitFailuresLeaveNothing(init, mtk::VAINR_Init);
    EXPECT_EQ(mtk::VAINR_Uninit(nullptr), SDK_UNINIT_ERROR);
}

// Camera 3 with boosts 40 (4K) and 18 (1080P): model and boost of each session.
TEST_F(MtkTest, SessionChoice) {
    const std::string json = Set(Set(Json(), "BoostValue4K", "40"), "BoostValue1080P", "18");
    using Sessions = std::vector<std::pair<std::string, int>>;
    const std::tuple<bool, int, Sessions> cases[] = {{false, 0, {{"m0_3", 40}}},
                                                     {false, 1, {{"m1_3", 18}}},
                                                     {true, 0, {{"m1_3", 18}, {"m0_3", 40}}},
                                                     {true, 1, {{"m1_3", 18}}}};
    for (const auto& [inline_mode, mode, expected] : cases) {
        pxrt_test::Reset();
        Init init(json, 3, mode, inline_mode);
        ASSERT_NE(handle_ = mtk::VAINR_Init(&init.p), nullptr);
        EXPECT_EQ(mtk::VAINR_Model_Init(handle_, &init.p), 3);
        Sessions sessions;
        for (const pxrt_test::Call& c : pxrt_test::Calls(Op::kCreateSession)) {
            sessions.emplace_back(c.model_path, c.boost);
            EXPECT_EQ((std::vector<int64_t>{c.device, c.flags, c.mode[0], c.mode[1], c.mode[2],
                                            int64_t(c.output_names.size()), c.reserved0, c.reserved1}),
                      (std::vector<int64_t>{1, 2048, 2, 0, 1, 0, 0, 0}));
        }
        EXPECT_EQ(sessions, expected) << inline_mode << mode;
        EXPECT_EQ(Ctx()->m_session[1] != nullptr, expected.size() == 2);
        Stop();
    }
}

// Parameter tensors: one per input from 1 on, the first twice; none for a second input over 255 bytes.
TEST_F(MtkTest, ParameterTensorsAndFailedSetUp) {
    Init init(Json(), 2, 0, true);
    ASSERT_NE(handle_ = mtk::VAINR_Init(&init.p), nullptr);
    for (int round = 0; round < 2; ++round) {  // a torn-down model stage can be set up again
        pxrt_test::Reset();
        pxrt_test::SetLayout("m1_2", {{4000, 16, 8}, {4000}});
        pxrt_test::SetLayout("m0_2", {{9000, 256}, {9000}});
        ASSERT_EQ(mtk::VAINR_Model_Init(handle_, &init.p), 2);
        EXPECT_EQ(TensorCalls(Ctx()->m_session[0]),
                  (Rows{{1, 0, 16, 1, 1, 10, -1, 0}, {1, 0, 8, 2, 1, 10, -1, 0}}));
        const PXRT::TensorArray& in0 = Ctx()->vai_handle.input_tensors[0];
        ASSERT_EQ(in0.size(), 3u);
        EXPECT_TRUE(in0[0] == in0[1] && in0[1] != in0[2] && Ctx()->vai_handle.input_tensors[1].empty());
        EXPECT_EQ(mtk::VAINR_Model_Uninit(handle_), SDK_SUCCESS);
        EXPECT_EQ(pxrt_test::LiveObjects().sessions + pxrt_test::LiveObjects().tensors, 0);
    }
    // A failed set-up releases what it made and leaves the instance usable.
    for (const Op op : {Op::kCreateSession, Op::kGetSessionInputNumber, Op::kGetSessionInputSize,
                        Op::kGetSessionOutputNumber, Op::kGetSessionOutputSize}) {
        pxrt_test::Fail(op, 7, 0, 1);
        EXPECT_EQ(mtk::VAINR_Model_Init(handle_, &init.p), -1) << pxrt_test::OpName(op);
        EXPECT_EQ(pxrt_test::LiveObjects().sessions + pxrt_test::LiveObjects().tensors, 0);
    }
    init.p.cam_type = 5;
    EXPECT_EQ(mtk::VAINR_Model_Init(handle_, &init.p), -1);
    EXPECT_EQ(mtk::VAINR_Model_Init(nullptr, &init.p) + mtk::VAINR_Model_Init(handle_, nullptr), -2);
    EXPECT_EQ(mtk::VAINR_Model_Uninit(nullptr), SDK_UNINIT_ERROR);
}

class MtkFrameTest : public MtkTest {
  protected:
    // Through the entry points, in mode 9. Camera 3 disabled; models with an image, a 20-byte strength
    // and a 4-byte zoom input.
    void Start(bool inline_mode = false, const std::string& dump_range = "0",
               std::vector<size_t> inputs = {96, 20, 4}) {
        pxrt_test::SetDefaultLayout({inputs, {96}});
        Init init(Set(Set(Json(), "processEnable", "0"), "DumpRangeIdx", dump_range), 0, 0, inline_mode);
        init.p.algo_mode = 9;
        ASSERT_NE(handle_ = Video_AI_Proc_Init(&init.p), nullptr);
        ASSERT_EQ(Video_AI_Model_Init(handle_, &init.p), 0);
    }
    int Process(int cam, float iso = 100, float zoom = 1, uint32_t* extend = nullptr) {
        vAIPROC::ProcParams_ p = qcom_test::Params(cam, iso);
        p.zoom_ratio = zoom, p.extend_pars = extend;
        return Video_AI_Proc_Process(handle_, out_->img(), in_->img(), &p);
    }
    ScopedValue<int32_t> mode_{g_algo_mode, 0};
    std::unique_ptr<qcom_test::Frame> in_ = qcom_test::MakeFrame(16, 8, 0x12, 0x34, 8);
    std::unique_ptr<qcom_test::Frame> out_ = qcom_test::MakeFrame(16, 8, 0, 0, 8);
};

// The bytes written into the model's strength and zoom inputs.
TEST_F(MtkFrameTest, ParameterBytes) {
    uint32_t ext300 = 300;
    const std::tuple<int, float, float, uint32_t*, uint8_t, uint8_t> cases[] = {
        {0, 1000, 1.0f, nullptr, 12, 25},    {0, 500, 1.5f, nullptr, 0, 191},
        {0, 30000, 2.0f, nullptr, 204, 252}, {1, 799, 0.5f, nullptr, 0, 25},
        {1, 1600, 1.4f, nullptr, 51, 158},   {1, 25600, 1, nullptr, 204, 25},
        {4, 1000, 12.0f, nullptr, 12, 252},  {2, 1000, 0.9f, nullptr, 12, 191},
        {1, 1000, 1.5f, &ext300, 44, 191},   {0, 1000, std::nanf(""), nullptr, 12, 25},
    };
    for (const bool zoom_input : {true, false}) {  // models with and without the zoom input
        Start(false, "0", zoom_input ? std::vector<size_t>{96, 20, 4} : std::vector<size_t>{96, 20});
        const PXRT::TensorArray& t = Ctx()->vai_handle.input_tensors[0];
        const auto* nr_bytes = static_cast<uint8_t*>(t[1]->GetData());
        for (const auto& [cam, iso, zoom, extend, nr, zs] : cases) {
            ASSERT_EQ(Process(cam, iso, zoom, extend), SDK_SUCCESS);
            std::vector<uint8_t> expected(16, nr), seen(nr_bytes, nr_bytes + 20);
            expected.insert(expected.end(), 4, 0);
            if (zoom_input) expected.insert(expected.end(), 4, zs);
            if (zoom_input)
                seen.insert(seen.end(), static_cast<uint8_t*>(t[2]->GetData()),
                            static_cast<uint8_t*>(t[2]->GetData()) + 4);
            EXPECT_EQ(seen, expected) << cam << " " << iso << " " << zoom;
        }
        EXPECT_EQ(Video_AI_Proc_Uninit(std::exchange(handle_, nullptr)), SDK_SUCCESS);
    }
}

// The frames reach the runtime as wrappers of the caller's buffers; inline mode picks the 4K
// session for the two exact 4K sizes only.
TEST_F(MtkFrameTest, ImageTensors) {
    Start(true);
    in_->img()->fd[0] = 21, out_->img()->fd[0] = 22;
    const int cases[][4] = {{4096, 2304, 1, 1}, {3264, 1836, 1, 1}, {4096, 2305, 1, 0}, {4096, 2304, 0, 0}};
    for (const auto& [w, h, inline_mode, s] : cases) {
        pxrt_test::Reset();
        g_is_inline_mode = static_cast<uint8_t>(inline_mode);
        in_->img()->width = w, in_->img()->height = h;
        ASSERT_EQ(Process(0), SDK_SUCCESS);
        const auto in = reinterpret_cast<intptr_t>(in_->plane(0)),
                   out = reinterpret_cast<intptr_t>(out_->plane(0));
        EXPECT_EQ(TensorCalls(Ctx()->m_session[s]),
                  (Rows{{1, in, 96, 0, 1, 10, 21, 0}, {1, out, 96, 0, 1, 10, 22, 0}}))
            << w << "x" << h;
        EXPECT_EQ(pxrt_test::Calls(Op::kRun).at(0).session, Ctx()->m_session[s]);
        EXPECT_EQ(pxrt_test::LiveObjects().tensors, 4);  // the persistent ones only
    }
}

// Frames the network cannot take are copied; a failed Run leaves the output to the runtime.
TEST_F(MtkFrameTest, CopyPathsAndStatuses) {
    Start();
    pxrt_test::Fail(Op::kRun, 9);
    EXPECT_EQ(Process(0), SDK_INVALID_MODEL_ERR);
    EXPECT_TRUE(*out_ == *qcom_test::MakeFrame(16, 8, 0, 0, 8));
    for (int cam : {3, 5, -1, 0}) {  // disabled, outside the record, then without a session
        EXPECT_EQ(cam == 0 ? Video_AI_Model_Uninit(handle_) : SDK_SUCCESS, SDK_SUCCESS);
        out_->Fill(0, 0);
        EXPECT_EQ(Process(cam), SDK_SUCCESS);
        EXPECT_TRUE(*out_ == *in_) << cam;
    }
    EXPECT_EQ(pxrt_test::CallCount(Op::kRun), 1u);
    EXPECT_EQ(mtk::VAINR_Process(nullptr, out_->img(), in_->img(), nullptr), SDK_UNINIT_ERROR);
}

// Requests in the dump range write the whole NV21 frame before and after the network, per camera.
TEST_F(MtkFrameTest, DumpsTheRequestRange) {
    const std::string dir = qcom_test::TestFile("_dumps/");
    std::filesystem::remove_all(dir);
    setenv("VAI_DUMP_DIR", dir.c_str(), 1);
    Start(false, "1003");  // requests 1 and 2
    std::vector<uint8_t> frames[2] = {std::vector<uint8_t>(192), std::vector<uint8_t>(192, 9)};
    for (int i = 0; i < 192; ++i) frames[0][i] = static_cast<uint8_t>(i);
    vAIPROC::VAI_IMG_* imgs[2] = {in_->img(), out_->img()};
    for (int k = 0; k < 2; ++k) {  // one contiguous buffer: plane 0 carries the whole frame
        imgs[k]->plane_addr[0] = frames[k].data(), imgs[k]->plane_addr[1] = frames[k].data() + 128;
    }
    for (uint64_t req = 0; req < 5; ++req) {
        in_->img()->req_id = out_->img()->req_id = req;
        ASSERT_EQ(Process(req == 2 ? 4 : 0), SDK_SUCCESS);
    }
    unsetenv("VAI_DUMP_DIR");
    const auto in = frames[0], out = frames[1];
    EXPECT_EQ(Dumps(dir),
              (std::map<std::string, std::vector<uint8_t>>{{"_req1_16x8_s[0]_mtk_yuv_vainr_in.nv21", in},
                                                           {"_req1_16x8_s[0]_mtk_yuv_vainr_out.nv21", out},
                                                           {"_req2_16x8_s[4]_mtk_yuv_vainr_in.nv21", in},
                                                           {"_req2_16x8_s[4]_mtk_yuv_vainr_out.nv21", out}}));
}

// A long run that also shows the frame path only wraps the caller's buffers: with every plane sealed
// against any access, no frame faults.
TEST_F(MtkFrameTest, Lifecycle) {
    Start(true);
    for (auto* f : {&in_, &out_}) {
        *f = std::make_unique<qcom_test::Frame>((*f)->format(), vai_frame::Memory::kGuarded);
        (*f)->Seal(true);
    }
    pxrt_test::SetRecording(false);
    for (int i = 0; i < 1000; ++i) {  // camera 3, disabled, would be copied
        ASSERT_EQ(Process(i % 5 == 3 ? 4 : i % 5, float(i * 37 % 30000), 0.5f + float(i % 40) / 10), 0);
    }
    EXPECT_EQ(pxrt_test::CallCount(Op::kRun), 1000u);
    EXPECT_EQ(Video_AI_Model_Uninit(handle_), SDK_SUCCESS);
    Init init(Json(), 1);
    ASSERT_EQ(Video_AI_Model_Init(handle_, &init.p), 1);
    EXPECT_STREQ(Video_AI_Proc_GetVersion(9), "MTK_Video_AINR_YUV_v1.0.8");
    EXPECT_EQ(Video_AI_Proc_Uninit(std::exchange(handle_, nullptr)), SDK_SUCCESS);
}

}  // namespace
