// The reference runtime, loaded by path as the library loads it: manifests and their errors, tensors over
// caller memory and file descriptors, and the bundled mode-1 models denoising through the entry points.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "frame.h"
#include "interface/VideoAIProc.h"
#include "interface/pxrt_interface.h"

namespace {

const std::string kModels = std::string(VAI_TEST_SOURCE_DIR) + "/models/mode1/";
const std::string kDir = VAI_TEST_BINARY_DIR;

void WriteFile(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

using Tensor = std::shared_ptr<PXRT::ITensor>;

// The runtime library, an interpreter, and a session of `manifest` when one is given.
struct Runtime {
    void* lib = dlopen(VAI_REFERENCE_RUNTIME_PATH, RTLD_NOW);
    PXRTCreateInterpreterFn create =
        reinterpret_cast<PXRTCreateInterpreterFn>(dlsym(lib, "CreateInterpreter"));
    PXRTCreateTensorFn in = reinterpret_cast<PXRTCreateTensorFn>(dlsym(lib, "CreateInputTensor"));
    PXRTCreateTensorFn out = reinterpret_cast<PXRTCreateTensorFn>(dlsym(lib, "CreateOutputTensor"));
    std::unique_ptr<PXRT::Interpreter> interp{create ? create() : nullptr};
    void* session = nullptr;

    explicit Runtime(const std::string& manifest = "") {
        const std::string path = kDir + "/ref_session.json";
        WriteFile(path, manifest);
        EXPECT_EQ(manifest.empty() ? 0 : Open(path, &session), 0);
    }
    int Open(const std::string& path, void** to) {
        return interp->CreateSession(path.c_str(), 5, to, nullptr, 2048);
    }
    ~Runtime() {
        if (session) interp->ReleaseSession(session);
        interp.reset();
        if (lib) dlclose(lib);
    }
    Tensor In(size_t bytes, void* buf = nullptr, int fd = -1, int index = 0) {
        return Tensor(in(session, bytes, index, 1, 2, buf, fd, 0));
    }
    Tensor Out(size_t bytes, void* buf = nullptr, int fd = -1, int index = 0) {
        return Tensor(out(session, bytes, index, 1, 2, buf, fd, 0));
    }
};

std::string ReadFile(const std::string& path) {
    std::ifstream f(path);
    return std::string(std::istreambuf_iterator<char>(f), {});
}

// `text` with its first `from` replaced by `to`.
std::string Sub(std::string text, const std::string& from, const std::string& to) {
    return text.replace(text.find(from), from.size(), to);
}

// A tensor entry of a manifest: hwc elements of `size` bytes, in 1/255 steps unless `scale` says otherwise.
std::string Hwc(const std::string& name, int h, int w, int c, const std::string& type = "uint8",
                size_t size = 1, const std::string& scale = "0.00392156862745098") {
    return "{\"name\": \"" + name + "\", \"bytes\": " + std::to_string(h * w * c * size) +
           ", \"layout\": \"hwc\", \"type\": \"" + type + "\", \"height\": " + std::to_string(h) +
           ", \"width\": " + std::to_string(w) + ", \"channels\": " + std::to_string(c) +
           ", \"scale\": " + scale + "}";
}

std::string Manifest(const std::string& onnx, const std::string& in, const std::string& out) {
    return "//\n{\"onnx\": \"" + onnx + "\", \"inputs\": [" + in + "], \"outputs\": [" + out + "]}";
}

const std::string kLuma = kModels + "vainr_luma.onnx";
const std::string kGoodLuma = Manifest(kLuma, Hwc("packed", 8, 12, 4), Hwc("denoised", 8, 12, 4));

// Runs `body`: it writes nothing to stderr when `error` is empty, else one line holding `error`.
void ExpectStderr(const std::string& error, const std::function<void()>& body) {
    SCOPED_TRACE(error);
    testing::internal::CaptureStderr();
    body();
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), error.empty() ? 0 : 1) << err;
    EXPECT_NE(err.find(error), std::string::npos) << err;
}

// Each manifest either opens a session quietly, or fails with a non-zero result, no session and one line
// saying why.
TEST(ReferenceRuntime, ManifestsAndTheirErrors) {
    Runtime rt;
    ASSERT_NE(rt.interp, nullptr) << dlerror();
    const std::string unused = "{\"name\": \"strength\", \"bytes\": 16, \"layout\": \"unused\"}";
    const std::string packed = Hwc("packed", 8, 12, 4), d = Hwc("denoised", 8, 12, 4);
    const struct {
        std::string text;   // empty: no manifest file at all
        std::string error;  // empty: the session opens
        const char* threads = nullptr;
    } cases[] = {
        {kGoodLuma, ""},
        {Manifest("../../../models/mode1/vainr_luma.onnx", packed + "," + unused, d), "",
         "1"},  // relative path
        {"", "cannot open manifest"},
        {"{\"onnx\": ", "JSON error at offset 9"},
        {"[1]", "not a JSON object"},
        {"{\"inputs\": []}", "\"onnx\" must name the network file"},
        {Manifest(kDir + "/none.onnx", packed, d), "cannot read the network"},
        {Manifest(VAI_REFERENCE_RUNTIME_PATH, packed, d), "OpenCV:"},
        {Manifest(kLuma, "", d), "\"inputs\" must be an array"},
        {Manifest(kLuma, "{\"bytes\": 4, \"layout\": \"unused\"}", d),
         "inputs[0]: \"name\" must be a string"},
        {Manifest(kLuma, packed + "," + Sub(unused, "16", "0"), d),
         "inputs[1]: \"bytes\" must be a positive"},
        {Sub(kGoodLuma, "384", "100"), "\"bytes\" is 100 but the layout holds 384"},
        {Sub(kGoodLuma, "hwc", "chw"), "\"layout\" must be"},
        {Sub(kGoodLuma, "uint8", "u8"), "\"type\" must be"},
        {Sub(kGoodLuma, "0.00392156862745098", "0"), "\"scale\" must be a positive number"},
        {Sub(kGoodLuma, ": 8", ": 0"), "needs positive \"height\""},
        {Manifest(kLuma, packed, unused), "cannot be \"unused\""},
        {Sub(kGoodLuma, "packed", "frame"), "OpenCV:"},
        {Manifest(kLuma, Hwc("packed", 8, 12, 6), Hwc("denoised", 8, 12, 6)), "OpenCV:"},
        {Manifest(kLuma, packed, Hwc("denoised", 8, 10, 4)), "is 1x4x8x12, the manifest says 1x4x8x10"},
        {kGoodLuma, "VAI_REFERENCE_THREADS=\"two\" is not a thread count", "two"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        const std::string path = kDir + "/ref_manifest_case.json";
        std::remove(path.c_str());
        if (!c.text.empty()) WriteFile(path, c.text);
        if (c.threads) setenv("VAI_REFERENCE_THREADS", c.threads, 1);
        void* session = reinterpret_cast<void*>(1);
        ExpectStderr(c.error, [&] { EXPECT_EQ(rt.Open(path, &session) != 0, !c.error.empty()); });
        unsetenv("VAI_REFERENCE_THREADS");
        EXPECT_EQ(session != nullptr, c.error.empty());
        EXPECT_EQ(session ? rt.interp->ReleaseSession(session) : 0, 0);
    }
    // The manifests committed beside the models fit their networks.
    for (const char* name : {"luma_640x480", "luma_1920x1080", "yuv_640x480", "yuv_1920x1080"}) {
        void* session = nullptr;
        EXPECT_EQ(rt.Open(kModels + "vainr_" + name + ".json", &session), 0) << name;
        EXPECT_EQ(rt.interp->ReleaseSession(session), 0) << name;
    }
}

struct MemFd {
    int fd;
    explicit MemFd(size_t bytes) : fd(memfd_create("tensor", 0)) { EXPECT_EQ(ftruncate(fd, bytes), 0); }
    ~MemFd() { close(fd); }
};

// A tensor over an fd maps it and ignores the address it is also given; one over an address reads and
// writes it in place. Both see and produce the same bytes, written after the tensors were made. Tensors
// that do not fit the session are refused at creation or at Run, with one line each.
TEST(ReferenceRuntime, Tensors) {
    Runtime s(kGoodLuma);
    ASSERT_NE(s.session, nullptr);
    const size_t n = 8 * 12 * 4;
    std::vector<uint8_t> in(n), out(n, 0), decoy(n, 0x55), out_by_fd(n);
    MemFd in_fd(n), out_fd(n), short_fd(n - 1);
    PXRT::TensorArray by_addr_in{s.In(n, in.data())}, by_addr_out{s.Out(n, out.data())};
    PXRT::TensorArray by_fd_in{s.In(n, decoy.data(), in_fd.fd)}, by_fd_out{s.Out(n, decoy.data(), out_fd.fd)};
    ASSERT_TRUE(by_addr_in[0] && by_addr_out[0] && by_fd_in[0] && by_fd_out[0]);
    EXPECT_EQ(by_addr_in[0]->GetData(), in.data());
    for (size_t i = 0; i < n; ++i) in[i] = static_cast<uint8_t>(64 + i * 37 % 128);
    ASSERT_EQ(pwrite(in_fd.fd, in.data(), n, 0), static_cast<ssize_t>(n));
    ASSERT_EQ(s.interp->Run(s.session, &by_addr_in, &by_addr_out), 0);
    ASSERT_EQ(s.interp->Run(s.session, &by_fd_in, &by_fd_out), 0);
    ASSERT_EQ(pread(out_fd.fd, out_by_fd.data(), n, 0), static_cast<ssize_t>(n));
    EXPECT_EQ(out_by_fd, out);
    EXPECT_NE(out, std::vector<uint8_t>(n, 0));
    EXPECT_EQ(decoy, std::vector<uint8_t>(n, 0x55));

    const struct {
        std::function<Tensor()> make;
        const char* error;
    } factories[] = {
        {[&] { return s.In(n + 1); }, "tensor 0 of 385 bytes does not fit"},
        {[&] { return s.In(n, nullptr, -1, 1); }, "tensor 1 of 384 bytes does not fit"},
        {[&] { return Tensor(s.out(&in, n, 0, 1, 2, nullptr, -1, 0)); }, "not a live session"},
        {[&] { return s.In(n, in.data(), short_fd.fd); }, "holds 383 bytes, the tensor needs 384"},
        {[&] { return s.In(n, in.data(), 1000); }, "tensor fd 1000"},
    };
    for (const auto& f : factories) ExpectStderr(f.error, [&] { EXPECT_EQ(f.make(), nullptr); });
    struct Foreign : PXRT::ITensor {
        int Reserved0() override { return 0; }
        void* GetData() override { return nullptr; }
    };
    const struct {
        PXRT::TensorArray in, out;
        void* session;
        const char* error;
    } runs[] = {
        {{by_addr_in[0], by_addr_in[0]}, by_addr_out, s.session, "2 input tensors given, the manifest has 1"},
        {by_addr_in, {}, s.session, "0 output tensors given"},
        {{nullptr}, by_addr_out, s.session, "input 0 is missing or foreign"},
        {by_addr_in, {std::make_shared<Foreign>()}, s.session, "output 0 is missing or foreign"},
        {by_addr_in, by_addr_out, &in, "is not a session of this interpreter"},
    };
    for (auto r : runs) ExpectStderr(r.error, [&] { EXPECT_NE(s.interp->Run(r.session, &r.in, &r.out), 0); });
}

// Every element type through both layouts, exactly: the test network reverses the channels of its
// image input and the elements of its vector input, which the manifest lists first.
template <typename T>
void CheckLayouts(const char* type, const std::string& sc, long lo, long hi) {
    SCOPED_TRACE(type);
    const int h = 2, w = 5, c = 6, count = 16;
    auto vec = [&](const std::string& name) {
        return Sub(Hwc(name, count, 1, 1, type, sizeof(T), sc), "\"hwc\"", "\"vector\", \"count\": 16");
    };
    auto img = [&](const std::string& name) { return Hwc(name, h, w, c, type, sizeof(T), sc); };
    Runtime s(Manifest(std::string(VAI_TEST_SOURCE_DIR) + "/tests/data/permute.onnx",
                       vec("vec") + "," + img("packed"), img("packed_out") + "," + vec("vec_out")));
    ASSERT_NE(s.session, nullptr);
    std::vector<T> v_in(count), v_out(count), p_in(h * w * c), p_out(h * w * c);
    std::mt19937 rng(3);
    std::uniform_int_distribution<long> d(lo, hi);
    for (T& x : v_in) x = static_cast<T>(d(rng));
    for (T& x : p_in) x = static_cast<T>(d(rng));
    const size_t vb = count * sizeof(T), pb = p_in.size() * sizeof(T);
    PXRT::TensorArray in{s.In(vb, v_in.data(), -1, 0), s.In(pb, p_in.data(), -1, 1)};
    PXRT::TensorArray out{s.Out(pb, p_out.data(), -1, 0), s.Out(vb, v_out.data(), -1, 1)};
    ASSERT_EQ(s.interp->Run(s.session, &in, &out), 0);
    std::reverse(v_in.begin(), v_in.end());
    for (size_t at = 0; at < p_in.size(); at += c) std::reverse(p_in.begin() + at, p_in.begin() + at + c);
    EXPECT_EQ(v_out, v_in);
    EXPECT_EQ(p_out, p_in);
}

TEST(ReferenceRuntime, LayoutsCarryEveryElementExactly) {
    CheckLayouts<uint8_t>("uint8", "0.003922", 0, 255);
    CheckLayouts<int8_t>("int8", "0.007874", -100, 127);
    CheckLayouts<uint16_t>("uint16", "0.000978", 0, 65535);
    CheckLayouts<int16_t>("int16", "0.003906", -100, 32767);
    CheckLayouts<float>("float32", "1", -100, 1000);
}

constexpr int kW = 128, kH = 96;

// Sum of squared differences of two frames' samples in one plane.
double SquaredError(const vai_frame::Frame& a, const vai_frame::Frame& b, int plane) {
    double se = 0;
    for (int y = 0; y < a.format().Rows(plane); ++y) {
        for (int x = 0; x < kW; ++x) se += std::pow(a.Sample(plane, x, y) - b.Sample(plane, x, y), 2);
    }
    return se;
}

// A clean picture of smooth shading, a disc and soft bars, and a noisy copy with signal-dependent
// noise (variance a x value + b, in 10-bit steps).
void MakeFrames(vai_frame::Frame& clean, vai_frame::Frame& noisy) {
    std::mt19937 rng(11);
    std::normal_distribution<double> g(0, 1);
    for (int p = 0; p < 2; ++p) {
        for (int y = 0; y < clean.format().Rows(p); ++y) {
            for (int x = 0; x < kW; ++x) {
                const int px = p ? x / 2 * 2 : x, py = p ? y * 2 : y;
                const double disc = std::hypot(px - 80.0, py - 44.0) < 26 ? 260 : 0;
                const double bars = 90 * std::sin(px * 0.15) * (py > 70);
                const double v = p ? (x % 2 ? 560 - py : 470 + px * 0.5) : 180 + px * 2.5 + py + disc + bars;
                const double sigma = p ? 12 : std::sqrt(1.0 * v + 200);
                const double n = std::min(std::max(std::round(v + sigma * g(rng)), 0.0), 1023.0);
                clean.SetSample(p, x, y, static_cast<uint16_t>(std::lround(v)) << 6);
                noisy.SetSample(p, x, y, static_cast<uint16_t>(n) << 6);
            }
        }
    }
}

// The sample configuration (luma-only) with the luma model, and the same with processType 1 and the
// YUV model: past the warm-up copies the frames come out at least 2 dB closer to the clean picture than
// the noisy input (1 dB for chroma). Luma-only configurations copy chroma unchanged.
TEST(ReferenceRuntime, Mode1DenoisesThroughTheEntryPoints) {
    const std::string sample = std::string(VAI_TEST_SOURCE_DIR) + "/configs/qcom_vainr_yuv.json";
    WriteFile(kDir + "/ref_qcom_yuv.json", Sub(ReadFile(sample), "\"processType\": 0", "\"processType\": 1"));
    const struct {
        std::string cfg, onnx;
        int channels;
    } cases[] = {{sample, "vainr_luma.onnx", 4}, {kDir + "/ref_qcom_yuv.json", "vainr_yuv.onnx", 6}};
    setenv("VAI_PXRT_LIBRARY", VAI_REFERENCE_RUNTIME_PATH, 1);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.onnx);
        const std::string manifest = kDir + "/ref_mode1_" + std::to_string(c.channels) + ".json";
        WriteFile(manifest, Manifest(kModels + c.onnx, Hwc("packed", kH / 2, kW / 2, c.channels),
                                     Hwc("denoised", kH / 2, kW / 2, c.channels)));
        vai_frame::Format fmt{kW, kH, 10, 2, 0};
        vai_frame::Frame clean(fmt), noisy(fmt), out(fmt);
        MakeFrames(clean, noisy);

        vAIPROC::InitParams_ init{};
        std::snprintf(init.project_name, sizeof(init.project_name), "DemoProject");
        for (const char*& path : init.model_path) path = manifest.c_str();
        init.cfg_path = c.cfg.c_str();
        init.algo_mode = 1;
        void* handle = Video_AI_Proc_Init(&init);
        ASSERT_NE(handle, nullptr);
        vAIPROC::ProcParams_ params{};
        params.iso = 25600;  // the last gain bin: strengths 51 and 40 of 64
        params.drc_gain = 1;
        for (int frame = 0; frame < 8; ++frame)
            ASSERT_EQ(Video_AI_Proc_Process(handle, out.img(), noisy.img(), &params), 0);
        EXPECT_LT(SquaredError(out, clean, 0), SquaredError(noisy, clean, 0) * 0.63);  // 2 dB
        if (c.channels == 4) {
            EXPECT_EQ(out.PlaneCopy(1), noisy.PlaneCopy(1));
        } else {
            EXPECT_LT(SquaredError(out, clean, 1), SquaredError(noisy, clean, 1) * 0.79);  // 1 dB
        }
        EXPECT_EQ(Video_AI_Proc_Uninit(handle), 0);
    }
    unsetenv("VAI_PXRT_LIBRARY");
}

}  // namespace
