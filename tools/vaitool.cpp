// vaitool: runs clips through libVideoAIProc's entry points, makes test clips and measures them.
//
//   vaitool denoise [-i CLIP] [-o CLIP] [-W W -H H --format F] [-m M] [-c FILE] [--model FILE...] ...
//   vaitool synth IMAGE -o CLIP [--clean CLIP] [--iso N] [-n N] [-W W -H H] [--format F] [--seed N]
//   vaitool compare REFERENCE CLIP... [-W W -H H --format F] [--csv FILE] [--png FILE]
//   vaitool check-config -m M [-p NAME] [--json] FILE
//   vaitool plot -m M [-p NAME] [-o FILE] FILE
//   vaitool --version
//
// Without --input, denoise synthesises a clip, so the tool does something real out of the box.
#include <CLI/CLI.hpp>
#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "check_config.h"
#include "clip.h"
#include "frame.h"
#include "interface/VideoAIProc.h"
#include "plot.h"
#include "schedule.h"
#if VAI_TOOL_IMAGES
#include "compare.h"
#include "synth.h"
#endif

using vaitool::ClipFormat;
using vaitool::ClipReader;
using vaitool::ClipWriter;
using vaitool::FrameParams;
using vaitool::FrameSchedule;
using vaitool::Layout;

namespace {

using Clock = std::chrono::steady_clock;
double Seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

struct Options {
    std::string input;
    std::string output = "vaitool_out.yuv";
    int width = 640, height = 480;
    bool size_given = false;  // --width and --height both on the command line
    int bits = 10;
    std::string layout;  // raw clips; empty: from --bits
    int mode = 0;
    // Enough frames to get past the sample configuration's seven warm-up copies.
    int frames = 30;
    int log_level = -1;  // -1: leave the library's (and then the configuration's) level
    std::string config;
    std::vector<std::string> models;  // per camera type; the last serves the types after it
    std::string project = "DemoProject";
    // A gain inside the sample tables, where the strengths are not 0.
    FrameParams constant{3200.0f, 1.0f, 1.0f, 0};
    std::string params_csv;
};

const CLI::Validator kEven(
    [](std::string& v) {
        return std::strtol(v.c_str(), nullptr, 10) % 2 == 0 ? std::string()
                                                            : "must be even (2x2 blocks are packed)";
    },
    "EVEN");

int Fail(const std::string& message) {
    std::fprintf(stderr, "error: %s\n", message.c_str());
    return 2;
}

// The frame layout each back-end takes: 16-bit MSB-aligned words for the Qualcomm packing, NV21 bytes
// for the MediaTek YUV network; bypass copies whatever it is given.
ClipFormat LibraryFormat(int mode, const ClipFormat& clip) {
    ClipFormat f = clip;
    f.y4m = false;
    if (mode == vAIPROC::VAI_ALGO_MODE_QCOM_YUV && !clip.wide()) {
        f.layout = Layout::kP010;
        f.bits = 10;
    } else if (mode == 9) {
        f.layout = Layout::kNV21;
        f.bits = 8;
    }
    return f;
}

// An image record over a frame held in one buffer, as a camera buffer is: semi-planar YUV, or a
// mosaic in plane 0 alone.
vAIPROC::VAI_IMG_ Describe(std::vector<uint8_t>& frame, const ClipFormat& f) {
    vAIPROC::VAI_IMG_ img{};
    img.btw = static_cast<int8_t>(f.bits);
    img.img_num = 1;
    img.plane_num = f.bayer() ? 1 : 2;
    const int stride = f.width * (f.wide() ? 2 : 1);
    for (int p = 0; p < img.plane_num; ++p) {
        img.plane_addr[p] = frame.data() + (p == 0 ? 0 : f.LumaBytes());
        img.stride[p] = stride;
        img.slice[p] = p == 0 ? f.height : f.height / 2;
        img.plane_size[p] = static_cast<uint32_t>(size_t(stride) * img.slice[p]);
    }
    for (int& fd : img.fd) fd = -1;
    img.width = f.width;
    img.height = f.height;
    return img;
}

using RuntimeStats = void (*)(uint64_t* microseconds, uint64_t* runs);

// The reference runtime counts its inference time; a device runtime does not, and then only the
// library's total is reported.
RuntimeStats FindRuntimeStats() {
    const char* path = std::getenv("VAI_PXRT_LIBRARY");
    if (path == nullptr) return nullptr;
    void* lib = dlopen(path, RTLD_NOW | RTLD_NOLOAD);
    if (lib == nullptr) return nullptr;
    // The runtime is built never to be unmapped, so the pointer outlives this reference.
    auto fn = reinterpret_cast<RuntimeStats>(dlsym(lib, "PxrtReferenceInferenceStats"));
    dlclose(lib);
    return fn;
}

class Progress {
  public:
    explicit Progress(int total) : total_(total), on_(isatty(STDERR_FILENO) != 0) {}
    void Update(int done, double seconds) {
        if (!on_) return;
        const int width = 30, filled = total_ > 0 ? std::min(width, done * width / total_) : 0;
        std::fprintf(stderr, "\r[%s%s] %d/%d frames, %.1f fps ", std::string(filled, '#').c_str(),
                     std::string(width - filled, ' ').c_str(), done, total_, seconds > 0 ? done / seconds : 0.0);
        std::fflush(stderr);
    }
    void Finish() {
        if (on_) std::fputc('\n', stderr);
        on_ = false;
    }

  private:
    int total_;
    bool on_;
};

// The modes whose back-ends set up their model in Video_AI_Model_Init.
bool HasModelStage(int mode) {
    return mode == 9 || mode == 10;
}

int Denoise(const Options& opt) {
    const int mode = opt.mode;
    if (mode != 0 && mode != 1 && mode != 9 && mode != 10)
        return Fail("mode " + std::to_string(mode) + " is not supported (supported: 0 bypass, 1, 9, 10)");
    if (mode != 0 && (opt.config.empty() || opt.models.empty()))
        return Fail("mode " + std::to_string(mode) + " needs --config and --model");

    ClipFormat raw;
    raw.width = opt.width;
    raw.height = opt.height;
    raw.layout = mode == 10 ? Layout::kBayer10 : opt.bits > 8 ? Layout::kP010 : Layout::kNV12;
    if (!opt.layout.empty()) ParseLayout(opt.layout, &raw.layout);
    raw.bits = raw.bayer() ? 10 : raw.wide() && opt.bits > 8 ? opt.bits : raw.wide() ? 10 : 8;
    if (mode == 10 && !raw.bayer())
        return Fail("mode 10 takes RAW Bayer frames: --format bayer10, not " + opt.layout);
    if (raw.bayer() && mode != 0 && mode != 10)
        return Fail("bayer10 clips are RAW Bayer frames, for mode 10 (or 0, bypass), not mode " +
                    std::to_string(mode));
    if (raw.bayer() && opt.input.empty())
        return Fail("bayer10 needs an --input clip (vaitool synth --format bayer10 makes one)");
    // A mosaic has no header to give its size, and no size is likely enough to be a default: the reader
    // refuses a raw clip without one.
    if (raw.bayer() && !opt.size_given) raw.width = raw.height = 0;

    FrameSchedule schedule(opt.constant);
    if (!opt.params_csv.empty()) {
        const std::string error = schedule.Load(opt.params_csv);
        if (!error.empty()) return Fail(error);
    }

    ClipReader reader;
    ClipFormat clip = raw;
    int frame_count = opt.frames;
    if (!opt.input.empty()) {
        const std::string error = reader.Open(opt.input, raw);
        if (!error.empty()) return Fail(error);
        clip = reader.format();
        frame_count = reader.frame_count();
        if (clip.y4m && raw.bayer())
            return Fail("'" + opt.input + "' is Y4M, which holds YUV only; mode " + std::to_string(mode) +
                        " with bayer10 takes raw Bayer clips");
    }
    const std::string tail = ".y4m";
    if (clip.bayer() && opt.output.size() >= tail.size() &&
        opt.output.compare(opt.output.size() - tail.size(), tail.size(), tail) == 0)
        return Fail("'" + opt.output + "': Y4M holds YUV only; name the bayer10 output other than .y4m");
    ClipWriter writer;
    if (std::string error = writer.Open(opt.output, clip); !error.empty()) return Fail(error);

    vAIPROC::InitParams_ init{};
    init.algo_mode = mode;
    init.cam_type = opt.constant.cam_type;
    // project_name is a 16-byte field, not necessarily terminated.
    std::memcpy(init.project_name, opt.project.data(), opt.project.size());
    for (size_t t = 0; t < 5 && !opt.models.empty(); ++t) {
        const char* model = opt.models[std::min(t, opt.models.size() - 1)].c_str();
        init.model_path[t] = init.mtk_yuv_model_path[0][t] = init.mtk_yuv_model_path[1][t] = model;
    }
    init.cfg_path = opt.config.c_str();
    void* handle = Video_AI_Proc_Init(&init);
    // Bypass creates no instance, yet processing wants a non-null handle.
    static int bypass_token;
    if (handle == nullptr && mode == 0) handle = &bypass_token;
    // Model set-up answers the camera type, or -1; mode 10 then has destroyed the instance itself.
    const bool model_failed =
        handle != nullptr && HasModelStage(mode) && Video_AI_Model_Init(handle, &init) < 0;
    if (handle == nullptr || model_failed) {
        if (handle != nullptr && mode != 10) Video_AI_Proc_Uninit(handle);
        std::fprintf(stderr, "error: initialisation of mode %d failed (see the log)\n", mode);
        return 1;
    }
    // The configuration's log level replaces the library's at initialisation; the option wins.
    if (opt.log_level >= 0) g_log_level = static_cast<unsigned char>(opt.log_level);

    const RuntimeStats runtime_stats = FindRuntimeStats();
    uint64_t runtime_us0 = 0, runs0 = 0;
    if (runtime_stats != nullptr) runtime_stats(&runtime_us0, &runs0);

    const ClipFormat lib = LibraryFormat(mode, clip);
    vai_frame::Frame synthetic(vai_frame::Format{clip.width, clip.height, clip.wide() ? clip.bits : 8});
    std::vector<uint8_t> in_clip, source, result;
    int failures = 0, unchanged = 0, done = 0;
    double library_s = 0;
    const auto start = Clock::now();
    Progress progress(frame_count);
    for (int f = 0;; ++f) {
        if (!opt.input.empty()) {
            std::string error;
            if (!reader.Read(&in_clip, &error)) {
                if (!error.empty()) {
                    std::fprintf(stderr, "error: %s\n", error.c_str());
                    failures++;
                }
                break;
            }
        } else {
            if (f == frame_count) break;
            vai_frame::Synthesize(synthetic, f);
            in_clip = synthetic.Bytes();
        }
        source = ConvertFrame(in_clip, clip, lib);
        result.assign(source.size(), 0);
        vAIPROC::VAI_IMG_ src = Describe(source, lib), dst = Describe(result, lib);
        src.req_id = dst.req_id = static_cast<uint64_t>(f);
        const FrameParams& fp = schedule.At(f);
        vAIPROC::ProcParams_ params{};
        params.iso = fp.iso;
        params.drc_gain = fp.drc_gain;
        params.zoom_ratio = fp.zoom;
        params.cam_type = fp.cam_type;
        const auto t0 = Clock::now();
        // In bypass the library copies its second argument over its third, so the clip frame goes second.
        const int status = mode == 0 ? Video_AI_Proc_Process(handle, &src, &dst, &params)
                                     : Video_AI_Proc_Process(handle, &dst, &src, &params);
        library_s += Seconds(Clock::now() - t0);
        if (status != 0) {
            std::fprintf(stderr, "frame %d: status %d\n", f, status);
            failures++;
        }
        unchanged += result == source;
        if (!writer.Write(ConvertFrame(result, lib, clip))) {
            std::fprintf(stderr, "error: writing '%s' failed\n", opt.output.c_str());
            failures++;
            break;
        }
        progress.Update(++done, Seconds(Clock::now() - start));
    }
    progress.Finish();
    const double wall_s = Seconds(Clock::now() - start);
    uint64_t runtime_us = 0, runs = 0;
    if (runtime_stats != nullptr) runtime_stats(&runtime_us, &runs);
    if (HasModelStage(mode)) Video_AI_Model_Uninit(handle);
    if (handle != &bypass_token) Video_AI_Proc_Uninit(handle);

    std::printf("vaitool: %s, mode %d (%s), %d frames of %s -> %s\n",
                opt.input.empty() ? "synthesised clip" : opt.input.c_str(), mode,
                mode == 0 ? "bypass" : Video_AI_Proc_GetVersion(mode), done, clip.Describe().c_str(),
                opt.output.c_str());
    std::printf("frames failed: %d, frames identical to input: %d/%d\n", failures, unchanged, done);
    if (done > 0) {
        std::printf("speed: %.1f frames per second (%.2f s in all)\n", done / wall_s, wall_s);
        const double per_frame_ms = 1e3 * library_s / done;
        if (runtime_stats != nullptr) {
            const double runtime_ms = 1e-3 * double(runtime_us - runtime_us0) / done;
            std::printf("library: %.1f ms per frame, of which runtime inference %.1f ms (%llu runs) and the "
                        "library's own work %.1f ms\n",
                        per_frame_ms, runtime_ms, static_cast<unsigned long long>(runs - runs0),
                        per_frame_ms - runtime_ms);
        } else {
            std::printf("library: %.1f ms per frame (the runtime reports no time of its own)\n", per_frame_ms);
        }
    }
    if (failures != 0) return 1;
    if (std::string error = writer.Commit(); !error.empty()) {
        std::fprintf(stderr, "error: %s\n", error.c_str());
        return 1;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"vaitool: runs clips through libVideoAIProc"};
    app.require_subcommand(1);
    app.set_version_flag("-V,--version", std::string("vaitool " VAI_TOOL_VERSION ", library mode 1: ") +
                                             Video_AI_Proc_GetVersion(1));

    Options opt;
    CLI::App* denoise = app.add_subcommand(
        "denoise",
        std::string("Runs a clip through the library and writes the result in the same container and format. "
                    "Clips: Y4M with 4:2:0 colour tags ") +
            vaitool::kY4mColourTags +
            ", or raw semi-planar frames (nv12, nv21: 8-bit; p010: 16-bit little-endian words, values "
            "MSB-aligned) of --width x --height. Mode 1 gets 16-bit frames and mode 9 8-bit NV21 ones: the "
            "tool converts and converts back. Mode 10 takes raw RGGB mosaics (bayer10: 16-bit little-endian "
            "words, 10-bit values, black 64, white 1023) of --width x --height, passed as they are.");
    denoise->add_option("-i,--input", opt.input, "input clip; without it a raw clip is synthesised")
        ->check(CLI::ExistingFile);
    denoise->add_option("-o,--output", opt.output, "output clip")->capture_default_str();
    denoise->add_option("-W,--width", opt.width, "frame width of raw clips")
        ->check(CLI::Range(2, 16384) & kEven)
        ->capture_default_str();
    denoise->add_option("-H,--height", opt.height, "frame height of raw clips")
        ->check(CLI::Range(2, 16384) & kEven)
        ->capture_default_str();
    denoise
        ->add_option(
            "--format", opt.layout,
            "raw clip format: nv12, nv21, p010 or bayer10 (default: bayer10 in mode 10, else from --bits)")
        ->check(CLI::IsMember({"nv12", "nv21", "p010", "bayer10"}));
    denoise->add_option("-b,--bits", opt.bits, "bits per sample of raw clips without --format; value bits in p010")
        ->check(CLI::Range(8, 16))
        ->capture_default_str();
    denoise
        ->add_option("-m,--mode", opt.mode,
                     "algorithm mode: 0 bypass, 1 Qualcomm YUV, 9 MediaTek YUV, 10 MediaTek RAW")
        ->capture_default_str();
    denoise->add_option("-n,--frames", opt.frames, "frames to synthesise without --input")
        ->check(CLI::Range(1, 100000))
        ->capture_default_str();
    denoise->add_option("-c,--config", opt.config, "JSON configuration file (modes 1, 9, 10)")
        ->check(CLI::ExistingFile);
    denoise
        ->add_option("--model", opt.models,
                     "model file (for the reference runtime, a manifest) per camera type 0..4; the last one "
                     "serves the types after it")
        ->expected(1, 5);
    denoise->add_option("-p,--project", opt.project, "project in the configuration file")
        ->check(CLI::Validator(
            [](std::string& v) {
                return !v.empty() && v.size() <= 16 ? std::string() : "must be 1 to 16 characters";
            },
            "NAME"))
        ->capture_default_str();
    denoise->add_option("--iso", opt.constant.iso, "ISO of every frame")
        ->check(CLI::Range(0.0f, 1e7f))
        ->capture_default_str();
    denoise->add_option("-g,--drc-gain", opt.constant.drc_gain, "DRC gain of every frame")
        ->check(CLI::Range(0.0f, 1e4f))
        ->capture_default_str();
    denoise->add_option("-z,--zoom", opt.constant.zoom, "zoom ratio of every frame")
        ->check(CLI::Range(0.0f, 1e3f))
        ->capture_default_str();
    denoise->add_option("-t,--cam-type", opt.constant.cam_type, "camera type of every frame and at start")
        ->check(CLI::Range(0, 4))
        ->capture_default_str();
    denoise
        ->add_option("--params", opt.params_csv,
                     "CSV of per-frame parameters: a header row naming \"frame\" and any of \"iso\", "
                     "\"drc_gain\", \"zoom\", \"cam_type\"; frames without a row keep the last row before "
                     "them, earlier frames and absent columns the options above")
        ->check(CLI::ExistingFile);
    denoise->add_option("-l,--log-level", opt.log_level, "library log threshold: 0 silent .. 5 verbose")
        ->check(CLI::Range(0, 5));

    int tool_status = 0;
    vaitool::RegisterCheckConfig(app, tool_status);
    vaitool::RegisterPlot(app, tool_status);
#if VAI_TOOL_IMAGES
    vaitool::RegisterSynth(app, tool_status);
    vaitool::RegisterCompare(app, tool_status);
#endif
    // One line that states the rule; the usage is one --help away.
    app.failure_message([](const CLI::App*, const CLI::Error& e) { return std::string("error: ") + e.what() + "\n"; });

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForVersion& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        app.exit(e);
        return 2;
    }
    if (!denoise->parsed()) return tool_status;
    opt.size_given = denoise->count("--width") > 0 && denoise->count("--height") > 0;
    if (opt.log_level >= 0) g_log_level = static_cast<unsigned char>(opt.log_level);
    return Denoise(opt);
}
