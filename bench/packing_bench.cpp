// Packing kernels on whole 16-bit frames, single-threaded. Each benchmark also copies the same number
// of bytes (read plus written) with memcpy; "vs_memcpy" is the kernel's throughput over memcpy's.
#include <benchmark/benchmark.h>

#include "bench_clock.h"

#include <cstring>
#include <functional>
#include <memory>
#include <vector>

#include "frame.h"
#include "packing_model.h"
#include "algocore/utils/packing.h"

namespace {

// A 10-bit frame of random bytes.
std::unique_ptr<vai_frame::Frame> RandomFrame(int width, int height, bool yuv) {
    auto f = std::make_unique<vai_frame::Frame>(vai_frame::Format{width, height, 10, yuv ? 2 : 1});
    f->FillRandom(static_cast<uint32_t>(width + height));
    return f;
}

using vai_bench::Now;

// Times `kernel`, then memcpy of `traffic / 2` bytes for as many iterations, each in its own loop
// so that each runs with only its own buffers in the caches.
void RunAgainstMemcpy(benchmark::State& state, size_t traffic, const std::function<void()>& kernel) {
    kernel();  // fault the pages in
    double kernelTime = 0;
    for (auto _ : state) {
        const double t0 = Now();
        kernel();
        benchmark::ClobberMemory();
        const double t = Now() - t0;
        kernelTime += t;
        state.SetIterationTime(t);
    }
    std::vector<unsigned char> src(traffic / 2, 1), dst(traffic / 2, 2);
    std::memcpy(dst.data(), src.data(), src.size());
    const double t0 = Now();
    for (int64_t i = 0; i < state.iterations(); ++i) {
        std::memcpy(dst.data(), src.data(), src.size());
        benchmark::ClobberMemory();
    }
    const double copyTime = Now() - t0;
    benchmark::DoNotOptimize(dst.data());
    state.SetBytesProcessed(static_cast<int64_t>(traffic) * state.iterations());
    state.counters["vs_memcpy"] = copyTime / kernelTime;
}

const unsigned char kStrength[2] = {40, 24};

void BM_SpaceToDepthYuv(benchmark::State& state, bool model) {
    const int w = state.range(0), h = state.range(1);
    auto in = RandomFrame(w, h, true);
    std::vector<unsigned char> tensor(size_t(w / 2) * (h / 2) * 6);
    RunAgainstMemcpy(state, in->format().FrameBytes() + tensor.size(), [&] {
        if (model) {
            packing_model::SpaceToDepth(*in->img(), tensor.data(), 6);
        } else {
            SpaceToDepthYuv_NEON(tensor.data(), in->img());
        }
    });
}

void BM_SpaceToDepthGray(benchmark::State& state, bool model) {
    const int w = state.range(0), h = state.range(1);
    auto in = RandomFrame(w, h, false);
    std::vector<unsigned char> tensor(size_t(w / 2) * (h / 2) * 4);
    RunAgainstMemcpy(state, in->format().FrameBytes() + tensor.size(), [&] {
        if (model) {
            packing_model::SpaceToDepth(*in->img(), tensor.data(), 4);
        } else {
            SpaceToDepthGray_NEON(tensor.data(), in->img());
        }
    });
}

enum class Form { Model, TwoImages, InPlace };

void BM_DepthToSpaceYuv(benchmark::State& state, Form form) {
    const int w = state.range(0), h = state.range(1);
    auto in = RandomFrame(w, h, true), out = RandomFrame(w, h, true);
    std::vector<unsigned char> tensor(size_t(w / 2) * (h / 2) * 6, 77);
    RunAgainstMemcpy(state, tensor.size() + 2 * out->format().FrameBytes(), [&] {
        switch (form) {
            case Form::Model:
                packing_model::DepthToSpace(*out->img(), *in->img(), tensor.data(), 6, kStrength, true);
                break;
            case Form::TwoImages:
                DepthToSpaceYuv_NEON(out->img(), in->img(), tensor.data(), kStrength);
                break;
            case Form::InPlace:
                DepthToSpaceYuv_NEON(out->img(), tensor.data(), kStrength);
                break;
        }
    });
}

void BM_DepthToSpaceGray(benchmark::State& state, Form form) {
    const int w = state.range(0), h = state.range(1);
    auto in = RandomFrame(w, h, false), out = RandomFrame(w, h, false);
    std::vector<unsigned char> tensor(size_t(w / 2) * (h / 2) * 4, 77);
    RunAgainstMemcpy(state, tensor.size() + 2 * out->format().FrameBytes(), [&] {
        switch (form) {
            case Form::Model:
                packing_model::DepthToSpace(*out->img(), *in->img(), tensor.data(), 4, kStrength, true);
                break;
            case Form::TwoImages:
                DepthToSpaceGray_NEON(out->img(), in->img(), tensor.data(), kStrength);
                break;
            case Form::InPlace:
                DepthToSpaceGray_NEON(out->img(), tensor.data(), kStrength);
                break;
        }
    });
}

void Sizes(benchmark::internal::Benchmark* b) {
    b->Args({1920, 1080})->Args({3840, 2160})->UseManualTime()->Unit(benchmark::kMicrosecond);
}

BENCHMARK_CAPTURE(BM_SpaceToDepthYuv, neon, false)->Apply(Sizes);
BENCHMARK_CAPTURE(BM_SpaceToDepthYuv, model, true)->Apply(Sizes);
BENCHMARK_CAPTURE(BM_DepthToSpaceYuv, neon_two_images, Form::TwoImages)->Apply(Sizes);
BENCHMARK_CAPTURE(BM_DepthToSpaceYuv, neon_in_place, Form::InPlace)->Apply(Sizes);
BENCHMARK_CAPTURE(BM_DepthToSpaceYuv, model, Form::Model)->Apply(Sizes);
BENCHMARK_CAPTURE(BM_SpaceToDepthGray, neon, false)->Apply(Sizes);
BENCHMARK_CAPTURE(BM_SpaceToDepthGray, model, true)->Apply(Sizes);
BENCHMARK_CAPTURE(BM_DepthToSpaceGray, neon_two_images, Form::TwoImages)->Apply(Sizes);
BENCHMARK_CAPTURE(BM_DepthToSpaceGray, neon_in_place, Form::InPlace)->Apply(Sizes);
BENCHMARK_CAPTURE(BM_DepthToSpaceGray, model, Form::Model)->Apply(Sizes);

}  // namespace

BENCHMARK_MAIN();
