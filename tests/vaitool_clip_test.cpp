// vaitool's clip files, synthesis and comparison, and its argument errors across subcommands.
#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <sys/wait.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "clip.h"
#include "compare.h"
#include "schedule.h"
#include "synth.h"

namespace {

namespace fs = std::filesystem;
using vaitool::ClipFormat;
using vaitool::Layout;

const std::string kDir = VAI_TEST_BINARY_DIR "/vaitool_clip/";
const std::string kPhoto = VAI_TEST_SOURCE_DIR "/docs/run_photo_chelsea.png";

std::string Read(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void Write(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

ClipFormat Format(bool y4m, Layout layout, int width = 6, int height = 4) {
    ClipFormat f;
    f.y4m = y4m;
    f.width = width;
    f.height = height;
    f.layout = layout;
    f.bits = f.wide() ? 10 : 8;
    return f;
}

// Random frames; 10-bit values MSB-aligned as every reader hands them out, Bayer ones LSB-aligned.
std::vector<std::vector<uint8_t>> RandomFrames(const ClipFormat& f, int count, uint32_t seed) {
    std::mt19937 gen(seed);
    std::vector<std::vector<uint8_t>> frames(count, std::vector<uint8_t>(f.FrameBytes()));
    for (auto& frame : frames) {
        for (size_t i = 0; i < frame.size(); ++i) frame[i] = static_cast<uint8_t>(gen());
        if (f.bayer())
            for (size_t i = 1; i < frame.size(); i += 2) frame[i] &= 0x03;
        else if (f.wide())
            for (size_t i = 0; i < frame.size(); i += 2) frame[i] &= 0xc0;
    }
    return frames;
}

std::vector<std::vector<uint8_t>> ReadAll(const std::string& path, const ClipFormat& raw) {
    vaitool::ClipReader reader;
    EXPECT_EQ(reader.Open(path, raw), "");
    std::vector<std::vector<uint8_t>> frames;
    std::vector<uint8_t> frame;
    std::string error;
    while (reader.Read(&frame, &error)) frames.push_back(frame);
    EXPECT_EQ(error, "");
    EXPECT_EQ(reader.frame_count(), static_cast<int>(frames.size()));
    return frames;
}

struct ToolRun {
    int status;
    std::string err;
};

ToolRun Tool(const std::string& args, const std::string& runtime = VAI_TEST_RUNTIME_PATH) {
    const std::string env = "VAI_PXRT_LIBRARY=" + runtime + " ";
    FILE* p = popen((env + VAI_TOOL_CMD " " + args + " 2>&1 >/dev/null").c_str(), "r");
    std::string err;
    for (int ch; (ch = std::fgetc(p)) != EOF;) err += static_cast<char>(ch);
    const int st = pclose(p);
    return {WIFEXITED(st) ? WEXITSTATUS(st) : -1, err};
}

class ClipTest : public ::testing::Test {
  protected:
    void SetUp() override { fs::create_directories(kDir); }
};

TEST_F(ClipTest, WrittenFramesReadBackBitExact) {
    for (const ClipFormat& f :
         {Format(true, Layout::kNV12), Format(true, Layout::kP010), Format(false, Layout::kNV12),
          Format(false, Layout::kNV21), Format(false, Layout::kP010), Format(false, Layout::kBayer10)}) {
        SCOPED_TRACE(f.Describe());
        const std::string path = kDir + "roundtrip";
        const auto frames = RandomFrames(f, 3, 7);
        vaitool::ClipWriter writer;
        ASSERT_EQ(writer.Open(path, f), "");
        for (const auto& frame : frames) ASSERT_TRUE(writer.Write(frame));
        ASSERT_EQ(writer.Commit(), "");
        EXPECT_FALSE(fs::exists(path + ".part"));
        EXPECT_EQ(ReadAll(path, f), frames);
    }
}

TEST_F(ClipTest, Y4mPlanesBecomeInterleavedChroma) {
    // 2x2 frames: four luma samples, then one U and one V; 10-bit samples are LSB-aligned words.
    Write(kDir + "eight.y4m",
          std::string("YUV4MPEG2 W2 H2 F25:1 C420mpeg2\nFRAME\n") + "\x01\x02\x03\x04\x55\xaa");
    const auto eight = ReadAll(kDir + "eight.y4m", ClipFormat{});
    ASSERT_EQ(eight.size(), 1u);
    EXPECT_EQ(eight[0], (std::vector<uint8_t>{1, 2, 3, 4, 0x55, 0xaa}));

    Write(kDir + "ten.y4m", std::string("YUV4MPEG2 W2 H2 C420p10\nFRAME\n") +
                                std::string("\xff\x03\x00\x00\x01\x00\x02\x00\x10\x00\x20\x00", 12));
    const auto ten = ReadAll(kDir + "ten.y4m", ClipFormat{});
    ASSERT_EQ(ten.size(), 1u);
    // 1023 << 6 = 0xffc0, 1 << 6, 2 << 6; chroma 16 << 6 and 32 << 6.
    EXPECT_EQ(ten[0], (std::vector<uint8_t>{0xc0, 0xff, 0, 0, 0x40, 0, 0x80, 0, 0, 4, 0, 8}));
}

TEST_F(ClipTest, ConversionsForTheBackEnds) {
    const ClipFormat nv12 = Format(false, Layout::kNV12), nv21 = Format(false, Layout::kNV21),
                     p010 = Format(false, Layout::kP010);
    const auto frame = RandomFrames(nv12, 1, 3)[0];
    // Widening and narrowing back is lossless; NV12 <-> NV21 swaps each chroma pair.
    EXPECT_EQ(vaitool::ConvertFrame(vaitool::ConvertFrame(frame, nv12, p010), p010, nv12), frame);
    const auto swapped = vaitool::ConvertFrame(frame, nv12, nv21);
    const size_t luma = nv12.LumaBytes();
    EXPECT_TRUE(std::equal(frame.begin(), frame.begin() + luma, swapped.begin()));
    EXPECT_EQ(swapped[luma], frame[luma + 1]);
    EXPECT_EQ(swapped[luma + 1], frame[luma]);
    // Narrowing rounds: 0x017f -> 1, 0x0180 -> 2, 0xfff0 -> 255.
    std::vector<uint8_t> wide(p010.FrameBytes(), 0);
    wide[0] = 0x7f, wide[1] = 0x01, wide[2] = 0x80, wide[3] = 0x01, wide[4] = 0xf0, wide[5] = 0xff;
    const auto narrow = vaitool::ConvertFrame(wide, p010, nv12);
    EXPECT_EQ(std::vector<uint8_t>(narrow.begin(), narrow.begin() + 3), (std::vector<uint8_t>{1, 2, 255}));
}

TEST_F(ClipTest, CompareIdenticalAndPerturbedFrames) {
    // A mosaic's scale is white - black; all its samples count as luma.
    const struct {
        ClipFormat f;
        double peak;
    } cases[] = {{Format(false, Layout::kNV12, 32, 24), 255},
                 {Format(false, Layout::kP010, 32, 24), 1023},
                 {Format(false, Layout::kBayer10, 32, 24), 959}};
    for (const auto& c : cases) {
        const ClipFormat& f = c.f;
        SCOPED_TRACE(f.Describe());
        const auto frame = RandomFrames(f, 1, 11)[0];
        const vaitool::Quality same = vaitool::CompareFrames(frame, frame, f);
        EXPECT_TRUE(std::isinf(vaitool::Psnr(same.y_mse, f)));
        EXPECT_NEAR(same.y_ssim, 1.0, 1e-9);
        if (!f.bayer()) {
            EXPECT_NEAR(same.uv_ssim, 1.0, 1e-9);
        }

        // Every fourth luma sample moved by 3 (in the clip's sample units), chroma untouched.
        auto moved = frame;
        for (int i = 0; i < f.width * f.height; i += 4) {
            const int x = i % f.width, y = i / f.width;
            const int v = vaitool::Sample(frame.data(), f, 0, x, y);
            const int w = v >= 3 ? v - 3 : v + 3;
            if (f.bayer()) {
                moved[2 * i] = static_cast<uint8_t>(w);
                moved[2 * i + 1] = static_cast<uint8_t>(w >> 8);
            } else if (f.wide()) {
                moved[2 * i] = static_cast<uint8_t>(w << 6);
                moved[2 * i + 1] = static_cast<uint8_t>(w >> 2);
            } else {
                moved[i] = static_cast<uint8_t>(w);
            }
        }
        const vaitool::Quality q = vaitool::CompareFrames(frame, moved, f);
        EXPECT_DOUBLE_EQ(q.y_mse, 9.0 / 4);
        EXPECT_EQ(q.uv_mse, 0.0);
        EXPECT_NEAR(vaitool::Psnr(q.y_mse, f), 10 * std::log10(c.peak * c.peak / 2.25), 1e-9);
        EXPECT_LT(q.y_ssim, 1.0);
    }
}

TEST_F(ClipTest, SynthIsSeededAndNoiseRisesWithIso) {
    auto synth = [](const std::string& name, float iso, uint64_t seed) {
        vaitool::SynthArgs a;
        a.image = kPhoto;
        a.output = kDir + name + ".y4m";
        a.clean = kDir + name + "_clean.y4m";
        a.width = 64, a.height = 48, a.frames = 2, a.iso = iso, a.seed = seed;
        EXPECT_EQ(vaitool::Synth(a), 0);
        return a;
    };
    auto noise = [](const vaitool::SynthArgs& a) {
        const auto clean = ReadAll(a.clean, ClipFormat{}), noisy = ReadAll(a.output, ClipFormat{});
        EXPECT_EQ(clean.size(), 2u);
        EXPECT_EQ(noisy.size(), 2u);
        return vaitool::CompareFrames(clean.at(1), noisy.at(1), Format(true, Layout::kP010, 64, 48)).y_mse;
    };
    const auto a = synth("seed1", 3200, 1), b = synth("seed1_again", 3200, 1), c = synth("seed2", 3200, 2);
    EXPECT_EQ(Read(a.output), Read(b.output));
    EXPECT_NE(Read(a.output), Read(c.output));
    EXPECT_EQ(Read(a.clean), Read(c.clean));
    // The camera moves: consecutive clean frames differ.
    const auto clean = ReadAll(a.clean, ClipFormat{});
    EXPECT_NE(clean.at(0), clean.at(1));

    const double low = noise(synth("iso400", 400, 1)), mid = noise(a),
                 high = noise(synth("iso12800", 12800, 1));
    EXPECT_GT(low, 0.0);
    EXPECT_GT(mid, 2 * low);
    EXPECT_GT(high, 2 * mid);
}

// A flat colour through the mosaic: each RGGB site at its colour's linear value over the white-balance
// gain, and the noise of the sensor model in 10-bit words: variance (value - black) x k + (read noise x
// k)^2 with k = 959 x ISO / 100 / full well, plus the rounding's 1/12. (ISOs low enough that blue
// hardly clips at word 0.)
TEST_F(ClipTest, SynthBayerFollowsTheSensorModel) {
    const double srgb[3] = {220 / 255.0, 128 / 255.0, 40 / 255.0}, gain[3] = {2.0, 1.0, 1.7};  // R, G, B
    cv::imwrite(kDir + "flat.png", cv::Mat(30, 40, CV_8UC3, cv::Scalar(40, 128, 220)));
    const ClipFormat f = Format(false, Layout::kBayer10, 64, 48);
    auto synth = [&](float iso, uint64_t seed) {
        vaitool::SynthArgs a;
        a.image = kDir + "flat.png", a.layout = "bayer10", a.width = f.width, a.height = f.height;
        a.output = kDir + "flat" + std::to_string(int(iso)) + "_" + std::to_string(seed) + ".bayer";
        a.clean = a.output + ".clean", a.frames = 2, a.iso = iso, a.seed = seed;
        EXPECT_EQ(vaitool::Synth(a), 0);
        return a;
    };
    const auto a = synth(3200, 1), again = synth(3200, 1), other = synth(3200, 2);
    EXPECT_EQ(Read(a.output), Read(again.output));
    EXPECT_NE(Read(a.output), Read(other.output));
    EXPECT_EQ(Read(a.clean), Read(other.clean));

    for (const float iso : {400.0f, 1600.0f, 6400.0f}) {
        SCOPED_TRACE(iso);
        const auto run = synth(iso, 1);
        const auto clean = ReadAll(run.clean, f), noisy = ReadAll(run.output, f);
        ASSERT_EQ(clean.size(), 2u);
        ASSERT_EQ(noisy.size(), 2u);
        const double k = 959.0 * iso / 100 / 6000;
        for (int site = 0; site < 4; ++site) {
            const int colour = site / 2 + site % 2, sx = site % 2, sy = site / 2;
            const double level = std::pow(srgb[colour], 2.2) / gain[colour] * 959;
            double sum = 0, squares = 0, n = 0;
            for (size_t i = 0; i < 2; ++i) {
                for (int y = sy; y < f.height; y += 2) {
                    for (int x = sx; x < f.width; x += 2) {
                        EXPECT_EQ(vaitool::Sample(clean[i].data(), f, 0, x, y),
                                  int(std::floor(level + 64.5)));
                        const double d = vaitool::Sample(noisy[i].data(), f, 0, x, y) - 64 - level;
                        sum += d, squares += d * d, n += 1;
                    }
                }
            }
            const double variance = squares / n - (sum / n) * (sum / n);
            EXPECT_NEAR(sum / n, 0.0, 3 * std::sqrt(variance / n));
            EXPECT_NEAR(variance / (level * k + 2.5 * 2.5 * k * k + 1.0 / 12), 1.0, 0.15);
        }
    }
}

TEST_F(ClipTest, SynthGreyIsNeutralLimitedRange) {
    // A flat grey photograph: luma at BT.601 limited range, chroma at its midpoint.
    cv::imwrite(kDir + "grey.png", cv::Mat(30, 40, CV_8UC3, cv::Scalar(128, 128, 128)));
    vaitool::SynthArgs a;
    a.image = kDir + "grey.png", a.output = kDir + "grey.y4m", a.clean = kDir + "grey_clean.y4m";
    a.width = 16, a.height = 8, a.frames = 1;
    ASSERT_EQ(vaitool::Synth(a), 0);
    const ClipFormat f = Format(true, Layout::kP010, 16, 8);
    const auto frame = ReadAll(a.clean, ClipFormat{}).at(0);
    const int luma = static_cast<int>(std::floor((16.0 + 219.0 * 128 / 255) / 255 * 1023 + 0.5));
    for (int x = 0; x < 16; ++x) {
        EXPECT_EQ(vaitool::Sample(frame.data(), f, 0, x, 3), luma);
        EXPECT_EQ(vaitool::Sample(frame.data(), f, 1, x, 3), 512);
    }
}

TEST_F(ClipTest, CompareToolWritesTableAndPicture) {
    vaitool::SynthArgs a;
    a.image = kPhoto, a.output = kDir + "pair.y4m", a.width = 32, a.height = 16, a.frames = 2;
    ASSERT_EQ(vaitool::Synth(a), 0);
    const std::string csv = kDir + "pair.csv", png = kDir + "pair.png";
    const ToolRun run = Tool("compare " + a.output + " " + a.output + " --csv " + csv + " --png " + png);
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(Read(csv),
              "clip,frame,y_psnr_db,y_ssim,uv_psnr_db,uv_ssim\n"
              "pair.y4m,0,inf,1.000000,inf,1.000000\npair.y4m,1,inf,1.000000,inf,1.000000\n"
              "pair.y4m,mean,inf,1.000000,inf,1.000000\n");
    // The clip and the reference side by side: the same picture twice.
    const cv::Mat side = cv::imread(png);
    ASSERT_EQ(side.size(), cv::Size(64, 16));
    EXPECT_EQ(cv::norm(side.colRange(0, 32), side.colRange(32, 64), cv::NORM_INF), 0.0);
    EXPECT_GT(cv::norm(side, cv::NORM_INF), 0.0);
}

// A mosaic's table has no chroma numbers; its picture is demosaicked with the white balance put back, so
// a flat colour comes out as the photograph's.
TEST_F(ClipTest, CompareToolOnBayerClips) {
    cv::imwrite(kDir + "tint.png", cv::Mat(30, 40, CV_8UC3, cv::Scalar(40, 128, 220)));
    vaitool::SynthArgs a;
    a.image = kDir + "tint.png", a.layout = "bayer10", a.output = kDir + "tint_noisy.bayer", a.width = 64,
    a.height = 64, a.frames = 1, a.clean = kDir + "tint.bayer";
    ASSERT_EQ(vaitool::Synth(a), 0);
    const std::string csv = kDir + "tint.csv", png = kDir + "tint_side.png";
    const ToolRun run = Tool("compare " + a.clean + " " + a.clean + " -W 64 -H 64 --format bayer10 --csv " +
                             csv + " --png " + png);
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(Read(csv),
              "clip,frame,y_psnr_db,y_ssim,uv_psnr_db,uv_ssim\ntint.bayer,0,inf,1.000000,-,-\n"
              "tint.bayer,mean,inf,1.000000,-,-\n");
    const cv::Mat side = cv::imread(png);
    ASSERT_EQ(side.size(), cv::Size(128, 64));
    const cv::Vec3b centre = side.at<cv::Vec3b>(56, 96);  // below the label
    EXPECT_NEAR(centre[0], 40, 3);
    EXPECT_NEAR(centre[1], 128, 3);
    EXPECT_NEAR(centre[2], 220, 3);
}

TEST_F(ClipTest, ParameterRowsHoldUntilTheNext) {
    Write(kDir + "params.csv", "frame, iso, cam_type\n2, 800, 1\n5, 6400, 2\n");
    vaitool::FrameSchedule s({100, 1.5f, 2.0f, 0});
    ASSERT_EQ(s.Load(kDir + "params.csv"), "");
    EXPECT_EQ(s.At(1).iso, 100);
    EXPECT_EQ(s.At(4).iso, 800);
    EXPECT_EQ(s.At(4).cam_type, 1);
    EXPECT_EQ(s.At(9).iso, 6400);
    EXPECT_EQ(s.At(9).cam_type, 2);
    EXPECT_EQ(s.At(9).drc_gain, 1.5f);  // no column: the constant
}

// Through the library and back in the clip's own container and format: bypass, and mode 1 with a
// network that hands back its input (exact for 8-bit clips, which the tool widens and narrows).
TEST_F(ClipTest, DenoiseWritesTheInputsContainerAndFormat) {
    const ClipFormat y4m8 = Format(true, Layout::kNV12, 64, 48), y4m10 = Format(true, Layout::kP010, 64, 48),
                     nv21 = Format(false, Layout::kNV21, 64, 48),
                     bayer = Format(false, Layout::kBayer10, 64, 48);
    Write(kDir + "copy.model", "pxrt-test-model\ninput 3072\noutput 3072\nrun copy\n");
    Write(kDir + "copy_bayer.model", "pxrt-test-model\ninput 6144\noutput 6144\nrun copy\n");
    const std::string mode1 =
        " -m 1 -c " VAI_TEST_SOURCE_DIR "/models/mode1/qcom_run.json --model " + kDir + "copy.model";
    const std::string mode10 = " -m 10 -c " VAI_TEST_SOURCE_DIR "/models/mode10/mtk_raw_run.json --model " +
                               kDir + "copy_bayer.model";
    struct Row {
        ClipFormat format;
        std::string name, args;
    };
    const Row rows[] = {{y4m10, "in10.y4m", " -m 0"},
                        {y4m8, "in8.y4m", mode1},
                        {nv21, "in.nv21", mode1 + " --format nv21 -W 64 -H 48"},
                        {bayer, "in0.bayer", " -m 0 --format bayer10 -W 64 -H 48"},
                        {bayer, "in10.bayer", mode10 + " -W 64 -H 48"}};
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name + r.args);
        vaitool::ClipWriter w;
        ASSERT_EQ(w.Open(kDir + r.name, r.format), "");
        for (const auto& frame : RandomFrames(r.format, 2, 5)) ASSERT_TRUE(w.Write(frame));
        ASSERT_EQ(w.Commit(), "");
        const ToolRun run =
            Tool("denoise -l 0 -i " + kDir + r.name + " -o " + kDir + "out_" + r.name + r.args);
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(Read(kDir + "out_" + r.name), Read(kDir + r.name));
    }
    // A failed mode-10 model set-up has destroyed the instance: the tool must not tear it down again.
    const ToolRun failed =
        Tool("denoise -l 0 -i " + kDir + "in10.bayer -o " + kDir + "failed.bayer -W 64 -H 48 -m 10 -c " +
             VAI_TEST_SOURCE_DIR "/models/mode10/mtk_raw_run.json --model \"\"");
    EXPECT_EQ(failed.status, 1) << failed.err;
    EXPECT_NE(failed.err.find("initialisation of mode 10 failed"), std::string::npos) << failed.err;
}

TEST_F(ClipTest, ArgumentErrorsSayTheRuleAndLeaveNoOutput) {
    const std::string out = kDir + "out.y4m", cfg = VAI_TEST_SOURCE_DIR "/configs/qcom_vainr_yuv.json";
    Write(kDir + "c444.y4m", "YUV4MPEG2 W2 H2 C444\nFRAME\n123456789012");
    Write(kDir + "odd.y4m", "YUV4MPEG2 W3 H2 C420\n");
    Write(kDir + "short.yuv", std::string(1000, 'x'));
    Write(kDir + "bad_column.csv", "frame,speed\n0,1\n");
    Write(kDir + "not_a_photo.png", "text");
    vaitool::SynthArgs small;
    small.image = kPhoto, small.output = kDir + "small.y4m", small.width = 16, small.height = 16,
    small.frames = 2;
    ASSERT_EQ(vaitool::Synth(small), 0);
    small.output = kDir + "wide.y4m", small.width = 32;
    ASSERT_EQ(vaitool::Synth(small), 0);
    const std::string in = " -i " + small.output;
    small.output = kDir + "small.bayer", small.layout = "bayer10";
    ASSERT_EQ(vaitool::Synth(small), 0);
    const std::string raw_cfg = VAI_TEST_SOURCE_DIR "/configs/mtk_vainr_raw.json",
                      mode10 = "denoise -m 10 --model /nonexistent.json -c " + raw_cfg;

    struct Row {
        std::string args;
        std::string message;
        int status;
        std::string runtime = VAI_TEST_RUNTIME_PATH;
    };
    const Row rows[] = {
        {"denoise -m 5" + in, "mode 5 is not supported", 2},
        {mode10 + in, "is Y4M, which holds YUV only", 2},
        {mode10 + " -i " + small.output, "raw bayer10 clips need --width and --height", 2},
        {mode10 + " -W 32 -H 16 -i " + small.output, "name the bayer10 output other than .y4m", 2},
        {mode10 + " --format p010" + in, "mode 10 takes RAW Bayer frames: --format bayer10, not p010", 2},
        {"denoise -m 1 --model x -c " + cfg + " --format bayer10 -W 32 -H 16 -i " + small.output,
         "bayer10 clips are RAW Bayer frames, for mode 10", 2},
        {"denoise -m 10 --model x -c " + raw_cfg, "bayer10 needs an --input clip", 2},
        {"synth --format bayer10 " + kPhoto, "Y4M holds YUV only", 2},
        {"compare " + small.output + " " + small.output + " --format bayer10 --csv",
         "raw bayer10 clips need --width and --height", 2},
        {"denoise -m 1" + in, "mode 1 needs --config and --model", 2},
        {"denoise -m 1 --model /nonexistent.json -c " + cfg + in, "initialisation of mode 1 failed", 1,
         "/nonexistent/libPXRT.so"},
        {"denoise -W 641" + in, "--width: must be even", 2},
        {"denoise -i " + kDir + "no_such_clip.yuv", "File does not exist", 2},
        {"denoise --colour red" + in, "were not expected", 2},
        {"denoise -p 12345678901234567" + in, "--project: must be 1 to 16 characters", 2},
        {"denoise -t 5" + in, "--cam-type: Value 5 not in range 0 to 4", 2},
        {"denoise --format yuyv" + in, "--format: yuyv not in {nv12,nv21,p010,bayer10}", 2},
        {"denoise -W 640 -H 480 -i " + kDir + "short.yuv", "not a whole number of 640x480 p010 frames", 2},
        {"denoise -i " + kDir + "c444.y4m", "Y4M colour space C444 is not supported", 2},
        {"denoise -i " + kDir + "odd.y4m", "Y4M frame size must be even", 2},
        {"denoise --params " + kDir + "bad_column.csv" + in, "unknown column \"speed\"", 2},
        {"synth " + kDir + "not_a_photo.png", "cannot read image", 2},
        {"synth -W 63 " + kPhoto, "--width: must be even", 2},
        {"synth --clean " + kDir + "clean.yuv " + kPhoto, "same container", 2},
        {"compare " + kDir + "small.y4m " + kDir + "wide.y4m --csv", "must have the same size and format", 2},
        {"compare " + kDir + "small.y4m " + kDir + "small.y4m --png-frame 2 --png " + kDir + "x.png --csv",
         "--png-frame 2 is past the last frame", 2},
    };
    fs::remove(out);
    for (const Row& r : rows) {
        SCOPED_TRACE(r.args);
        // Every subcommand gets the output path last (denoise and synth: -o; compare: --csv).
        const std::string args = r.args + (r.args.rfind("compare", 0) == 0 ? " " : " -o ") + out;
        const ToolRun run = Tool(args, r.runtime);
        EXPECT_EQ(run.status, r.status);
        EXPECT_NE(run.err.find(r.message), std::string::npos) << run.err;
        // One line of the tool's own (the library may log its reasons too).
        size_t lines = 0;
        for (size_t at = 0; (at = run.err.find("error: ", at)) != std::string::npos; ++at) ++lines;
        EXPECT_EQ(lines, 1u) << run.err;
        EXPECT_FALSE(fs::exists(out));
        EXPECT_FALSE(fs::exists(out + ".part"));
        fs::remove(out);
    }
}

}  // namespace
