// vaitool: runs a raw clip through libVideoAIProc's entry points and writes the result.
//
//   vaitool denoise [-i FILE] [-o FILE] [-W W] [-H H] [-b B] [-m M] [-n N] [-c FILE] [--model FILE...]
//                   [-p NAME] [--iso N] [-g GAIN] [-t TYPE] [-l LEVEL]
//   vaitool check-config -m M [-p NAME] [--json] FILE
//   vaitool plot -m M [-p NAME] [-o FILE] FILE
//   vaitool --version
//
// Without --input it synthesises a clip, so the tool does something real out of the box.
#include <CLI/CLI.hpp>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "check_config.h"
#include "frame.h"
#include "interface/VideoAIProc.h"
#include "plot.h"

namespace {

struct Options {
    std::string input;
    std::string output = "vaitool_out.yuv";
    vai_frame::Format fmt{640, 480, 10};
    int mode = 0;
    // Enough frames to get past the sample configuration's seven warm-up copies.
    int frames = 30;
    int log_level = -1;  // -1: leave the library's (and then the configuration's) level
    std::string config;
    std::vector<std::string> models;  // per camera type; the last serves the types after it
    std::string project = "DemoProject";
    // A gain inside the sample tables, where the strengths are not 0.
    float iso = 3200.0f;
    float drc_gain = 1.0f;
    int cam_type = 0;
};

constexpr int kSupportedModes[] = {vAIPROC::VAI_ALGO_MODE_BYPASS, vAIPROC::VAI_ALGO_MODE_QCOM_YUV};

const CLI::Validator kEven(
    [](std::string& v) {
        return std::strtol(v.c_str(), nullptr, 10) % 2 == 0 ? std::string()
                                                            : "must be even (2x2 blocks are packed)";
    },
    "EVEN");

// Writes to `path` through a temporary file that only an explicit Commit renames into place, so a
// failed run leaves no partial output behind.
class OutputFile {
  public:
    explicit OutputFile(std::string path) : path_(std::move(path)), tmp_(path_ + ".part") {
        file_ = std::fopen(tmp_.c_str(), "wb");
    }
    ~OutputFile() {
        if (file_ != nullptr) std::fclose(file_);
        if (!committed_) std::remove(tmp_.c_str());
    }
    FILE* get() { return file_; }
    bool Commit() {
        const bool ok = std::fclose(file_) == 0 && std::rename(tmp_.c_str(), path_.c_str()) == 0;
        file_ = nullptr;
        committed_ = ok;
        return ok;
    }

  private:
    std::string path_, tmp_;
    FILE* file_ = nullptr;
    bool committed_ = false;
};

int Fail(const char* what, const std::string& detail) {
    std::fprintf(stderr, "error: %s%s\n", what, detail.c_str());
    return 2;
}

int Denoise(const Options& opt) {
    bool supported = false;
    for (int m : kSupportedModes) supported |= m == opt.mode;
    if (!supported)
        return Fail("mode ",
                    std::to_string(opt.mode) + " is not supported (supported: 0 = bypass, 1 = Qualcomm YUV)");
    if (opt.mode == 1 && (opt.config.empty() || opt.models.empty()))
        return Fail("mode 1 needs --config and --model", "");

    const size_t frame_bytes = opt.fmt.FrameBytes();
    int frame_count = opt.frames;
    std::unique_ptr<FILE, int (*)(FILE*)> in(nullptr, std::fclose);
    if (!opt.input.empty()) {
        in.reset(std::fopen(opt.input.c_str(), "rb"));
        if (!in) return Fail("cannot open input clip '", opt.input + "': " + std::strerror(errno));
        struct stat st {};
        if (fstat(fileno(in.get()), &st) != 0 || st.st_size == 0 || size_t(st.st_size) % frame_bytes != 0) {
            char detail[256];
            std::snprintf(detail, sizeof(detail),
                          "' is %lld bytes, not a whole number of %dx%d %d-bit frames (%zu bytes each)",
                          static_cast<long long>(st.st_size), opt.fmt.width, opt.fmt.height, opt.fmt.bits,
                          frame_bytes);
            return Fail("input clip '", opt.input + detail);
        }
        frame_count = static_cast<int>(size_t(st.st_size) / frame_bytes);
    }
    OutputFile out(opt.output);
    if (out.get() == nullptr) return Fail("cannot write '", opt.output + "': " + std::strerror(errno));

    vAIPROC::InitParams_ init{};
    init.algo_mode = opt.mode;
    init.cam_type = opt.cam_type;
    // project_name is a 16-byte field, not necessarily terminated.
    std::memcpy(init.project_name, opt.project.data(), opt.project.size());
    for (size_t t = 0; t < 5 && !opt.models.empty(); ++t) {
        init.model_path[t] = opt.models[std::min(t, opt.models.size() - 1)].c_str();
    }
    init.cfg_path = opt.config.c_str();
    void* handle = Video_AI_Proc_Init(&init);
    // Bypass creates no instance, yet processing wants a non-null handle.
    static int bypass_token;
    if (handle == nullptr && opt.mode == 0) handle = &bypass_token;
    if (handle == nullptr) {
        std::fprintf(stderr, "error: initialisation of mode %d failed (see the log)\n", opt.mode);
        return 1;
    }
    // The configuration's log level replaces the library's at initialisation; the option wins.
    if (opt.log_level >= 0) g_log_level = static_cast<unsigned char>(opt.log_level);

    vai_frame::Frame source(opt.fmt), result(opt.fmt);
    std::vector<uint8_t> bytes(frame_bytes);
    vAIPROC::ProcParams_ params{};
    params.iso = opt.iso;
    params.drc_gain = opt.drc_gain;
    params.cam_type = opt.cam_type;
    int failures = 0, unchanged = 0;
    for (int f = 0; f < frame_count; ++f) {
        if (in) {
            if (std::fread(bytes.data(), 1, frame_bytes, in.get()) != frame_bytes) {
                std::fprintf(stderr, "error: short read in frame %d of '%s'\n", f, opt.input.c_str());
                failures++;
                break;
            }
            source.SetBytes(bytes.data());
        } else {
            vai_frame::Synthesize(source, f);
        }
        source.img()->req_id = result.img()->req_id = static_cast<uint64_t>(f);
        result.Fill(0, 0);
        // In bypass the library copies its second argument over its third, so the clip frame goes second.
        const int status = opt.mode == 0 ? Video_AI_Proc_Process(handle, source.img(), result.img(), &params)
                                         : Video_AI_Proc_Process(handle, result.img(), source.img(), &params);
        if (status != 0) {
            std::fprintf(stderr, "frame %d: status %d\n", f, status);
            failures++;
        }
        const std::vector<uint8_t> written = result.Bytes();
        unchanged += written == source.Bytes();
        std::fwrite(written.data(), 1, written.size(), out.get());
    }
    if (handle != &bypass_token) Video_AI_Proc_Uninit(handle);

    std::printf("vaitool: %s, mode %d (%s), %d frames of %dx%d %d-bit -> %s\n",
                opt.input.empty() ? "synthesised clip" : opt.input.c_str(), opt.mode,
                opt.mode == 0 ? "bypass" : Video_AI_Proc_GetVersion(opt.mode), frame_count, opt.fmt.width,
                opt.fmt.height, opt.fmt.bits, opt.output.c_str());
    std::printf("frames failed: %d, frames identical to input: %d/%d\n", failures, unchanged, frame_count);
    if (failures != 0) return 1;
    if (!out.Commit()) {
        std::fprintf(stderr, "error: writing '%s' failed\n", opt.output.c_str());
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
        "Runs a raw semi-planar clip (luma plane, then interleaved chroma at half height; 8-bit samples, or "
        "16-bit little-endian MSB-aligned ones above 8 bits) through the library and writes the result.");
    denoise->add_option("-i,--input", opt.input, "input clip; without it a clip is synthesised")
        ->check(CLI::ExistingFile);
    denoise->add_option("-o,--output", opt.output, "output clip")->capture_default_str();
    denoise->add_option("-W,--width", opt.fmt.width, "frame width")
        ->check(CLI::Range(2, 16384) & kEven)
        ->capture_default_str();
    denoise->add_option("-H,--height", opt.fmt.height, "frame height")
        ->check(CLI::Range(2, 16384) & kEven)
        ->capture_default_str();
    denoise->add_option("-b,--bits", opt.fmt.bits, "bits per sample")
        ->check(CLI::Range(8, 16))
        ->capture_default_str();
    denoise->add_option("-m,--mode", opt.mode, "algorithm mode: 0 bypass, 1 Qualcomm YUV")
        ->capture_default_str();
    denoise->add_option("-n,--frames", opt.frames, "frames to synthesise")
        ->check(CLI::Range(1, 100000))
        ->capture_default_str();
    denoise->add_option("-c,--config", opt.config, "JSON configuration file (modes 1, 9, 10)")
        ->check(CLI::ExistingFile);
    denoise
        ->add_option("--model", opt.models,
                     "model file per camera type 0..4; the last one serves the types after it")
        ->expected(1, 5);
    denoise->add_option("-p,--project", opt.project, "project in the configuration file")
        ->check(CLI::Validator(
            [](std::string& v) {
                return !v.empty() && v.size() <= 16 ? std::string() : "must be 1 to 16 characters";
            },
            "NAME"))
        ->capture_default_str();
    denoise->add_option("--iso", opt.iso, "ISO of every frame")
        ->check(CLI::Range(0.0f, 1e7f))
        ->capture_default_str();
    denoise->add_option("-g,--drc-gain", opt.drc_gain, "DRC gain of every frame")
        ->check(CLI::Range(0.0f, 1e4f))
        ->capture_default_str();
    denoise->add_option("-t,--cam-type", opt.cam_type, "camera type of every frame and at start")
        ->check(CLI::Range(0, 4))
        ->capture_default_str();
    denoise->add_option("-l,--log-level", opt.log_level, "library log threshold: 0 silent .. 5 verbose")
        ->check(CLI::Range(0, 5));

    int tool_status = 0;
    vaitool::RegisterCheckConfig(app, tool_status);
    vaitool::RegisterPlot(app, tool_status);

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
    if (opt.log_level >= 0) g_log_level = static_cast<unsigned char>(opt.log_level);
    return Denoise(opt);
}
