// The argument checks every frame-processing function starts with, each failure logged in its words.
#pragma once

#include "algocore/utils/status_code.h"
#include "algocore/utils/vai_log.h"
#include "interface/vai_types.h"

namespace vai {

// SDK_SUCCESS when everything is present, otherwise the status to return.
inline int CheckProcessArgs(const void* handle, const vAIPROC::VAI_IMG_* out, const vAIPROC::VAI_IMG_* in,
                            const vAIPROC::ProcParams_* params) {
    if (handle == nullptr || params == nullptr) {
        VAI_LOGE("input handle or params is nullptr in processing function!");
        return SDK_UNINIT_ERROR;
    }
    if (out == nullptr || in == nullptr) {
        VAI_LOGE("input image is nullptr in processing!");
        return kNullImage;
    }
    return SDK_SUCCESS;
}

}  // namespace vai
