// Tensor handling both MediaTek back-ends share: the frame's planes go to the runtime as tensors over
// the caller's own buffers, and small parameter inputs get tensors of the runtime's that stay for the
// life of the session.
#pragma once

#include <cinttypes>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "algocore/memory/ALGONativeGalloc.h"
#include "algocore/utils/vai_log.h"
#include "interface/pxrt_interface.h"
#include "interface/vai_types.h"

namespace vai {
namespace mtk {

// The verbose line per frame buffer, input first.
inline void LogBuffers(const vAIPROC::VAI_IMG_* in_img, const vAIPROC::VAI_IMG_* out_img) {
    for (const auto& [what, img] : {std::make_pair("input", in_img), std::make_pair("output", out_img)}) {
        VAI_LOGV("%s buffer: req_id=%" PRIu64
                 ", addr=%p, height=%d, width=%d, stride=%d, slice=%d, planseSize=%d, fd=%d\n",
                 what, img->req_id, img->plane_addr[0], img->height, img->width, img->stride[0],
                 img->slice[0], static_cast<int>(img->plane_size[0]), img->fd[0]);
    }
}

// A second input larger than this is not a parameter input.
constexpr size_t kMaxParamBytes = 255;
// Bytes of a strength the frame path writes into its parameter tensor.
constexpr size_t kStrengthBytes = 16;

// A tensor of `create` over plane 0 of `img`, its buffer and descriptor: nothing of the frame passes
// through the processor. Null when the runtime refuses.
inline std::shared_ptr<PXRT::ITensor> WrapPlane0(PXRTCreateTensorFn create, void* session, size_t bytes,
                                                 int32_t kind, const vAIPROC::VAI_IMG_* img) {
    return std::shared_ptr<PXRT::ITensor>(
        create(session, bytes, 0, 1, kind, img->plane_addr[0], img->fd[0], 0));
}

// Puts the frame's tensor into element 0 of a tensor list.
inline void PlaceFrame(PXRT::TensorArray& a, std::shared_ptr<PXRT::ITensor> t) {
    if (a.empty()) {
        a.push_back(std::move(t));
    } else {
        a[0] = std::move(t);
    }
}

// Parameter tensors for indexes 1..count-1 of `sizes`, appended as [t1, t1, t2, ...]: element 0 holds
// the place of the frame's tensor. Only into an empty list and when input 1 is small enough.
inline void AddParamTensors(PXRT::TensorArray& a, PXRTCreateTensorFn create, void* session,
                            const size_t* sizes, size_t count, int32_t kind) {
    if (!a.empty() || count < 2 || sizes[1] > kMaxParamBytes) return;
    for (size_t i = 1; i < count; ++i) {
        std::shared_ptr<PXRT::ITensor> t(
            create(session, sizes[i], static_cast<int32_t>(i), 1, kind, nullptr, -1, 0));
        if (i == 1) a.push_back(t);
        a.push_back(std::move(t));
    }
}

// Fills `bytes` of element `i`, when the list has such a tensor (`file`/`line` label the traced fill).
inline void FillParam(const PXRT::TensorArray& a, size_t i, uint8_t value, size_t bytes, const char* file,
                      int line) {
    if (i >= a.size() || !a[i]) return;
    vemo::Native::memset(a[i]->GetData(), value, bytes, file, line);
}

}  // namespace mtk
}  // namespace vai
