// The whole Qualcomm frame path on a 1080p 16-bit YUV frame, with a runtime whose Run does nothing,
// against the pack and unpack kernels alone on the same frame in the same run. "vs_kernels" is the
// frame path's time over the kernels' time: everything the back-end adds around them.
#include <benchmark/benchmark.h>

#include "bench_clock.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "algocore/utils/packing.h"
#include "pxrt_test_control.h"
#include "qcom/vainr_yuv/qcom_vainr_yuv_proc_sat.h"
#include "algocore/utils/vai_log.h"
#include "frame.h"

using vAIPROC::VAI_IMG_;

namespace {

constexpr int kW = 1920, kH = 1080;

using vai_bench::Now;

void BM_QcomProcessVsKernels(benchmark::State& state) {
    const size_t tensor_bytes = size_t(kW / 2) * (kH / 2) * 6;
    pxrt_test::SessionLayout layout;
    layout.input_bytes = {tensor_bytes};
    layout.output_bytes = {tensor_bytes};
    pxrt_test::SetDefaultLayout(layout);
    pxrt_test::SetRecording(false);
    setenv("VAI_PXRT_LIBRARY", VAI_TEST_RUNTIME_PATH, 1);

    const std::string cfg = "/tmp/qcom_process_bench.json";
    std::ofstream(cfg)
        << "{\"Bench\": {\"LogLevel\": 1, \"processType\": 1, \"DumpRangeIdx\": 0, \"FrontCamNum\": 0,"
           " \"RearCamNum\": 1, \"SwitchFrameNum\": 0, \"VideoAIProcPars\": [{\"processEnable\": 1,"
           " \"BoostValue\": 100, \"BinNumber\": 2, \"NrStrength\": [10, 40],"
           " \"ChromaNrStrength\": [20, 30], \"ISOBinIndex\": [100, 6400]}]}}";
    vAIPROC::InitParams_ init{};
    std::snprintf(init.project_name, sizeof(init.project_name), "Bench");
    init.model_path[0] = "bench_model";
    init.cfg_path = cfg.c_str();
    init.algo_mode = 1;
    void* handle = QCOM_VAINR_YUV_PROC::VAINR_Init(&init);
    if (handle == nullptr) {
        state.SkipWithError("VAINR_Init failed");
        return;
    }
    vAIPROC::ProcParams_ params{};
    params.iso = 1200.0f;
    params.drc_gain = 1.0f;

    vai_frame::Frame in(vai_frame::Format{kW, kH}), out(vai_frame::Format{kW, kH});
    in.FillRandom(7);
    std::vector<unsigned char> tensor_in(tensor_bytes), tensor_out(tensor_bytes, 0x55);
    const unsigned char strength[2] = {18, 21};
    auto kernels = [&] {
        SpaceToDepthYuv_NEON(tensor_in.data(), in.img());
        DepthToSpaceYuv_NEON(out.img(), in.img(), tensor_out.data(), strength);
    };
    // Fault pages in and get past the first frame, which is a warm-up copy.
    kernels();
    QCOM_VAINR_YUV_PROC::VAINR_Process(handle, out.img(), in.img(), &params);

    double process_time = 0, kernel_time = 0;
    int failures = 0;
    for (auto _ : state) {
        double t0 = Now();
        failures += QCOM_VAINR_YUV_PROC::VAINR_Process(handle, out.img(), in.img(), &params) != 0;
        benchmark::ClobberMemory();
        const double t = Now() - t0;
        process_time += t;
        state.SetIterationTime(t);
        t0 = Now();
        kernels();
        benchmark::ClobberMemory();
        kernel_time += Now() - t0;
    }
    QCOM_VAINR_YUV_PROC::VAINR_Uninit(handle);
    std::remove(cfg.c_str());
    if (failures != 0) state.SkipWithError("VAINR_Process failed");
    state.counters["vs_kernels"] = process_time / kernel_time;
    state.counters["runs"] = static_cast<double>(pxrt_test::CallCount(pxrt_test::Op::kRun));
}

BENCHMARK(BM_QcomProcessVsKernels)->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(2.0);

}  // namespace

BENCHMARK_MAIN();
