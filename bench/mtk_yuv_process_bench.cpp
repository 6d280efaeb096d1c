// The MediaTek YUV frame path with a runtime whose Run does nothing, at 1080p and 4K, against one
// 64-byte memcpy timed in the same run. The frame is never touched on the processor, so the cost
// should not depend on the frame size; "vs_memcpy" is the frame path's time over the copy's.
#include <benchmark/benchmark.h>

#include "bench_clock.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "algocore/utils/vai_log.h"
#include "mtk/vainr_yuv/mtk_vainr_yuv_proc.h"
#include "pxrt_test_control.h"

namespace {

using vai_bench::Now;

void BM_MtkYuvProcessVsMemcpy(benchmark::State& state) {
    const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
    const size_t frame_bytes = size_t(w) * h * 3 / 2;
    // Image tensors wrap the caller's buffers; only the small parameter inputs are the runtime's.
    // Log level 0: the per-frame "adaptive calculate" error line would time the host's stderr.
    pxrt_test::SetDefaultLayout({{frame_bytes, 16, 4}, {frame_bytes}});
    pxrt_test::SetRecording(false);
    setenv("VAI_PXRT_LIBRARY", VAI_TEST_RUNTIME_PATH, 1);

    const std::string cfg = "/tmp/mtk_yuv_process_bench.json";
    std::ofstream(cfg)
        << "{\"Bench\": {\"LogLevel\": 0, \"processType\": 0, \"DumpRangeIdx\": 0, \"FrontCamNum\": 0,"
           " \"RearCamNum\": 1, \"SwitchFrameNum\": 0, \"VideoAIProcPars\": [{\"processEnable\": 1,"
           " \"BoostValue4K\": 100, \"BoostValue1080P\": 100, \"BinNumber\": 2, \"NrStrength\": [10, 40],"
           " \"DetailStrength\": [0, 0], \"ISOBinIndex\": [100, 6400]}]}}";
    vAIPROC::InitParams_ init{};
    std::snprintf(init.project_name, sizeof(init.project_name), "Bench");
    init.mtk_yuv_model_path[0][0] = init.mtk_yuv_model_path[1][0] = "bench_model";
    init.cfg_path = cfg.c_str();
    init.algo_mode = 9;
    void* handle = MTK_VAINR_YUV_PROC::VAINR_Init(&init);
    if (handle == nullptr || MTK_VAINR_YUV_PROC::VAINR_Model_Init(handle, &init) != 0) {
        state.SkipWithError("VAINR_Init or VAINR_Model_Init failed");
        if (handle != nullptr) MTK_VAINR_YUV_PROC::VAINR_Uninit(handle);
        return;
    }
    std::vector<unsigned char> in_buf(frame_bytes, 0x40), out_buf(frame_bytes);
    vAIPROC::VAI_IMG_ in{}, out{};
    for (auto [img, buf] : {std::make_pair(&in, &in_buf), std::make_pair(&out, &out_buf)}) {
        img->img_num = 1, img->plane_num = 2, img->width = w, img->height = h;
        img->plane_addr[0] = buf->data(), img->plane_size[0] = static_cast<uint32_t>(w * h);
        img->plane_addr[1] = buf->data() + w * h, img->plane_size[1] = static_cast<uint32_t>(w * h / 2);
    }
    vAIPROC::ProcParams_ params{};
    params.iso = 1200.0f, params.drc_gain = 1.0f, params.zoom_ratio = 1.5f;
    unsigned char src[64] = {1}, dst[64];

    double process_time = 0, copy_time = 0;
    int failures = 0;
    for (auto _ : state) {
        double t0 = Now();
        failures += MTK_VAINR_YUV_PROC::VAINR_Process(handle, &out, &in, &params) != 0;
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
    MTK_VAINR_YUV_PROC::VAINR_Model_Uninit(handle);
    MTK_VAINR_YUV_PROC::VAINR_Uninit(handle);
    std::remove(cfg.c_str());
    if (failures != 0) state.SkipWithError("VAINR_Process failed");
    state.counters["vs_memcpy"] = process_time / copy_time;
    state.counters["us_per_frame"] = 1e6 * process_time / static_cast<double>(state.iterations());
}

BENCHMARK(BM_MtkYuvProcessVsMemcpy)
    ->Args({1920, 1080})
    ->Args({3840, 2160})
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond)
    ->MinTime(1.0);

}  // namespace

BENCHMARK_MAIN();
