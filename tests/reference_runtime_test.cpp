// The reference runtime, loaded by path as the library loads it: manifests and their errors, tensors over
// caller memory and file descriptors, and the bundled mode-1 models denoising through the entry points.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <type_traits>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "frame.h"
#include "interface/VideoAIProc.h"
#include "interface/pxrt_interface.h"

namespace {

const std::string kModels = std::string(VAI_TEST_SOURCE_DIR) + "/models/mode1/";
const std::string kDir = VAI_TEST_BINARY_DIR;

struct Runtime {
    void* lib = dlopen(VAI_REFERENCE_RUNTIME_PATH, RTLD_NOW);
    PXRTCreateInterpreterFn create = lib ? reinterpret_cast<PXRTCreateInterpreterFn>(dlsym(lib, "CreateInterpreter")) : nullptr;
    PXRTCreateTensorFn in = lib ? reinterpret_cast<PXRTCreateTensorFn>(dlsym(lib, "CreateInputTensor")) : nullptr;
    PXRTCreateTensorFn out = lib ? reinterpret_cast<PXRTCreateTensorFn>(dlsym(lib, "CreateOutputTensor")) : nullptr;
    ~Runtime() {
        if (lib) dlclose(lib);
    }
};

void WriteFile(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

// A tensor entry of a manifest: hwc uint8 in 1/255 steps, with `changes` ("key": value text) replacing
// or adding members.
std::string Hwc(const std::string& name, int h, int w, int c,
                const std::vector<std::pair<std::string, std::string>>& changes = {}) {
    std::vector<std::pair<std::string, std::string>> m = {
        {"name", "\"" + name + "\""}, {"bytes", std::to_string(h * w * c)}, {"layout", "\"hwc\""},
        {"type", "\"uint8\""},       {"height", std::to_string(h)},      {"width", std::to_string(w)},
        {"channels", std::to_string(c)}, {"scale", "0.00392156862745098"}};
    for (const auto& ch : changes) {
        auto it = std::find_if(m.begin(), m.end(), [&](const auto& kv) { return kv.first == ch.first; });
        if (it != m.end()) {
            it->second = ch.second;
        } else {
            m.push_back(ch);
        }
    }
    std::string o = "{";
    for (const auto& kv : m) o += (o.size() > 1 ? ", \"" : "\"") + kv.first + "\": " + kv.second;
    return o + "}";
}

std::string Manifest(const std::string& onnx, const std::string& in, const std::string& out) {
    return "// test manifest\n{\"onnx\": \"" + onnx + "\", \"inputs\": [" + in + "], \"outputs\": [" + out + "]}";
}

const std::string kLuma = kModels + "vainr_luma.onnx";
const std::string kGoodLuma = Manifest(kLuma, Hwc("packed", 8, 12, 4), Hwc("denoised", 8, 12, 4));

// What `body` writes to stderr.
template <typename F>
std::string Stderr(F body) {
    testing::internal::CaptureStderr();
    body();
    return testing::internal::GetCapturedStderr();
}

size_t Lines(const std::string& s) {
    return static_cast<size_t>(std::count(s.begin(), s.end(), '\n'));
}

// Each manifest either opens a session with nothing on stderr, or fails with a non-zero result, no
// session and one line saying why.
TEST(ReferenceRuntime, ManifestsAndTheirErrors) {
    Runtime rt;
    ASSERT_NE(rt.create, nullptr) << dlerror();
    std::unique_ptr<PXRT::Interpreter> interp(rt.create());
    const std::string unused = "{\"name\": \"strength\", \"bytes\": 16, \"layout\": \"unused\"}";
    const struct {
        const char* what;
        std::string text;  // empty: no manifest file at all
        const char* threads;
        std::string error;  // empty: the session opens
    } cases[] = {
        {"luma model", kGoodLuma, nullptr, ""},
        {"relative network path and an ignored parameter input",
         Manifest("../../../models/mode1/vainr_luma.onnx", Hwc("packed", 4, 6, 4) + "," + unused,
                  Hwc("denoised", 4, 6, 4)), "1", ""},
        {"yuv model", Manifest(kModels + "vainr_yuv.onnx", Hwc("packed", 6, 8, 6), Hwc("denoised", 6, 8, 6)),
         nullptr, ""},
        {"missing manifest", "", nullptr, "cannot open manifest"},
        {"not JSON", "{\"onnx\": ", nullptr, "JSON error at offset 9"},
        {"not an object", "[1]", nullptr, "not a JSON object"},
        {"no network", "{\"inputs\": []}", nullptr, "\"onnx\" must name the network file"},
        {"missing network", Manifest(kDir + "/none.onnx", Hwc("packed", 8, 12, 4), Hwc("d", 8, 12, 4)), nullptr,
         "cannot read the network"},
        {"network not ONNX", Manifest(VAI_REFERENCE_RUNTIME_PATH, Hwc("packed", 8, 12, 4), Hwc("d", 8, 12, 4)),
         nullptr, "OpenCV:"},
        {"no inputs", Manifest(kLuma, "", Hwc("denoised", 8, 12, 4)), nullptr, "\"inputs\" must be an array"},
        {"nameless", Manifest(kLuma, "{\"bytes\": 4, \"layout\": \"unused\"}", Hwc("d", 8, 12, 4)), nullptr,
         "inputs[0]: \"name\" must be a string"},
        {"no bytes", Manifest(kLuma, Hwc("packed", 8, 12, 4) + ",{\"name\": \"s\", \"bytes\": 0, \"layout\": \"unused\"}",
                              Hwc("d", 8, 12, 4)), nullptr, "inputs[1]: \"bytes\" must be a positive integer"},
        {"bytes off", Manifest(kLuma, Hwc("packed", 8, 12, 4, {{"bytes", "100"}}), Hwc("d", 8, 12, 4)), nullptr,
         "\"bytes\" is 100 but the layout holds 384"},
        {"unknown layout", Manifest(kLuma, Hwc("packed", 8, 12, 4, {{"layout", "\"chw\""}}), Hwc("d", 8, 12, 4)),
         nullptr, "\"layout\" must be"},
        {"unknown type", Manifest(kLuma, Hwc("packed", 8, 12, 4, {{"type", "\"u8\""}}), Hwc("d", 8, 12, 4)),
         nullptr, "\"type\" must be"},
        {"zero scale", Manifest(kLuma, Hwc("packed", 8, 12, 4, {{"scale", "0"}}), Hwc("d", 8, 12, 4)), nullptr,
         "\"scale\" must be a positive number"},
        {"zero height", Manifest(kLuma, Hwc("packed", 8, 12, 4, {{"height", "0"}}), Hwc("d", 8, 12, 4)), nullptr,
         "needs positive \"height\""},
        {"unused output", Manifest(kLuma, Hwc("packed", 8, 12, 4), unused), nullptr, "cannot be \"unused\""},
        {"wrong input name", Manifest(kLuma, Hwc("frame", 8, 12, 4), Hwc("denoised", 8, 12, 4)), nullptr,
         "OpenCV:"},
        {"channels the network lacks", Manifest(kLuma, Hwc("packed", 8, 12, 6), Hwc("denoised", 8, 12, 6)),
         nullptr, "OpenCV:"},
        {"output shape", Manifest(kLuma, Hwc("packed", 8, 12, 4), Hwc("denoised", 8, 10, 4)), nullptr,
         "output \"denoised\" is 1x4x8x12, the manifest says 1x4x8x10"},
        {"bad thread count", kGoodLuma, "two", "VAI_REFERENCE_THREADS=\"two\" is not a thread count"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const std::string path = kDir + "/ref_manifest_case.json";
        std::remove(path.c_str());
        if (!c.text.empty()) WriteFile(path, c.text);
        if (c.threads) setenv("VAI_REFERENCE_THREADS", c.threads, 1);
        void* session = reinterpret_cast<void*>(1);
        int ret = 0;
        const std::string err = Stderr([&] { ret = interp->CreateSession(path.c_str(), 5, &session, nullptr, 2048); });
        unsetenv("VAI_REFERENCE_THREADS");
        if (c.error.empty()) {
            EXPECT_EQ(ret, 0);
            EXPECT_EQ(err, "");
            EXPECT_NE(session, nullptr);
            if (session) {
                EXPECT_EQ(interp->ReleaseSession(session), 0);
            }
        } else {
            EXPECT_NE(ret, 0);
            EXPECT_EQ(session, nullptr);
            EXPECT_EQ(Lines(err), 1u) << err;
            EXPECT_NE(err.find(c.error), std::string::npos) << err;
        }
    }
}

// The manifests committed beside the models open: their sizes fit the networks.
TEST(ReferenceRuntime, BundledManifestsOpen) {
    Runtime rt;
    std::unique_ptr<PXRT::Interpreter> interp(rt.create());
    for (const char* name : {"vainr_luma_640x480.json", "vainr_luma_1920x1080.json", "vainr_yuv_640x480.json",
                             "vainr_yuv_1920x1080.json"}) {
        SCOPED_TRACE(name);
        void* session = nullptr;
        EXPECT_EQ(interp->CreateSession((kModels + name).c_str(), 5, &session, nullptr, 2048), 0);
        EXPECT_EQ(interp->ReleaseSession(session), 0);
    }
}

struct Session {
    Runtime rt;
    std::unique_ptr<PXRT::Interpreter> interp{rt.create()};
    void* session = nullptr;
    explicit Session(const std::string& manifest) {
        const std::string path = kDir + "/ref_session.json";
        WriteFile(path, manifest);
        EXPECT_EQ(interp->CreateSession(path.c_str(), 5, &session, nullptr, 2048), 0);
    }
    ~Session() {
        if (session) interp->ReleaseSession(session);
    }
    std::shared_ptr<PXRT::ITensor> In(size_t bytes, void* buf = nullptr, int fd = -1, int index = 0) {
        return std::shared_ptr<PXRT::ITensor>(rt.in(session, bytes, index, 1, 2, buf, fd, 0));
    }
    std::shared_ptr<PXRT::ITensor> Out(size_t bytes, void* buf = nullptr, int fd = -1, int index = 0) {
        return std::shared_ptr<PXRT::ITensor>(rt.out(session, bytes, index, 1, 2, buf, fd, 0));
    }
};

struct MemFd {
    int fd;
    explicit MemFd(size_t bytes) : fd(memfd_create("tensor", 0)) { EXPECT_EQ(ftruncate(fd, bytes), 0); }
    ~MemFd() { close(fd); }
    std::vector<uint8_t> Read(size_t n) const {
        std::vector<uint8_t> v(n);
        EXPECT_EQ(pread(fd, v.data(), n, 0), static_cast<ssize_t>(n));
        return v;
    }
};

// A tensor over an fd maps it and ignores the address it is also given; one over an address reads and
// writes it in place. Both paths see and produce the same bytes, written after the tensors were made.
TEST(ReferenceRuntime, FdTensorsMatchAddressTensors) {
    Session s(kGoodLuma);
    ASSERT_NE(s.session, nullptr);
    const size_t n = 8 * 12 * 4;
    std::vector<uint8_t> in(n), out(n, 0), decoy(n, 0x55);
    MemFd in_fd(n), out_fd(n);
    PXRT::TensorArray by_addr_in{s.In(n, in.data())}, by_addr_out{s.Out(n, out.data())};
    PXRT::TensorArray by_fd_in{s.In(n, decoy.data(), in_fd.fd)}, by_fd_out{s.Out(n, decoy.data(), out_fd.fd)};
    ASSERT_TRUE(by_addr_in[0] && by_addr_out[0] && by_fd_in[0] && by_fd_out[0]);
    EXPECT_EQ(by_addr_in[0]->GetData(), in.data());

    std::mt19937 rng(7);
    for (auto& b : in) b = static_cast<uint8_t>(64 + rng() % 128);
    ASSERT_EQ(pwrite(in_fd.fd, in.data(), n, 0), static_cast<ssize_t>(n));
    ASSERT_EQ(s.interp->Run(s.session, &by_addr_in, &by_addr_out), 0);
    ASSERT_EQ(s.interp->Run(s.session, &by_fd_in, &by_fd_out), 0);
    EXPECT_EQ(out_fd.Read(n), out);
    EXPECT_NE(out, std::vector<uint8_t>(n, 0));
    EXPECT_EQ(decoy, std::vector<uint8_t>(n, 0x55));
}

// Tensors that do not fit the session are refused at creation or at Run, with one line each.
TEST(ReferenceRuntime, TensorErrors) {
    Session s(kGoodLuma);
    ASSERT_NE(s.session, nullptr);
    const size_t n = 8 * 12 * 4;
    MemFd short_fd(n - 1);
    std::vector<uint8_t> buf(n);
    auto good_in = s.In(n), good_out = s.Out(n);
    const struct {
        const char* what;
        std::function<std::shared_ptr<PXRT::ITensor>()> make;
        const char* error;
    } factories[] = {
        {"wrong size", [&] { return s.In(n + 1); }, "does not fit"},
        {"index past the inputs", [&] { return s.In(n, nullptr, -1, 1); }, "does not fit"},
        {"unknown session", [&] { return std::shared_ptr<PXRT::ITensor>(s.rt.out(&buf, n, 0, 1, 2, nullptr, -1, 0)); },
         "not a live session"},
        {"short fd", [&] { return s.In(n, buf.data(), short_fd.fd); }, "holds 383 bytes, the tensor needs 384"},
        {"closed fd", [&] { return s.In(n, buf.data(), 1000); }, "tensor fd 1000"},
    };
    for (const auto& f : factories) {
        SCOPED_TRACE(f.what);
        std::shared_ptr<PXRT::ITensor> t;
        const std::string err = Stderr([&] { t = f.make(); });
        EXPECT_EQ(t, nullptr);
        EXPECT_EQ(Lines(err), 1u) << err;
        EXPECT_NE(err.find(f.error), std::string::npos) << err;
    }
    struct Foreign : PXRT::ITensor {
        int Reserved0() override { return 0; }
        void* GetData() override { return nullptr; }
    };
    const struct {
        const char* what;
        PXRT::TensorArray in, out;
        void* session;
        const char* error;
    } runs[] = {
        {"two inputs", {good_in, good_in}, {good_out}, s.session, "2 input tensors given, the manifest has 1"},
        {"no outputs", {good_in}, {}, s.session, "0 output tensors given"},
        {"empty slot", {nullptr}, {good_out}, s.session, "input 0 is missing or foreign"},
        {"foreign tensor", {good_in}, {std::make_shared<Foreign>()}, s.session, "output 0 is missing or foreign"},
        {"unknown session", {good_in}, {good_out}, &buf, "is not a session of this interpreter"},
    };
    for (auto r : runs) {
        SCOPED_TRACE(r.what);
        int ret = 0;
        const std::string err = Stderr([&] { ret = s.interp->Run(r.session, &r.in, &r.out); });
        EXPECT_NE(ret, 0);
        EXPECT_EQ(Lines(err), 1u) << err;
        EXPECT_NE(err.find(r.error), std::string::npos) << err;
    }
}

// Every element type through both layouts, exactly: the test network reverses the channels of its
// image input and the elements of its vector input, which the manifest lists first.
template <typename T>
void CheckLayouts(const char* type, double scale) {
    SCOPED_TRACE(type);
    const int h = 2, w = 5, c = 6, count = 16;
    const std::string sc = std::to_string(scale);
    auto vec = [&](const std::string& name) {
        return "{\"name\": \"" + name + "\", \"bytes\": " + std::to_string(count * sizeof(T)) +
               ", \"layout\": \"vector\", \"count\": 16, \"type\": \"" + type + "\", \"scale\": " + sc + "}";
    };
    auto img = [&](const std::string& name) {
        return Hwc(name, h, w, c, {{"bytes", std::to_string(h * w * c * sizeof(T))}, {"type", std::string("\"") + type + "\""}, {"scale", sc}});
    };
    Session s(Manifest(std::string(VAI_TEST_SOURCE_DIR) + "/tests/data/permute.onnx", vec("vec") + "," + img("packed"),
                       img("packed_out") + "," + vec("vec_out")));
    ASSERT_NE(s.session, nullptr);
    std::vector<T> v_in(count), v_out(count), p_in(h * w * c), p_out(h * w * c);
    std::mt19937 rng(3);
    std::uniform_int_distribution<long> d(std::is_signed<T>::value ? -100 : 0, std::is_floating_point<T>::value ? 1000 : std::numeric_limits<T>::max());
    for (T& x : v_in) x = static_cast<T>(d(rng));
    for (T& x : p_in) x = static_cast<T>(d(rng));
    PXRT::TensorArray in{s.In(count * sizeof(T), v_in.data(), -1, 0), s.In(p_in.size() * sizeof(T), p_in.data(), -1, 1)};
    PXRT::TensorArray out{s.Out(p_out.size() * sizeof(T), p_out.data(), -1, 0), s.Out(count * sizeof(T), v_out.data(), -1, 1)};
    ASSERT_EQ(s.interp->Run(s.session, &in, &out), 0);
    for (int i = 0; i < count; ++i) EXPECT_EQ(v_out[i], v_in[count - 1 - i]) << i;
    for (int pos = 0; pos < h * w; ++pos) {
        for (int k = 0; k < c; ++k) EXPECT_EQ(p_out[pos * c + k], p_in[pos * c + c - 1 - k]) << pos << "," << k;
    }
}

TEST(ReferenceRuntime, LayoutsCarryEveryElementExactly) {
    CheckLayouts<uint8_t>("uint8", 1 / 255.0);
    CheckLayouts<int8_t>("int8", 1 / 127.0);
    CheckLayouts<uint16_t>("uint16", 1 / 1023.0);
    CheckLayouts<int16_t>("int16", 1 / 256.0);
    CheckLayouts<float>("float32", 1.0);
}

// ---- mode 1 through the entry points with the bundled models ----

constexpr int kW = 128, kH = 96;

double Psnr(const vai_frame::Frame& a, const vai_frame::Frame& b, int plane) {
    const int samples = kW, rows = plane == 0 ? kH : kH / 2;
    double se = 0;
    for (int y = 0; y < rows; ++y) {
        for (int x = 0; x < samples; ++x) {
            const double d = (a.Sample(plane, x, y) >> 6) - (b.Sample(plane, x, y) >> 6);
            se += d * d;
        }
    }
    return 10 * std::log10(1023.0 * 1023.0 / (se / (samples * rows)));
}

// A clean picture of smooth shading, a disc and soft bars, and a noisy copy with signal-dependent
// noise (variance a x value + b, in 10-bit steps).
void MakeFrames(vai_frame::Frame& clean, vai_frame::Frame& noisy) {
    std::mt19937 rng(11);
    std::normal_distribution<double> g(0, 1);
    for (int p = 0; p < 2; ++p) {
        for (int y = 0; y < (p ? kH / 2 : kH); ++y) {
            for (int x = 0; x < kW; ++x) {
                const int px = p ? x / 2 * 2 : x, py = p ? y * 2 : y;
                const double disc = std::hypot(px - 80.0, py - 44.0) < 26 ? 260 : 0;
                const double bars = 90 * std::sin(px * 0.15) * (py > 70);
                double v = p ? (x % 2 ? 560 - py : 470 + px * 0.5) : 180 + px * 2.5 + py + disc + bars;
                v = std::min(std::max(v, 0.0), 1023.0);
                const double sigma = p ? 12 : std::sqrt(1.0 * v + 200);
                const double n = std::min(std::max(std::round(v + sigma * g(rng)), 0.0), 1023.0);
                clean.SetSample(p, x, y, static_cast<uint16_t>(std::lround(v)) << 6);
                noisy.SetSample(p, x, y, static_cast<uint16_t>(n) << 6);
            }
        }
    }
}

std::string ReadFile(const std::string& path) {
    std::ifstream f(path);
    return std::string(std::istreambuf_iterator<char>(f), {});
}

// The sample configuration (luma-only) with the luma model, and the same with processType 1 and the
// YUV model: past the warm-up copies the frames come out closer to the clean picture than the noisy
// input. Luma-only configurations copy chroma unchanged.
TEST(ReferenceRuntime, Mode1DenoisesThroughTheEntryPoints) {
    const std::string sample = ReadFile(std::string(VAI_TEST_SOURCE_DIR) + "/configs/qcom_vainr_yuv.json");
    std::string yuv_cfg = sample;
    const size_t at = yuv_cfg.find("\"processType\": 0");
    ASSERT_NE(at, std::string::npos);
    yuv_cfg.replace(at, 16, "\"processType\": 1");
    WriteFile(kDir + "/ref_qcom_yuv.json", yuv_cfg);
    const struct {
        const char* what;
        std::string cfg, onnx;
        int channels;
        double luma_gain, chroma_gain;  // at least, in dB
    } cases[] = {
        {"luma-only", std::string(VAI_TEST_SOURCE_DIR) + "/configs/qcom_vainr_yuv.json", "vainr_luma.onnx", 4, 2.0, 0},
        {"yuv", kDir + "/ref_qcom_yuv.json", "vainr_yuv.onnx", 6, 2.0, 1.0},
    };
    setenv("VAI_PXRT_LIBRARY", VAI_REFERENCE_RUNTIME_PATH, 1);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
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
        for (int frame = 0; frame < 9; ++frame) {
            ASSERT_EQ(Video_AI_Proc_Process(handle, out.img(), noisy.img(), &params), 0);
            SCOPED_TRACE(frame);
            if (frame < 7) {
                EXPECT_TRUE(out == noisy);  // warm-up copies
                continue;
            }
            EXPECT_GT(Psnr(out, clean, 0), Psnr(noisy, clean, 0) + c.luma_gain);
            if (c.channels == 4) {
                EXPECT_EQ(out.PlaneCopy(1), noisy.PlaneCopy(1));
            } else {
                EXPECT_GT(Psnr(out, clean, 1), Psnr(noisy, clean, 1) + c.chroma_gain);
            }
        }
        EXPECT_EQ(Video_AI_Proc_Uninit(handle), 0);
    }
    unsetenv("VAI_PXRT_LIBRARY");
}

}  // namespace
