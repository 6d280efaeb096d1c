// Records exchanged between the camera HAL and libVideoAIProc. Layouts are part of the ABI.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vAIPROC {

// One image. Callers pass contiguous arrays; the first element's img_num is the count.
struct VAI_IMG_ {
    int8_t btw;         // bits per sample; above 8 means 16-bit little-endian words
    uint8_t img_num;    // images in the array (first element only)
    uint8_t plane_num;  // planes of this image, at most 4
    unsigned char* plane_addr[4];
    int32_t stride[4];       // bytes per row
    int32_t slice[4];        // rows per plane
    uint32_t plane_size[4];  // bytes per plane
    int32_t fd[4];           // buffer descriptors (logged only)
    int32_t width;
    int32_t height;
    uint32_t reserved0[2];
    uint64_t req_id;  // camera request number
    uint64_t reserved1;
};

// Algorithm modes (InitParams_::algo_mode).
enum : int32_t {
    VAI_ALGO_MODE_BYPASS = 0,
    VAI_ALGO_MODE_QCOM_YUV = 1,
    VAI_ALGO_MODE_MTK_YUV = 9,
    VAI_ALGO_MODE_MTK_RAW = 10,
};

struct InitParams_ {
    char project_name[16];                 // need not be NUL-terminated
    const char* model_path[5];             // per camera type
    const char* mtk_yuv_model_path[2][5];  // per camera mode and type
    const void* reserved0;
    const char* cfg_path;
    int32_t algo_mode;
    int32_t cam_type;
    int32_t cam_mode;
    uint8_t is_inline_mode;
};

struct ProcParams_ {
    uint64_t reserved0;
    float lux_idx;
    float iso;
    float drc_gain;
    uint32_t reserved1[8];
    int32_t cam_type;
    void* extend_pars;  // caller-chosen strengths, or null
    float zoom_ratio;
};

static_assert(offsetof(VAI_IMG_, img_num) == 1 && offsetof(VAI_IMG_, plane_num) == 2, "VAI_IMG_ layout");
static_assert(offsetof(VAI_IMG_, plane_addr) == 8 && offsetof(VAI_IMG_, stride) == 40, "VAI_IMG_ layout");
static_assert(offsetof(VAI_IMG_, slice) == 56 && offsetof(VAI_IMG_, plane_size) == 72, "VAI_IMG_ layout");
static_assert(offsetof(VAI_IMG_, fd) == 88 && offsetof(VAI_IMG_, width) == 104, "VAI_IMG_ layout");
static_assert(offsetof(VAI_IMG_, height) == 108 && offsetof(VAI_IMG_, req_id) == 120, "VAI_IMG_ layout");
static_assert(sizeof(VAI_IMG_) == 136, "VAI_IMG_ size");

static_assert(offsetof(InitParams_, model_path) == 16 && offsetof(InitParams_, mtk_yuv_model_path) == 56,
              "InitParams_ layout");
static_assert(offsetof(InitParams_, cfg_path) == 144 && offsetof(InitParams_, algo_mode) == 152,
              "InitParams_ layout");
static_assert(offsetof(InitParams_, cam_type) == 156 && offsetof(InitParams_, cam_mode) == 160,
              "InitParams_ layout");
static_assert(offsetof(InitParams_, is_inline_mode) == 164 && sizeof(InitParams_) == 168, "InitParams_ size");

static_assert(offsetof(ProcParams_, lux_idx) == 8 && offsetof(ProcParams_, iso) == 12, "ProcParams_ layout");
static_assert(offsetof(ProcParams_, drc_gain) == 16 && offsetof(ProcParams_, cam_type) == 52,
              "ProcParams_ layout");
static_assert(offsetof(ProcParams_, extend_pars) == 56 && offsetof(ProcParams_, zoom_ratio) == 64,
              "ProcParams_ layout");
static_assert(sizeof(ProcParams_) == 72, "ProcParams_ size");

}  // namespace vAIPROC
