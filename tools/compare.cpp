#include "compare.h"

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>
#include <sstream>

#include "synth.h"

namespace vaitool {

namespace {

// Plane `p` of a frame as one float image per channel (chroma: U and V in the clip's order).
std::vector<cv::Mat> Planes(const std::vector<uint8_t>& frame, const ClipFormat& f, int p) {
    const int w = p == 0 ? f.width : f.width / 2, h = p == 0 ? f.height : f.height / 2, ch = p == 0 ? 1 : 2;
    std::vector<cv::Mat> out(ch);
    for (int c = 0; c < ch; ++c) {
        out[c].create(h, w, CV_32F);
        for (int y = 0; y < h; ++y) {
            float* row = out[c].ptr<float>(y);
            for (int x = 0; x < w; ++x) row[x] = float(Sample(frame.data(), f, p, x * ch + c, y));
        }
    }
    return out;
}

double Ssim(const cv::Mat& a, const cv::Mat& b, double peak) {
    const double c1 = (0.01 * peak) * (0.01 * peak), c2 = (0.03 * peak) * (0.03 * peak);
    auto blur = [](const cv::Mat& m) {
        cv::Mat out;
        cv::GaussianBlur(m, out, cv::Size(11, 11), 1.5);
        return out;
    };
    const cv::Mat ma = blur(a), mb = blur(b);
    const cv::Mat saa = blur(a.mul(a)) - ma.mul(ma), sbb = blur(b.mul(b)) - mb.mul(mb),
                  sab = blur(a.mul(b)) - ma.mul(mb);
    cv::Mat num = (2 * ma.mul(mb) + c1).mul(2 * sab + c2);
    cv::Mat den = (ma.mul(ma) + mb.mul(mb) + c1).mul(saa + sbb + c2);
    cv::Mat ratio;
    cv::divide(num, den, ratio);
    return cv::mean(ratio)[0];
}

double Mse(const std::vector<cv::Mat>& a, const std::vector<cv::Mat>& b) {
    double sum = 0, n = 0;
    for (size_t c = 0; c < a.size(); ++c) {
        const double d = cv::norm(a[c], b[c], cv::NORM_L2);
        sum += d * d;
        n += double(a[c].total());
    }
    return sum / n;
}

std::string Name(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string Number(double v, int decimals) {
    if (std::isinf(v)) return "inf";
    char text[32];
    std::snprintf(text, sizeof(text), "%.*f", decimals, v);
    return text;
}

cv::Mat YuvPicture(const std::vector<uint8_t>& frame, const ClipFormat& f) {
    ClipFormat nv = f;
    nv.layout = f.layout == Layout::kNV21 ? Layout::kNV21 : Layout::kNV12;
    nv.bits = 8;
    std::vector<uint8_t> bytes = ConvertFrame(frame, f, nv);
    cv::Mat yuv(f.height * 3 / 2, f.width, CV_8UC1, bytes.data()), bgr;
    cv::cvtColor(yuv, bgr, nv.layout == Layout::kNV21 ? cv::COLOR_YUV2BGR_NV21 : cv::COLOR_YUV2BGR_NV12);
    return bgr;
}

// A mosaic made viewable: levelled, demosaicked, white-balanced and given the display gamma.
cv::Mat BayerPicture(const std::vector<uint8_t>& frame, const ClipFormat& f) {
    cv::Mat raw(f.height, f.width, CV_16U), bgr;
    for (int y = 0; y < f.height; ++y) {
        uint16_t* row = raw.ptr<uint16_t>(y);
        for (int x = 0; x < f.width; ++x)
            row[x] = cv::saturate_cast<uint16_t>((Sample(frame.data(), f, 0, x, y) - kBayerBlack) * 65535.0 /
                                                 (kBayerWhite - kBayerBlack));
    }
    cv::cvtColor(raw, bgr, cv::COLOR_BayerRGGB2BGR);
    bgr.convertTo(bgr, CV_32F, 1.0 / 65535);
    cv::multiply(bgr, cv::Scalar(kBayerBlueGain, 1.0, kBayerRedGain), bgr);
    bgr = cv::min(bgr, 1.0);
    cv::pow(bgr, 1 / 2.2, bgr);
    bgr.convertTo(bgr, CV_8U, 255);
    return bgr;
}

// One frame as an 8-bit picture, centred crop of at most `w` x `h`, labelled.
cv::Mat Panel(const std::vector<uint8_t>& frame, const ClipFormat& f, int w, int h,
              const std::string& label) {
    const cv::Mat bgr = f.bayer() ? BayerPicture(frame, f) : YuvPicture(frame, f);
    cv::Mat crop = bgr(cv::Rect((f.width - w) / 2, (f.height - h) / 2, w, h)).clone();
    const cv::Point at(12, 36);
    cv::putText(crop, label, at, cv::FONT_HERSHEY_SIMPLEX, 1.0, cv::Scalar(0, 0, 0), 4, cv::LINE_AA);
    cv::putText(crop, label, at, cv::FONT_HERSHEY_SIMPLEX, 1.0, cv::Scalar(255, 255, 255), 2, cv::LINE_AA);
    return crop;
}

int Fail(const std::string& message) {
    std::fprintf(stderr, "error: %s\n", message.c_str());
    return 2;
}

}  // namespace

Quality CompareFrames(const std::vector<uint8_t>& reference, const std::vector<uint8_t>& test,
                      const ClipFormat& f) {
    const double peak = f.peak();
    Quality q;
    const std::vector<cv::Mat> ry = Planes(reference, f, 0), ty = Planes(test, f, 0);
    q.y_mse = Mse(ry, ty);
    q.y_ssim = Ssim(ry[0], ty[0], peak);
    if (f.bayer()) return q;
    const std::vector<cv::Mat> rc = Planes(reference, f, 1), tc = Planes(test, f, 1);
    q.uv_mse = Mse(rc, tc);
    q.uv_ssim = (Ssim(rc[0], tc[0], peak) + Ssim(rc[1], tc[1], peak)) / 2;
    return q;
}

double Psnr(double mse, const ClipFormat& f) {
    const double peak = f.peak();
    return mse == 0 ? std::numeric_limits<double>::infinity() : 10 * std::log10(peak * peak / mse);
}

int Compare(const CompareArgs& args) {
    ClipReader ref;
    if (std::string e = ref.Open(args.reference, args.raw); !e.empty()) return Fail(e);
    const ClipFormat& f = ref.format();
    std::vector<std::unique_ptr<ClipReader>> clips;
    for (const std::string& path : args.clips) {
        clips.push_back(std::make_unique<ClipReader>());
        if (std::string e = clips.back()->Open(path, args.raw); !e.empty()) return Fail(e);
        const ClipFormat& g = clips.back()->format();
        if (g.width != f.width || g.height != f.height || g.layout != f.layout || g.bits != f.bits)
            return Fail("'" + path + "' is " + g.Describe() + " and the reference '" + args.reference + "' " +
                        f.Describe() + ": clips must have the same size and format");
    }
    const int png_frame = args.png_frame >= 0 ? args.png_frame : ref.frame_count() / 2;

    std::ostringstream csv;
    csv << "clip,frame,y_psnr_db,y_ssim,uv_psnr_db,uv_ssim\n";
    std::printf("reference: %s (%s)\n%-24s %6s %10s %7s %11s %8s\n", args.reference.c_str(),
                f.Describe().c_str(), "clip", "frame", "Y PSNR dB", "Y SSIM", "UV PSNR dB", "UV SSIM");
    // A mosaic has no chroma planes: its one column is all samples.
    auto row = [&](const std::string& clip, const std::string& frame, const Quality& q) {
        const bool uv = !f.bayer();
        const std::string yp = Number(Psnr(q.y_mse, f), 2), up = uv ? Number(Psnr(q.uv_mse, f), 2) : "-";
        std::printf("%-24s %6s %10s %7.4f %11s %8s\n", clip.c_str(), frame.c_str(), yp.c_str(), q.y_ssim,
                    up.c_str(), uv ? Number(q.uv_ssim, 4).c_str() : "-");
        csv << clip << "," << frame << "," << yp << "," << Number(q.y_ssim, 6) << "," << up << ","
            << (uv ? Number(q.uv_ssim, 6) : "-") << "\n";
    };

    std::vector<Quality> sums(clips.size());
    std::vector<cv::Mat> panels(clips.size() + 1);
    std::vector<uint8_t> reference, test;
    const int pw = std::min(f.width, 1920 / int(clips.size() + 1) / 2 * 2), ph = std::min(f.height, 720);
    int frames = 0;
    std::string error;
    for (; ref.Read(&reference, &error); ++frames) {
        if (frames == png_frame) panels.back() = Panel(reference, f, pw, ph, "clean");
        for (size_t c = 0; c < clips.size(); ++c) {
            if (!clips[c]->Read(&test, &error))
                return Fail(error.empty() ? "'" + args.clips[c] + "' has fewer frames than the reference"
                                          : error);
            const Quality q = CompareFrames(reference, test, f);
            row(Name(args.clips[c]), std::to_string(frames), q);
            sums[c].y_mse += q.y_mse;
            sums[c].uv_mse += q.uv_mse;
            sums[c].y_ssim += q.y_ssim;
            sums[c].uv_ssim += q.uv_ssim;
            if (frames == png_frame) {
                const std::string name = Name(args.clips[c]);
                panels[c] = Panel(test, f, pw, ph, name.substr(0, name.find_last_of('.')));
            }
        }
    }
    if (!error.empty()) return Fail(error);
    if (frames == 0) return Fail("'" + args.reference + "' holds no frame");
    // The mean PSNR is that of the mean squared error, so one perfect frame does not make it infinite.
    for (size_t c = 0; c < clips.size(); ++c) {
        Quality m = sums[c];
        m.y_mse /= frames;
        m.uv_mse /= frames;
        m.y_ssim /= frames;
        m.uv_ssim /= frames;
        row(Name(args.clips[c]), "mean", m);
    }
    if (!args.png.empty() && png_frame >= frames)
        return Fail("--png-frame " + std::to_string(png_frame) + " is past the last frame");
    if (!args.csv.empty()) {
        if (std::string e = WriteFileAtomically(args.csv, csv.str()); !e.empty()) return Fail(e);
    }
    if (!args.png.empty()) {
        cv::Mat side;
        cv::hconcat(panels, side);
        std::vector<uchar> png;
        cv::imencode(".png", side, png);
        if (std::string e = WriteFileAtomically(args.png, std::string(png.begin(), png.end())); !e.empty())
            return Fail(e);
        std::printf("side by side (frame %d): %s\n", png_frame, args.png.c_str());
    }
    return 0;
}

void RegisterCompare(CLI::App& app, int& status) {
    auto args = std::make_shared<CompareArgs>();
    auto layout = std::make_shared<std::string>("p010");
    CLI::App* sub = app.add_subcommand(
        "compare",
        "Prints luma and chroma PSNR and SSIM of each clip against the reference, per frame and on average "
        "(mean PSNR: from the mean squared error). Clips must match the reference in size and format. "
        "A bayer10 mosaic is measured over all its samples on its black..white scale, in the luma columns.");
    sub->add_option("reference", args->reference, "reference clip")->required()->check(CLI::ExistingFile);
    sub->add_option("clips", args->clips, "clips to measure")->required()->check(CLI::ExistingFile);
    sub->add_option("-W,--width", args->raw.width, "frame width of raw clips");
    sub->add_option("-H,--height", args->raw.height, "frame height of raw clips");
    sub->add_option("--format", *layout, "raw clip format")
        ->check(CLI::IsMember({"nv12", "nv21", "p010", "bayer10"}))
        ->capture_default_str();
    sub->add_option("--csv", args->csv, "also write the table as CSV");
    sub->add_option("--png", args->png, "write one frame of every clip side by side, the reference last");
    sub->add_option("--png-frame", args->png_frame, "frame for --png (default: the middle one)")
        ->check(CLI::NonNegativeNumber);
    sub->callback([args, layout, &status] {
        ParseLayout(*layout, &args->raw.layout);
        args->raw.bits = args->raw.wide() ? 10 : 8;
        status = Compare(*args);
    });
}

}  // namespace vaitool
