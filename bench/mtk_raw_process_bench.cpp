// The MediaTek RAW frame path with a runtime whose Run does nothing, at 1080p and 4K, against one
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

#include "mtk/vainr_raw/mtk_vainr_raw_proc.h"
#include "pxrt_test_control.h"

namespace {

using vai_bench::Now;
namespace raw = MTK_VAINR_RAW_PROC;

void BM_MtkRawProcessVsMemcpy(benchmark::State& state) {
    const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
    const size_t frame_bytes = size_t(w) * h * 10 / 8;  // packed 10-bit words
    // Frame tensors wrap the caller's buffers; the strength and detail inputs are the runtime's.
    // Log level 0: the per-frame "adaptive calculate" error line would time the host's stderr.
    pxrt_test::SetDefaultLayout({{frame_bytes, 16, 16}, {frame_bytes}});
    pxrt_test::SetRecording(false);
    setenv("VAI_PXRT_LIBRARY", VAI_TEST_RUNTIME_PATH, 1);

    const std::string cfg = "/tmp/mtk_raw_process_bench.json";
    std::ofstream(cfg)
        << "{\"Bench\": {\"LogLevel\": 0, \"processType\": 0, \"DumpRangeIdx\": 0, \"FrontCamNum\": 0,"
           " \"RearCamNum\": 1, \"SwitchFrameNum\": 0, \"VideoAIProcPars\": [{\"processEnable\": 1,"
           " \"BoostValue\": 100, \"BinNumber\": 2, \"NrStrength\": [10, 40],"
           " \"DetailStrength\": [90, 60], \"ISOBinIndex\": [100, 6400]}]}}";
    vAIPROC::InitParams_ init{};
    std::snprintf(init.project_name, sizeof(init.project_name), "Bench");
    init.model_path[0] = "bench_model";
    init.cfg_path = cfg.c_str();
    init.algo_mode = 10;
    void* handle = raw::VAINR_Init(&init);
    if (handle == nullptr || raw::VAINR_Model_Init(handle, &init) != 0) {
        state.SkipWithError(
            "VAINR_Init or VAINR_Model_Init failed");  // a failed model set-up frees the handle
        return;
    }
    std::vector<unsigned char> in_buf(frame_bytes, 0x40), out_buf(frame_bytes);
    vAIPROC::VAI_IMG_ in{}, out{};
    for (auto [img, buf] : {std::make_pair(&in, &in_buf), std::make_pair(&out, &out_buf)}) {
        img->img_num = 1, img->plane_num = 1, img->width = w, img->height = h, img->fd[0] = 7;
        img->plane_addr[0] = buf->data(), img->plane_size[0] = static_cast<uint32_t>(frame_bytes);
    }
    vAIPROC::ProcParams_ params{};
    params.iso = 1200.0f, params.drc_gain = 1.5f;
    unsigned char src[64] = {1}, dst[64];

    double process_time = 0, copy_time = 0;
    int failures = 0;
    for (auto _ : state) {
        double t0 = Now();
        failures += raw::VAINR_Process(handle, &out, &in, &params) != 0;
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
    raw::VAINR_Model_Uninit(handle);
    raw::VAINR_Uninit(handle);
    std::remove(cfg.c_str());
    if (failures != 0) state.SkipWithError("VAINR_Process failed");
    state.counters["vs_memcpy"] = process_time / copy_time;
    state.counters["us_per_frame"] = 1e6 * process_time / static_cast<double>(state.iterations());
}

BENCHMARK(BM_MtkRawProcessVsMemcpy)
    ->Args({1920, 1080})
    ->Args({3840, 2160})
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond)
    ->MinTime(1.0);

}  // namespace

BENCHMARK_MAIN();
