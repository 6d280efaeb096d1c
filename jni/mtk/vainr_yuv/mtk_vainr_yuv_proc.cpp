#include "mtk/vainr_yuv/mtk_vainr_yuv_proc.h"

#include <cinttypes>
#include <cstdio>

#include "algocore/memory/ALGOGalloc.h"
#include "algocore/memory/ALGONativeGalloc.h"
#include "algocore/utils/iso_bins.h"
#include "algocore/utils/status_code.h"
#include "algocore/utils/timing.h"
#include "algocore/utils/vai_log.h"
#include "interface/process_args.h"
#include "interface/pxrt_binding.h"
#include "mtk/common/mtk_lifecycle.h"
#include "mtk/common/mtk_tensors.h"

using vAIPROC::InitParams_;
using vAIPROC::ProcParams_;
using vAIPROC::VAI_IMG_;

using MTK_VAINR_YUV_PROC::VAINR_CamPars_;
using MTK_VAINR_YUV_PROC::VAINR_CfgPars_;
using MTK_VAINR_YUV_PROC::VAINR_Ctx_;

namespace vai {
namespace mtk_yuv {
namespace {

constexpr char kVersion[] = "MTK_Video_AINR_YUV_v1.0.8";
constexpr int kDevice = 1;
constexpr int kSessionFlags = 2048;
constexpr int32_t kTensorKind = 10;
// Labels this file's entries in the memory tracer's reports. The names and lines are the ones the
// tracer's report readers already know for this back-end, so they stay fixed across edits.
constexpr char kSrcName[] = "mtk_vainr_yuv_proc";
constexpr int kTraceLineInstance = 154;
constexpr int kTraceLineRelease = 609;
constexpr int kTraceLineStrengthFill = 520;
constexpr int kTraceLineZoomFill = 524;
// Inline 4K recording runs the 4K model only on frames of exactly these sizes.
constexpr struct { int32_t width, height; } k4KSizes[] = {{3264, 1836}, {4096, 2304}};

bool CamInRecord(int32_t cam) {
    return cam >= 0 && cam < kMaxCams;
}

// Releases the sessions and every tensor; the tensor arrays are left empty for the next set-up.
// `warn` logs each missing session.
void ReleaseModels(VAINR_Ctx_* ctx, bool warn = true) {
    VAI_HANDLE_& h = ctx->vai_handle;
    for (void*& session : ctx->m_session) {
        if (session != nullptr) {
            h.interpreter->ReleaseSession(session);
            session = nullptr;
        } else if (warn) {
            VAI_LOGW("runtime session is nullptr in VAINR_Model_Uninit!");
        }
    }
    for (PXRT::TensorArray* a :
         {&h.input_tensors[0], &h.output_tensors[0], &h.input_tensors[1], &h.output_tensors[1]}) {
        a->clear();
    }
}

// Session `s` from `model` with `boost`; a zero result with no session counts as failure.
bool CreateSession(VAINR_Ctx_* ctx, int s, const char* model, uint32_t boost, const char* logged_model) {
    const PXRT::SessionOptions options{{}, {2, 0, 1}, static_cast<int32_t>(boost), 0, 0};
    const int ret = ctx->vai_handle.interpreter->CreateSession(model, kDevice, &ctx->m_session[s], &options,
                                                               kSessionFlags);
    VAI_LOGV(s == 0 ? "BoostValue for m_session[0] is %d" : "BoostValue for m_session[1] is %d",
             options.boost);
    if (ret != 0 || ctx->m_session[s] == nullptr) {
        VAI_LOGE("CreateSession failed, return value:%d, session addr:%p, model path:%s", ret,
                 ctx->m_session[s], logged_model);
        return false;
    }
    return true;
}

// Persistent parameter tensors of session `s`, inputs 1.. of the model.
void CreateParamTensors(VAINR_Ctx_* ctx, int s) {
    VAI_HANDLE_& h = ctx->vai_handle;
    vai::mtk::AddParamTensors(h.input_tensors[s], mPXRTCreateInTensorFunc, ctx->m_session[s],
                              h.mInputTensorByteSize[s], h.m_in_num[s], kTensorKind);
}

// Session 0, with every runtime result checked.
bool SetUpMainSession(VAINR_Ctx_* ctx, const char* model, uint32_t boost, const char* logged_model) {
    VAI_HANDLE_& h = ctx->vai_handle;
    PXRT::Interpreter* interp = h.interpreter.get();
    if (!CreateSession(ctx, 0, model, boost, logged_model)) return false;
    void* session = ctx->m_session[0];
    int ret = interp->GetSessionInputNumber(session, &h.m_in_num[0]);
    if (ret != 0) {
        VAI_LOGE("GetSessionInputNumber failed, return value:%d", ret);
        return false;
    }
    if (h.m_in_num[0] > kMaxTensors) {
        VAI_LOGE("GetSessionInputNumber reported %zu inputs, more than %zu!", h.m_in_num[0], kMaxTensors);
        return false;
    }
    for (size_t i = 0; i < h.m_in_num[0]; ++i) {
        ret = interp->GetSessionInputSize(session, i, &h.mInputTensorByteSize[0][i]);
        if (ret != 0) {
            VAI_LOGE("GetSessionInputSize failed, return value:%d", ret);
            return false;
        }
        VAI_LOGV("mInputTensorByteSize[0][%d] %zu", static_cast<int>(i), h.mInputTensorByteSize[0][i]);
    }
    CreateParamTensors(ctx, 0);
    ret = interp->GetSessionOutputNumber(session, &h.m_out_num[0]);
    if (ret != 0) {
        VAI_LOGE("GetSessionOutputNumber failed, return value:%d", ret);
        return false;
    }
    ret = interp->GetSessionOutputSize(session, 0, &h.mOutputTensorByteSize[0][0]);
    if (ret != 0) {
        VAI_LOGE("GetSessionOutputSize failed, return value:%d", ret);
        return false;
    }
    VAI_LOGV("mOutputTensorByteSize[0] %zu", h.mOutputTensorByteSize[0][0]);
    return true;
}

// Session 1 of inline 4K recording. Its failures are not fatal: frames that would use it are copied.
void SetUpInlineSession(VAINR_Ctx_* ctx, const char* model, uint32_t boost) {
    VAI_HANDLE_& h = ctx->vai_handle;
    PXRT::Interpreter* interp = h.interpreter.get();
    if (!CreateSession(ctx, 1, model, boost, model)) return;
    void* session = ctx->m_session[1];
    size_t count = 0;
    interp->GetSessionInputNumber(session, &count);
    h.m_in_num[1] = count <= kMaxTensors ? count : kMaxTensors;
    for (size_t i = 0; i < h.m_in_num[1]; ++i) {
        interp->GetSessionInputSize(session, i, &h.mInputTensorByteSize[1][i]);
        VAI_LOGV("mInputTensorByteSize[1][%d] %zu", static_cast<int>(i), h.mInputTensorByteSize[1][i]);
    }
    CreateParamTensors(ctx, 1);
    interp->GetSessionOutputSize(session, 0, &h.mOutputTensorByteSize[1][0]);
    VAI_LOGV("mOutputTensorByteSize[1] %zu", h.mOutputTensorByteSize[1][0]);
}

void FillParam(const PXRT::TensorArray& inputs, size_t i, uint8_t value, size_t bytes, int line) {
    vai::mtk::FillParam(inputs, i, value, bytes, kSrcName, line);
}

void Dump(VAINR_Ctx_* ctx, const VAI_IMG_* img, const char* tag_format, int32_t cam) {
    char tag[256];
    std::snprintf(tag, sizeof(tag), tag_format, cam);
    // NV21: the chroma plane follows the luma plane in the caller's buffer.
    DumpFile(img->plane_addr[0], static_cast<unsigned>(img->width), static_cast<unsigned>(img->height),
             static_cast<uint32_t>(img->plane_size[0] * 3u / 2u), tag, "nv21", img->req_id, &ctx->dump_pars);
}

// What this back-end adds to the life cycle both MediaTek back-ends share.
struct Lifecycle {
    using Ctx = VAINR_Ctx_;
    static constexpr const char* kCfgOwner = "MTK_VAINR_YUV_PROC";
    static void Created(VAINR_Ctx_* ctx) {
        SetDefaultCfg(&ctx->cfg);
        vemo::Native::create(ctx, sizeof(*ctx), kSrcName, kTraceLineInstance);
    }
    static void CopyModelNames(VAINR_Ctx_* ctx, const InitParams_& pars) {
        for (int mode = 0; mode < 2; ++mode) {
            for (int cam = 0; cam < kMaxCams; ++cam) {
                const char* path = pars.mtk_yuv_model_path[mode][cam];
                if (path != nullptr) {
                    std::snprintf(ctx->model_name[mode][cam], sizeof(ctx->model_name[mode][cam]), "%s", path);
                } else {
                    VAI_LOGE("cam_mode=%d, cam_type=%d model path is null", mode, cam);
                }
            }
        }
    }
    // Each tensor is released, its slot kept.
    static void DropTensors(VAINR_Ctx_* ctx) {
        VAI_HANDLE_& h = ctx->vai_handle;
        for (PXRT::TensorArray* a :
             {&h.input_tensors[0], &h.output_tensors[0], &h.input_tensors[1], &h.output_tensors[1]}) {
            for (auto& t : *a) t.reset();
        }
    }
    // Only a missing session 1 is reported.
    static void ReleaseSessions(VAINR_Ctx_* ctx) {
        PXRT::Interpreter* interp = ctx->vai_handle.interpreter.get();
        if (ctx->m_session[0] != nullptr) {
            interp->ReleaseSession(ctx->m_session[0]);
            ctx->m_session[0] = nullptr;
        }
        if (ctx->m_session[1] != nullptr) {
            interp->ReleaseSession(ctx->m_session[1]);
            ctx->m_session[1] = nullptr;
        } else {
            VAI_LOGW("runtime session is nullptr in uninit!");
        }
    }
    static void Untrace(VAINR_Ctx_* ctx) {
        vemo::AlgorithmMemory::nativeMemDec(
            vemo::AlgorithmMemory::mapDelete(ctx, kSrcName, kTraceLineRelease));
    }
    static void ModelUninit(VAINR_Ctx_* ctx) { ReleaseModels(ctx); }
};

}  // namespace

uint8_t ZoomScalar(int32_t cam, float base_zoom) {
    float r = base_zoom;
    if (cam == 4) {
        r = base_zoom / 6.0f;
    } else if (cam == 3) {
        r = base_zoom / 3.0f;
    } else if (cam == 2) {
        r = base_zoom / 0.6f;
    }
    const auto v = static_cast<float>(static_cast<double>(r) * 1.3048 - 1.2049);
    int32_t zs = 0;
    // Written so that a ratio that is not a number takes the small-ratio value instead of a cast of NaN.
    if (!(v >= 0.099f)) {
        zs = 25;
    } else if (v > 0.99f) {
        zs = -4;  // byte 252: the model was trained with this value for large ratios
    } else {
        zs = static_cast<int32_t>(v * 255.0f);
    }
    VAI_LOGI("base_zoom_ratio is %f, sensor_zoom_ratio is %f, zoom_ratio_scalar is %d", base_zoom, r, zs);
    return static_cast<uint8_t>(zs);
}

}  // namespace mtk_yuv
}  // namespace vai

namespace MTK_VAINR_YUV_PROC {

using namespace vai::mtk_yuv;
using vai::ElapsedUs;
using vai::mtk::CopyFrame;

const char* VAINR_GetVersion() {
    VAI_LOGV("vAINR version is: %s", kVersion);
    return kVersion;
}

void* VAINR_Init(const InitParams_* init_pars) {
    return vai::mtk::InitInstance<Lifecycle>(init_pars);
}

int VAINR_Uninit(void* handle) {
    return vai::mtk::UninitInstance<Lifecycle>(handle);
}

int VAINR_Model_Init(void* handle, const InitParams_* init_pars) {
    if (handle == nullptr || init_pars == nullptr) {
        VAI_LOGE("Input handle or init_pars is nullptr in VAINR_Model_Init!");
        return -1;
    }
    VAI_LOGV("VAINR_Model_Init start!");
    const timespec t0 = util_get_timestamp();
    auto* ctx = static_cast<VAINR_Ctx_*>(handle);
    const int32_t cam = init_pars->cam_type;
    const int32_t mode = init_pars->cam_mode;
    // Both index the model names and the camera table: refused rather than read past them.
    if (!CamInRecord(cam) || (mode != 0 && mode != 1)) {
        VAI_LOGE("cam_type(%d) or cam_mode(%d) is out of range in VAINR_Model_Init!", cam, mode);
        return -1;
    }
    if (!vai::PxrtBoundOrLog(" in VAINR_Model_Init!")) return -1;
    ctx->cur_cam_type = cam;
    g_is_inline_mode = init_pars->is_inline_mode;
    VAI_HANDLE_& h = ctx->vai_handle;
    if (!h.interpreter) {
        VAI_LOGE("interpreter == nullptr in VAINR_Model_Init, need recreate!");
        h.interpreter.reset(mPXRTCreateInterpreterFunc != nullptr ? mPXRTCreateInterpreterFunc() : nullptr);
        if (!h.interpreter) {
            VAI_LOGE("interpreter == nullptr");
            ctx->interp_failed = 1;
            return -1;
        }
    }
    VAI_LOGD("cam_type:%d, cam_mode:%d, model_name:%s, m_session:%p, is_inline_mode:%d", cam, mode,
             ctx->model_name[mode][cam], ctx->m_session[0], g_is_inline_mode);

    // A set-up without Model_Uninit before it would otherwise orphan the sessions it replaces.
    if (ctx->m_session[0] != nullptr || ctx->m_session[1] != nullptr) ReleaseModels(ctx, false);
    const VAINR_CamPars_& c = ctx->cfg.camPars[cam];
    // Inline recording runs the 1080P model and adds the 4K one in 4K mode.
    const bool main_4k = mode == 0 && g_is_inline_mode == 0;
    if (!SetUpMainSession(ctx, ctx->model_name[main_4k ? 0 : 1][cam],
                          main_4k ? c.BoostValue4K : c.BoostValue1080P, ctx->model_name[mode][cam])) {
        ReleaseModels(ctx);
        return -1;
    }
    if (mode == 0 && g_is_inline_mode != 0) SetUpInlineSession(ctx, ctx->model_name[0][cam], c.BoostValue4K);
    VAI_LOGV("model_init elapsed time is %ldus", ElapsedUs(t0, util_get_timestamp()));
    return cam;
}

int VAINR_Model_Uninit(void* handle) {
    return vai::mtk::ModelUninitInstance<Lifecycle>(handle);
}

int VAINR_Process(void* handle, VAI_IMG_* out_img, VAI_IMG_* in_img, const ProcParams_* params) {
    if (const int status = vai::CheckProcessArgs(handle, out_img, in_img, params); status != SDK_SUCCESS) {
        return status;
    }
    auto* ctx = static_cast<VAINR_Ctx_*>(handle);
    vai::mtk::LogBuffers(in_img, out_img);
    const timespec t0 = util_get_timestamp();
    const int32_t cam = params->cam_type;
    if (!CamInRecord(cam)) {
        VAI_LOGE("cam_type(%d) is out of the camera types 0..%d! execute copy in vAINR_yuv_mtk mode!", cam,
                 kMaxCams - 1);
        return CopyFrame(out_img, in_img);
    }
    const VAINR_CamPars_& c = ctx->cfg.camPars[cam];
    if (c.processEnable == 0) {
        VAI_LOGE("algo processing is disabled in cfg file! execute copy in vAINR_yuv_mtk mode!");
        return CopyFrame(out_img, in_img);
    }
    if (ctx->m_session[0] == nullptr) {
        VAI_LOGE("m_session is null! only perform copy image!");
        return CopyFrame(out_img, in_img);
    }
    if (ctx->dump_pars.dump_enable) Dump(ctx, in_img, "s[%d]_mtk_yuv_vainr_in", cam);

    VAI_HANDLE_& h = ctx->vai_handle;
    int s = 0;
    if (g_is_inline_mode != 0) {
        for (const auto& size : k4KSizes) {
            if (in_img->width == size.width && in_img->height == size.height) s = 1;
        }
        if (s == 1) VAI_LOGI("for inline 4K recording mode, use 4K model");
    }
    void* session = ctx->m_session[s];
    if (session == nullptr) {
        VAI_LOGE("m_session is null! only perform copy image!");
        return CopyFrame(out_img, in_img);
    }
    if (!vai::PxrtBoundOrLog("! only perform copy image!")) return CopyFrame(out_img, in_img);
    // Zero copy: the runtime reads and writes the caller's buffers.
    PXRT::TensorArray inputs = h.input_tensors[s];
    PXRT::TensorArray outputs = h.output_tensors[s];
    vai::mtk::PlaceFrame(inputs, vai::mtk::WrapPlane0(mPXRTCreateInTensorFunc, session,
                                                      h.mInputTensorByteSize[s][0], kTensorKind, in_img));
    vai::mtk::PlaceFrame(outputs, vai::mtk::WrapPlane0(mPXRTCreateOutTensorFunc, session,
                                                       h.mOutputTensorByteSize[s][0], kTensorKind, out_img));

    uint8_t nr = 0;
    if (params->extend_pars != nullptr) {
        nr = static_cast<uint8_t>(*static_cast<const uint32_t*>(params->extend_pars));
    } else {
        VAI_LOGE("extend input parameters is nullptr in project! Use adaptive calculate!");
        VAI_LOGV("aec info: luxIdx(%f), iso(%f), drc_gain(%f)", params->lux_idx, params->iso,
                 params->drc_gain);
        nr = NrStrength(c, params->iso);
    }
    VAI_LOGI("nr_strength is %d", nr);
    const uint8_t zs = ZoomScalar(cam, params->zoom_ratio);
    VAI_LOGI("zoom_ratio_scalar is %d", static_cast<int8_t>(zs));

    const size_t n = h.m_in_num[s];
    if (n == 2 || n == 3) {
        const size_t nr_bytes = h.mInputTensorByteSize[s][1] < vai::mtk::kStrengthBytes
                                    ? h.mInputTensorByteSize[s][1]
                                    : vai::mtk::kStrengthBytes;
        FillParam(inputs, 1, nr, nr_bytes, kTraceLineStrengthFill);
    }
    if (n == 3) {
        // Sized by session 0's zoom input, bounded by the tensor actually in use.
        const size_t zs_bytes = h.mInputTensorByteSize[0][2] < h.mInputTensorByteSize[s][2]
                                    ? h.mInputTensorByteSize[0][2]
                                    : h.mInputTensorByteSize[s][2];
        FillParam(inputs, 2, zs, zs_bytes, kTraceLineZoomFill);
    }
    const timespec t1 = util_get_timestamp();
    const int ret = h.interpreter->Run(session, &inputs, &outputs);
    if (ret != 0) {
        VAI_LOGE("Runtime_inference failed, err_code:%d", ret);
        return SDK_INVALID_MODEL_ERR;
    }
    if (ctx->dump_pars.dump_enable) Dump(ctx, out_img, "s[%d]_mtk_yuv_vainr_out", cam);
    const timespec t2 = util_get_timestamp();
    VAI_LOGV("pre_process elapsed time: %ldus", ElapsedUs(t0, t1));
    VAI_LOGV("inference elapsed time:   %ldus", ElapsedUs(t1, t2));
    VAI_LOGV("process total time:       %ldus\n", ElapsedUs(t0, t2));
    return SDK_SUCCESS;
}

}  // namespace MTK_VAINR_YUV_PROC
