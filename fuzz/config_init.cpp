// Configuration files through each back-end's initialisation. Byte 0 picks the back-end (and whether
// the project name is a full 16 bytes without a terminator), byte 1 the camera type, mode and inline
// flag of the model set-up; the rest is the file.
#include <cstddef>
#include <cstdint>
#include <string>

#include "backend_util.h"
#include "interface/VideoAIProc.h"
#include "mtk/vainr_raw/mtk_vainr_raw_proc.h"
#include "mtk/vainr_yuv/mtk_vainr_yuv_proc.h"
#include "qcom/vainr_yuv/qcom_vainr_yuv_proc_sat.h"

namespace {

constexpr int32_t kModes[] = {1, 9, 10};
constexpr uint32_t kMaxBins = 16;

// What a successful load promises about the record, whatever the file said.
template <typename Cam, size_t N>
void CheckCounts(uint32_t rear, uint32_t front, const Cam (&cams)[N], uint32_t min_bins) {
    FUZZ_CHECK(uint64_t(rear) + front <= N);
    for (const Cam& c : cams) FUZZ_CHECK(c.BinNumber >= min_bins && c.BinNumber <= kMaxBins);
}

void CheckLoaded(int32_t mode, void* handle) {
    if (mode == 1) {
        const auto& cfg = static_cast<QCOM_VAINR_YUV_PROC::VAINR_Ctx_*>(handle)->cfg;
        CheckCounts(cfg.RearCamNum, cfg.FrontCamNum, cfg.cam, 0);
    } else if (mode == 9) {
        const auto& cfg = static_cast<MTK_VAINR_YUV_PROC::VAINR_Ctx_*>(handle)->cfg;
        CheckCounts(cfg.RearCamNum, cfg.FrontCamNum, cfg.camPars, 0);
    } else {
        const auto& cfg = static_cast<MTK_VAINR_RAW_PROC::VAINR_Ctx_*>(handle)->cfg;
        CheckCounts(cfg.RearCamNum, cfg.FrontCamNum, cfg.camPars, 1);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    vai_fuzz::SetUpBackends();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    vai_fuzz::Reader in(data, size);
    const uint8_t pick = in.Byte();
    const uint8_t model = in.Byte();
    const int32_t mode = kModes[(pick & 0x7f) % 3];

    vAIPROC::InitParams_ p{};
    if (pick & 0x80) {
        for (char& c : p.project_name) c = static_cast<char>(in.Byte());
    } else {
        std::snprintf(p.project_name, sizeof(p.project_name), "%s", "DemoProject");
    }
    const vai_fuzz::MemFile file(in.Rest(), in.Left());
    static const char* const kModels[5] = {"model0", "model1", "model2", "model3", "model4"};
    for (int i = 0; i < 5; ++i) p.model_path[i] = p.mtk_yuv_model_path[0][i] = p.mtk_yuv_model_path[1][i] = kModels[i];
    p.cfg_path = file.path();
    p.algo_mode = mode;
    p.cam_type = (model & 7) - 1;
    p.cam_mode = (model >> 3) & 3;
    p.is_inline_mode = (model >> 5) & 1;
    g_log_level = 5;

    void* handle = Video_AI_Proc_Init(&p);
    if (handle != nullptr) {
        CheckLoaded(mode, handle);
        // A failed model set-up in mode 10 destroys the instance.
        const bool gone = mode == 10 && Video_AI_Model_Init(handle, &p) < 0;
        if (mode == 9) Video_AI_Model_Init(handle, &p);
        if (mode != 1 && !gone) Video_AI_Model_Uninit(handle);
        if (!gone) FUZZ_CHECK(Video_AI_Proc_Uninit(handle) == 0);
    }
    vai_fuzz::CheckTornDown();
    return 0;
}
