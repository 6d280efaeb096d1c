// vaitool's clip files, synthesis and comparison, and its argument errors across subcommands.
#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

#include <cmath>
#include <filesystem>
#include <random>
#include <utility>
#include <string>
#include <vector>

#include "clip.h"
#include "compare.h"
#include "schedule.h"
#include "synth.h"
#include "tool_test_util.h"

namespace {

namespace fs = std::filesystem;
using vaitool::ClipFormat;
using vaitool::Layout;

using Frames = std::vector<std::vector<uint8_t>>;

const std::string kDir = VAI_TEST_BINARY_DIR "/vaitool_clip/";
[[maybe_unused]] const bool kDirMade = fs::create_directories(kDir);
const std::string kPhoto = VAI_TEST_SOURCE_DIR "/docs/run_photo_chelsea.png";

ClipFormat Format(bool y4m, Layout layout, int width = 6, int height = 4) {
    return {y4m, width, height, layout, layout == Layout::kNV12 || layout == Layout::kNV21 ? 8 : 10};
}

// Random frames; 10-bit values MSB-aligned as every reader hands them out, Bayer ones LSB-aligned.
Frames RandomFrames(const ClipFormat& f, int count, uint32_t seed) {
    std::mt19937 gen(seed);
    Frames frames(count, std::vector<uint8_t>(f.FrameBytes()));
    for (auto& frame : frames) {
        for (size_t i = 0; i < frame.size(); ++i) frame[i] = static_cast<uint8_t>(gen());
        if (f.bayer())
            for (size_t i = 1; i < frame.size(); i += 2) frame[i] &= 0x03;
        else if (f.wide())
            for (size_t i = 0; i < frame.size(); i += 2) frame[i] &= 0xc0;
    }
    return frames;
}

Frames ReadAll(const std::string& path, const ClipFormat& raw) {
    vaitool::ClipReader reader;
    EXPECT_EQ(reader.Open(path, raw), "");
    Frames frames;
    std::vector<uint8_t> frame;
    std::string error;
    while (reader.Read(&frame, &error)) frames.push_back(frame);
    EXPECT_EQ(error, "");
    EXPECT_EQ(reader.frame_count(), static_cast<int>(frames.size()));
    return frames;
}

// Synthesises a clip of `image` into kDir: its clean reference as `name`, the noisy clip as "noisy_" +
// `name`.
vaitool::SynthArgs Synth(const std::string& image, const std::string& name, int width, int height, int frames,
                         const std::string& layout = "p010", float iso = 3200, uint64_t seed = 1) {
    vaitool::SynthArgs a;
    a.image = image, a.output = kDir + "noisy_" + name, a.clean = kDir + name, a.layout = layout;
    a.width = width, a.height = height, a.frames = frames, a.iso = iso, a.seed = seed;
    EXPECT_EQ(vaitool::Synth(a), 0);
    return a;
}

// vaitool's exit status and what it wrote to stderr.
ShellRun Tool(const std::string& args, const std::string& runtime = VAI_TEST_RUNTIME_PATH) {
    return Shell("VAI_PXRT_LIBRARY=" + runtime + " " VAI_TOOL_CMD " " + args + " 2>&1 >/dev/null");
}

TEST(ClipTest, Y4mPlanesBecomeInterleavedChroma) {
    // 2x2 frames: four luma samples, then one U and one V; 10-bit samples are LSB-aligned words.
    WriteFile(kDir + "eight.y4m", "YUV4MPEG2 W2 H2 F25:1 C420mpeg2\nFRAME\n\x01\x02\x03\x04\x55\xaa");
    EXPECT_EQ(ReadAll(kDir + "eight.y4m", ClipFormat{}), (Frames{{1, 2, 3, 4, 0x55, 0xaa}}));
    WriteFile(kDir + "ten.y4m", std::string("YUV4MPEG2 W2 H2 C420p10\nFRAME\n") +
                                    std::string("\xff\x03\x00\x00\x01\x00\x02\x00\x10\x00\x20\x00", 12));
    // 1023 << 6 = 0xffc0, 1 << 6, 2 << 6; chroma 16 << 6 and 32 << 6.
    EXPECT_EQ(ReadAll(kDir + "ten.y4m", ClipFormat{}),
              (Frames{{0xc0, 0xff, 0, 0, 0x40, 0, 0x80, 0, 0, 4, 0, 8}}));
}

TEST(ClipTest, ConversionsForTheBackEnds) {
    const ClipFormat nv12 = Format(false, Layout::kNV12), nv21 = Format(false, Layout::kNV21),
                     p010 = Format(false, Layout::kP010);
    const auto frame = RandomFrames(nv12, 1, 3)[0];
    // Widening and narrowing back is lossless; NV12 <-> NV21 swaps each chroma pair.
    EXPECT_EQ(vaitool::ConvertFrame(vaitool::ConvertFrame(frame, nv12, p010), p010, nv12), frame);
    auto swapped = frame;
    for (size_t i = nv12.LumaBytes(); i < swapped.size(); i += 2) std::swap(swapped[i], swapped[i + 1]);
    EXPECT_EQ(vaitool::ConvertFrame(frame, nv12, nv21), swapped);
    // Narrowing rounds: 0x017f -> 1, 0x0180 -> 2, 0xfff0 -> 255.
    std::vector<uint8_t> wide(p010.FrameBytes(), 0);
    wide[0] = 0x7f, wide[1] = 0x01, wide[2] = 0x80, wide[3] = 0x01, wide[4] = 0xf0, wide[5] = 0xff;
    const auto narrow = vaitool::ConvertFrame(wide, p010, nv12);
    EXPECT_EQ(std::vector<uint8_t>(narrow.begin(), narrow.begin() + 3), (std::vector<uint8_t>{1, 2, 255}));
}

TEST(ClipTest, CompareIdenticalAndPerturbedFrames) {
    // A mosaic's scale is white - black; all its samples count as luma.
    for (const auto& [f, peak] : {std::pair{Format(false, Layout::kNV12, 32, 24), 255.0},
                                  {Format(false, Layout::kP010, 32, 24), 1023.0},
                                  {Format(false, Layout::kBayer10, 32, 24), 959.0}}) {
        SCOPED_TRACE(f.Describe());
        const auto frame = RandomFrames(f, 1, 11)[0];
        // Every fourth luma sample moved by 3 (in the clip's sample units), chroma untouched.
        auto moved = frame;
        for (int i = 0; i < f.width * f.height; i += 4) {
            const int x = i % f.width, y = i / f.width;
            const int v = vaitool::Sample(frame.data(), f, 0, x, y);
            const int w = v >= 3 ? v - 3 : v + 3;
            if (f.wide()) {  // little-endian words, P010's MSB-aligned
                const int word = f.bayer() ? w : w << 6;
                moved[2 * i] = static_cast<uint8_t>(word);
                moved[2 * i + 1] = static_cast<uint8_t>(word >> 8);
            } else {
                moved[i] = static_cast<uint8_t>(w);
            }
        }
        const vaitool::Quality q = vaitool::CompareFrames(frame, moved, f);
        EXPECT_DOUBLE_EQ(q.y_mse, 9.0 / 4);
        EXPECT_EQ(q.uv_mse, 0.0);
        EXPECT_NEAR(vaitool::Psnr(q.y_mse, f), 10 * std::log10(peak * peak / 2.25), 1e-9);
        EXPECT_LT(q.y_ssim, 1.0);
    }
}

TEST(ClipTest, SynthIsSeededAndNoiseRisesWithIso) {
    auto synth = [](const std::string& name, float iso, uint64_t seed) {
        return Synth(kPhoto, name + ".y4m", 64, 48, 2, "p010", iso, seed);
    };
    auto noise = [](const vaitool::SynthArgs& a) {
        const auto clean = ReadAll(a.clean, ClipFormat{}), noisy = ReadAll(a.output, ClipFormat{});
        return vaitool::CompareFrames(clean.at(1), noisy.at(1), Format(true, Layout::kP010, 64, 48)).y_mse;
    };
    const auto a = synth("seed1", 3200, 1), b = synth("seed1_again", 3200, 1), c = synth("seed2", 3200, 2);
    EXPECT_EQ(ReadFile(a.output), ReadFile(b.output));
    EXPECT_NE(ReadFile(a.output), ReadFile(c.output));
    EXPECT_EQ(ReadFile(a.clean), ReadFile(c.clean));
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
TEST(ClipTest, SynthBayerFollowsTheSensorModel) {
    const double srgb[3] = {220 / 255.0, 128 / 255.0, 40 / 255.0}, gain[3] = {2.0, 1.0, 1.7};  // R, G, B
    cv::imwrite(kDir + "flat.png", cv::Mat(30, 40, CV_8UC3, cv::Scalar(40, 128, 220)));
    const ClipFormat f = Format(false, Layout::kBayer10, 64, 48);
    for (const float iso : {400.0f, 1600.0f, 6400.0f}) {
        SCOPED_TRACE(iso);
        const auto run = Synth(kDir + "flat.png", "flat" + std::to_string(int(iso)) + ".bayer", f.width,
                               f.height, 2, "bayer10", iso);
        const auto clean = ReadAll(run.clean, f), noisy = ReadAll(run.output, f);
        const double k = 959.0 * iso / 100 / 6000;
        for (int site = 0; site < 4; ++site) {
            const int colour = site / 2 + site % 2, sx = site % 2, sy = site / 2;
            const double level = std::pow(srgb[colour], 2.2) / gain[colour] * 959;
            double sum = 0, squares = 0, n = 0;
            for (size_t i = 0; i < 2; ++i) {
                for (int y = sy; y < f.height; y += 2) {
                    for (int x = sx; x < f.width; x += 2) {
                        EXPECT_EQ(vaitool::Sample(clean.at(i).data(), f, 0, x, y),
                                  int(std::floor(level + 64.5)));
                        const double d = vaitool::Sample(noisy.at(i).data(), f, 0, x, y) - 64 - level;
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

TEST(ClipTest, SynthGreyIsNeutralLimitedRange) {
    // A flat grey photograph: luma at BT.601 limited range, chroma at its midpoint.
    cv::imwrite(kDir + "grey.png", cv::Mat(30, 40, CV_8UC3, cv::Scalar(128, 128, 128)));
    const auto frame = ReadAll(Synth(kDir + "grey.png", "grey.y4m", 16, 8, 1).clean, ClipFormat{}).at(0);
    const ClipFormat f = Format(true, Layout::kP010, 16, 8);
    const int luma = static_cast<int>(std::floor((16.0 + 219.0 * 128 / 255) / 255 * 1023 + 0.5));
    for (int x = 0; x < 16; ++x) {
        EXPECT_EQ(vaitool::Sample(frame.data(), f, 0, x, 3), luma);
        EXPECT_EQ(vaitool::Sample(frame.data(), f, 1, x, 3), 512);
    }
}

// The table, and the clip beside the reference as a picture. A mosaic's table has no chroma numbers; its
// picture is demosaicked with the white balance put back, so a flat colour comes out as the photograph's.
TEST(ClipTest, CompareToolWritesTableAndPicture) {
    cv::imwrite(kDir + "tint.png", cv::Mat(30, 40, CV_8UC3, cv::Scalar(40, 128, 220)));
    const struct {
        vaitool::SynthArgs clip;
        std::string args, table;
    } cases[] = {
        {Synth(kPhoto, "pair.y4m", 32, 64, 2), "",
         "pair.y4m,0,inf,1.000000,inf,1.000000\npair.y4m,1,inf,1.000000,inf,1.000000\n"
         "pair.y4m,mean,inf,1.000000,inf,1.000000\n"},
        {Synth(kDir + "tint.png", "tint.bayer", 64, 64, 1, "bayer10"), " -W 64 -H 64 --format bayer10",
         "tint.bayer,0,inf,1.000000,-,-\ntint.bayer,mean,inf,1.000000,-,-\n"},
    };
    const std::string csv = kDir + "table.csv", png = kDir + "side.png";
    for (const auto& c : cases) {
        const vaitool::SynthArgs& a = c.clip;
        SCOPED_TRACE(a.output);
        const ShellRun run =
            Tool("compare " + a.clean + " " + a.clean + c.args + " --csv " + csv + " --png " + png);
        ASSERT_EQ(run.status, 0) << run.out;
        EXPECT_EQ(ReadFile(csv), "clip,frame,y_psnr_db,y_ssim,uv_psnr_db,uv_ssim\n" + c.table);
        // The same picture twice, below the labels.
        const cv::Mat side = cv::imread(png), below = side.rowRange(56, side.rows);
        ASSERT_EQ(side.size(), cv::Size(2 * a.width, a.height));
        EXPECT_EQ(cv::norm(below.colRange(0, a.width), below.colRange(a.width, 2 * a.width), cv::NORM_INF),
                  0.0);
        EXPECT_GT(cv::norm(side, cv::NORM_INF), 0.0);
    }
    const cv::Vec3b centre = cv::imread(png).at<cv::Vec3b>(56, 96);  // the flat mosaic, below the label
    EXPECT_NEAR(centre[0], 40, 3);
    EXPECT_NEAR(centre[1], 128, 3);
    EXPECT_NEAR(centre[2], 220, 3);
}

TEST(ClipTest, ParameterRowsHoldUntilTheNext) {
    WriteFile(kDir + "params.csv", "frame, iso, cam_type\n2, 800, 1\n5, 6400, 2\n");
    vaitool::FrameSchedule s({100, 1.5f, 2.0f, 0});
    ASSERT_EQ(s.Load(kDir + "params.csv"), "");
    EXPECT_EQ(s.At(1).iso, 100);
    EXPECT_EQ(s.At(4).iso, 800);
    EXPECT_EQ(s.At(9).iso, 6400);
    EXPECT_EQ(s.At(9).cam_type, 2);
    EXPECT_EQ(s.At(9).drc_gain, 1.5f);  // no column: the constant
}

// Frames written read back bit for bit, and come back through the library in the clip's own container and
// format: bypass, and mode 1 with a network that hands back its input (exact for 8-bit clips, which the
// tool widens and narrows).
TEST(ClipTest, ClipsRoundTripThroughTheReaderAndTheTool) {
    const ClipFormat bayer = Format(false, Layout::kBayer10, 64, 48);
    WriteFile(kDir + "copy.model", "pxrt-test-model\ninput 3072\noutput 3072\nrun copy\n");
    WriteFile(kDir + "copy_bayer.model", "pxrt-test-model\ninput 6144\noutput 6144\nrun copy\n");
    const std::string mode1 =
        " -m 1 -c " VAI_TEST_SOURCE_DIR "/models/mode1/qcom_run.json --model " + kDir + "copy.model";
    const std::string mode10 = " -m 10 -c " VAI_TEST_SOURCE_DIR "/models/mode10/mtk_raw_run.json --model " +
                               kDir + "copy_bayer.model";
    const struct {
        ClipFormat format;
        std::string name, args;
    } rows[] = {{Format(true, Layout::kP010, 64, 48), "in10.y4m", " -m 0"},
                {Format(false, Layout::kP010, 64, 48), "in.p010", " -m 0 -W 64 -H 48"},
                {Format(false, Layout::kNV12, 64, 48), "in.nv12", " -m 0 --format nv12 -W 64 -H 48"},
                {Format(true, Layout::kNV12, 64, 48), "in8.y4m", mode1},
                {Format(false, Layout::kNV21, 64, 48), "in.nv21", mode1 + " --format nv21 -W 64 -H 48"},
                {bayer, "in0.bayer", " -m 0 --format bayer10 -W 64 -H 48"},
                {bayer, "in10.bayer", mode10 + " -W 64 -H 48"}};
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name + r.args);
        const Frames frames = RandomFrames(r.format, 2, 5);
        vaitool::ClipWriter w;
        ASSERT_EQ(w.Open(kDir + r.name, r.format), "");
        for (const auto& frame : frames) ASSERT_TRUE(w.Write(frame));
        ASSERT_EQ(w.Commit(), "");
        EXPECT_FALSE(fs::exists(kDir + r.name + ".part"));
        EXPECT_EQ(ReadAll(kDir + r.name, r.format), frames);
        const ShellRun run =
            Tool("denoise -l 0 -i " + kDir + r.name + " -o " + kDir + "out_" + r.name + r.args);
        EXPECT_EQ(run.status, 0) << run.out;
        EXPECT_EQ(ReadFile(kDir + "out_" + r.name), ReadFile(kDir + r.name));
    }
    // A failed mode-10 model set-up has destroyed the instance: the tool must not tear it down again.
    const ShellRun failed =
        Tool("denoise -l 0 -i " + kDir + "in10.bayer -o " + kDir + "failed.bayer -W 64 -H 48 -m 10 -c " +
             VAI_TEST_SOURCE_DIR "/models/mode10/mtk_raw_run.json --model \"\"");
    EXPECT_EQ(failed.status, 1) << failed.out;
    EXPECT_NE(failed.out.find("initialisation of mode 10 failed"), std::string::npos) << failed.out;
}

TEST(ClipTest, ArgumentErrorsSayTheRuleAndLeaveNoOutput) {
    const std::string out = kDir + "out.y4m", cfg = VAI_TEST_SOURCE_DIR "/configs/qcom_vainr_yuv.json";
    WriteFile(kDir + "c444.y4m", "YUV4MPEG2 W2 H2 C444\nFRAME\n123456789012");
    WriteFile(kDir + "odd.y4m", "YUV4MPEG2 W3 H2 C420\n");
    WriteFile(kDir + "short.yuv", std::string(1000, 'x'));
    WriteFile(kDir + "bad_column.csv", "frame,speed\n0,1\n");
    WriteFile(kDir + "not_a_photo.png", "text");
    Synth(kPhoto, "small.y4m", 16, 16, 2);
    const std::string in = " -i " + Synth(kPhoto, "wide.y4m", 32, 16, 2).output;
    const vaitool::SynthArgs small = Synth(kPhoto, "small.bayer", 16, 16, 2, "bayer10");
    const std::string raw_cfg = VAI_TEST_SOURCE_DIR "/configs/mtk_vainr_raw.json",
                      mode10 = "denoise -m 10 --model /nonexistent.json -c " + raw_cfg;

    const struct {
        std::string args, message;
        int status = 2;
        std::string runtime = VAI_TEST_RUNTIME_PATH;
    } rows[] = {
        {"denoise -m 5" + in, "mode 5 is not supported"},
        {mode10 + in, "is Y4M, which holds YUV only"},
        {mode10 + " -i " + small.output, "raw bayer10 clips need --width and --height"},
        {mode10 + " -W 32 -H 16 -i " + small.output, "name the bayer10 output other than .y4m"},
        {mode10 + " --format p010" + in, "mode 10 takes RAW Bayer frames: --format bayer10, not p010"},
        {"denoise -m 1 --model x -c " + cfg + " --format bayer10 -W 32 -H 16 -i " + small.output,
         "bayer10 clips are RAW Bayer frames, for mode 10"},
        {"denoise -m 10 --model x -c " + raw_cfg, "bayer10 needs an --input clip"},
        {"synth --format bayer10 " + kPhoto, "Y4M holds YUV only"},
        {"compare " + small.output + " " + small.output + " --format bayer10 --csv",
         "raw bayer10 clips need --width and --height"},
        {"denoise -m 1" + in, "mode 1 needs --config and --model"},
        {"denoise -m 1 --model /nonexistent.json -c " + cfg + in, "initialisation of mode 1 failed", 1,
         "/nonexistent/libPXRT.so"},
        {"denoise -W 641" + in, "--width: must be even"},
        {"denoise -i " + kDir + "no_such_clip.yuv", "File does not exist"},
        {"denoise --colour red" + in, "were not expected"},
        {"denoise -p 12345678901234567" + in, "--project: must be 1 to 16 characters"},
        {"denoise -t 5" + in, "--cam-type: Value 5 not in range 0 to 4"},
        {"denoise --format yuyv" + in, "--format: yuyv not in {nv12,nv21,p010,bayer10}"},
        {"denoise -W 640 -H 480 -i " + kDir + "short.yuv", "not a whole number of 640x480 p010 frames"},
        {"denoise -i " + kDir + "c444.y4m", "Y4M colour space C444 is not supported"},
        {"denoise -i " + kDir + "odd.y4m", "Y4M frame size must be even"},
        {"denoise --params " + kDir + "bad_column.csv" + in, "unknown column \"speed\""},
        {"synth " + kDir + "not_a_photo.png", "cannot read image"},
        {"synth -W 63 " + kPhoto, "--width: must be even"},
        {"synth --clean " + kDir + "clean.yuv " + kPhoto, "same container"},
        {"compare " + kDir + "small.y4m " + kDir + "wide.y4m --csv", "must have the same size and format"},
        {"compare " + kDir + "small.y4m " + kDir + "small.y4m --png-frame 2 --png " + kDir + "x.png --csv",
         "--png-frame 2 is past the last frame"},
    };
    fs::remove(out);
    for (const auto& r : rows) {
        SCOPED_TRACE(r.args);
        // Every subcommand gets the output path last (denoise and synth: -o; compare: --csv).
        const std::string args = r.args + (r.args.rfind("compare", 0) == 0 ? " " : " -o ") + out;
        const ShellRun run = Tool(args, r.runtime);
        EXPECT_EQ(run.status, r.status);
        EXPECT_NE(run.out.find(r.message), std::string::npos) << run.out;
        size_t lines = 0;  // of the tool's own: the library may log its reasons too
        for (size_t at = 0; (at = run.out.find("error: ", at)) != std::string::npos; ++at) ++lines;
        EXPECT_EQ(lines, 1u) << run.out;
        EXPECT_FALSE(fs::exists(out));
        EXPECT_FALSE(fs::exists(out + ".part"));
        fs::remove(out);
    }
}

}  // namespace
