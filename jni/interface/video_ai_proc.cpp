// Entry points: argument checks, then dispatch on the process-wide algorithm mode.
#include "interface/VideoAIProc.h"

#include "interface/backend.h"
#include "interface/process_args.h"
#include "algocore/utils/status_code.h"
#include "algocore/utils/vai_log.h"

using vAIPROC::InitParams_;
using vAIPROC::ProcParams_;
using vAIPROC::VAI_IMG_;

int32_t g_algo_mode = 0;

namespace {

int ModelStageUnsupported(int32_t mode) {
    VAI_LOGE("Unsupported algo mode(%d) now!", mode);
    return SDK_SUCCESS;
}

}  // namespace

using vai::Backend;
using vai::FindBackend;

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
    if (b->model_init == nullptr) return ModelStageUnsupported(g_algo_mode);
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
    if (b->model_uninit == nullptr) return ModelStageUnsupported(g_algo_mode);
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
