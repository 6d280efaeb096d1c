// The MediaTek frame paths (YUV, mode 9; RAW, mode 10) with a runtime whose Run does nothing, at 1080p
// and 4K, against one 64-byte memcpy timed in the same run. Frames are never touched on the processor,
// so the cost should not depend on the frame size; "vs_memcpy" is the frame path's time over the copy's.
#include <benchmark/benchmark.h>

#include "bench_clock.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "mtk/vainr_raw/mtk_vainr_raw_proc.h"
#include "mtk/vainr_yuv/mtk_vainr_yuv_proc.h"
#include "pxrt_test_control.h"

namespace {

using vai_bench::Now;
using vAIPROC::InitParams_;
using vAIPROC::ProcParams_;
using vAIPROC::VAI_IMG_;

struct Backend {
    int mode;
    const char* cam_keys;  // the entry's keys besides the tables
    size_t (*frame_bytes)(int w, int h);
    size_t detail_bytes;  // the third input: zoom (YUV) or detail strength (RAW)
    void* (*init)(const InitParams_*);
    int (*model_init)(void*, const InitParams_*);
    int (*process)(void*, VAI_IMG_*, VAI_IMG_*, const ProcParams_*);
    int (*model_uninit)(void*);
    int (*uninit)(void*);
};

const Backend kYuv = {9,
                      "\"BoostValue4K\": 100, \"BoostValue1080P\": 100",
                      [](int w, int h) { return size_t(w) * h * 3 / 2; },
                      4,
                      MTK_VAINR_YUV_PROC::VAINR_Init,
                      MTK_VAINR_YUV_PROC::VAINR_Model_Init,
                      MTK_VAINR_YUV_PROC::VAINR_Process,
                      MTK_VAINR_YUV_PROC::VAINR_Model_Uninit,
                      MTK_VAINR_YUV_PROC::VAINR_Uninit};
const Backend kRaw = {10,
                      "\"BoostValue\": 100",
                      [](int w, int h) { return size_t(w) * h * 10 / 8; },  // packed 10-bit words
                      16,
                      MTK_VAINR_RAW_PROC::VAINR_Init,
                      MTK_VAINR_RAW_PROC::VAINR_Model_Init,
                      MTK_VAINR_RAW_PROC::VAINR_Process,
                      MTK_VAINR_RAW_PROC::VAINR_Model_Uninit,
                      MTK_VAINR_RAW_PROC::VAINR_Uninit};

void BM_MtkProcessVsMemcpy(benchmark::State& state, const Backend& b) {
    const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
    const size_t frame_bytes = b.frame_bytes(w, h);
    // Frame tensors wrap the caller's buffers; only the small parameter inputs are the runtime's.
    pxrt_test::SetDefaultLayout({{frame_bytes, 16, b.detail_bytes}, {frame_bytes}});
    pxrt_test::SetRecording(false);
    setenv("VAI_PXRT_LIBRARY", VAI_TEST_RUNTIME_PATH, 1);

    // Log level 0: per-frame lines would time the host's stderr.
    const std::string cfg = "/tmp/mtk_process_bench_" + std::to_string(b.mode) + ".json";
    std::ofstream(cfg) << "{\"Bench\": {\"LogLevel\": 0, \"processType\": 0, \"DumpRangeIdx\": 0, "
                          "\"FrontCamNum\": 0, \"RearCamNum\": 1, \"SwitchFrameNum\": 0, \"VideoAIProcPars\": "
                          "[{\"processEnable\": 1, "
                       << b.cam_keys
                       << ", \"BinNumber\": 2, \"NrStrength\": [10, 40], \"DetailStrength\": [90, 60], "
                          "\"ISOBinIndex\": [100, 6400]}]}}";
    InitParams_ init{};
    std::snprintf(init.project_name, sizeof(init.project_name), "Bench");
    init.model_path[0] = init.mtk_yuv_model_path[0][0] = init.mtk_yuv_model_path[1][0] = "bench_model";
    init.cfg_path = cfg.c_str();
    init.algo_mode = b.mode;
    void* handle = b.init(&init);
    if (handle == nullptr || b.model_init(handle, &init) != 0) {
        // A failed mode-10 model set-up frees the handle itself.
        if (handle != nullptr && b.mode == 9) b.uninit(handle);
        state.SkipWithError("VAINR_Init or VAINR_Model_Init failed");
        return;
    }
    std::vector<unsigned char> in_buf(frame_bytes, 0x40), out_buf(frame_bytes);
    VAI_IMG_ in{}, out{};
    for (auto [img, buf] : {std::make_pair(&in, &in_buf), std::make_pair(&out, &out_buf)}) {
        img->img_num = 1, img->plane_num = 1, img->width = w, img->height = h, img->fd[0] = 7;
        img->plane_addr[0] = buf->data(), img->plane_size[0] = static_cast<uint32_t>(frame_bytes);
    }
    ProcParams_ params{};
    params.iso = 1200.0f, params.drc_gain = 1.5f, params.zoom_ratio = 1.5f;
    unsigned char src[64] = {1}, dst[64];

    double process_time = 0, copy_time = 0;
    int failures = 0;
    for (auto _ : state) {
        double t0 = Now();
        failures += b.process(handle, &out, &in, &params) != 0;
        benchmark::ClobberMemory();
        const double t = Now() - t0;
        process_time += t;
        state.SetIterationTime(t);
        t0 = Now();
        std::memcpy(dst, src, sizeof(dst));
        benchmark::DoNotOptimize(dst);
        benchmark::ClobberMemory();
        copy_time += Now() - t0;
        src[0] = dst[0] + 1;
    }
    b.model_uninit(handle);
    b.uninit(handle);
    std::remove(cfg.c_str());
    if (failures != 0) state.SkipWithError("VAINR_Process failed");
    state.counters["vs_memcpy"] = process_time / copy_time;
    state.counters["us_per_frame"] = 1e6 * process_time / static_cast<double>(state.iterations());
}

BENCHMARK_CAPTURE(BM_MtkProcessVsMemcpy, yuv, kYuv)
    ->Args({1920, 1080})
    ->Args({3840, 2160})
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond)
    ->MinTime(1.0);
BENCHMARK_CAPTURE(BM_MtkProcessVsMemcpy, raw, kRaw)
    ->Args({1920, 1080})
    ->Args({3840, 2160})
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond)
    ->MinTime(1.0);

}  // namespace

BENCHMARK_MAIN();
