// MediaTek YUV noise reduction (algo_mode 9): the runtime reads the caller's input frame and writes the
// output frame directly; per frame the back-end only fills the model's strength and zoom inputs.
#pragma once

#include <cstdint>

#include "algocore/utils/dump.h"
#include "interface/vai_export.h"
#include "interface/vai_handle.h"
#include "interface/vai_types.h"
#include "mtk/vainr_yuv/mtk_vainr_yuv_cfg.h"

namespace MTK_VAINR_YUV_PROC {

// The instance the caller holds as an untyped handle.
struct VAINR_Ctx_ {
    char model_name[2][5][256] = {};  // [cam_mode: 0 4K, 1 1080P][cam_type]; empty when not given
    DumpPars_ dump_pars{};
    VAI_HANDLE_ vai_handle;
    void* m_session[2] = {};  // 0: main session; 1: 4K session of inline mode
    uint8_t interp_failed = 1;
    int32_t cur_cam_type = -1;  // camera type of the loaded models
    VAINR_CfgPars_ cfg{};
};

VAI_EXPORT const char* VAINR_GetVersion();
// The instance, without sessions, or null (every failure tears down what was built).
VAI_EXPORT void* VAINR_Init(const vAIPROC::InitParams_* init_pars);
// Sessions and parameter tensors for the camera type and mode of `init_pars`: the camera type, or -1
// after releasing the sessions and tensors of the instance (which stays usable).
VAI_EXPORT int VAINR_Model_Init(void* handle, const vAIPROC::InitParams_* init_pars);
// SDK_SUCCESS; SDK_UNINIT_ERROR for a null handle or params; kNullImage for a null image;
// SDK_INVALID_MODEL_ERR when inference fails (output as the runtime left it); otherwise the result of
// the pass-through copy.
VAI_EXPORT int VAINR_Process(void* handle, vAIPROC::VAI_IMG_* out_img, vAIPROC::VAI_IMG_* in_img,
                             const vAIPROC::ProcParams_* params);
// SDK_SUCCESS, or SDK_UNINIT_ERROR for a null handle or an instance without interpreter.
VAI_EXPORT int VAINR_Model_Uninit(void* handle);
// SDK_SUCCESS, or SDK_UNINIT_ERROR for a null handle. Unloads the runtime for the whole process.
VAI_EXPORT int VAINR_Uninit(void* handle);

}  // namespace MTK_VAINR_YUV_PROC

namespace vai {
namespace mtk_yuv {

// Zoom-ratio scalar byte for the base zoom ratio of camera type `cam`.
uint8_t ZoomScalar(int32_t cam, float base_zoom);

}  // namespace mtk_yuv
}  // namespace vai
