// Qualcomm YUV noise reduction (algo_mode 1): frames are packed into tensors on the processor, run
// through one session, and unpacked blended with strengths chosen from ISO x DRC gain.
#pragma once

#include <atomic>
#include <cstdint>

#include "algocore/utils/dump.h"
#include "qcom/vainr_yuv/qcom_vainr_yuv_cfg.h"
#include "interface/vai_export.h"
#include "interface/vai_handle.h"
#include "interface/vai_types.h"

namespace QCOM_VAINR_YUV_PROC {

// The instance the caller holds as an untyped handle.
struct VAINR_Ctx_ {
    char model_name[5][256] = {};  // per camera type; empty when the caller gave no path
    DumpPars_ dump_pars{};
    VAI_HANDLE_ vai_handle;
    void* m_session[2] = {};  // only index 0 is used
    VAINR_CfgPars_ cfg{};
    // Hand-off with the model-switch thread: 0 while it runs. Written with release, read with acquire;
    // while it is 0 the frame path keeps away from the runtime objects.
    std::atomic<uint8_t> switch_done{1};
    uint8_t switch_pending = 0;  // a camera-type change waits for a switch
    uint32_t frame_count = 0;    // frames since the last camera-type change
    uint32_t last_cam_type = 1;
};
static_assert(sizeof(std::atomic<uint8_t>) == 1, "switch_done is one byte");

VAI_EXPORT const char* VAINR_GetVersion();
// The instance, or null (every failure tears down what was built).
VAI_EXPORT void* VAINR_Init(const vAIPROC::InitParams_* params);
// SDK_SUCCESS; SDK_UNINIT_ERROR for a null handle or params; kNullImage for a null image;
// SDK_INVALID_MODEL_ERR when inference fails (output untouched); otherwise the result of the
// pass-through copy.
VAI_EXPORT int VAINR_Process(void* handle, vAIPROC::VAI_IMG_* out, vAIPROC::VAI_IMG_* in,
                             const vAIPROC::ProcParams_* params);
// SDK_SUCCESS, or SDK_UNINIT_ERROR for a null handle. Waits for a running model switch.
VAI_EXPORT int VAINR_Uninit(void* handle);

}  // namespace QCOM_VAINR_YUV_PROC

namespace vai {
namespace qcom {

// Results of the model-switch routine besides SDK_SUCCESS. The thread's result is discarded; they tell
// tests and debuggers which step failed.
constexpr int kSwitchSessionFailed = 3;  // CreateSession, or no interpreter
constexpr int kSwitchRuntimeFailed = 4;  // any later runtime call

// Body of the model-switch thread: rebuilds the session and tensors for camera type `cam`.
// SDK_SUCCESS, or one of the results above after destroying the instance; SDK_UNINIT_ERROR for a
// null handle.
int ModelSwitch(void* handle, int cam);

}  // namespace qcom
}  // namespace vai
