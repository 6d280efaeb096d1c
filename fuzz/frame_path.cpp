// Each back-end's frame path with fuzzed frame descriptions and processing parameters over real
// buffers. The input picks the back-end, the model's tensor sizes, a few configuration values and the
// model set-up, then describes up to six frames. Buffers are allocated from each description, so
// plane sizes always match them, and a MediaTek frame's first plane is at least the model's tensor
// (the runtime is handed the caller's buffer at the model's size).
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "backend_util.h"
#include "interface/VideoAIProc.h"
#include "qcom/vainr_yuv/qcom_vainr_yuv_proc_sat.h"

namespace {

using vAIPROC::VAI_IMG_;

constexpr int32_t kModes[] = {1, 9, 10};
constexpr int kMaxFrames = 6;
constexpr int kMaxSide = 40;

std::string g_samples[3];

std::string ReadFile(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    FUZZ_CHECK(f.good());
    return {std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>()};
}

// Replaces every `from` in `s`, each by the next of `values` (cycled).
std::string ReplaceEach(std::string s, const std::string& from, const std::vector<std::string>& values) {
    size_t i = 0;
    for (size_t at = s.find(from); at != std::string::npos; at = s.find(from, at + 1)) {
        const std::string& to = values[i++ % values.size()];
        s.replace(at, from.size(), to);
        at += to.size() - 1;
    }
    return s;
}

// The sample configuration of the back-end, processing from the first frame, with the processing type
// and each camera's enable flag from the input.
std::string Config(int which, vai_fuzz::Reader& in) {
    const uint8_t bits = in.Byte();
    std::vector<std::string> enables;
    for (int i = 0; i < 5; ++i) enables.push_back("\"processEnable\": " + std::to_string(((bits >> i) & 1) ^ 1));
    std::string s = ReplaceEach(g_samples[which], "\"processEnable\": 1", enables);
    s = ReplaceEach(s, "\"processType\": 0", {"\"processType\": " + std::to_string((bits >> 5) & 1)});
    return ReplaceEach(s, "\"SwitchFrameNum\": 7", {"\"SwitchFrameNum\": " + std::to_string(bits >> 6)});
}

// One frame description and the buffers it describes.
struct Image {
    VAI_IMG_ rec[4] = {};
    std::vector<std::unique_ptr<unsigned char[]>> buffers;
};

struct Geometry {
    int32_t width, height, stride;
};

Geometry TakeGeometry(vai_fuzz::Reader& in) {
    const int32_t w = in.Range(0, kMaxSide), h = in.Range(0, kMaxSide);
    return {w, h, w * 2 + in.Range(0, 7)};
}

void Describe(Image& img, const Geometry& g, vai_fuzz::Reader& in, size_t min_plane0) {
    const uint8_t count = in.Byte() % 4, planes = in.Byte() % 6;
    const int8_t btw = static_cast<int8_t>(in.Byte());
    const int32_t fd = in.Take<int32_t>();
    const uint64_t req = in.Take<uint64_t>();
    for (int i = 0; i < std::max<int>(count, 1); ++i) {
        VAI_IMG_& r = img.rec[i];
        r.btw = btw;
        r.img_num = count;
        r.plane_num = planes;
        r.width = g.width;
        r.height = g.height;
        r.req_id = req;
        for (int p = 0; p < std::min<int>(planes, 4); ++p) {
            // Luma rows, then interleaved chroma at half height.
            const int32_t rows = p == 0 ? g.height : (g.height + 1) / 2;
            r.stride[p] = g.stride;
            r.slice[p] = rows;
            r.plane_size[p] = static_cast<uint32_t>(g.stride) * static_cast<uint32_t>(rows);
            r.fd[p] = fd;
            const size_t bytes = std::max<size_t>(r.plane_size[p], p == 0 ? min_plane0 : 0);
            img.buffers.emplace_back(new unsigned char[std::max<size_t>(bytes, 1)]);
            std::memset(img.buffers.back().get(), 0x5a, std::max<size_t>(bytes, 1));
            r.plane_addr[p] = img.buffers.back().get();
        }
    }
}

// Run hook: reads every input byte and writes every output byte, so a tensor larger than its buffer
// shows up.
int TouchTensors(void*, PXRT::TensorArray* inputs, PXRT::TensorArray* outputs) {
    unsigned sum = 0;
    for (auto* list : {inputs, outputs}) {
        for (auto& t : *list) {
            pxrt_test::TensorInfo info;
            if (!t || !pxrt_test::Describe(t.get(), &info)) continue;
            auto* bytes = static_cast<unsigned char*>(t->GetData());
            if (bytes == nullptr) continue;
            for (size_t i = 0; i < info.bytes; ++i) sum += bytes[i];
            if (list == outputs) std::memset(bytes, static_cast<int>(sum), info.bytes);
        }
    }
    return 0;
}

// A model switch runs on its own thread; the next frame waits for it, so that runs repeat exactly.
void WaitForSwitch(void* handle) {
    auto* ctx = static_cast<QCOM_VAINR_YUV_PROC::VAINR_Ctx_*>(handle);
    while (ctx->switch_done.load(std::memory_order_acquire) == 0) std::this_thread::yield();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    vai_fuzz::SetUpBackends();
    const char* files[] = {"qcom_vainr_yuv.json", "mtk_vainr_yuv.json", "mtk_vainr_raw.json"};
    for (int i = 0; i < 3; ++i) g_samples[i] = ReadFile(std::string(VAI_FUZZ_CONFIG_DIR "/") + files[i]);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    vai_fuzz::Reader in(data, size);
    const int which = in.Byte() % 3;
    const int32_t mode = kModes[which];
    pxrt_test::Reset();
    pxrt_test::SetRecording(false);
    pxrt_test::SetRunHook(TouchTensors);

    // Tensor sizes: the frame tensor near a packed model frame, then up to two small parameter inputs.
    const int mw = in.Range(1, kMaxSide / 2) * 2, mh = in.Range(1, kMaxSide / 2) * 2;
    const int channels = which == 0 ? ((in.Byte() & 1) ? 6 : 4) : 2;
    const size_t frame_bytes = static_cast<size_t>(std::max(0, mw / 2 * (mh / 2) * channels + in.Range(-8, 8)));
    pxrt_test::SessionLayout layout{{frame_bytes}, {frame_bytes}};
    if (which != 0) {
        for (int extra = in.Byte() % 3; extra > 0; --extra) layout.input_bytes.push_back(in.Range(1, 300));
    }
    pxrt_test::SetDefaultLayout(layout);

    const std::string cfg = Config(which, in);
    const vai_fuzz::MemFile file(reinterpret_cast<const uint8_t*>(cfg.data()), cfg.size());
    vAIPROC::InitParams_ p{};
    std::snprintf(p.project_name, sizeof(p.project_name), "%s", "DemoProject");
    static const char* const kModels[5] = {"model0", "model1", "model2", "model3", "model4"};
    for (int i = 0; i < 5; ++i) p.model_path[i] = p.mtk_yuv_model_path[0][i] = p.mtk_yuv_model_path[1][i] = kModels[i];
    p.cfg_path = file.path();
    p.algo_mode = mode;
    const uint8_t model = in.Byte();
    p.cam_type = (model & 7) % 5;
    p.cam_mode = (model >> 3) & 1;
    p.is_inline_mode = (model >> 4) & 1;

    void* handle = Video_AI_Proc_Init(&p);
    g_log_level = 5;
    if (handle == nullptr) {
        vai_fuzz::CheckTornDown();
        return 0;
    }
    // A failed model set-up in mode 10 destroys the instance.
    if (mode != 1 && Video_AI_Model_Init(handle, &p) < 0 && mode == 10) {
        vai_fuzz::CheckTornDown();
        return 0;
    }

    for (int frame = 0; frame < kMaxFrames && in.Left() > 0; ++frame) {
        const uint8_t shape = in.Byte();
        Geometry g = TakeGeometry(in);
        Image src, dst;
        Describe(src, g, in, which == 0 ? 0 : frame_bytes);
        if (shape & 1) {
            std::memcpy(dst.rec, src.rec, sizeof(dst.rec));  // in place
        } else {
            if (shape & 2) g = TakeGeometry(in);  // an output of another size
            Describe(dst, g, in, which == 0 ? 0 : frame_bytes);
        }
        vAIPROC::ProcParams_ params{};
        params.cam_type = in.Range(-1, 5);
        params.iso = in.Take<float>();
        params.drc_gain = in.Take<float>();
        params.lux_idx = in.Take<float>();
        params.zoom_ratio = in.Take<float>();
        int32_t extend[2] = {in.Take<int32_t>(), in.Take<int32_t>()};
        params.extend_pars = in.Bit() ? extend : nullptr;
        Video_AI_Proc_Process(handle, dst.rec, src.rec, &params);
        if (mode == 1) WaitForSwitch(handle);
    }
    if (mode != 1) Video_AI_Model_Uninit(handle);
    FUZZ_CHECK(Video_AI_Proc_Uninit(handle) == 0);
    vai_fuzz::CheckTornDown();
    return 0;
}
