#include "algocore/utils/packing.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "frame.h"
#include "log_capture.h"
#include "packing_model.h"
#include "algocore/utils/packing_rows.h"
#include "algocore/utils/vai_log.h"

using vai_frame::Format;
using vai_frame::Frame;
using vai_frame::Memory;
using vAIPROC::VAI_IMG_;

namespace {

// Every function as (image a, image b, tensor, strength); a is the image whose bit width is checked.
struct Function {
    const char* name;
    bool yuv, inPlace, scalar, toTensor;
    // Null pointers log "Input or output buffer is nullptr in <nullIn>"; btwMessage null: 8-bit frames pass.
    const char *nullIn, *btwMessage;
    std::vector<int> bits;  // bit widths tried against the model
    void (*call)(VAI_IMG_* a, VAI_IMG_* b, void* t, const unsigned char* s);
};
const char kOut8[] = "btw of output image buffer is 8bit!";
// clang-format off
const Function kFunctions[] = {
    {"s2d yuv", true, false, false, true, "SpaceToDepth_NEON_YUV!", "btw of input image buffer is 8bit!",
     {9, 16}, [](VAI_IMG_* a, VAI_IMG_*, void* t, auto) { SpaceToDepthYuv_NEON(t, a); }},
    {"s2d gray", false, false, false, true, "SpaceToDepthGray_NEON!", nullptr, {8, 12},
     [](VAI_IMG_* a, VAI_IMG_*, void* t, auto) { SpaceToDepthGray_NEON(t, a); }},
    {"d2s yuv", true, false, false, false, "DepthToSpace_NEON_YUV!", kOut8, {9},
     [](VAI_IMG_* a, VAI_IMG_* b, void* t, auto s) { DepthToSpaceYuv_NEON(a, b, t, s); }},
    {"d2s yuv in place", true, true, false, false, "DepthToSpace_NEON_YUV!", kOut8, {9},
     [](VAI_IMG_* a, VAI_IMG_*, void* t, auto s) { DepthToSpaceYuv_NEON(a, t, s); }},
    {"d2s gray", false, false, false, false, "DepthToSpaceGray!", kOut8, {9},
     [](VAI_IMG_* a, VAI_IMG_* b, void* t, auto s) { DepthToSpaceGray_NEON(a, b, t, s); }},
    {"d2s gray in place", false, true, false, false, "DepthToSpaceGray!", kOut8, {9},
     [](VAI_IMG_* a, VAI_IMG_*, void* t, auto s) { DepthToSpaceGray_NEON(a, t, s); }},
    {"scalar yuv", true, false, true, false, "DepthToSpaceYuv!", nullptr, {8, 9, 12, 16, 40},
     [](VAI_IMG_* a, VAI_IMG_* b, void* t, auto s) { DepthToSpaceYuv(a, b, t, s); }},
    {"scalar gray", false, false, true, false, "DepthToSpaceGray!", nullptr, {8, 9, 12, 16, 40},
     [](VAI_IMG_* a, VAI_IMG_* b, void* t, auto s) { DepthToSpaceGray(a, b, t, s); }}};
// clang-format on

// Width, height and stride padding: widths on and off the 16- and 32-pixel vector steps, odd and empty sizes,
// tight and padded (also odd) strides.
const int kShapes[][3] = {{16, 2, 0},    {32, 4, 0}, {48, 6, 8},  {64, 8, 64}, {96, 10, 3},
                          {320, 24, 32}, {2, 2, 0},  {6, 4, 0},   {18, 4, 4},  {30, 6, 0},
                          {34, 2, 6},    {50, 4, 0}, {66, 6, 10}, {35, 4, 2},  {32, 5, 0},
                          {112, 2, 1},   {0, 4, 8},  {32, 0, 0},  {32, 1, 0}};

// Luma / chroma strengths: both ends, clamping above 64, unequal planes.
const unsigned char kStrengths[][2] = {{0, 0}, {64, 64}, {200, 10}, {33, 7}, {64, 0}, {1, 63}, {255, 65}};

// Runs `fn` on random frames and a tensor that end at a protected page, and compares every byte, padding
// included, with the model.
void Check(const Function& fn, const Format& f, const unsigned char* strength, uint32_t seed) {
    SCOPED_TRACE(std::string(fn.name) + " " + std::to_string(f.width) + "x" + std::to_string(f.height) +
                 " stride " + std::to_string(f.stride) + " bits " + std::to_string(f.bits) + " strength " +
                 std::to_string(strength[0]) + "," + std::to_string(strength[1]));
    const int channels = fn.yuv ? 6 : 4;
    Frame out(f, Memory::kGuarded), in(f, Memory::kGuarded);
    Frame tensor({std::max(f.width / 2, 0) * std::max(f.height / 2, 0) * channels, 1, 8, 1},
                 Memory::kGuarded);
    out.FillRandom(seed);
    in.FillRandom(seed + 1);
    tensor.FillRandom(seed + 2);
    const auto inBefore = in.Clone(), source = (fn.inPlace ? out : in).Clone();
    auto expected = out.Clone(), expectedTensor = tensor.Clone();
    if (fn.toTensor) {
        packing_model::SpaceToDepth(*in.img(), expectedTensor->plane(0), channels);
    } else {
        packing_model::DepthToSpace(*expected->img(), *source->img(), tensor.plane(0), channels, strength,
                                    !fn.scalar);
        // The input is addressed with the output's geometry: its own is not read.
        in.img()->stride[0] += 4;
        in.img()->width += 2;
        in.img()->height += 2;
    }
    fn.call(fn.toTensor ? in.img() : out.img(), in.img(), tensor.plane(0), strength);
    EXPECT_TRUE(out == *expected && tensor == *expectedTensor && (in == *inBefore || fn.inPlace));
}

class PackingTest : public ::testing::Test {
  protected:
    ScopedValue<unsigned char> level_{g_log_level, 5};  // no function logs strengths for valid calls below 5
    LogCapture log_;
};

// The vector functions run once per row-loop variant this processor has.
class PackingVariantTest : public PackingTest,
                           public ::testing::WithParamInterface<const vai::packing::RowKernels*> {
  protected:
    PackingVariantTest() { vai::packing::SetActiveRows(GetParam()); }
    ~PackingVariantTest() override { vai::packing::SetActiveRows(nullptr); }
};
INSTANTIATE_TEST_SUITE_P(Rows, PackingVariantTest,
                         ::testing::ValuesIn(vai::packing::AvailableRows().begin(),
                                             vai::packing::AvailableRows().end()),
                         [](const auto& info) { return std::string(info.param->name); });

// Scalar forms run under every variant too; they do not use the rows. Their samples are 16-bit words, so
// widths above 16 mix as 16, and grey space-to-depth takes 8-bit frames.
TEST_P(PackingVariantTest, AllFunctionsMatchTheModel) {
    g_log_level = 4;
    uint32_t seed = 1;
    for (const Function& fn : kFunctions) {
        for (int bits : fn.bits) {
            for (const auto& shape : kShapes) {
                Format f{shape[0], shape[1], bits, fn.yuv ? 2 : 1, shape[0] * (bits > 8 ? 2 : 1) + shape[2]};
                f.stride += fn.scalar ? f.stride % 2 : 0;  // words are addressed at (row * stride) / 2
                for (const auto& s : kStrengths) {
                    Check(fn, f, s, seed += 3);
                    if (fn.toTensor) break;
                }
            }
        }
    }
    EXPECT_TRUE(log_.Lines().empty());
}

// Rows: a null pointer in each slot (a, b, tensor, strength), then a with bit widths 8, 0 and -3, then only b
// 8-bit. Slots a function does not take are skipped.
TEST_F(PackingTest, RefusalsLogOneErrorAndWriteNothing) {
    g_log_level = 1;
    for (const Function& fn : kFunctions) {
        for (int row = 0; row < 8; ++row) {
            if ((row == 1 && (fn.inPlace || fn.toTensor)) || (row == 3 && fn.toTensor)) continue;
            SCOPED_TRACE(std::string(fn.name) + " row " + std::to_string(row));
            Frame a({32, 4, 10, 2, 64}), b({32, 4, 10, 2, 64});
            a.FillRandom(1);
            std::vector<unsigned char> tensor(16 * 2 * 6, 0x5a);
            const unsigned char strength[2] = {20, 30};
            const int8_t btw[] = {8, 0, -3, 8};
            if (row >= 4) (row == 7 ? b : a).img()->btw = btw[row - 4];
            const auto before = a.Clone();
            log_.Clear();
            fn.call(row == 0 ? nullptr : a.img(), row == 1 ? nullptr : b.img(),
                    row == 2 ? nullptr : tensor.data(), row == 3 ? nullptr : strength);
            const std::string null = std::string("Input or output buffer is nullptr in ") + fn.nullIn;
            const char* message = row < 4 ? null.c_str() : row < 7 ? fn.btwMessage : nullptr;
            EXPECT_EQ(log_.Texts(), message ? std::vector<std::string>{message} : std::vector<std::string>{});
            EXPECT_TRUE(!message || log_.Lines().empty() || log_.Lines()[0].prio == ANDROID_LOG_ERROR);
            EXPECT_TRUE((a == *before && tensor == std::vector<unsigned char>(tensor.size(), 0x5a)) ||
                        !message);
        }
    }
}

// Every variant the processor runs is built, the best is active unless a test chooses another, and the
// clamped strengths are logged at verbose level (not by the scalar forms) before the bit width is checked.
TEST_F(PackingTest, VariantsAndStrengthLog) {
    const auto rows = vai::packing::AvailableRows();
    size_t expected = 1;
#if defined(__x86_64__) && !defined(__ANDROID__)
    __builtin_cpu_init();
    expected += __builtin_cpu_supports("avx2") ? 1 : 0;
#endif
    ASSERT_EQ(rows.count, expected);
    vai::packing::SetActiveRows(rows.rows[0]);
    EXPECT_EQ(&vai::packing::ActiveRows(), rows.rows[0]);
    vai::packing::SetActiveRows(nullptr);
    EXPECT_EQ(&vai::packing::ActiveRows(), rows.rows[rows.count - 1]);
    VAI_IMG_ img{};  // no rows: nothing is read or written
    img.btw = 10;
    unsigned char tensor[8] = {};
    const unsigned char strength[2] = {200, 10};
    for (const Function& fn : kFunctions) fn.call(&img, &img, tensor, strength);
    img.btw = 8;
    kFunctions[5].call(&img, &img, tensor, strength);
    EXPECT_EQ(log_.Texts(), (std::vector<std::string>{"The Strength is: (y:64, uv:10)",
                                                      "The Strength is: (y:64, uv:10)", "The Strength is 64",
                                                      "The Strength is 64", "The Strength is 64", kOut8}));
    EXPECT_EQ(log_.Lines()[0].prio, ANDROID_LOG_VERBOSE);
}

}  // namespace
