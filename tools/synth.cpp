#include "synth.h"

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <memory>
#include <random>

namespace vaitool {

namespace {

// The sensor model of models/train/train.py, so synthesised noise matches what the networks learnt:
// electrons at full scale for ISO 100, read noise in electrons, and the display gamma.
constexpr double kFullWell = 6000.0;
constexpr double kReadNoise = 2.5;
constexpr double kGamma = 2.2;

// Camera motion, pixels per frame, and the margin of the upscaled photo it pans over.
constexpr double kPanX = 0.75, kPanY = 0.3;
constexpr double kMargin = 1.15;

class Noise {
  public:
    Noise(uint64_t seed, float iso) : gen_(seed), gain_(iso / 100.0) {}

    // One sRGB value in [0, 1] through Poisson-Gaussian noise in linear light.
    float Apply(float srgb) {
        const double electrons = std::pow(std::clamp(double(srgb), 0.0, 1.0), kGamma) * kFullWell / gain_;
        const double noisy = Poisson(electrons) + kReadNoise * normal_(gen_);
        return static_cast<float>(std::pow(std::clamp(noisy * gain_ / kFullWell, 0.0, 1.0), 1.0 / kGamma));
    }

    // A linear value, 1 at full scale, through the same model; not clamped, so the read noise can take
    // it below 0 as it takes a sensor below its black level.
    double Linear(double linear) {
        const double electrons = linear * kFullWell / gain_;
        const double counted = Poisson(electrons);
        return (counted + kReadNoise * normal_(gen_)) * gain_ / kFullWell;
    }

  private:
    double Poisson(double mean) {
        // Counting for small means; above, the normal approximation is within the quantisation.
        if (mean >= 30.0) return std::max(0.0, std::round(mean + std::sqrt(mean) * normal_(gen_)));
        const double limit = std::exp(-mean);
        int k = 0;
        for (double p = uniform_(gen_); p > limit; p *= uniform_(gen_)) ++k;
        return k;
    }

    std::mt19937_64 gen_;
    std::normal_distribution<double> normal_;
    std::uniform_real_distribution<double> uniform_;
    double gain_;
};

// BT.601 limited-range 4:2:0 (chroma averaged over 2x2 blocks), as the training data.
void ToFrame(const cv::Mat& rgb, const ClipFormat& f, std::vector<uint8_t>* frame) {
    frame->assign(f.FrameBytes(), 0);
    const double top = f.wide() ? 1023.0 : 255.0;
    const int shift = f.wide() ? 6 : 0;
    auto put = [&](size_t i, double v) {
        const unsigned q = static_cast<unsigned>(std::floor(std::clamp(v, 0.0, 1.0) * top + 0.5)) << shift;
        if (f.wide()) {
            (*frame)[2 * i] = static_cast<uint8_t>(q);
            (*frame)[2 * i + 1] = static_cast<uint8_t>(q >> 8);
        } else {
            (*frame)[i] = static_cast<uint8_t>(q);
        }
    };
    const size_t luma = size_t(f.width) * f.height;
    const bool vu = f.layout == Layout::kNV21;
    for (int y = 0; y < f.height; y += 2) {
        for (int x = 0; x < f.width; x += 2) {
            double u = 0, v = 0;
            for (int k = 0; k < 4; ++k) {
                const cv::Vec3f& p = rgb.at<cv::Vec3f>(y + k / 2, x + k % 2);  // B, G, R
                const double yy = 0.299 * p[2] + 0.587 * p[1] + 0.114 * p[0];
                put(size_t(y + k / 2) * f.width + x + k % 2, 16.0 / 255 + yy * 219.0 / 255);
                u += 0.564 * (p[0] - yy) / 4;
                v += 0.713 * (p[2] - yy) / 4;
            }
            const size_t c = luma + size_t(y / 2) * f.width + x;
            put(c + (vu ? 1 : 0), u * 224.0 / 255 + 0.5);
            put(c + (vu ? 0 : 1), v * 224.0 / 255 + 0.5);
        }
    }
}

// The RGGB mosaic of a frame in linear light, with red and blue divided by the white-balance gains, as
// models/train/train_mtk.py makes it.
void ToLinearMosaic(const cv::Mat& bgr, cv::Mat* mosaic) {
    mosaic->create(bgr.size(), CV_64F);
    for (int y = 0; y < bgr.rows; ++y) {
        const cv::Vec3f* src = bgr.ptr<cv::Vec3f>(y);
        double* dst = mosaic->ptr<double>(y);
        for (int x = 0; x < bgr.cols; ++x) {
            const int colour = y % 2 + x % 2;  // 0 red, 1 green, 2 blue
            const double gain = colour == 0 ? kBayerRedGain : colour == 2 ? kBayerBlueGain : 1.0;
            dst[x] = std::pow(std::clamp(double(src[x][2 - colour]), 0.0, 1.0), kGamma) / gain;
        }
    }
}

// 10-bit words above the black level, rounded as the training data; with `noise`, through the sensor
// model first.
void ToBayerFrame(const cv::Mat& mosaic, Noise* noise, std::vector<uint8_t>* frame) {
    frame->resize(mosaic.total() * 2);
    const double* src = mosaic.ptr<double>();
    for (size_t i = 0; i < mosaic.total(); ++i) {
        const double v = noise != nullptr ? noise->Linear(src[i]) : src[i];
        const auto word = static_cast<unsigned>(std::clamp(
            std::floor(v * (kBayerWhite - kBayerBlack) + kBayerBlack + 0.5), 0.0, double(kBayerWhite)));
        (*frame)[2 * i] = static_cast<uint8_t>(word);
        (*frame)[2 * i + 1] = static_cast<uint8_t>(word >> 8);
    }
}

bool EndsWith(const std::string& s, const std::string& tail) {
    return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

int Fail(const std::string& message) {
    std::fprintf(stderr, "error: %s\n", message.c_str());
    return 2;
}

}  // namespace

std::string WriteFileAtomically(const std::string& path, const std::string& data) {
    const std::string tmp = path + ".part";
    {
        std::ofstream out(tmp, std::ios::binary);
        if (out && out.write(data.data(), std::streamsize(data.size())) && out.flush()) {
            out.close();
            if (std::rename(tmp.c_str(), path.c_str()) == 0) return "";
        }
    }
    std::remove(tmp.c_str());
    return "cannot write '" + path + "'";
}

int Synth(const SynthArgs& args) {
    ClipFormat f;
    f.width = args.width;
    f.height = args.height;
    f.y4m = EndsWith(args.output, ".y4m");
    if (f.y4m && args.layout == LayoutName(Layout::kBayer10)) {
        return Fail("Y4M holds YUV only: name a bayer10 clip other than '.y4m'");
    } else if (f.y4m) {
        f.layout = args.bits == 8 ? Layout::kNV12 : Layout::kP010;
    } else if (!ParseLayout(args.layout, &f.layout)) {
        return Fail("--format must be nv12, nv21, p010 or bayer10");
    }
    f.bits = f.wide() ? 10 : 8;
    if (!args.clean.empty() && EndsWith(args.clean, ".y4m") != f.y4m)
        return Fail("--clean must be in the same container as --output (both .y4m or both raw)");

    cv::Mat photo = cv::imread(args.image, cv::IMREAD_COLOR);
    if (photo.empty()) return Fail("cannot read image '" + args.image + "' (not an image file OpenCV reads)");
    photo.convertTo(photo, CV_32FC3, 1.0 / 255);
    const double scale = kMargin * std::max(double(f.width) / photo.cols, double(f.height) / photo.rows);
    cv::Mat big;
    cv::resize(photo, big, cv::Size(int(std::ceil(photo.cols * scale)), int(std::ceil(photo.rows * scale))),
               0, 0, cv::INTER_CUBIC);
    const double room_x = big.cols - f.width, room_y = big.rows - f.height;

    ClipWriter noisy_out, clean_out;
    if (std::string e = noisy_out.Open(args.output, f); !e.empty()) return Fail(e);
    if (!args.clean.empty()) {
        if (std::string e = clean_out.Open(args.clean, f); !e.empty()) return Fail(e);
    }
    Noise noise(args.seed, args.iso);
    std::vector<uint8_t> frame;
    cv::Mat view, noisy, mosaic;
    for (int n = 0; n < args.frames; ++n) {
        // Start a tenth into the margin and drift; a long clip rests against the far edge.
        const double ox = std::min(room_x, 0.1 * room_x + kPanX * n),
                     oy = std::min(room_y, 0.1 * room_y + kPanY * n);
        const cv::Matx23d shift(1, 0, -ox, 0, 1, -oy);
        cv::warpAffine(big, view, shift, cv::Size(f.width, f.height), cv::INTER_LINEAR, cv::BORDER_REFLECT);
        if (f.bayer()) {
            ToLinearMosaic(view, &mosaic);
            if (!args.clean.empty()) {
                ToBayerFrame(mosaic, nullptr, &frame);
                if (!clean_out.Write(frame)) return Fail("cannot write '" + args.clean + "'");
            }
            ToBayerFrame(mosaic, &noise, &frame);
            if (!noisy_out.Write(frame)) return Fail("cannot write '" + args.output + "'");
            continue;
        }
        if (!args.clean.empty()) {
            ToFrame(view, f, &frame);
            if (!clean_out.Write(frame)) return Fail("cannot write '" + args.clean + "'");
        }
        noisy.create(view.size(), view.type());
        const float* src = view.ptr<float>();
        float* dst = noisy.ptr<float>();
        for (size_t i = 0; i < view.total() * 3; ++i) dst[i] = noise.Apply(src[i]);
        ToFrame(noisy, f, &frame);
        if (!noisy_out.Write(frame)) return Fail("cannot write '" + args.output + "'");
    }
    if (std::string e = noisy_out.Commit(); !e.empty()) return Fail(e);
    if (!args.clean.empty()) {
        if (std::string e = clean_out.Commit(); !e.empty()) return Fail(e);
    }
    std::printf("synth: %d frames of %s at ISO %g from '%s' -> %s%s%s\n", args.frames, f.Describe().c_str(),
                double(args.iso), args.image.c_str(), args.output.c_str(),
                args.clean.empty() ? "" : ", clean: ", args.clean.c_str());
    return 0;
}

void RegisterSynth(CLI::App& app, int& status) {
    auto args = std::make_shared<SynthArgs>();
    CLI::App* sub = app.add_subcommand(
        "synth",
        "Makes a noisy clip and its clean reference from an image: a window panning slowly across the "
        "enlarged photograph, with Poisson-Gaussian sensor noise for the given ISO. A .y4m output is Y4M "
        "(8 or 10 bits), anything else raw frames of --format. bayer10 makes RGGB mosaics in linear light "
        "(16-bit little-endian words, 10-bit values, black 64, white 1023) with the noise on the mosaic.");
    sub->add_option("image", args->image, "photograph (any format OpenCV reads)")
        ->required()
        ->check(CLI::ExistingFile);
    sub->add_option("-o,--output", args->output, "noisy clip")->required();
    sub->add_option("--clean", args->clean, "clean reference clip, same container and format");
    sub->add_option("--iso", args->iso, "ISO of the noise")
        ->check(CLI::Range(50.0f, 409600.0f))
        ->capture_default_str();
    sub->add_option("-n,--frames", args->frames, "frames")
        ->check(CLI::Range(1, 10000))
        ->capture_default_str();
    const CLI::Validator even(
        [](std::string& v) { return std::strtol(v.c_str(), nullptr, 10) % 2 == 0 ? "" : "must be even"; },
        "EVEN");
    sub->add_option("-W,--width", args->width, "frame width")
        ->check(CLI::Range(2, 16384) & even)
        ->capture_default_str();
    sub->add_option("-H,--height", args->height, "frame height")
        ->check(CLI::Range(2, 16384) & even)
        ->capture_default_str();
    sub->add_option("--format", args->layout, "raw output format")
        ->check(CLI::IsMember({"nv12", "nv21", "p010", "bayer10"}))
        ->capture_default_str();
    sub->add_option("-b,--bits", args->bits, "Y4M output bits")
        ->check(CLI::IsMember({8, 10}))
        ->capture_default_str();
    sub->add_option("--seed", args->seed, "noise generator seed")->capture_default_str();
    sub->callback([args, &status] { status = Synth(*args); });
}

}  // namespace vaitool
