// Entry points: argument checks, then dispatch on the process-wide algorithm mode.
#include "interface/VideoAIProc.h"

#include "interface/dispatch.h"
#include "algocore/utils/image_copy.h"
#include "qcom/vainr_yuv/qcom_vainr_yuv_proc_sat.h"
#include "interface/process_args.h"
#include "algocore/utils/status_code.h"
#include "algocore/utils/vai_log.h"

using vAIPROC::InitParams_;
using vAIPROC::ProcParams_;
using vAIPROC::VAI_IMG_;

int32_t g_algo_mode = 0;

namespace {

// One row per mode. A null model_init/model_uninit means the back-end has no model stage: those
// entry points then treat its mode as unsupported.
struct Backend {
    int32_t mode;
    const char* (*get_version)();
    void* (*init)(const InitParams_*);
    int (*model_init)(void*, const InitParams_*);
    int (*process)(void*, VAI_IMG_*, VAI_IMG_*, const ProcParams_*);
    int (*model_uninit)(void*);
    int (*uninit)(void*);
};

void LogBypass() {
    VAI_LOGE("Get Bypass Algo setting from HAL now!");
}
void LogUnsupported(int32_t mode) {
    VAI_LOGE("Unsupported algo mode(%d) now!", mode);
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
};

const Backend* FindBackend(int32_t mode) {
    for (const Backend& b : kBackends) {
        if (b.mode == mode) return &b;
    }
    LogUnsupported(mode);
    return nullptr;
}

}  // namespace

extern "C" {

const char* Video_AI_Proc_GetVersion(uint32_t algo_mode) {
    const Backend* b = FindBackend(static_cast<int32_t>(algo_mode));
    return b != nullptr ? b->get_version() : "Invalid";
}

void* Video_AI_Proc_Init(InitParams_* params) {
    if (params == nullptr) {
        VAI_LOGE("Input init pars is nullptr in VIDEO_AI_PROC_Init function!");
        return nullptr;
    }
    // Remembered before it is checked, so an unsupported mode routes later calls too.
    g_algo_mode = params->algo_mode;
    const Backend* b = FindBackend(g_algo_mode);
    return b != nullptr ? b->init(params) : nullptr;
}

int Video_AI_Model_Init(void* handle, InitParams_* params) {
    if (handle == nullptr || params == nullptr) {
        VAI_LOGE("Handle or init pars is nullptr in Video_AI_Model_Init!");
        return SDK_UNINIT_ERROR;
    }
    const Backend* b = FindBackend(g_algo_mode);
    if (b == nullptr) return SDK_SUCCESS;
    if (b->model_init == nullptr) {
        LogUnsupported(g_algo_mode);
        return SDK_SUCCESS;
    }
    return b->model_init(handle, params);
}

int Video_AI_Proc_Process(void* handle, VAI_IMG_* out, VAI_IMG_* in, ProcParams_* params) {
    if (const int status = vai::CheckProcessArgs(handle, out, in, params); status != SDK_SUCCESS) {
        return status;
    }
    const Backend* b = FindBackend(g_algo_mode);
    const int status = b != nullptr ? b->process(handle, out, in, params) : SDK_SUCCESS;
    return vai::NarrowStatus(status);
}

int Video_AI_Model_Uninit(void* handle) {
    if (handle == nullptr) {
        VAI_LOGE("Input handle is nullptr in uninit!");
        return SDK_UNINIT_ERROR;
    }
    const Backend* b = FindBackend(g_algo_mode);
    if (b == nullptr) return SDK_SUCCESS;
    if (b->model_uninit == nullptr) {
        LogUnsupported(g_algo_mode);
        return SDK_SUCCESS;
    }
    return b->model_uninit(handle);
}

int Video_AI_Proc_Uninit(void* handle) {
    if (handle == nullptr) {
        VAI_LOGE("Input handle is nullptr in uninit!");
        return SDK_UNINIT_ERROR;
    }
    const Backend* b = FindBackend(g_algo_mode);
    return b != nullptr ? b->uninit(handle) : SDK_SUCCESS;
}

}  // extern "C"
