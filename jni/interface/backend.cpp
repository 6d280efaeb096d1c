// The back-end table: bypass and one row per processing back-end.
#include "interface/backend.h"

#include "algocore/utils/image_copy.h"
#include "algocore/utils/status_code.h"
#include "algocore/utils/vai_log.h"
#include "mtk/vainr_raw/mtk_vainr_raw_proc.h"
#include "mtk/vainr_yuv/mtk_vainr_yuv_proc.h"
#include "qcom/vainr_yuv/qcom_vainr_yuv_proc_sat.h"

using vAIPROC::InitParams_;
using vAIPROC::ProcParams_;
using vAIPROC::VAI_IMG_;

namespace vai {
namespace {

void LogBypass() {
    VAI_LOGE("Get Bypass Algo setting from HAL now!");
}

namespace bypass {
const char* GetVersion() {
    LogBypass();
    return "Invalid";
}
void* Init(const InitParams_*) {
    LogBypass();
    return nullptr;
}
int ModelInit(void*, const InitParams_*) {
    LogBypass();
    return SDK_SUCCESS;
}
int Process(void*, VAI_IMG_* out, VAI_IMG_* in, const ProcParams_*) {
    LogBypass();
    // The second argument's planes are copied over the third: the reverse of the back-ends' copies.
    return CopyImage(in, out);
}
int Release(void*) {
    return SDK_SUCCESS;
}
}  // namespace bypass

constexpr Backend kBackends[] = {
    {vAIPROC::VAI_ALGO_MODE_BYPASS, bypass::GetVersion, bypass::Init, bypass::ModelInit, bypass::Process,
     bypass::Release, bypass::Release},
    // Models are loaded at init and switched in the background: no model stage.
    {vAIPROC::VAI_ALGO_MODE_QCOM_YUV, QCOM_VAINR_YUV_PROC::VAINR_GetVersion, QCOM_VAINR_YUV_PROC::VAINR_Init,
     nullptr, QCOM_VAINR_YUV_PROC::VAINR_Process, nullptr, QCOM_VAINR_YUV_PROC::VAINR_Uninit},
    {vAIPROC::VAI_ALGO_MODE_MTK_YUV, MTK_VAINR_YUV_PROC::VAINR_GetVersion, MTK_VAINR_YUV_PROC::VAINR_Init,
     MTK_VAINR_YUV_PROC::VAINR_Model_Init, MTK_VAINR_YUV_PROC::VAINR_Process,
     MTK_VAINR_YUV_PROC::VAINR_Model_Uninit, MTK_VAINR_YUV_PROC::VAINR_Uninit},
    // A failed model set-up destroys the instance here (see backend.h).
    {vAIPROC::VAI_ALGO_MODE_MTK_RAW, MTK_VAINR_RAW_PROC::VAINR_GetVersion, MTK_VAINR_RAW_PROC::VAINR_Init,
     MTK_VAINR_RAW_PROC::VAINR_Model_Init, MTK_VAINR_RAW_PROC::VAINR_Process,
     MTK_VAINR_RAW_PROC::VAINR_Model_Uninit, MTK_VAINR_RAW_PROC::VAINR_Uninit},
};

}  // namespace

const Backend* FindBackend(int32_t mode) {
    for (const Backend& b : kBackends) {
        if (b.mode == mode) return &b;
    }
    VAI_LOGE("Unsupported algo mode(%d) now!", mode);
    return nullptr;
}

}  // namespace vai
