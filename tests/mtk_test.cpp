// The MediaTek back-ends, mode 9 (YUV) and mode 10 (RAW): typed tests over one row per mode.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "algocore/utils/status_code.h"
#include "interface/VideoAIProc.h"
#include "log_capture.h"
#include "mtk/vainr_raw/mtk_vainr_raw_proc.h"
#include "mtk/vainr_yuv/mtk_vainr_yuv_proc.h"
#include "qcom_test_util.h"
#include "tool_test_util.h"

// A frame (camera, ISO, zoom ratio or DRC gain, caller strengths if any) and the bytes it must put into
// inputs 1 and 2. Camera 1 has one bin, at 1000, with strengths 40 and 200.
using ParamCase = std::tuple<int, float, float, std::vector<int32_t>, int, int>;

// The records and entry points of back-end namespace `ns`.
#define MTK_BACKEND(ns, set_defaults)                           \
    using Cfg = ns::VAINR_CfgPars_;                             \
    using Ctx = ns::VAINR_Ctx_;                                 \
    static constexpr auto Load = ns::LoadVAINRCfg_MTK;          \
    static constexpr auto SetDefaults = set_defaults;           \
    static constexpr auto Init = ns::VAINR_Init;                \
    static constexpr auto ModelInit = ns::VAINR_Model_Init;     \
    static constexpr auto Process = ns::VAINR_Process;          \
    static constexpr auto ModelUninit = ns::VAINR_Model_Uninit; \
    static constexpr auto Uninit = ns::VAINR_Uninit

// One row per mode, outside the anonymous namespace so that test names read MtkTest.ModelSetUp<MtkRaw>.
struct MtkYuv {
    MTK_BACKEND(MTK_VAINR_YUV_PROC, vai::mtk_yuv::SetDefaultCfg);
    static constexpr int kMode = 9, kCams = 5, kFrameKind = 10;
    static constexpr bool kZeroBinsOk = true, kTracesInstance = true;
    // A failed model set-up keeps the instance; only the inputs get parameter tensors; a frame tensor
    // the runtime refuses goes to Run as it is.
    static constexpr bool kKeepsHandle = true, kOutputParams = false, kChecksFrameTensors = false;
    static constexpr const char *kName = "yuv", *kDumpExt = "nv21", *kVersion = "MTK_Video_AINR_YUV_v1.0.8";
    static constexpr size_t kDumpHalves = 3;        // the whole NV21 frame, from plane 0
    static constexpr size_t kSecondParamBytes = 4;  // the zoom byte
    static inline const std::vector<ParamCase> kParamCases = {
        {0, 1000, 1.0f, {}, 12, 25},   {0, 500, 1.5f, {}, 0, 191},   {0, 30000, 2.0f, {}, 204, 252},
        {0, 799, 0.5f, {}, 0, 25},     {0, 1600, 1.4f, {}, 51, 158}, {0, 25600, 1, {}, 204, 25},
        {4, 1000, 12.0f, {}, 12, 252}, {2, 1000, 0.9f, {}, 12, 191}, {0, 1000, 1.5f, {300}, 44, 191},
        {0, 1000, std::nanf(""), {}, 12, 25},
    };
    static inline const std::vector<const char*> kBoostKeys{"BoostValue4K", "BoostValue1080P"};
    // The 1080P model of each camera: the session of camera mode 1.
    static const char*& ModelPath(vAIPROC::InitParams_& p, int cam) { return p.mtk_yuv_model_path[1][cam]; }
    static const char* ModelName(const Ctx* c, int cam) { return c->model_name[1][cam]; }
};

struct MtkRaw {
    MTK_BACKEND(MTK_VAINR_RAW_PROC, vai::mtk_raw::SetDefaultCfg);
    static constexpr int kMode = 10, kCams = 4, kFrameKind = 11;
    static constexpr bool kZeroBinsOk = false, kTracesInstance = false;
    // A failed model set-up destroys the instance; outputs get parameter tensors too; a frame without
    // its tensors is copied.
    static constexpr bool kKeepsHandle = false, kOutputParams = true, kChecksFrameTensors = true;
    static constexpr const char *kName = "raw", *kDumpExt = "packed_word",
                                *kVersion = "MTK_Video_AINR_RAW_v0.0.5";
    static constexpr size_t kDumpHalves = 2;        // plane 0 only
    static constexpr size_t kSecondParamBytes = 8;  // the detail strength
    // Signed: the table's value - 128; caller values are clamped.
    static inline const std::vector<ParamCase> kParamCases = {
        {0, 100, 1, {300, -200}, 127, -128}, {0, 100, 1, {-5, 6}, -5, 6},
        {0, 100, 1, {}, -128, 25},           {0, 1200, 2, {}, -65, 5},
        {0, 25600, 1, {}, 76, -65},          {0, 1e9f, 1, {}, 76, -65},
        {0, 1200, 1, {}, -103, 18},          {1, 10, 1, {}, -88, 72},
        {1, 5000, 1, {}, -88, 72},
    };
    static inline const std::vector<const char*> kBoostKeys{"BoostValue"};
    static const char*& ModelPath(vAIPROC::InitParams_& p, int cam) { return p.model_path[cam]; }
    static const char* ModelName(const Ctx* c, int cam) { return c->model_name[cam]; }
};

namespace {

using pxrt_test::Op;
using qcom_test::WriteTestFile;
using Rows = std::vector<std::vector<int64_t>>;
using Modes = ::testing::Types<MtkYuv, MtkRaw>;

const std::string kHead = R"("LogLevel": 4, "processType": 0, "DumpRangeIdx": 0, "FrontCamNum": 1,
    "RearCamNum": 3, "SwitchFrameNum": 7)";
const std::string kTables = R"("BinNumber": 8, "NrStrength": [0, 51, 76, 102, 127, 153, 178, 204],
    "DetailStrength": [153, 140, 127, 114, 102, 89, 76, 63],
    "ISOBinIndex": [800, 1600, 3200, 6400, 9200, 12800, 19200, 25600])";

// One camera entry, every boost key of the mode set to `boost`.
template <class T>
std::string Cam(const std::string& tables = kTables, unsigned enable = 1, unsigned boost = 100) {
    std::string s = "{\"processEnable\": " + std::to_string(enable);
    for (const char* key : T::kBoostKeys) s += ", \"" + std::string(key) + "\": " + std::to_string(boost);
    return s + ", " + tables + "}";
}

// A file of project "TestProject", by default with four cameras holding the built-in values.
template <class T>
std::string Json(const std::string& head = kHead,
                 const std::vector<std::string>& cams = {Cam<T>(), Cam<T>(), Cam<T>(), Cam<T>()}) {
    return qcom_test::ProjectJson(head, cams);
}

using qcom_test::Edit;

// `s` with the last number of `key` set, in the last camera.
std::string Set(std::string s, const std::string& key, const std::string& value) {
    const size_t at = s.rfind("\"" + key + "\": ") + key.size() + 4;
    return s.replace(at, s.find_first_of(",}", at) - at, value);
}

// Init parameters for mode `T`, camera mode 1; model paths "model<type>", 4K ones "model<type>_4k".
template <class T>
struct Init : qcom_test::Init {
    std::string models_4k[5];
    explicit Init(const std::string& json, int cam = 0) : qcom_test::Init(WriteTestFile(".json", json), cam) {
        p.algo_mode = T::kMode;
        p.cam_mode = 1;
        for (int i = 0; i < 5; ++i) {
            p.mtk_yuv_model_path[0][i] = (models_4k[i] = models[i] + "_4k").c_str();
            p.mtk_yuv_model_path[1][i] = models[i].c_str();
        }
    }
};

// Tensor factory calls: on `session`, buffer, bytes, index, one, kind, fd, zero.
Rows TensorCalls(void* session) {
    Rows rows;
    for (const pxrt_test::Call& c : pxrt_test::Calls()) {
        if (c.op != Op::kCreateInputTensor && c.op != Op::kCreateOutputTensor) continue;
        rows.push_back({c.session == session, reinterpret_cast<intptr_t>(c.buffer), int64_t(c.bytes),
                        c.tensor_index, c.one, c.kind, c.fd, c.zero});
    }
    return rows;
}

template <class T>
class MtkTest : public ::testing::Test {
  protected:
    void TearDown() override {
        EXPECT_EQ(handle_ != nullptr ? T::Uninit(handle_) : SDK_SUCCESS, SDK_SUCCESS);
        EXPECT_TRUE(qcom_test::TornDown());
    }
    typename T::Ctx* Ctx() { return static_cast<typename T::Ctx*>(handle_); }
    // Camera 0 set up with `layout`; camera 3 disabled unless `json` says otherwise.
    void Start(const pxrt_test::SessionLayout& layout, const std::string& json = "") {
        pxrt_test::SetDefaultLayout(layout);
        Init<T> init(json.empty() ? Set(Json<T>(), "processEnable", "0") : json);
        ASSERT_NE(handle_ = T::Init(&init.p), nullptr);
        ASSERT_EQ(T::ModelInit(handle_, &init.p), 0);
    }
    // `scale` is the zoom ratio in mode 9 and the DRC gain in mode 10.
    int Process(int cam, float iso = 100, void* extend = nullptr, float scale = 1) {
        vAIPROC::ProcParams_ p = qcom_test::Params(cam, iso, scale);
        p.zoom_ratio = scale, p.extend_pars = extend;
        return T::Process(handle_, out_->img(), in_->img(), &p);
    }
    bool Load(const std::string& json) {
        cfg_ = defaults_;
        return T::Load(WriteTestFile(".json", json).c_str(), "TestProject", &cfg_);
    }
    qcom_test::Env env_;
    LogCapture log_;
    void* handle_ = nullptr;
    const typename T::Cfg defaults_ = [] {
        typename T::Cfg c;
        T::SetDefaults(&c);
        return c;
    }();
    typename T::Cfg cfg_ = defaults_;
    std::unique_ptr<qcom_test::Frame> in_ = qcom_test::MakeFrame(16, 8, 0x12, 0x34, 8);
    std::unique_ptr<qcom_test::Frame> out_ = qcom_test::MakeFrame(16, 8, 0, 0, 8);
};
TYPED_TEST_SUITE(MtkTest, Modes);

// The sample file spells out the built-in defaults; tables are read up to BinNumber; cameras past the
// counts keep the defaults; files that break the layout are refused.
TYPED_TEST(MtkTest, Configuration) {
    using T = TypeParam;
    auto& cfg = this->cfg_;
    const auto& defaults = this->defaults_;
    const std::string sample = std::string(VAI_TEST_SOURCE_DIR "/configs/mtk_vainr_") + T::kName + ".json";
    ASSERT_TRUE(T::Load(sample.c_str(), "DemoProject", &cfg));
    auto expected = defaults;
    for (uint32_t i = 0; i < 4; ++i) expected.camPars[i].camId = i;  // a fifth is not read
    EXPECT_EQ(std::memcmp(&cfg, &expected, sizeof(cfg)), 0);

    const std::string tables = R"("BinNumber": 3, "NrStrength": [1, 2, 3, 99], "DetailStrength": [4, 5, 6],
        "ISOBinIndex": [10, 20, 30])";
    const std::string cam1 = Cam<T>(tables, 0);
    ASSERT_TRUE(this->Load(Json<T>(Set(kHead, "RearCamNum", "1"), {Cam<T>(), cam1, "{}"})));
    const auto& c = cfg.camPars[1];
    EXPECT_EQ(
        (std::vector<uint32_t>{c.camId, c.processEnable, c.NrStrength[2], c.NrStrength[3],
                               c.DetailStrength[2], c.DetailStrength[3], c.ISOBinIndex[2], c.ISOBinIndex[3]}),
        (std::vector<uint32_t>{1, 0, 3, 102, 6, 114, 30, 6400}));
    ASSERT_TRUE(this->Load(Set(Set(Json<T>(), "FrontCamNum", "0"), "RearCamNum", "0")));
    EXPECT_EQ(std::memcmp(cfg.camPars, defaults.camPars, sizeof(cfg.camPars)), 0);

    // Too few entries, too many cameras for the record, and a count that wraps the sum in 32 bits.
    const std::string json = Json<T>(), three = Json<T>(kHead, {Cam<T>(), Cam<T>(), Cam<T>()}),
                      over = Set(Json<T>(kHead, std::vector<std::string>(T::kCams + 1, Cam<T>())),
                                 "FrontCamNum", std::to_string(T::kCams - 2)),
                      wraps = Set(json, "RearCamNum", "4294967295"), negative = Set(json, "BinNumber", "-1"),
                      quoted = Edit(json, "[800,", "[\"800\","), bins = Set(json, "BinNumber", "17");
    std::vector<std::string> files = {"[1, 2]", "{ not json", "{\"TestProject\": {}}",
                                      "{\"TestProject\": []}", "{\"OtherProject\": {\"LogLevel\": 4}}"};
    files.insert(files.end(), {three, over, wraps, negative, quoted, bins, Json<T>(kHead, {})});
    std::vector<std::string> keys = {"LogLevel",   "processType",    "DumpRangeIdx",    "FrontCamNum",
                                     "RearCamNum", "SwitchFrameNum", "VideoAIProcPars", "processEnable",
                                     "BinNumber",  "NrStrength",     "DetailStrength",  "ISOBinIndex"};
    keys.insert(keys.end(), T::kBoostKeys.begin(), T::kBoostKeys.end());
    for (const std::string& key : keys) files.push_back(Edit(json, "\"" + key + "\"", "\"x\""));
    for (const std::string& file : files) EXPECT_FALSE(this->Load(file)) << file;
    EXPECT_FALSE(T::Load(nullptr, "TestProject", &cfg));
    EXPECT_TRUE(this->log_.Contains("TestProject project have no \"VideoAIProcPars\" in "));
    // BinNumber 0: refused where it would read before the table, else loaded with the tables untouched.
    EXPECT_EQ(this->Load(Set(json, "BinNumber", "0")), T::kZeroBinsOk);
    EXPECT_EQ(std::memcmp(cfg.camPars[3].NrStrength, defaults.camPars[3].NrStrength, 3 * 64), 0);
}

TYPED_TEST(MtkTest, InitAndItsFailures) {
    using T = TypeParam;
    Init<T> init(Set(Set(Json<T>(Set(kHead, "RearCamNum", "2")), "LogLevel", "5"), "DumpRangeIdx", "120350"));
    const std::string long_path(300, 'x');
    T::ModelPath(init.p, 2) = long_path.c_str();
    T::ModelPath(init.p, 4) = nullptr;
    void*& handle = this->handle_;
    ASSERT_NE(handle = T::Init(&init.p), nullptr);
    const auto* ctx = this->Ctx();
    EXPECT_EQ(std::string(T::ModelName(ctx, 2)), long_path.substr(0, 255));
    EXPECT_EQ(std::string(T::ModelName(ctx, 3)) + T::ModelName(ctx, 4), "model3");
    const DumpPars_& d = ctx->dump_pars;
    const size_t traced = T::kTracesInstance ? sizeof(*ctx) : 0;
    EXPECT_EQ(
        (Rows{{d.dump_enable, d.dump_start, d.dump_end, g_log_level, ctx->interp_failed, ctx->cur_cam_type,
               int64_t(vemo::AlgorithmMemory::mapFind(handle)), int64_t(pxrt_test::Calls().size())}}),
        (Rows{{1, 120, 350, 5, 1, -1, int64_t(traced), 1}}));
    const auto& cam3 = this->defaults_.camPars[3];  // not configured
    EXPECT_EQ(std::memcmp(&ctx->cfg.camPars[3], &cam3, sizeof(cam3)), 0);
    EXPECT_EQ(T::Uninit(std::exchange(handle, nullptr)), SDK_SUCCESS);

    // No runtime library, a missing factory symbol, no interpreter: each makes init return null and
    // leave nothing behind.
    const std::function<void()> failures[] = {
        [] { setenv("VAI_PXRT_LIBRARY", "/nonexistent/libPXRT.so", 1); },
        [] { setenv("VAI_PXRT_LIBRARY", VAI_TEST_RUNTIME_INCOMPLETE_PATH, 1); },
        [] { pxrt_test::Fail(Op::kCreateInterpreter, 0); }};
    for (const auto& fail : failures) {
        pxrt_test::Reset();
        setenv("VAI_PXRT_LIBRARY", VAI_TEST_RUNTIME_PATH, 1);
        fail();
        EXPECT_EQ(T::Init(&init.p), nullptr);
        mPXRTCreateInterpreterFunc = nullptr;  // a failed dlsym keeps what it found
        mPXRTCreateInTensorFunc = mPXRTCreateOutTensorFunc = nullptr;
        EXPECT_TRUE(qcom_test::TornDown());
    }
    EXPECT_EQ(T::Init(nullptr), nullptr);
    EXPECT_EQ(T::Uninit(nullptr), SDK_UNINIT_ERROR);
    EXPECT_STREQ(Video_AI_Proc_GetVersion(T::kMode), T::kVersion);
}

// A failed set-up releases what it made: mode 10 destroys the instance with it, mode 9 keeps it usable.
// Then session options and parameter tensors by model layout, for camera 2, each set-up released again.
TYPED_TEST(MtkTest, ModelSetUp) {
    using T = TypeParam;
    Rows three = {{1, 0, 16, 1, 1, 10, -1, 0}, {1, 0, 200, 2, 1, 10, -1, 0}};
    if (T::kOutputParams) three.push_back({1, 0, 8, 1, 1, 10, -1, 0});
    const pxrt_test::SessionLayout usual{{64, 16, 16}, {64, 16}};
    Init<T> init(Json<T>(Set(kHead, "RearCamNum", "2"), {Cam<T>(), Cam<T>(), Cam<T>(kTables, 1, 33)}), 2);
    void*& handle = this->handle_;
    const struct {
        pxrt_test::SessionLayout layout;
        std::function<void()> fail;  // null: the set-up succeeds with `tensors`
        Rows tensors = {};
    } cases[] = {
        {usual, [] { pxrt_test::Fail(Op::kCreateSession, 7); }},
        {usual, [] { pxrt_test::Fail(Op::kCreateSession, 0); }},  // success without a session
        {usual, [] { pxrt_test::Fail(Op::kGetSessionInputNumber, 7); }},
        {usual, [] { pxrt_test::Fail(Op::kGetSessionInputSize, 7, 1); }},
        {usual, [] { pxrt_test::Fail(Op::kGetSessionOutputNumber, 7); }},
        {usual, [] { pxrt_test::Fail(Op::kGetSessionOutputSize, 7); }},
        {{{64, 1, 1, 1, 1}, {64}}, [] {}},  // more inputs than the handle holds
        {{{64}, {64, 1, 1, 1, 1}},
         T::kOutputParams ? [] {} : std::function<void()>()},  // mode 9 has no output parameters
        {usual,
         [&] { this->Ctx()->vai_handle.interpreter.reset(), pxrt_test::Fail(Op::kCreateInterpreter, 0); }},
        {usual, [&init] { init.p.cam_type = T::kCams; }},
        {usual, [&init] { init.p.cam_type = -1; }},
        {{{64}, {64}}, nullptr, {}},  // after the failures: mode 9 reuses its instance
        {{{64, 16}, {64}}, nullptr, {{1, 0, 16, 1, 1, 10, -1, 0}}},
        {{{64, 16, 200}, {64, 8}}, nullptr, three},
        {{{64, 256, 4}, {64}}, nullptr, {}},  // input 1 too large to be a parameter
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        pxrt_test::Reset();
        pxrt_test::SetDefaultLayout(c.layout);
        init.p.cam_type = 2;
        if (handle == nullptr) handle = T::Init(&init.p);
        ASSERT_NE(handle, nullptr);
        if (c.fail) {
            c.fail();
            EXPECT_EQ(T::ModelInit(handle, &init.p), -1);
            if (!T::kKeepsHandle) handle = nullptr;
            EXPECT_EQ(pxrt_test::LiveObjects().sessions + pxrt_test::LiveObjects().tensors, 0);
            EXPECT_TRUE(T::kKeepsHandle || qcom_test::TornDown());
            continue;
        }
        ASSERT_EQ(T::ModelInit(handle, &init.p), 2);
        const pxrt_test::Call s = pxrt_test::Calls(Op::kCreateSession).at(0);
        EXPECT_EQ((std::vector<int64_t>{s.device, s.flags, s.mode[0], s.mode[1], s.mode[2], s.boost,
                                        int64_t(s.output_names.size()), s.reserved0, s.reserved1}),
                  (std::vector<int64_t>{1, 2048, 2, 0, 1, 33, 0, 0, 0}));
        EXPECT_EQ(s.model_path, "model2");
        EXPECT_EQ(TensorCalls(this->Ctx()->m_session[0]), c.tensors);
        // The first parameter tensor is listed twice: its first place is the frame's.
        const VAI_HANDLE_& h = this->Ctx()->vai_handle;
        for (const PXRT::TensorArray* a : {&h.input_tensors[0], &h.output_tensors[0]}) {
            EXPECT_TRUE(a->empty() || ((*a)[0] == (*a)[1] && (*a)[0] != nullptr));
        }
        EXPECT_EQ(T::ModelInit(handle, &init.p), 2);  // releases the first
        EXPECT_EQ(T::ModelUninit(handle), SDK_SUCCESS);
        EXPECT_EQ(pxrt_test::LiveObjects().sessions + pxrt_test::LiveObjects().tensors, 0);
    }
    EXPECT_EQ(T::ModelInit(nullptr, &init.p) + T::ModelInit(handle, nullptr), -2);
    EXPECT_EQ(T::ModelUninit(nullptr), SDK_UNINIT_ERROR);
    this->Ctx()->vai_handle.interpreter.reset();  // refused too, without touching the runtime
    EXPECT_EQ(T::ModelUninit(handle), SDK_UNINIT_ERROR);
}

// Frames the network cannot take are copied; a failed Run leaves the output to the runtime.
TYPED_TEST(MtkTest, CopyPathsAndStatuses) {
    using T = TypeParam;
    auto &in = *this->in_, &out = *this->out_;
    this->Start({{64, 16}, {64}});
    pxrt_test::Fail(Op::kRun, 9, 0, 1);
    EXPECT_EQ(this->Process(0), SDK_INVALID_MODEL_ERR);
    EXPECT_TRUE(out == *qcom_test::MakeFrame(16, 8, 0, 0, 8));
    // Camera 3 is disabled, two are outside the record; then (mode 10) the runtime makes no frame tensor,
    // and at last there is no session.
    const int cams[] = {3, T::kCams, -1, 0, 0};
    for (int i = 0; i < 5; ++i) {
        if (i == 3 && !T::kChecksFrameTensors) continue;
        if (i == 3) pxrt_test::Fail(Op::kCreateOutputTensor, 0, 0, 1);
        EXPECT_EQ(i == 4 ? T::ModelUninit(this->handle_) : SDK_SUCCESS, SDK_SUCCESS);
        out.Fill(0, 0);
        EXPECT_EQ(this->Process(cams[i]), SDK_SUCCESS);
        EXPECT_TRUE(out == in) << i;
    }
    EXPECT_EQ(pxrt_test::CallCount(Op::kRun), 1u);
    in.img()->img_num = 2;
    EXPECT_EQ(this->Process(3), kImageCountMismatch);
    const vAIPROC::ProcParams_ params = qcom_test::Params(0);
    EXPECT_EQ(T::Process(nullptr, out.img(), in.img(), &params), SDK_UNINIT_ERROR);
    EXPECT_EQ(T::Process(this->handle_, nullptr, in.img(), &params), kNullImage);
}

// A request in the dump range is written before and after the network, under its camera's name; the
// range arithmetic itself is the init test's.
TYPED_TEST(MtkTest, DumpsTheRequestRange) {
    using T = TypeParam;
    const std::string dir = qcom_test::TestFile("_dumps/");
    std::filesystem::remove_all(dir);
    setenv("VAI_DUMP_DIR", dir.c_str(), 1);
    this->Start({{64, 16}, {64}}, Set(Json<T>(), "DumpRangeIdx", "1"));  // request 0 alone
    std::vector<uint8_t> frames[2] = {std::vector<uint8_t>(192), std::vector<uint8_t>(192, 9)};
    for (int i = 0; i < 192; ++i) frames[0][i] = static_cast<uint8_t>(i);
    vAIPROC::VAI_IMG_* imgs[2] = {this->in_->img(), this->out_->img()};
    for (int k = 0; k < 2; ++k) {  // one contiguous buffer, as NV21 dumps read it
        imgs[k]->plane_addr[0] = frames[k].data(), imgs[k]->plane_addr[1] = frames[k].data() + 128;
    }
    for (uint64_t req = 0; req < 2; ++req) {
        imgs[0]->req_id = imgs[1]->req_id = req;
        ASSERT_EQ(this->Process(2), SDK_SUCCESS);
    }
    unsetenv("VAI_DUMP_DIR");
    std::map<std::string, std::string> dumps, expected;
    for (const auto& e : std::filesystem::directory_iterator(dir)) {
        const std::string name = e.path().filename().string();  // the time before "_req" varies
        dumps[name.substr(name.find("_req"))] = ReadFile(e.path());
    }
    for (int k = 0; k < 2; ++k) {
        expected[std::string("_req0_16x8_s[2]_mtk_") + T::kName + "_vainr_" + (k ? "out." : "in.") +
                 T::kDumpExt]
            .assign(frames[k].begin(), frames[k].begin() + 64 * T::kDumpHalves);
    }
    EXPECT_EQ(dumps, expected);
}

// The strength in 16 bytes of input 1, the zoom (mode 9) or detail strength (mode 10) over input 2
// (a model without input 2 is the copy test's); the frames, sealed against any access, go as tensors over the
// caller's buffers.
TYPED_TEST(MtkTest, ParameterBytesOnSealedFrames) {
    using T = TypeParam;
    const std::string one_bin = Cam<T>(R"("BinNumber": 1, "NrStrength": [40], "DetailStrength": [200],
        "ISOBinIndex": [1000])");
    for (auto* f : {&this->in_, &this->out_}) {
        *f = std::make_unique<qcom_test::Frame>((*f)->format(), vai_frame::Memory::kGuarded);
        (*f)->Seal(true);
    }
    this->in_->img()->fd[0] = 21, this->out_->img()->fd[0] = 22;
    const auto in = reinterpret_cast<intptr_t>(this->in_->plane(0)),
               out = reinterpret_cast<intptr_t>(this->out_->plane(0));
    this->Start({{96, 20, T::kSecondParamBytes}, {48}},
                Json<T>(kHead, {Cam<T>(), one_bin, Cam<T>(), Cam<T>()}));
    const PXRT::TensorArray& t = this->Ctx()->vai_handle.input_tensors[0];
    const int64_t live = pxrt_test::LiveObjects().tensors;
    for (auto [cam, iso, scale, ext, first, second] : T::kParamCases) {
        pxrt_test::Reset();
        ASSERT_EQ(this->Process(cam, iso, ext.empty() ? nullptr : ext.data(), scale), SDK_SUCCESS);
        std::vector<uint8_t> expected(16, uint8_t(first)), seen(20 + T::kSecondParamBytes);
        expected.resize(20, 0);
        expected.resize(seen.size(), uint8_t(second));
        std::memcpy(seen.data(), t[1]->GetData(), 20);
        std::memcpy(seen.data() + 20, t[2]->GetData(), T::kSecondParamBytes);
        EXPECT_EQ(seen, expected) << cam << " " << iso << " " << scale;
        EXPECT_EQ(TensorCalls(this->Ctx()->m_session[0]),
                  (Rows{{1, in, 96, 0, 1, T::kFrameKind, 21, 0}, {1, out, 48, 0, 1, T::kFrameKind, 22, 0}}));
        EXPECT_LE(pxrt_test::LiveObjects().tensors, live + 2);
    }
}

using MtkYuvTest = MtkTest<MtkYuv>;

// Camera 3 with boosts 40 (4K) and 18 (1080P): model and boost of each session. Inline recording runs
// the 1080P model and, in 4K mode, the 4K one beside it for frames of exactly the two 4K sizes.
TEST_F(MtkYuvTest, SessionChoice) {
    const std::string json = Set(Set(Json<MtkYuv>(), "BoostValue4K", "40"), "BoostValue1080P", "18");
    using Sessions = std::vector<std::pair<std::string, int>>;
    const std::tuple<bool, int, Sessions> cases[] = {{false, 0, {{"model3_4k", 40}}},
                                                     {false, 1, {{"model3", 18}}},
                                                     {true, 0, {{"model3", 18}, {"model3_4k", 40}}},
                                                     {true, 1, {{"model3", 18}}}};
    for (const auto& [inline_mode, mode, expected] : cases) {
        pxrt_test::Reset();
        Init<MtkYuv> init(json, 3);
        init.p.cam_mode = mode, init.p.is_inline_mode = inline_mode;
        ASSERT_NE(handle_ = MtkYuv::Init(&init.p), nullptr);
        EXPECT_EQ(MtkYuv::ModelInit(handle_, &init.p), 3);
        Sessions sessions;
        for (const pxrt_test::Call& c : pxrt_test::Calls(Op::kCreateSession))
            sessions.emplace_back(c.model_path, c.boost);
        EXPECT_EQ(sessions, expected) << inline_mode << mode;
        const int frames[][3] = {{4096, 2304, 1}, {3264, 1836, 1}, {4096, 2305, 0}};
        for (const auto& [w, h, big] : frames) {
            pxrt_test::Reset();
            in_->img()->width = w, in_->img()->height = h;
            ASSERT_EQ(Process(3), SDK_SUCCESS);
            std::vector<void*> runs, expected_runs;
            for (const pxrt_test::Call& c : pxrt_test::Calls(Op::kRun)) runs.push_back(c.session);
            if (void* s = Ctx()->m_session[big && inline_mode]) expected_runs.push_back(s);  // else copied
            EXPECT_EQ(runs, expected_runs) << inline_mode << mode << " " << w << "x" << h;
        }
        init.p.cam_mode = 2;
        EXPECT_EQ(MtkYuv::ModelInit(handle_, &init.p), -1);
        EXPECT_EQ(MtkYuv::Uninit(std::exchange(handle_, nullptr)), SDK_SUCCESS);
    }
}

}  // namespace
