#include "qcom/vainr_yuv/qcom_vainr_yuv_proc_sat.h"

#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <new>
#include <thread>

#include "algocore/memory/ALGOGalloc.h"
#include "algocore/memory/ALGONativeGalloc.h"
#include "algocore/utils/LogPrintf.h"
#include "algocore/utils/image_copy.h"
#include "algocore/utils/iso_bins.h"
#include "algocore/utils/packing.h"
#include "interface/pxrt_binding.h"
#include "interface/process_args.h"
#include "algocore/utils/status_code.h"
#include "algocore/utils/timing.h"
#include "algocore/utils/vai_log.h"

using vAIPROC::InitParams_;
using vAIPROC::ProcParams_;
using vAIPROC::VAI_IMG_;

using QCOM_VAINR_YUV_PROC::VAINR_CamPars_;
using QCOM_VAINR_YUV_PROC::VAINR_CfgPars_;
using QCOM_VAINR_YUV_PROC::VAINR_Ctx_;

namespace vai {
namespace qcom {
namespace {

constexpr char kVersion[] = "QCOM_Video_AINR_YUV_v0.0.2";
constexpr int kDevice = 5;
constexpr int kSessionFlags = 2048;
constexpr int32_t kTensorKind = 2;

// Labels this file's entries in the memory tracer's reports. The line labels stay fixed across edits
// of this file, so that reports from different builds can be compared.
constexpr const char* kSrcName = ::vemo::SourceBaseName(__FILE__);
constexpr int kTraceLineInstance = 128;
constexpr int kTraceLineRelease = 558;
constexpr int kTraceLineChromaCopy = 473;

// Camera types index the model names and the five configuration entries.
bool CamInRecord(int32_t cam) {
    return cam >= 0 && cam < kMaxCams;
}

PXRT::SessionOptions MakeOptions(const VAINR_CfgPars_& cfg, int cam) {
    PXRT::SessionOptions options{
        {"Identity"}, {2, 3, 0}, static_cast<int32_t>(cfg.cam[cam].BoostValue), 0, 0};
    VAI_LOGV("BoostValue is %d", options.boost);
    return options;
}

// CreateSession for camera `cam` into m_session[0]; a zero result with no session counts as failure.
bool CreateSession(VAINR_Ctx_* ctx, int cam) {
    const PXRT::SessionOptions options = MakeOptions(ctx->cfg, cam);
    const int ret = ctx->vai_handle.interpreter->CreateSession(ctx->model_name[cam], kDevice,
                                                               &ctx->m_session[0], &options, kSessionFlags);
    if (ret != 0 || ctx->m_session[0] == nullptr) {
        VAI_LOGE("CreateSession failed, return value:%d, session addr:%p, model path:%s", ret,
                 ctx->m_session[0], ctx->model_name[cam]);
        return false;
    }
    return true;
}

// The byte-size tables hold four tensors per session; a model with more is refused.
bool TensorCountFits(const char* what, size_t count) {
    if (count <= kMaxTensors) return true;
    VAI_LOGE("%s reported %zu tensors, more than %zu!", what, count, kMaxTensors);
    return false;
}

// Byte size of input (or output) tensor `i` of the current session into the size table.
bool QueryTensorSize(VAINR_Ctx_* ctx, bool input, size_t i) {
    VAI_HANDLE_& h = ctx->vai_handle;
    PXRT::Interpreter* interp = h.interpreter.get();
    if (input) {
        const int ret = interp->GetSessionInputSize(ctx->m_session[0], i, &h.mInputTensorByteSize[0][i]);
        if (ret != 0) {
            VAI_LOGE("GetSessionInputSize failed, return value:%d", ret);
            return false;
        }
        VAI_LOGV("mInputTensorByteSize[%d] %zu", static_cast<int>(i), h.mInputTensorByteSize[0][i]);
    } else {
        const int ret = interp->GetSessionOutputSize(ctx->m_session[0], i, &h.mOutputTensorByteSize[0][i]);
        if (ret != 0) {
            VAI_LOGE("GetSessionOutputSize failed, return value:%d", ret);
            return false;
        }
        VAI_LOGV("mOutputTensorByteSize %zu", h.mOutputTensorByteSize[0][i]);
    }
    return true;
}

// A runtime-allocated tensor of the size queried for input (or output) `i`.
std::shared_ptr<PXRT::ITensor> NewTensor(VAINR_Ctx_* ctx, bool input, size_t i) {
    const VAI_HANDLE_& h = ctx->vai_handle;
    PXRTCreateTensorFn create = input ? mPXRTCreateInTensorFunc : mPXRTCreateOutTensorFunc;
    const size_t bytes = input ? h.mInputTensorByteSize[0][i] : h.mOutputTensorByteSize[0][i];
    return std::shared_ptr<PXRT::ITensor>(
        create(ctx->m_session[0], bytes, static_cast<int32_t>(i), 1, kTensorKind, nullptr, -1, 0));
}

// How a session's tensors are placed. Initialisation appends every tensor to empty arrays, querying
// each size just before its tensor. A switch queries all sizes first and, since it keeps the array
// lengths, puts every new tensor into element 0 (one input and one output are assumed).
enum class Build { kInit, kSwitch };

bool QueryCount(VAINR_Ctx_* ctx, bool input) {
    VAI_HANDLE_& h = ctx->vai_handle;
    PXRT::Interpreter* interp = h.interpreter.get();
    const int ret = input ? interp->GetSessionInputNumber(ctx->m_session[0], &h.m_in_num[0])
                          : interp->GetSessionOutputNumber(ctx->m_session[0], &h.m_out_num[0]);
    if (ret != 0) {
        VAI_LOGE(input ? "GetSessionInputNumber failed, return value:%d"
                       : "GetSessionOutputNumber failed, return value:%d",
                 ret);
        return false;
    }
    return TensorCountFits(input ? "GetSessionInputNumber" : "GetSessionOutputNumber",
                           input ? h.m_in_num[0] : h.m_out_num[0]);
}

// A switch keeps the array lengths, so after the first session every new tensor goes into element 0.
void ReplaceFirst(PXRT::TensorArray& array, std::shared_ptr<PXRT::ITensor> t, size_t i, bool input) {
    if (array.empty()) {
        VAI_LOGV(input ? "input tensor vecotr is empty, pushing tensor %d"
                       : "output tensor vecotr is empty, pushing tensor %d",
                 static_cast<int>(i));
        array.push_back(std::move(t));
    } else {
        VAI_LOGV(input ? "input tensor vecotr not empty, totoal length %lu, replace [0] tensor %d"
                       : "output tensor vecotr not empty, totoal length %lu, replace [0] tensor %d",
                 static_cast<unsigned long>(array.size()), static_cast<int>(i));
        array[0] = std::move(t);
    }
}

// Session, tensor counts, sizes and tensors for camera `cam`: SDK_SUCCESS, kSwitchSessionFailed or
// kSwitchRuntimeFailed.
int BuildSession(VAINR_Ctx_* ctx, int cam, Build how) {
    VAI_HANDLE_& h = ctx->vai_handle;
    const bool init = how == Build::kInit;
    if (!CreateSession(ctx, cam)) return kSwitchSessionFailed;
    if (init && !(QueryCount(ctx, true) && QueryCount(ctx, false))) return kSwitchRuntimeFailed;
    for (const bool input : {true, false}) {
        if (!init && !QueryCount(ctx, input)) return kSwitchRuntimeFailed;
        for (size_t i = 0; i < (input ? h.m_in_num[0] : h.m_out_num[0]); ++i) {
            if (!QueryTensorSize(ctx, input, i)) return kSwitchRuntimeFailed;
            if (init) (input ? h.input_tensors[0] : h.output_tensors[0]).push_back(NewTensor(ctx, input, i));
        }
    }
    for (const bool input : {true, false}) {
        for (size_t i = 0; !init && i < (input ? h.m_in_num[0] : h.m_out_num[0]); ++i) {
            ReplaceFirst(input ? h.input_tensors[0] : h.output_tensors[0], NewTensor(ctx, input, i), i,
                         input);
        }
    }
    return SDK_SUCCESS;
}

// Releases the session's tensors (their slots stay, empty) and the session, as teardown and a model
// switch both do. `where` names the caller in the missing-session warning. False when there is no
// interpreter to release the session through.
bool ReleaseSession(VAINR_Ctx_* ctx, bool log_tensors, const char* where) {
    VAI_HANDLE_& h = ctx->vai_handle;
    for (const bool input : {true, false}) {
        PXRT::TensorArray& a = input ? h.input_tensors[0] : h.output_tensors[0];
        const size_t n = input ? h.m_in_num[0] : h.m_out_num[0];
        for (size_t i = 0; i < n && i < a.size(); ++i) {
            if (!a[i]) continue;
            if (log_tensors) {
                VAI_LOGV(input ? "resetting input tensor %d" : "resetting output tensor %d",
                         static_cast<int>(i));
            }
            a[i].reset();
        }
    }
    if (!h.interpreter) return false;
    if (ctx->m_session[0] != nullptr) {
        h.interpreter->ReleaseSession(ctx->m_session[0]);
        ctx->m_session[0] = nullptr;
    } else {
        VAI_LOGW("runtime session is nullptr in %s!", where);
    }
    return true;
}

// Everything of initialisation after the instance exists; false sends the caller to teardown.
bool BuildInstance(VAINR_Ctx_* ctx, const InitParams_* params) {
    VAI_HANDLE_& h = ctx->vai_handle;
    h.interpreter.reset(mPXRTCreateInterpreterFunc());
    if (!h.interpreter) {
        VAI_LOGE("interpreter == nullptr");
        return false;
    }
    if (!LoadVAINRCfg_Qcom(params->cfg_path, params->project_name, &ctx->cfg)) {
        VAI_LOGE("Cfg parse failed in qcom_vainr_yuv_proc!");
        return false;
    }
    const uint32_t dump_idx = ctx->cfg.DumpRangeIdx;
    ctx->dump_pars.dump_enable = dump_idx != 0;
    ctx->dump_pars.dump_start = dump_idx / 1000;
    ctx->dump_pars.dump_end = dump_idx % 1000;

    // Indexes the model names and the camera table: refused rather than read past them. A camera the
    // file does not configure keeps the built-in defaults and is valid.
    const int cam = params->cam_type;
    if (!CamInRecord(cam)) {
        VAI_LOGE("cam_type(%d) is out of the camera types 0..%d in initial function!", cam, kMaxCams - 1);
        return false;
    }
    ctx->last_cam_type = static_cast<uint32_t>(cam);
    g_log_level = static_cast<unsigned char>(ctx->cfg.LogLevel);

    for (int i = 0; i < vai::qcom::kMaxCams; ++i) {
        if (params->model_path[i] != nullptr) {
            std::snprintf(ctx->model_name[i], sizeof(ctx->model_name[i]), "%s", params->model_path[i]);
        }
    }
    VAI_LOGE("cam_type:%d, model_name:%s, m_session[0]:%p", cam, ctx->model_name[cam], ctx->m_session[0]);
    if (BuildSession(ctx, cam, Build::kInit) != SDK_SUCCESS) return false;

    VAI_LOGV("m_in_num[0] and m_out_num[0] of %s are: %zu, %zu", ctx->model_name[cam], h.m_in_num[0],
             h.m_out_num[0]);
    VAI_LOGV("pxrt version  %s", h.interpreter->GetVersion());
    return true;
}

// The planes the kernels touch exist and hold every row pair of the frame: luma, and chroma at half
// height when `planes` is 2, all addressed with stride[0].
bool PlanesHoldFrame(const VAI_IMG_& img, int planes) {
    const int64_t pairs = img.height / 2, stride = img.stride[0];
    if (img.plane_num < planes || stride < int64_t(img.width / 2) * 4) return false;
    for (int p = 0; p < planes; ++p) {
        const int64_t rows = p == 0 ? 2 * pairs : pairs;
        if (img.plane_addr[p] == nullptr || int64_t(img.plane_size[p]) < rows * stride) return false;
    }
    return true;
}

// What the kernels refuse, checked before anything is packed, so that such a frame is copied instead
// of leaving the output half written: 16-bit samples, two images of one geometry (the kernels address
// the input with the output's stride and size) whose planes hold the frame, and tensors that hold the
// packed frame.
bool FrameFits(const VAINR_Ctx_& ctx, const VAI_IMG_& out, const VAI_IMG_& in) {
    if (in.btw <= 8 || out.btw <= 8) {
        VAI_LOGE("btw of input(%d) and output(%d) image must be above 8 bits! execute ALGO_MEMCPY", in.btw,
                 out.btw);
        return false;
    }
    const int planes = ctx.cfg.processType == 1 ? 2 : 1;
    if (in.width != out.width || in.height != out.height || in.stride[0] != out.stride[0] ||
        !PlanesHoldFrame(in, planes) || !PlanesHoldFrame(out, planes)) {
        VAI_LOGE("input (%dx%d, stride %d, %d planes) and output (%dx%d, stride %d, %d planes) do not hold "
                 "one %d-plane frame! execute ALGO_MEMCPY",
                 in.width, in.height, in.stride[0], in.plane_num, out.width, out.height, out.stride[0],
                 out.plane_num, planes);
        return false;
    }
    const VAI_HANDLE_& h = ctx.vai_handle;
    const size_t channels = ctx.cfg.processType == 1 ? 6 : 4;
    const size_t need = static_cast<size_t>(out.width / 2) * static_cast<size_t>(out.height / 2) * channels;
    const bool present = !h.input_tensors[0].empty() && h.input_tensors[0][0] &&
                         !h.output_tensors[0].empty() && h.output_tensors[0][0];
    if (present && h.mInputTensorByteSize[0][0] >= need && h.mOutputTensorByteSize[0][0] >= need) return true;
    VAI_LOGE("tensors (in:%zu, out:%zu bytes) cannot hold the %dx%d frame (%zu bytes)! execute ALGO_MEMCPY",
             present ? h.mInputTensorByteSize[0][0] : 0, present ? h.mOutputTensorByteSize[0][0] : 0,
             out.width, out.height, need);
    return false;
}

}  // namespace
}  // namespace qcom
}  // namespace vai

namespace QCOM_VAINR_YUV_PROC {

using namespace vai::qcom;

const char* VAINR_GetVersion() {
    return kVersion;
}

void* VAINR_Init(const InitParams_* params) {
    if (params == nullptr) {
        VAI_LOGE("Input init pars is nullptr in initial function!");
        return nullptr;
    }
    const timespec t0 = util_get_timestamp();
    if (!vai::PxrtLoad()) return nullptr;

    auto* ctx = new (std::nothrow) VAINR_Ctx_();
    if (ctx == nullptr) {
        VAI_LOGE("VAINR_Ctx_ allocation failed in initial function!");
        vai::PxrtUnload();
        return nullptr;
    }
    vai::qcom::SetDefaultCfg(&ctx->cfg);
    vemo::Native::create(ctx, sizeof(*ctx), kSrcName, kTraceLineInstance);

    bool built = false;
    try {
        built = BuildInstance(ctx, params);
    } catch (const std::exception& e) {
        VAI_LOGE("initial function failed: %s", e.what());
    }
    if (!built) {
        VAINR_Uninit(ctx);
        return nullptr;
    }
    VAI_LOGV("init elapsed time is %ldus", vai::ElapsedUs(t0, util_get_timestamp()));
    return ctx;
}

int VAINR_Uninit(void* handle) {
    if (handle == nullptr) {
        VAI_LOGE("Input handle is nullptr in uninit!");
        return SDK_UNINIT_ERROR;
    }
    auto* ctx = static_cast<VAINR_Ctx_*>(handle);
    const timespec t0 = util_get_timestamp();

    // A running switch still creates tensors through the runtime: it ends before the runtime is closed.
    while (ctx->switch_done.load(std::memory_order_acquire) == 0) {
        VAI_LOGE("On model switching! Wait in VAINR_Uninit!");
        std::this_thread::yield();
    }
    // Closed before its objects are released, which still run its code: the runtime must stay mapped
    // (as a system library does) while any of them lives.
    vai::PxrtUnload();

    if (ReleaseSession(ctx, false, "uninit")) {
        ctx->vai_handle.interpreter.reset();
    } else {
        VAI_LOGE("interpreter is nullptr in uninit!");
    }
    vemo::AlgorithmMemory::nativeMemDec(vemo::AlgorithmMemory::mapDelete(ctx, kSrcName, kTraceLineRelease));
    delete ctx;
    VAI_LOGV("uninit elapsed time is %ldus", vai::ElapsedUs(t0, util_get_timestamp()));
    return SDK_SUCCESS;
}

int VAINR_Process(void* handle, VAI_IMG_* out, VAI_IMG_* in, const ProcParams_* params) {
    if (const int status = vai::CheckProcessArgs(handle, out, in, params); status != SDK_SUCCESS) {
        return status;
    }
    auto* ctx = static_cast<VAINR_Ctx_*>(handle);
    VAI_LOGV("input buffer: addr=%p, height=%d, width=%d, stride=%d, slice=%d, planseSize=%d, fd=%d\n",
             in->plane_addr[0], in->height, in->width, in->stride[0], in->slice[0],
             static_cast<int>(in->plane_size[0]), in->fd[0]);
    VAI_LOGV("output buffer: addr=%p, height=%d, width=%d, stride=%d, slice=%d, planseSize=%d, fd=%d\n",
             out->plane_addr[0], out->height, out->width, out->stride[0], out->slice[0],
             static_cast<int>(out->plane_size[0]), out->fd[0]);
    const timespec t0 = util_get_timestamp();
    const int32_t cam = params->cam_type;
    VAINR_CfgPars_& cfg = ctx->cfg;

    if (!CamInRecord(cam)) {
        VAI_LOGE("cam_type(%d) is out of the camera types 0..%d! execute ALGO_MEMCPY in vAINR_yuv_qcom mode!",
                 cam, kMaxCams - 1);
        return CopyImage(out, in);
    }
    if (cfg.cam[cam].processEnable == 0) {
        VAI_LOGE("algo processing is disabled in cfg file! execute ALGO_MEMCPY in vAINR_yuv_qcom mode!");
        return CopyImage(out, in);
    }
    // The formatted per-camera name is not used: dump files carry the fixed tag, as tools expect.
    if (ctx->dump_pars.dump_enable) {
        DumpFile(in->plane_addr[0], static_cast<unsigned>(in->width), static_cast<unsigned>(in->height),
                 in->plane_size[0], "qcom_yuv_vainr_in", "packed_word", in->req_id, &ctx->dump_pars);
    }
    if (static_cast<uint32_t>(cam) != ctx->last_cam_type) {
        ctx->switch_pending = 1;
        ctx->frame_count = 0;
        ctx->last_cam_type = static_cast<uint32_t>(cam);
        return CopyImage(out, in);
    }
    ctx->frame_count += 1;
    ctx->last_cam_type = static_cast<uint32_t>(cam);
    if (ctx->switch_done.load(std::memory_order_acquire) == 0) {
        VAI_LOGW("Last ModelSwitch not finish! bypass the vainr process");
        return CopyImage(out, in);
    }
    if (ctx->frame_count <= cfg.SwitchFrameNum) {
        VAI_LOGI("duration num:%d samllar than switch_thr:%d", static_cast<int>(ctx->frame_count),
                 static_cast<int>(cfg.SwitchFrameNum));
        return CopyImage(out, in);
    }
    if (ctx->switch_pending == 1) {
        // Everything the frame path writes is written before the thread starts: a failing switch
        // destroys the instance.
        ctx->switch_pending = 0;
        ctx->switch_done.store(0, std::memory_order_relaxed);
        try {
            std::thread(vai::qcom::ModelSwitch, ctx, static_cast<int>(cam)).detach();
            VAI_LOGI("Start switch to %d", static_cast<int>(cam));
        } catch (const std::exception& e) {
            ctx->switch_pending = 1;
            ctx->switch_done.store(1, std::memory_order_relaxed);
            VAI_LOGE("model switch thread failed to start: %s", e.what());
        }
        return CopyImage(out, in);
    }
    VAI_LOGV("vai_handle is: %p (null is %p), aborting", handle, static_cast<void*>(nullptr));

    VAI_HANDLE_& h = ctx->vai_handle;
    if (!FrameFits(*ctx, *out, *in)) return CopyImage(out, in);
    void* data = h.input_tensors[0][0]->GetData();
    if (cfg.processType == 1) {
        SpaceToDepthYuv_NEON(data, in);
    } else {
        SpaceToDepthGray_NEON(data, in);
    }
    const timespec t1 = util_get_timestamp();

    const int ret = h.interpreter->Run(ctx->m_session[0], &h.input_tensors[0], &h.output_tensors[0]);
    if (ret != 0) {
        VAI_LOGE("Runtime_inference failed, err_code:%d", ret);
        return SDK_INVALID_MODEL_ERR;
    }
    const timespec t2 = util_get_timestamp();

    VAI_LOGV("aec info: luxIdx(%f), iso(%f), drc_gain(%f)", params->lux_idx, params->iso, params->drc_gain);
    const vai::qcom::Strengths st = vai::qcom::ComputeStrengths(cfg.cam[cam], params->iso * params->drc_gain);
    VAI_LOGI("y_nr_strength is %d, uv_nr_strength is %d", st.y, st.uv);

    const void* res = h.output_tensors[0][0]->GetData();
    const unsigned char strength[2] = {st.y, st.uv};
    const bool in_place = in->plane_addr[0] == out->plane_addr[0] && in->plane_addr[1] == out->plane_addr[1];
    if (cfg.processType == 1) {
        if (in_place) {
            DepthToSpaceYuv_NEON(out, res, strength);
        } else {
            DepthToSpaceYuv_NEON(out, in, res, strength);
        }
    } else {
        if (in_place) {
            DepthToSpaceGray_NEON(out, res, strength);
        } else {
            DepthToSpaceGray_NEON(out, in, res, strength);
        }
        vemo::Native::memcpy(out->plane_addr[1], in->plane_addr[1], out->plane_size[1], in->plane_size[1],
                             out->plane_size[1], kSrcName, kTraceLineChromaCopy);
    }
    if (ctx->dump_pars.dump_enable) {
        // Tagged like the input dump, as the dump readers expect.
        DumpFile(out->plane_addr[0], static_cast<unsigned>(out->width), static_cast<unsigned>(out->height),
                 out->plane_size[0], "qcom_yuv_vainr_in", "packed_word", out->req_id, &ctx->dump_pars);
    }
    const timespec t3 = util_get_timestamp();
    VAI_LOGV("pre_process elapsed time:  %ldus", vai::ElapsedUs(t0, t1));
    VAI_LOGV("inference elapsed time:    %ldus", vai::ElapsedUs(t1, t2));
    VAI_LOGV("post_process elapsed time: %ldus", vai::ElapsedUs(t2, t3));
    VAI_LOGV("process total time:        %ldus", vai::ElapsedUs(t0, t3));
    return SDK_SUCCESS;
}

}  // namespace QCOM_VAINR_YUV_PROC

namespace vai {
namespace qcom {

namespace {

int SwitchBody(VAINR_Ctx_* ctx, int cam) {
    VAI_HANDLE_& h = ctx->vai_handle;
    if (!vai::PxrtBoundOrLog(" in VAINR_ModelSwitch!")) return kSwitchRuntimeFailed;
    if (!ReleaseSession(ctx, true, "VAINR_ModelSwitch")) {
        VAI_LOGW("interpreter is nullptr in VAINR_ModelSwitch! Recreate interpreter now!");
        h.interpreter.reset(mPXRTCreateInterpreterFunc());
        if (!h.interpreter) {
            VAI_LOGE("interpreter == nullptr");
            return kSwitchSessionFailed;
        }
    }
    VAI_LOGV("Release session sucess!");
    return BuildSession(ctx, cam, Build::kSwitch);
}

}  // namespace

int ModelSwitch(void* handle, int cam) {
    if (handle == nullptr) {
        VAI_LOGE("Input handle is nullptr in uninit!");
        return SDK_UNINIT_ERROR;
    }
    auto* ctx = static_cast<VAINR_Ctx_*>(handle);
    ctx->switch_done.store(0, std::memory_order_relaxed);
    int ret = kSwitchRuntimeFailed;
    try {
        ret = SwitchBody(ctx, cam);
    } catch (const std::exception& e) {
        VAI_LOGE("VAINR_ModelSwitch failed: %s", e.what());
    }
    if (ret == SDK_SUCCESS) {
        // Logged before the hand-off: afterwards the instance may already be gone.
        VAI_LOGV("Model Switch sucess! Switched to %s", ctx->model_name[cam]);
        ctx->switch_done.store(1, std::memory_order_release);
        return SDK_SUCCESS;
    }
    ctx->switch_done.store(1, std::memory_order_release);
    QCOM_VAINR_YUV_PROC::VAINR_Uninit(ctx);
    return ret;
}

}  // namespace qcom
}  // namespace vai
