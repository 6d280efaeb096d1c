#include "mtk/vainr_raw/mtk_vainr_raw_proc.h"

#include <cinttypes>
#include <cstdio>
#include <iterator>

#include "algocore/utils/iso_bins.h"
#include "algocore/utils/status_code.h"
#include "algocore/utils/timing.h"
#include "algocore/utils/vai_log.h"
#include "interface/process_args.h"
#include "interface/pxrt_binding.h"
#include "mtk/common/mtk_cfg_reader.h"
#include "mtk/common/mtk_lifecycle.h"
#include "mtk/common/mtk_tensors.h"

using vAIPROC::InitParams_;
using vAIPROC::ProcParams_;
using vAIPROC::VAI_IMG_;

using MTK_VAINR_RAW_PROC::VAINR_CamPars_;
using MTK_VAINR_RAW_PROC::VAINR_Ctx_;

namespace vai {
namespace mtk_raw {
namespace {

constexpr char kVersion[] = "MTK_Video_AINR_RAW_v0.0.5";
constexpr int kDevice = 1;
constexpr int kSessionFlags = 2048;
constexpr int32_t kParamKind = 10;
constexpr int32_t kFrameKind = 11;  // a tensor over a caller buffer and its descriptor
constexpr char kSrcName[] = "mtk_vainr_raw_proc";

bool CamInRecord(int32_t cam) {
    return cam >= 0 && cam < kMaxCams;
}

// Tensors belong to the session they were made for, so they go with it. `missing_session_msg`, when
// set, is the warning for an instance without session.
void ReleaseModel(VAINR_Ctx_* ctx, const char* missing_session_msg) {
    VAI_HANDLE_& h = ctx->vai_handle;
    h.input_tensors[0].clear();
    h.output_tensors[0].clear();
    if (ctx->m_session[0] != nullptr) {
        h.interpreter->ReleaseSession(ctx->m_session[0]);
        ctx->m_session[0] = nullptr;
    } else if (missing_session_msg != nullptr) {
        VAI_LOGW("%s", missing_session_msg);
    }
}

// Byte sizes of the session's inputs or outputs into `sizes`, refusing more than the handle holds.
bool ReadSizes(PXRT::Interpreter* interp, void* session, bool input, size_t* count, size_t* sizes) {
    int ret = input ? interp->GetSessionInputNumber(session, count)
                    : interp->GetSessionOutputNumber(session, count);
    if (ret != 0) {
        VAI_LOGE(input ? "GetSessionInputNumber failed, return value:%d"
                       : "GetSessionOutputNumber failed, return value:%d",
                 ret);
        return false;
    }
    if (*count > kMaxTensors) {
        VAI_LOGE("session reports %zu %s, more than %zu!", *count, input ? "inputs" : "outputs", kMaxTensors);
        return false;
    }
    for (size_t i = 0; i < *count; ++i) {
        ret = input ? interp->GetSessionInputSize(session, i, &sizes[i])
                    : interp->GetSessionOutputSize(session, i, &sizes[i]);
        if (ret != 0) {
            VAI_LOGE(input ? "GetSessionInputSize failed, return value:%d"
                           : "GetSessionOutputSize failed, return value:%d",
                     ret);
            return false;
        }
        if (input) {
            VAI_LOGV("mInputTensorByteSize[%d] %zu", static_cast<int>(i), sizes[i]);
        } else {
            VAI_LOGV("mOutputTensorByteSize %zu", sizes[i]);
        }
    }
    return true;
}

bool SetUpSession(VAINR_Ctx_* ctx, const char* model, const PXRT::SessionOptions& options) {
    VAI_HANDLE_& h = ctx->vai_handle;
    PXRT::Interpreter* interp = h.interpreter.get();
    const int ret = interp->CreateSession(model, kDevice, &ctx->m_session[0], &options, kSessionFlags);
    if (ret != 0 || ctx->m_session[0] == nullptr) {
        VAI_LOGE("CreateSession failed, return value:%d, session addr:%p, model path:%s", ret,
                 ctx->m_session[0], model);
        return false;
    }
    void* session = ctx->m_session[0];
    if (!ReadSizes(interp, session, true, &h.m_in_num[0], h.mInputTensorByteSize[0])) return false;
    mtk::AddParamTensors(h.input_tensors[0], mPXRTCreateInTensorFunc, session, h.mInputTensorByteSize[0],
                         h.m_in_num[0], kParamKind);
    if (!ReadSizes(interp, session, false, &h.m_out_num[0], h.mOutputTensorByteSize[0])) return false;
    mtk::AddParamTensors(h.output_tensors[0], mPXRTCreateOutTensorFunc, session, h.mOutputTensorByteSize[0],
                         h.m_out_num[0], kParamKind);
    return true;
}

int8_t Clamp8(int32_t v) {
    return static_cast<int8_t>(v < -128 ? -128 : v > 127 ? 127 : v);
}

void FillStrength(const VAINR_Ctx_* ctx, size_t i, int8_t value, int line) {
    const size_t size = ctx->vai_handle.mInputTensorByteSize[0][i];
    mtk::FillParam(ctx->vai_handle.input_tensors[0], i, static_cast<uint8_t>(value),
                   size < mtk::kStrengthBytes ? size : mtk::kStrengthBytes, kSrcName, line);
}

void Dump(VAINR_Ctx_* ctx, const VAI_IMG_* img, const char* tag_format, int32_t cam) {
    char tag[256];
    std::snprintf(tag, sizeof(tag), tag_format, cam);
    DumpFile(img->plane_addr[0], static_cast<unsigned>(img->width), static_cast<unsigned>(img->height),
             img->plane_size[0], tag, "packed_word", img->req_id, &ctx->dump_pars);
}

// What this back-end adds to the life cycle both MediaTek back-ends share.
struct Lifecycle {
    using Ctx = VAINR_Ctx_;
    static constexpr const char* kCfgOwner = kSrcName;
    static void Created(VAINR_Ctx_* ctx) {
        SetDefaultCfg(&ctx->cfg);
        ctx->cur_cam_type = 1;  // until the configuration is read
    }
    static void CopyModelNames(VAINR_Ctx_* ctx, const InitParams_& pars) {
        for (size_t i = 0; i < std::size(ctx->model_name); ++i) {
            const char* path = pars.model_path[i];
            if (path != nullptr) std::snprintf(ctx->model_name[i], sizeof(ctx->model_name[i]), "%s", path);
        }
    }
    static void DropTensors(VAINR_Ctx_* ctx) {
        ctx->vai_handle.input_tensors[0].clear();
        ctx->vai_handle.output_tensors[0].clear();
    }
    static void ReleaseSessions(VAINR_Ctx_* ctx) {
        ReleaseModel(ctx, "runtime session is nullptr in uninit!");
    }
    static void Untrace(VAINR_Ctx_*) {}
    static void ModelUninit(VAINR_Ctx_* ctx) {
        ReleaseModel(ctx, "runtime session is nullptr in VAINR_Model_Uninit!");
    }
};

}  // namespace
}  // namespace mtk_raw
}  // namespace vai

namespace MTK_VAINR_RAW_PROC {

using namespace vai::mtk_raw;
using vai::ElapsedUs;
using vai::mtk::CopyFrame;

const char* VAINR_GetVersion() {
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
    ctx->cur_cam_type = cam;
    // It indexes the model names and the camera table. Like every other failure here, refusing it
    // destroys the instance, so a failed set-up always means the handle is gone.
    if (!CamInRecord(cam)) {
        VAI_LOGE("cam_type(%d) is out of the camera types 0..%d in VAINR_Model_Init!", cam, kMaxCams - 1);
        VAINR_Uninit(ctx);
        return -1;
    }
    if (!vai::PxrtBoundOrLog(" in VAINR_Model_Init!")) {
        VAINR_Uninit(ctx);
        return -1;
    }
    const PXRT::SessionOptions options{
        {}, {2, 0, 1}, static_cast<int32_t>(ctx->cfg.camPars[cam].BoostValue), 0, 0};
    VAI_LOGV("BoostValue is %d", options.boost);
    VAI_HANDLE_& h = ctx->vai_handle;
    if (!h.interpreter) {
        VAI_LOGE("interpreter == nullptr in VAINR_Model_Init, need recreate!");
        h.interpreter.reset(mPXRTCreateInterpreterFunc != nullptr ? mPXRTCreateInterpreterFunc() : nullptr);
        if (!h.interpreter) {
            VAI_LOGE("interpreter == nullptr");
            ctx->interp_failed = 1;
            VAINR_Uninit(ctx);
            return -1;
        }
    }
    // A second set-up replaces the first instead of leaking its session.
    ReleaseModel(ctx, nullptr);
    VAI_LOGD("cam_type:%d, model_name:%s, m_session[0]:%p", cam, ctx->model_name[cam], ctx->m_session[0]);
    if (!SetUpSession(ctx, ctx->model_name[cam], options)) {
        VAINR_Uninit(ctx);
        return -1;
    }
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
        VAI_LOGE("cam_type(%d) is out of the camera types 0..%d! execute copy in vAINR_raw_mtk mode!", cam,
                 kMaxCams - 1);
        return CopyFrame(out_img, in_img);
    }
    const VAINR_CamPars_& c = ctx->cfg.camPars[cam];
    if (c.processEnable == 0) {
        VAI_LOGE("algo processing is disabled in cfg file! execute copy in vAINR_raw_mtk mode!");
        return CopyFrame(out_img, in_img);
    }
    VAI_HANDLE_& h = ctx->vai_handle;
    void* session = ctx->m_session[0];
    if (session == nullptr) {
        VAI_LOGE("m_session is null! only perform copy image!");
        return CopyFrame(out_img, in_img);
    }
    if (!vai::PxrtBoundOrLog("! only perform copy image!")) return CopyFrame(out_img, in_img);
    if (ctx->dump_pars.dump_enable) Dump(ctx, in_img, "s[%d]_mtk_raw_vainr_in", cam);

    // Zero copy: the runtime reads and writes the caller's buffers through their descriptors.
    auto in_t = vai::mtk::WrapPlane0(mPXRTCreateInTensorFunc, session, h.mInputTensorByteSize[0][0],
                                     kFrameKind, in_img);
    auto out_t = vai::mtk::WrapPlane0(mPXRTCreateOutTensorFunc, session, h.mOutputTensorByteSize[0][0],
                                      kFrameKind, out_img);
    if (!in_t || !out_t) {
        VAI_LOGE("frame tensor creation failed! only perform copy image!");
        return CopyFrame(out_img, in_img);
    }
    vai::mtk::PlaceFrame(h.input_tensors[0], std::move(in_t));
    vai::mtk::PlaceFrame(h.output_tensors[0], std::move(out_t));

    int8_t nr = 0, ee = 0;
    if (params->extend_pars != nullptr) {
        const auto* ext = static_cast<const int32_t*>(params->extend_pars);
        nr = Clamp8(ext[0]);
        ee = Clamp8(ext[1]);
    } else {
        VAI_LOGE("extend input parameters is nullptr in lirp project! Use adaptive calculate!");
        VAI_LOGV("aec info: luxIdx(%f), iso(%f), drc_gain(%f)", params->lux_idx, params->iso,
                 params->drc_gain);
        Strengths(c, params->iso * params->drc_gain, &nr, &ee);
    }
    VAI_LOGI("nr_strength is %d, ee_strength is %d", nr, ee);
    const size_t n = h.m_in_num[0];
    if (n == 2 || n == 3) FillStrength(ctx, 1, nr, __LINE__);
    if (n == 3) FillStrength(ctx, 2, ee, __LINE__);

    const timespec t1 = util_get_timestamp();
    const int ret = h.interpreter->Run(session, &h.input_tensors[0], &h.output_tensors[0]);
    if (ret != 0) {
        VAI_LOGE("Runtime_inference failed, err_code:%d", ret);
        return SDK_INVALID_MODEL_ERR;
    }
    if (ctx->dump_pars.dump_enable) Dump(ctx, out_img, "s[%d]_mtk_raw_vainr_out", cam);
    const timespec t2 = util_get_timestamp();
    VAI_LOGV("pre_process elapsed time: %ldus", ElapsedUs(t0, t1));
    VAI_LOGV("inference elapsed time:   %ldus", ElapsedUs(t1, t2));
    VAI_LOGV("process total time:       %ldus\n", ElapsedUs(t0, t2));
    return SDK_SUCCESS;
}

}  // namespace MTK_VAINR_RAW_PROC
