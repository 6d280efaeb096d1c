// MediaTek RAW noise reduction (algo_mode 10): the runtime reads the caller's packed raw frame and
// writes the output frame directly; per frame the back-end only fills the model's strength inputs.
#pragma once

#include <cstdint>
#include <memory>

#include "algocore/utils/dump.h"
#include "interface/vai_export.h"
#include "interface/vai_handle.h"
#include "interface/vai_types.h"
#include "mtk/vainr_raw/mtk_vainr_raw_cfg.h"

namespace MTK_VAINR_RAW_PROC {

// Something an instance may own; nothing in this back-end creates one yet.
struct VAINR_Owned_ {
    virtual ~VAINR_Owned_() = default;
};

// The instance the caller holds as an untyped handle.
struct VAINR_Ctx_ {
    char model_name[5][256] = {};  // per camera type; empty when not given
    DumpPars_ dump_pars{};
    VAI_HANDLE_ vai_handle;  // only session 0 is used
    void* m_session[2] = {};
    uint8_t interp_failed = 1;
    int32_t cur_cam_type = -1;  // camera type of the loaded model
    std::unique_ptr<VAINR_Owned_> owned;
    VAINR_CfgPars_ cfg{};
};

VAI_EXPORT const char* VAINR_GetVersion();
// The instance, without a session, or null (every failure tears down what was built).
VAI_EXPORT void* VAINR_Init(const vAIPROC::InitParams_* init_pars);
// Session and parameter tensors for the camera type of `init_pars`: the camera type, or -1 for null
// arguments, or -1 after destroying the instance (every other failure: the handle is gone).
VAI_EXPORT int VAINR_Model_Init(void* handle, const vAIPROC::InitParams_* init_pars);
// SDK_SUCCESS; SDK_UNINIT_ERROR for a null handle or params; kNullImage for a null image;
// SDK_INVALID_MODEL_ERR when inference fails (output as the runtime left it); otherwise the result of
// the pass-through copy.
VAI_EXPORT int VAINR_Process(void* handle, vAIPROC::VAI_IMG_* out_img, vAIPROC::VAI_IMG_* in_img,
                             const vAIPROC::ProcParams_* params);
// Releases the session and its tensors. SDK_SUCCESS, or SDK_UNINIT_ERROR for a null handle or an
// instance without interpreter.
VAI_EXPORT int VAINR_Model_Uninit(void* handle);
// SDK_SUCCESS, or SDK_UNINIT_ERROR for a null handle. Unloads the runtime for the whole process.
VAI_EXPORT int VAINR_Uninit(void* handle);

}  // namespace MTK_VAINR_RAW_PROC
