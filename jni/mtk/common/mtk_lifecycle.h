// VAINR_Init, VAINR_Model_Uninit and VAINR_Uninit of both MediaTek back-ends: one sequence of steps
// each, with the back-end's own steps supplied by `Life`, a struct of static members:
//   Ctx                        the instance record (`cfg`, `dump_pars`, `vai_handle`, `cur_cam_type`)
//   kCfgOwner                  the name the configuration failure line gives
//   Created(ctx)               right after allocation: defaults, registration with the memory tracer
//   CopyModelNames(ctx, pars)  once the interpreter exists
//   DropTensors(ctx)           first step of the teardown
//   ReleaseSessions(ctx)       in the teardown, while the interpreter still exists
//   Untrace(ctx)               just before the record is freed
//   ModelUninit(ctx)           what VAINR_Model_Uninit releases: the sessions, with their tensors
#pragma once

#include <cstdint>
#include <ctime>
#include <new>

#include "algocore/utils/image_copy.h"
#include "algocore/utils/status_code.h"
#include "algocore/utils/timing.h"
#include "algocore/utils/vai_log.h"
#include "interface/backend.h"
#include "interface/pxrt_binding.h"
#include "interface/vai_types.h"

namespace vai {
namespace mtk {

template <typename Life>
int UninitInstance(void* handle) {
    if (handle == nullptr) {
        VAI_LOGE("Input handle is nullptr in uninit!");
        return SDK_UNINIT_ERROR;
    }
    VAI_LOGV("VAINR_Uninit start!");
    const timespec t0 = util_get_timestamp();
    auto* ctx = static_cast<typename Life::Ctx*>(handle);
    // Tensors belong to a session, so they go before it.
    Life::DropTensors(ctx);
    if (ctx->vai_handle.interpreter) {
        Life::ReleaseSessions(ctx);
        ctx->vai_handle.interpreter.reset();
    } else {
        VAI_LOGE("interpreter is nullptr in uninit!");
    }
    Life::Untrace(ctx);
    delete ctx;
    // Only after the runtime's objects are gone: their code lives in the library.
    PxrtUnload();
    VAI_LOGV("uninit elapsed time is %ldus", ElapsedUs(t0, util_get_timestamp()));
    return SDK_SUCCESS;
}

template <typename Life>
void* InitInstance(const vAIPROC::InitParams_* init_pars) {
    if (init_pars == nullptr) {
        VAI_LOGE("Input init pars is nullptr in initial function!");
        return nullptr;
    }
    VAI_LOGV("VAINR_Init start!");
    const timespec t0 = util_get_timestamp();
    if (!PxrtLoad()) return nullptr;

    auto* ctx = new (std::nothrow) typename Life::Ctx();
    if (ctx == nullptr) {
        VAI_LOGE("VAINR_Ctx_ allocation failed in initial function!");
        PxrtUnload();
        return nullptr;
    }
    Life::Created(ctx);
    ctx->vai_handle.interpreter.reset(mPXRTCreateInterpreterFunc());
    if (!ctx->vai_handle.interpreter) {
        VAI_LOGE("interpreter == nullptr");
        UninitInstance<Life>(ctx);
        return nullptr;
    }
    Life::CopyModelNames(ctx, *init_pars);
    // The back-end's own loader, found through its record's namespace.
    if (!LoadVAINRCfg_MTK(init_pars->cfg_path, init_pars->project_name, &ctx->cfg)) {
        VAI_LOGE("Cfg parse failed in %s!", Life::kCfgOwner);
        UninitInstance<Life>(ctx);
        return nullptr;
    }
    ctx->cur_cam_type = -1;  // no model loaded yet
    const uint32_t dump_idx = ctx->cfg.DumpRangeIdx;
    ctx->dump_pars.dump_enable = dump_idx != 0;
    ctx->dump_pars.dump_start = dump_idx / 1000;
    ctx->dump_pars.dump_end = dump_idx % 1000;
    g_log_level = static_cast<unsigned char>(ctx->cfg.LogLevel);
    VAI_LOGV("init elapsed time is %ldus", ElapsedUs(t0, util_get_timestamp()));
    return ctx;
}

template <typename Life>
int ModelUninitInstance(void* handle) {
    if (handle == nullptr) {
        VAI_LOGE("Input handle is nullptr in VAINR_Model_Uninit!");
        return SDK_UNINIT_ERROR;
    }
    VAI_LOGV("VAINR_Model_Uninit start!");
    const timespec t0 = util_get_timestamp();
    auto* ctx = static_cast<typename Life::Ctx*>(handle);
    if (!ctx->vai_handle.interpreter) {
        VAI_LOGE("interpreter is nullptr in VAINR_Model_Uninit!");
        return SDK_UNINIT_ERROR;
    }
    Life::ModelUninit(ctx);
    VAI_LOGV("model_uninit elapsed time is %ldus", ElapsedUs(t0, util_get_timestamp()));
    return SDK_SUCCESS;
}

// The frame copied unchanged, for every frame the network does not run on.
inline int CopyFrame(vAIPROC::VAI_IMG_* out_img, vAIPROC::VAI_IMG_* in_img) {
    return NarrowStatus(CopyImage(out_img, in_img));
}

}  // namespace mtk
}  // namespace vai
