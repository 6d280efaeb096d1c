// The reference runtime, loaded by path as the library loads it: manifests and their errors, tensors over
// caller memory and file descriptors, and the bundled models denoising through the entry points.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "frame.h"
#include "interface/VideoAIProc.h"
#include "interface/pxrt_interface.h"
#include "tool_test_util.h"

namespace {

const std::string kModels = std::string(VAI_TEST_SOURCE_DIR) + "/models/mode1/";
const std::string kDir = VAI_TEST_BINARY_DIR;

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
    // One file per test: ctest runs the tests of this suite side by side.
    const std::string path =
        kDir + "/ref_session_" + testing::UnitTest::GetInstance()->current_test_info()->name() + ".json";

    explicit Runtime(const std::string& manifest = "") {
        if (manifest.empty()) return;
        WriteFile(path, manifest);
        EXPECT_EQ(Open(path, &session), 0);
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

// `text` with its first `from` replaced by `to`.
std::string Sub(std::string text, const std::string& from, const std::string& to) {
    return text.replace(text.find(from), from.size(), to);
}

std::string Manifest(const std::string& onnx, const std::string& in, const std::string& out) {
    return "//\n{\"onnx\": \"" + onnx + "\", \"inputs\": [" + in + "], \"outputs\": [" + out + "]}";
}

// A tensor entry of a manifest: `layout` holds the layout's own members.
std::string Blocks(const std::string& name, size_t bytes, int h, int w, const std::string& layout) {
    return "{\"name\": \"" + name + "\", \"bytes\": " + std::to_string(bytes) +
           ", \"height\": " + std::to_string(h) + ", \"width\": " + std::to_string(w) + ", " + layout + "}";
}
// hwc elements of `size` bytes, in 1/255 steps unless `scale` says otherwise.
std::string Hwc(const std::string& name, int h, int w, int c, const std::string& type = "uint8",
                size_t size = 1, const std::string& scale = "0.00392156862745098") {
    return Blocks(name, h * w * c * size, h, w,
                  "\"layout\": \"hwc\", \"type\": \"" + type + "\", \"channels\": " + std::to_string(c) +
                      ", \"scale\": " + scale);
}
// A parameter input of 16 elements handed to the network as planes.
std::string Plane(const std::string& name, int h, int w, int c, const std::string& type) {
    return Blocks(name, 16, h, w,
                  "\"layout\": \"plane\", \"count\": 16, \"channels\": " + std::to_string(c) + ", " + type);
}
const std::string kNv21 = "\"layout\": \"nv21\", \"scale\": 0.00392156862745098";
const std::string kBayer =
    "\"layout\": \"bayer\", \"type\": \"uint16\", \"black_level\": 64, \"white_level\": 1023";

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
        {Manifest("../../../models/mode1/vainr_luma.onnx", packed + "," + unused, d), "", "1"},  // relative
        {"", "cannot open manifest"},
        {"{\"onnx\": ", "JSON error at offset 9"},
        {"[1]", "not a JSON object"},
        {"{\"onnx\": " + std::string(100000, '['), "nested deeper than 128 levels"},
        // A number RapidJSON's own conversion reads far outside its tables for.
        {"{\"onnx\": 55550000050.0555" + std::string(60, '0') + "26043" + std::string(70, '0') + "26043806" +
             std::string(180, '0') + "3e-350}",
         "\"onnx\" must name"},
        {"{\"inputs\": []}", "\"onnx\" must name"},
        {Manifest(kDir + "/none.onnx", packed, d), "cannot read the network"},
        {Manifest(VAI_REFERENCE_RUNTIME_PATH, packed, d), "OpenCV:"},
        {Manifest(kLuma, "", d), "\"inputs\" must be an array"},
        {Manifest(kLuma, "{\"bytes\": 4, \"layout\": \"unused\"}", d), "inputs[0]: \"name\""},
        {Manifest(kLuma, packed + "," + Sub(unused, "16", "0"), d), "inputs[1]: \"bytes\""},
        {Sub(kGoodLuma, "384", "100"), "\"bytes\" is 100 but the layout holds 384"},
        {Sub(kGoodLuma, "hwc", "chw"), "\"layout\""},
        {Sub(kGoodLuma, "uint8", "u8"), "\"type\""},
        {Sub(kGoodLuma, "0.00392156862745098", "0"), "\"scale\""},
        {Sub(kGoodLuma, ": 8", ": 0"), "\"height\""},
        {Sub(kGoodLuma, "packed", "frame"), "OpenCV:"},
        {Manifest(kLuma, packed, Hwc("denoised", 8, 10, 4)), "is 1x4x8x12, the manifest says 1x4x8x10"},
        {kGoodLuma, "VAI_REFERENCE_THREADS=\"two\"", "two"},
        {Manifest(kLuma, Blocks("packed", 360, 15, 16, kNv21), d), "needs positive even"},
        {Manifest(kLuma, Blocks("packed", 384, 16, 24, kNv21), d), "the layout holds 576"},
        {Manifest(kLuma, Blocks("packed", 768, 16, 24, Sub(kBayer, "1023", "64")), d), "\"white_level\""},
        {Manifest(kLuma, Blocks("packed", 768, 16, 24, kBayer + ", \"cfa\": \"rgbg\""), d), "\"cfa\""},
        {Sub(kGoodLuma, "\"scale\"", "\"offset\": \"1\", \"scale\""), "\"offset\""},
        {Manifest(kLuma, packed, Plane("denoised", 8, 12, 4, "\"type\": \"int8\"")), "cannot be \"unused\""},
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
    for (const char* name :
         {"mode1/vainr_luma", "mode1/vainr_yuv", "mode9/vainr_mtk_yuv", "mode10/vainr_mtk_raw"}) {
        for (const char* size : {"_640x480.json", "_1920x1080.json"}) {
            void* session = nullptr;
            EXPECT_EQ(rt.Open(kModels + "../" + name + size, &session), 0) << name << size;
            EXPECT_EQ(rt.interp->ReleaseSession(session), 0) << name;
        }
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

    void* gone = nullptr;  // a released session makes no more tensors
    ASSERT_EQ(s.Open(s.path, &gone), 0);
    ASSERT_EQ(s.interp->ReleaseSession(gone), 0);
    const struct {
        std::function<Tensor()> make;
        const char* error;
    } factories[] = {
        {[&] { return s.In(n + 1); }, "tensor 0 of 385 bytes does not fit"},
        {[&] { return s.In(n, nullptr, -1, 1); }, "tensor 1 of 384 bytes does not fit"},
        {[&] { return Tensor(s.out(&in, n, 0, 1, 2, nullptr, -1, 0)); }, "not a live session"},
        {[&] { return s.In(n, in.data(), short_fd.fd); }, "holds 383 bytes, the tensor needs 384"},
        {[&] { return s.In(n, in.data(), 1000); }, "tensor fd 1000"},
        {[&] { return Tensor(s.in(gone, n, 0, 1, 2, nullptr, -1, 0)); }, "not a live session"},
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
    size_t sizes[2] = {};  // input 0 is the vector, output 0 the image
    ASSERT_EQ(s.interp->GetSessionInputSize(s.session, 0, &sizes[0]), 0);
    ASSERT_EQ(s.interp->GetSessionOutputSize(s.session, 0, &sizes[1]), 0);
    EXPECT_EQ(sizes[0], vb);
    EXPECT_EQ(sizes[1], pb);
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

// The frame layouts through a network that passes its input on: the frame comes back bit for bit (a
// Bayer sample above the white level comes back at it), and, read out as float channels, each channel
// holds the sample of the 2x2 block the layout promises, levelled and scaled.
TEST(ReferenceRuntime, FrameLayoutsRoundTripExactly) {
    constexpr int h = 4, w = 6;
    const struct {
        std::string layout;
        int pos[4];  // block position (row x 2 + column) of channels 0..3
    } cases[] = {
        {kNv21, {0, 1, 2, 3}},
        {kBayer, {0, 1, 2, 3}},
        {kBayer + ", \"cfa\": \"grbg\"", {1, 0, 3, 2}},
        {kBayer + ", \"cfa\": \"gbrg\"", {2, 3, 0, 1}},
        {kBayer + ", \"cfa\": \"bggr\"", {3, 2, 1, 0}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.layout);
        const bool nv21 = c.layout == kNv21;
        const size_t count = nv21 ? h * w * 3 / 2 : h * w, size = nv21 ? 1 : 2;
        const int channels = nv21 ? 6 : 4;
        const double black = nv21 ? 0 : 64, scale = nv21 ? 1 / 255.0 : 1 / 959.0;
        std::vector<uint16_t> v(count);
        std::mt19937 rng(5);
        for (uint16_t& x : v) x = static_cast<uint16_t>(rng() % (nv21 ? 256 : 1024));
        if (!nv21) v[7] = 4000;
        std::vector<uint8_t> in(count * size), back(count * size);
        for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<uint8_t>(v[i / size] >> (8 * (i % size)));
        std::vector<float> blob(count / (nv21 ? 6 : 4) * channels);
        const std::string frame = Blocks("frame", in.size(), h, w, c.layout);
        const std::string id = std::string(VAI_TEST_SOURCE_DIR) + "/tests/data/identity.onnx";
        Runtime s(Manifest(id, frame, Sub(frame, "frame", "out")));
        Runtime f(Manifest(id, frame, Hwc("out", h / 2, w / 2, channels, "float32", 4, "1")));
        ASSERT_TRUE(s.session && f.session);
        PXRT::TensorArray s_in{s.In(in.size(), in.data())}, s_out{s.Out(back.size(), back.data())};
        PXRT::TensorArray f_in{f.In(in.size(), in.data())}, f_out{f.Out(blob.size() * 4, blob.data())};
        ASSERT_EQ(s.interp->Run(s.session, &s_in, &s_out), 0);
        ASSERT_EQ(f.interp->Run(f.session, &f_in, &f_out), 0);
        if (!nv21) in[14] = 1023 & 0xff, in[15] = 1023 >> 8;
        EXPECT_EQ(back, in);
        for (int at = 0; at < h * w / 4 * channels; ++at) {  // block (r, col), channel k
            const int r = at / channels / (w / 2), col = at / channels % (w / 2), k = at % channels;
            const int e =
                k < 4 ? (2 * r + c.pos[k] / 2) * w + 2 * col + c.pos[k] % 2 : h * w + r * w + 2 * col + k - 4;
            EXPECT_FLOAT_EQ(blob[at], (v[e] - black) * scale) << r << "," << col << " channel " << k;
        }
    }
}

constexpr int kW = 128, kH = 96;

// Sample (x, y) of plane p of a mode's test frame, clean, and its noise deviation (signal-dependent). In
// 10-bit steps: smooth shading, a disc and soft bars in luma, gentle ramps in chroma (x the column of the
// interleaved pair's sample, y the chroma row). Mode 9 carries it in 8 bits, NV21 in one plane; mode 10
// is the luma as an RGGB mosaic above black level 64, with a gain per colour.
std::pair<double, double> Scene(int mode, int p, int x, int y) {
    static const double kGain[4] = {0.5, 0.8, 0.8, 0.6};
    const bool chroma = p || (mode == 9 && y >= kH);
    const int px = chroma ? x / 2 * 2 : x, py = chroma ? y % kH * 2 : y;
    double v = chroma ? (x % 2 ? 560 - py : 470 + px * 0.5)
                      : 180 + px * 2.5 + py + (std::hypot(px - 80.0, py - 44.0) < 26 ? 260 : 0) +
                            90 * std::sin(px * 0.15) * (py > 70);
    if (mode == 1) return {v, p ? 12 : std::sqrt(v + 200)};
    if (mode == 9) return {v / 4, chroma ? 3 : std::sqrt(0.3 * v / 4 + 4)};
    v = 64 + v * kGain[y % 2 * 2 + x % 2];
    return {v, std::sqrt(2 * v - 112)};
}

// Each mode with its sample configuration and a bundled model at the test's frame size, at ISO 25600
// (the last gain bin): past mode 1's warm-up copies, luma comes out at least 2 dB closer to the clean
// picture than the noisy input, and chroma by the case's factor; luma-only configurations copy chroma
// unchanged. The MediaTek modes pass the frame through at the caller's strength 0.
TEST(ReferenceRuntime, ModesDenoiseThroughTheEntryPoints) {
    const std::string src = VAI_TEST_SOURCE_DIR, yuv_cfg = kDir + "/ref_qcom_yuv.json";
    WriteFile(yuv_cfg, Sub(ReadFile(src + "/configs/qcom_vainr_yuv.json"), "\"processType\": 0",
                           "\"processType\": 1"));
    const std::string qcom = src + "/configs/qcom_vainr_yuv.json", mtk = src + "/configs/mtk_vainr_";
    const struct {
        int mode;
        std::string cfg, onnx;
        int channels;
        double chroma;  // error factor; 0: copied unchanged
    } cases[] = {
        {1, qcom, "mode1/vainr_luma.onnx", 4, 0},
        {1, yuv_cfg, "mode1/vainr_yuv.onnx", 6, 0.79},
        {9, mtk + "yuv.json", "mode9/vainr_mtk_yuv.onnx", 6, 0.63},
        {10, mtk + "raw.json", "mode10/vainr_mtk_raw.onnx", 4, 1},
    };
    setenv("VAI_PXRT_LIBRARY", VAI_REFERENCE_RUNTIME_PATH, 1);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.onnx);
        const bool yuv = c.mode == 9;
        const vai_frame::Format format = c.mode == 1
                                             ? vai_frame::Format{kW, kH, 10, 2}
                                             : vai_frame::Format{kW, yuv ? kH * 3 / 2 : kH, yuv ? 8 : 10, 1};
        std::string in = Hwc("packed", kH / 2, kW / 2, c.channels),
                    res = Hwc("denoised", kH / 2, kW / 2, c.channels);
        if (c.mode != 1) {  // the frame, a strength plane (int8 around -128 for mode 10) and an unused input
            const std::string frame = Blocks("frame", format.FrameBytes(), kH, kW, yuv ? kNv21 : kBayer);
            const std::string type = yuv ? "" : "\"type\": \"int8\", \"offset\": -128, ";
            in = frame + "," +
                 Plane("strength", kH / 2, kW / 2, c.channels, type + "\"scale\": 0.00392156862745098") +
                 ", {\"name\": \"side\", \"bytes\": 16, \"layout\": \"unused\"}";
            res = Sub(frame, "frame", "denoised");
        }
        const std::string manifest = kDir + "/ref_e2e_" + std::to_string(&c - cases) + ".json";
        WriteFile(manifest, Manifest(src + "/models/" + c.onnx, in, res));
        const int shift = c.mode == 1 ? 6 : 0;
        vai_frame::Frame noisy(format), out(format);
        std::vector<std::pair<std::array<int, 3>, double>> clean;  // (plane, x, y) and its clean value
        std::mt19937 rng(11);
        std::normal_distribution<double> g(0, 1);
        for (int p = 0; p < format.planes; ++p) {
            for (int y = 0; y < format.Rows(p); ++y) {
                for (int x = 0; x < kW; ++x) {
                    const auto [v, sigma] = Scene(c.mode, p, x, y);
                    const double n =
                        std::clamp(std::round(v + sigma * g(rng)), 0.0, (1 << format.bits) - 1.0);
                    noisy.SetSample(p, x, y, static_cast<uint16_t>(static_cast<int>(n) << shift));
                    clean.push_back({{p, x, y}, v});
                }
            }
        }
        auto error = [&](const vai_frame::Frame& f, bool chroma) {
            double se = 0;
            for (const auto& [at, v] : clean) {
                if ((at[0] || at[2] >= kH) == chroma)
                    se += std::pow((f.Sample(at[0], at[1], at[2]) >> shift) - v, 2);
            }
            return se;
        };

        vAIPROC::InitParams_ init{};
        std::snprintf(init.project_name, sizeof(init.project_name), "DemoProject");
        for (const char*& path : init.model_path) path = manifest.c_str();
        for (auto& paths : init.mtk_yuv_model_path) std::fill(paths, paths + 5, manifest.c_str());
        init.cfg_path = c.cfg.c_str();
        init.algo_mode = c.mode;
        init.cam_mode = c.mode != 1;
        void* handle = Video_AI_Proc_Init(&init);
        ASSERT_NE(handle, nullptr);
        ASSERT_EQ(c.mode == 1 ? 0 : Video_AI_Model_Init(handle, &init), 0);  // mode 1 loads at init
        if (c.mode == 9) noisy.img()->height = out.img()->height = kH;
        vAIPROC::ProcParams_ params{};
        params.iso = 25600;
        params.drc_gain = params.zoom_ratio = 1;
        for (int frame = 0; frame < (c.mode == 1 ? 8 : 1); ++frame)
            ASSERT_EQ(Video_AI_Proc_Process(handle, out.img(), noisy.img(), &params), 0);
        EXPECT_LT(error(out, false), error(noisy, false) * 0.63);  // 2 dB
        if (c.chroma == 0) {
            EXPECT_EQ(out.PlaneCopy(1), noisy.PlaneCopy(1));
        } else {
            EXPECT_LE(error(out, true), error(noisy, true) * c.chroma);
        }
        if (c.mode != 1) {
            int32_t strength[2] = {yuv ? 0 : -128, 0};
            params.extend_pars = strength;
            ASSERT_EQ(Video_AI_Proc_Process(handle, out.img(), noisy.img(), &params), 0);
            EXPECT_EQ(out, noisy);
            EXPECT_EQ(Video_AI_Model_Uninit(handle), 0);
        }
        EXPECT_EQ(Video_AI_Proc_Uninit(handle), 0);
    }
    unsetenv("VAI_PXRT_LIBRARY");
}

}  // namespace
