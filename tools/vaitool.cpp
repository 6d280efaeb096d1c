// vaitool: runs a raw clip through libVideoAIProc's entry points and writes the result.
//
//   vaitool [--input FILE] [--output FILE] [--width W] [--height H] [--bits B] [--mode M] [--frames N]
//           [--log-level L] [--config FILE] [--model FILE] [--project NAME] [--iso N]
//
// Without --input it synthesises a short clip, so the tool does something real out of the box.
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "interface/VideoAIProc.h"
#include "clip.h"

namespace {

struct Options {
    std::string input;
    std::string output = "vaitool_out.yuv";
    ClipFormat fmt{640, 480, 10};
    int mode = 0;
    int frames = 5;     // synthesised clip only
    int logLevel = -1;  // -1: leave the library's default
    // Mode 1: configuration file, one model for every camera type, project, frame gain.
    std::string config;
    std::string model;
    std::string project = "DemoProject";
    int iso = 100;
};

const int kSupportedModes[] = {0, 1};

void Usage(FILE* to) {
    std::fprintf(to,
                 "usage: vaitool [--input FILE] [--output FILE] [--width W] [--height H] [--bits B]\n"
                 "               [--mode M] [--frames N] [--log-level L] [--config FILE] [--model FILE]\n"
                 "               [--project NAME] [--iso N]\n"
                 "  Runs a raw semi-planar clip (luma plane, then interleaved chroma at half size; 8-bit\n"
                 "  samples, or 16-bit little-endian MSB-aligned when B > 8) through the library.\n"
                 "  Defaults: synthesised 640x480 10-bit clip of 5 frames, mode 0 (bypass),\n"
                 "  output vaitool_out.yuv. --log-level sets the library's log threshold (0 silent .. 5).\n"
                 "  Mode 1 (Qualcomm YUV) needs --config and --model, and the runtime named by\n"
                 "  VAI_PXRT_LIBRARY; --project selects the configuration's project (DemoProject),\n"
                 "  --iso the frames' gain (100).\n");
}

bool ParseInt(const char* text, int lo, int hi, int& out) {
    char* end = nullptr;
    errno = 0;
    long v = std::strtol(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0' || v < lo || v > hi) return false;
    out = static_cast<int>(v);
    return true;
}

// Returns 0 to go on, otherwise the exit code.
int ParseArgs(int argc, char** argv, Options& opt) {
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "-h" || a == "--help") {
            Usage(stdout);
            return -1;
        }
        if (i + 1 >= argc) {
            std::fprintf(stderr, "error: %s needs a value\n", a.c_str());
            return 2;
        }
        const char* v = argv[++i];
        bool ok = true;
        if (a == "--input") {
            opt.input = v;
        } else if (a == "--output") {
            opt.output = v;
        } else if (a == "--width") {
            ok = ParseInt(v, 2, 16384, opt.fmt.width) && opt.fmt.width % 2 == 0;
        } else if (a == "--height") {
            ok = ParseInt(v, 2, 16384, opt.fmt.height) && opt.fmt.height % 2 == 0;
        } else if (a == "--bits") {
            ok = ParseInt(v, 8, 16, opt.fmt.bits);
        } else if (a == "--mode") {
            ok = ParseInt(v, -2147483647, 2147483647, opt.mode);
        } else if (a == "--frames") {
            ok = ParseInt(v, 1, 100000, opt.frames);
        } else if (a == "--log-level") {
            ok = ParseInt(v, 0, 255, opt.logLevel);
        } else if (a == "--config") {
            opt.config = v;
        } else if (a == "--model") {
            opt.model = v;
        } else if (a == "--project") {
            opt.project = v;
            ok = !opt.project.empty() && opt.project.size() <= 16;
        } else if (a == "--iso") {
            ok = ParseInt(v, 0, 10000000, opt.iso);
        } else {
            std::fprintf(stderr, "error: unknown option %s\n", a.c_str());
            Usage(stderr);
            return 2;
        }
        if (!ok) {
            std::fprintf(stderr, "error: bad value '%s' for %s\n", v, a.c_str());
            return 2;
        }
    }
    return 0;
}

bool ModeSupported(int mode) {
    for (int m : kSupportedModes) {
        if (m == mode) return true;
    }
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    Options opt;
    if (int rc = ParseArgs(argc, argv, opt)) return rc < 0 ? 0 : rc;

    if (opt.logLevel >= 0) g_log_level = static_cast<unsigned char>(opt.logLevel);
    if (!ModeSupported(opt.mode)) {
        std::fprintf(stderr,
                     "error: mode %d is not supported by vaitool (supported: 0 = bypass, 1 = Qualcomm YUV)\n",
                     opt.mode);
        return 2;
    }
    if (opt.mode == 1 && (opt.config.empty() || opt.model.empty())) {
        std::fprintf(stderr, "error: mode 1 needs --config and --model\n");
        return 2;
    }

    const size_t frameBytes = opt.fmt.FrameBytes();
    FILE* in = nullptr;
    int frameCount = opt.frames;
    if (!opt.input.empty()) {
        in = std::fopen(opt.input.c_str(), "rb");
        if (in == nullptr) {
            std::fprintf(stderr, "error: cannot open input clip '%s': %s\n", opt.input.c_str(),
                         std::strerror(errno));
            return 2;
        }
        struct stat st {};
        if (fstat(fileno(in), &st) != 0 || st.st_size == 0 || size_t(st.st_size) % frameBytes != 0) {
            std::fprintf(stderr,
                         "error: input clip '%s' is %lld bytes, not a whole number of %dx%d %d-bit frames "
                         "(%zu bytes each)\n",
                         opt.input.c_str(), static_cast<long long>(st.st_size), opt.fmt.width, opt.fmt.height,
                         opt.fmt.bits, frameBytes);
            std::fclose(in);
            return 2;
        }
        frameCount = static_cast<int>(size_t(st.st_size) / frameBytes);
    }

    FILE* out = std::fopen(opt.output.c_str(), "wb");
    if (out == nullptr) {
        std::fprintf(stderr, "error: cannot write '%s': %s\n", opt.output.c_str(), std::strerror(errno));
        if (in) std::fclose(in);
        return 2;
    }

    vAIPROC::InitParams_ init{};
    init.algo_mode = opt.mode;
    // project_name is a 16-byte field, not necessarily terminated.
    std::memcpy(init.project_name, opt.project.data(), opt.project.size());
    for (const char*& path : init.model_path) path = opt.model.c_str();
    init.cfg_path = opt.config.c_str();
    void* handle = Video_AI_Proc_Init(&init);
    // Bypass creates no instance, yet processing wants a non-null handle.
    static int bypassToken;
    if (handle == nullptr && opt.mode == 0) handle = &bypassToken;
    if (handle == nullptr) {
        std::fprintf(stderr, "error: initialisation of mode %d failed (see the log)\n", opt.mode);
        if (in) std::fclose(in);
        std::fclose(out);
        return 1;
    }
    // The configuration's log level replaces the library's at initialisation; the option wins.
    if (opt.logLevel >= 0) g_log_level = static_cast<unsigned char>(opt.logLevel);

    Frame source(opt.fmt), result(opt.fmt);
    vAIPROC::ProcParams_ params{};
    params.iso = static_cast<float>(opt.iso);
    params.drc_gain = 1.0f;
    int failures = 0, unchanged = 0;
    for (int f = 0; f < frameCount; ++f) {
        if (in != nullptr) {
            if (std::fread(source.Bytes().data(), 1, frameBytes, in) != frameBytes) {
                std::fprintf(stderr, "error: short read in frame %d of '%s'\n", f, opt.input.c_str());
                failures++;
                break;
            }
        } else {
            SynthesizeFrame(opt.fmt, f, source.Bytes());
        }
        source.Image()->req_id = result.Image()->req_id = static_cast<uint64_t>(f);
        std::memset(result.Bytes().data(), 0, frameBytes);
        // In bypass the library copies its second argument over its third, so the clip frame goes second.
        const int status = opt.mode == 0
                               ? Video_AI_Proc_Process(handle, source.Image(), result.Image(), &params)
                               : Video_AI_Proc_Process(handle, result.Image(), source.Image(), &params);
        if (status != 0) {
            std::fprintf(stderr, "frame %d: status %d\n", f, status);
            failures++;
        }
        unchanged += result.Bytes() == source.Bytes();
        std::fwrite(result.Bytes().data(), 1, frameBytes, out);
    }
    if (handle != &bypassToken) Video_AI_Proc_Uninit(handle);
    if (in) std::fclose(in);
    const bool writeOk = std::fclose(out) == 0;

    std::printf("vaitool: %s, mode %d (%s), %d frames of %dx%d %d-bit -> %s\n",
                opt.input.empty() ? "synthesised clip" : opt.input.c_str(), opt.mode,
                opt.mode == 0 ? "bypass" : Video_AI_Proc_GetVersion(opt.mode), frameCount, opt.fmt.width,
                opt.fmt.height, opt.fmt.bits, opt.output.c_str());
    std::printf("frames failed: %d, frames identical to input: %d/%d\n", failures, unchanged, frameCount);
    if (!writeOk) {
        std::fprintf(stderr, "error: writing '%s' failed\n", opt.output.c_str());
        return 1;
    }
    return failures == 0 ? 0 : 1;
}
