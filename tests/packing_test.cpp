#include "algocore/utils/packing.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <vector>

#include "log_capture.h"
#include "packing_model.h"
#include "algocore/utils/packing_rows.h"
#include "algocore/utils/vai_log.h"

using vAIPROC::VAI_IMG_;

namespace vai::packing {
// Test names and failure messages show the variant's name.
void PrintTo(const RowKernels* rows, std::ostream* os) {
    *os << rows->name;
}
}  // namespace vai::packing

namespace {

// Memory that ends exactly where a PROT_NONE page begins, so any access past the end faults.
class GuardedBuffer {
  public:
    explicit GuardedBuffer(size_t size) : size_(size) {
        const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        const size_t dataPages = (size + page - 1) / page;
        mapped_ = (dataPages + 1) * page;
        void* base = mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (base == MAP_FAILED) throw std::bad_alloc();
        base_ = static_cast<unsigned char*>(base);
        if (mprotect(base_ + dataPages * page, page, PROT_NONE) != 0) throw std::bad_alloc();
        data_ = base_ + dataPages * page - size;
    }
    ~GuardedBuffer() { munmap(base_, mapped_); }
    GuardedBuffer(const GuardedBuffer&) = delete;
    GuardedBuffer& operator=(const GuardedBuffer&) = delete;

    unsigned char* data() { return data_; }
    size_t size() const { return size_; }
    std::vector<unsigned char> Bytes() const { return {data_, data_ + size_}; }
    void Fill(std::mt19937& rng) {
        for (size_t i = 0; i < size_; ++i) data_[i] = static_cast<unsigned char>(rng());
    }

  private:
    unsigned char* base_ = nullptr;
    unsigned char* data_ = nullptr;
    size_t size_;
    size_t mapped_ = 0;
};

struct Geometry {
    int width;
    int height;
    int stride;  // bytes
    int btw;
};

// A frame whose planes end at a guard page: the luma plane after its last row of pixels, the chroma
// plane after the last chroma pair of its last row. All bytes, padding included, are random.
class Frame {
  public:
    Frame(const Geometry& g, bool yuv, std::mt19937& rng)
        : luma_(PlaneBytes(g, g.height, g.width)),
          chroma_(yuv ? PlaneBytes(g, g.height / 2, g.width / 2 * 2) : 0) {
        luma_.Fill(rng);
        chroma_.Fill(rng);
        img_.btw = static_cast<int8_t>(g.btw);
        img_.img_num = 1;
        img_.plane_num = yuv ? 2 : 1;
        img_.plane_addr[0] = luma_.data();
        img_.plane_addr[1] = yuv ? chroma_.data() : nullptr;
        img_.stride[0] = g.stride;
        img_.width = g.width;
        img_.height = g.height;
    }
    VAI_IMG_* img() { return &img_; }
    std::vector<unsigned char> Luma() const { return luma_.Bytes(); }
    std::vector<unsigned char> Chroma() const { return chroma_.Bytes(); }

    // A heap copy with the same geometry, for the model to write into.
    struct Copy {
        std::vector<unsigned char> luma, chroma;
        VAI_IMG_ img;
    };
    std::unique_ptr<Copy> Clone() const {
        auto c = std::make_unique<Copy>(Copy{Luma(), Chroma(), img_});
        c->img.plane_addr[0] = c->luma.data();
        c->img.plane_addr[1] = img_.plane_addr[1] != nullptr ? c->chroma.data() : nullptr;
        return c;
    }

  private:
    static size_t PlaneBytes(const Geometry& g, int rows, int samples) {
        if (rows <= 0 || samples <= 0) return 0;
        const size_t bps = g.btw > 8 ? 2 : 1;
        return static_cast<size_t>(g.stride) * (rows - 1) + bps * samples;
    }

    GuardedBuffer luma_, chroma_;
    VAI_IMG_ img_{};
};

size_t TensorBytes(const Geometry& g, int channels) {
    return static_cast<size_t>(std::max(g.width / 2, 0)) * std::max(g.height / 2, 0) * channels;
}

// Widths that are and are not multiples of the 16- and 32-pixel vector steps, odd widths and heights,
// tight and padded (also odd) strides.
std::vector<Geometry> Geometries(int btw) {
    const int bps = btw > 8 ? 2 : 1;
    const struct {
        int w, h, pad;
    } shapes[] = {{16, 2, 0},  {32, 4, 0}, {48, 6, 8}, {64, 8, 64}, {96, 10, 3}, {320, 24, 32},
                  {2, 2, 0},   {6, 4, 0},  {18, 4, 4}, {30, 6, 0},  {34, 2, 6},  {50, 4, 0},
                  {66, 6, 10}, {35, 4, 2}, {32, 5, 0}, {112, 2, 1}};
    std::vector<Geometry> out;
    for (const auto& s : shapes) out.push_back({s.w, s.h, s.w * bps + s.pad, btw});
    return out;
}

// Luma / chroma strength pairs: both ends, clamping above 64, unequal planes.
const unsigned char kStrengths[][2] = {{0, 0}, {64, 64}, {200, 10}, {33, 7}, {64, 0}, {1, 63}, {255, 65}};

std::string Describe(const Geometry& g) {
    return std::to_string(g.width) + "x" + std::to_string(g.height) + " stride " + std::to_string(g.stride) +
           " btw " + std::to_string(g.btw);
}

class PackingTest : public ::testing::Test {
  protected:
    ScopedValue<unsigned char> level_{g_log_level, 1};
    LogCapture log_;
};

// Runs the vector kernels' tests once per row-loop variant this processor has.
class PackingVariantTest : public PackingTest,
                           public ::testing::WithParamInterface<const vai::packing::RowKernels*> {
  protected:
    PackingVariantTest() { vai::packing::SetActiveRows(GetParam()); }
    ~PackingVariantTest() override { vai::packing::SetActiveRows(nullptr); }
};

std::vector<const vai::packing::RowKernels*> Variants() {
    const auto rows = vai::packing::AvailableRows();
    return {rows.begin(), rows.end()};
}

INSTANTIATE_TEST_SUITE_P(Rows, PackingVariantTest, ::testing::ValuesIn(Variants()),
                         [](const auto& info) { return std::string(info.param->name); });

TEST(PackingRowsTest, EveryVariantTheProcessorRunsIsBuiltAndTheBestIsUsed) {
    const auto rows = vai::packing::AvailableRows();
    ASSERT_GE(rows.count, 1u);
    EXPECT_STREQ(rows.rows[0]->name, "baseline");
    size_t expected = 1;
#if defined(__x86_64__) && !defined(__ANDROID__)
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx2")) {
        expected = 2;
        EXPECT_STREQ(rows.rows[1]->name, "avx2");
    }
#endif
    EXPECT_EQ(rows.count, expected);
    EXPECT_EQ(&vai::packing::ActiveRows(), rows.rows[rows.count - 1]);
}

// The public functions reach whatever rows are active, with the weights of the clamped strengths.
struct RecordedCall {
    int kernel = -1;
    vai::packing::Weights luma{}, chroma{};
};
RecordedCall gRecorded;

const vai::packing::RowKernels kRecordingRows = {
    "recording",
    [](const VAI_IMG_*, unsigned char*) { gRecorded.kernel = 0; },
    [](const VAI_IMG_*, unsigned char*) { gRecorded.kernel = 1; },
    [](VAI_IMG_*, const VAI_IMG_*, const unsigned char*, vai::packing::Weights y, vai::packing::Weights uv) {
        gRecorded = {2, y, uv};
    },
    [](VAI_IMG_*, const VAI_IMG_*, const unsigned char*, vai::packing::Weights w) {
        gRecorded = {3, w, {}};
    },
};

TEST(PackingRowsTest, PublicFunctionsCallTheActiveRows) {
    VAI_IMG_ img{};
    img.btw = 10;
    unsigned char tensor[8] = {};
    const unsigned char strength[2] = {200, 10};
    const struct {
        int kernel;
        std::function<void()> call;
    } calls[] = {
        {0, [&] { SpaceToDepthYuv_NEON(tensor, &img); }},
        {1, [&] { SpaceToDepthGray_NEON(tensor, &img); }},
        {2, [&] { DepthToSpaceYuv_NEON(&img, &img, tensor, strength); }},
        {2, [&] { DepthToSpaceYuv_NEON(&img, tensor, strength); }},
        {3, [&] { DepthToSpaceGray_NEON(&img, &img, tensor, strength); }},
        {3, [&] { DepthToSpaceGray_NEON(&img, tensor, strength); }},
    };
    vai::packing::SetActiveRows(&kRecordingRows);
    for (const auto& c : calls) {
        gRecorded = {};
        c.call();
        EXPECT_EQ(gRecorded.kernel, c.kernel);
        if (c.kernel >= 2) {
            EXPECT_EQ(gRecorded.luma.frame, 0u);  // 200 clamps to 64
            EXPECT_EQ(gRecorded.luma.tensor, 256u);
        }
        if (c.kernel == 2) {
            EXPECT_EQ(gRecorded.chroma.frame, 54u);
            EXPECT_EQ(gRecorded.chroma.tensor, 40u);
        }
    }
    vai::packing::SetActiveRows(nullptr);
    gRecorded = {};
    SpaceToDepthGray_NEON(tensor, &img);
    EXPECT_EQ(gRecorded.kernel, -1);
}

// ---- space to depth -------------------------------------------------------------------------------

void CheckSpaceToDepth(const Geometry& g, bool yuv, uint32_t seed) {
    SCOPED_TRACE(Describe(g));
    std::mt19937 rng(seed);
    Frame in(g, yuv, rng);
    const int channels = yuv ? 6 : 4;
    GuardedBuffer tensor(TensorBytes(g, channels));
    tensor.Fill(rng);
    std::vector<unsigned char> expected(tensor.size());
    packing_model::SpaceToDepth(*in.img(), expected.data(), channels);
    const auto luma = in.Luma(), chroma = in.Chroma();
    if (yuv) {
        SpaceToDepthYuv_NEON(tensor.data(), in.img());
    } else {
        SpaceToDepthGray_NEON(tensor.data(), in.img());
    }
    EXPECT_EQ(tensor.Bytes(), expected);
    EXPECT_EQ(in.Luma(), luma);
    EXPECT_EQ(in.Chroma(), chroma);
}

TEST_P(PackingVariantTest, SpaceToDepthYuvMatchesModel) {
    uint32_t seed = 1;
    for (int btw : {10, 16}) {
        for (const Geometry& g : Geometries(btw)) CheckSpaceToDepth(g, true, seed++);
    }
    EXPECT_TRUE(log_.Lines().empty());
}

TEST_P(PackingVariantTest, SpaceToDepthGrayMatchesModelFor8And16Bit) {
    uint32_t seed = 100;
    for (int btw : {8, 12}) {
        for (const Geometry& g : Geometries(btw)) CheckSpaceToDepth(g, false, seed++);
    }
    EXPECT_TRUE(log_.Lines().empty());
}

// ---- depth to space -------------------------------------------------------------------------------

using DepthToSpaceFn =
    std::function<void(VAI_IMG_* out, VAI_IMG_* in, const void* t, const unsigned char* s)>;

struct DepthToSpaceCase {
    const char* name;
    bool yuv;
    bool inPlace;
    DepthToSpaceFn fn;
};

const DepthToSpaceCase kVectorCases[] = {
    {"yuv two images", true, false,
     [](VAI_IMG_* o, VAI_IMG_* i, const void* t, const unsigned char* s) {
         DepthToSpaceYuv_NEON(o, i, t, s);
     }},
    {"yuv in place", true, true,
     [](VAI_IMG_* o, VAI_IMG_*, const void* t, const unsigned char* s) { DepthToSpaceYuv_NEON(o, t, s); }},
    {"gray two images", false, false,
     [](VAI_IMG_* o, VAI_IMG_* i, const void* t, const unsigned char* s) {
         DepthToSpaceGray_NEON(o, i, t, s);
     }},
    {"gray in place", false, true,
     [](VAI_IMG_* o, VAI_IMG_*, const void* t, const unsigned char* s) { DepthToSpaceGray_NEON(o, t, s); }},
};

// Runs `fn` on random frames and compares the output planes, padding included, with the model.
void CheckDepthToSpace(const DepthToSpaceCase& c, const Geometry& g, const unsigned char* strength, bool msb,
                       uint32_t seed) {
    SCOPED_TRACE(std::string(c.name) + " " + Describe(g) + " strength " + std::to_string(strength[0]) + "," +
                 std::to_string(strength[1]));
    std::mt19937 rng(seed);
    Frame out(g, c.yuv, rng), in(g, c.yuv, rng);
    // The input is laid out like the output; its own geometry fields must not be used.
    in.img()->stride[0] = g.stride + 4;
    in.img()->width = g.width + 2;
    in.img()->height = g.height + 2;
    VAI_IMG_* source = c.inPlace ? out.img() : in.img();
    const auto inLuma = in.Luma(), inChroma = in.Chroma();
    GuardedBuffer tensor(TensorBytes(g, c.yuv ? 6 : 4));
    tensor.Fill(rng);
    const auto tensorBytes = tensor.Bytes();

    auto expected = out.Clone();
    std::unique_ptr<Frame::Copy> sourceCopy = c.inPlace ? nullptr : in.Clone();
    const VAI_IMG_& modelIn = c.inPlace ? expected->img : sourceCopy->img;
    packing_model::DepthToSpace(expected->img, modelIn, tensorBytes.data(), c.yuv ? 6 : 4, strength, msb);

    c.fn(out.img(), source, tensor.data(), strength);
    EXPECT_EQ(out.Luma(), expected->luma);
    EXPECT_EQ(out.Chroma(), expected->chroma);
    EXPECT_EQ(tensor.Bytes(), tensorBytes);
    EXPECT_EQ(in.Luma(), inLuma);
    EXPECT_EQ(in.Chroma(), inChroma);
}

TEST_P(PackingVariantTest, VectorDepthToSpaceMatchesModel) {
    uint32_t seed = 1000;
    for (const DepthToSpaceCase& c : kVectorCases) {
        for (const Geometry& g : Geometries(10)) {
            for (const auto& s : kStrengths) CheckDepthToSpace(c, g, s, true, seed++);
        }
    }
    EXPECT_TRUE(log_.Lines().empty());
}

// Anchors independent of the model: full strength gives t * 256, none gives x without its low 6 bits.
TEST_P(PackingVariantTest, VectorDepthToSpaceEndpoints) {
    const Geometry g{32, 2, 64, 10};
    for (const DepthToSpaceCase& c : kVectorCases) {
        for (unsigned char s : {0, 64, 99}) {
            SCOPED_TRACE(std::string(c.name) + " strength " + std::to_string(s));
            std::mt19937 rng(s);
            Frame out(g, c.yuv, rng), in(g, c.yuv, rng);
            const auto x = (c.inPlace ? out : in).Luma();
            std::vector<unsigned char> tensor(TensorBytes(g, c.yuv ? 6 : 4));
            for (auto& b : tensor) b = static_cast<unsigned char>(rng());
            const unsigned char strength[2] = {s, s};
            c.fn(out.img(), in.img(), tensor.data(), strength);
            const auto o = out.Luma();
            const size_t step = c.yuv ? 6 : 4;
            // Pixel (0, 2c + 1) comes from channel 1 of position c.
            for (int p = 0; p < g.width / 2; ++p) {
                const size_t at = 4 * p + 2;
                const unsigned got = o[at] | o[at + 1] << 8;
                const unsigned want =
                    s == 0 ? ((x[at] | x[at + 1] << 8) & ~63u) : tensor[step * p + 1] * 256u;
                ASSERT_EQ(got, want) << "position " << p;
            }
        }
    }
}

const DepthToSpaceCase kScalarCases[] = {
    {"scalar yuv", true, false,
     [](VAI_IMG_* o, VAI_IMG_* i, const void* t, const unsigned char* s) { DepthToSpaceYuv(o, i, t, s); }},
    {"scalar gray", false, false,
     [](VAI_IMG_* o, VAI_IMG_* i, const void* t, const unsigned char* s) { DepthToSpaceGray(o, i, t, s); }},
};

TEST_F(PackingTest, ScalarDepthToSpaceMatchesModel) {
    uint32_t seed = 5000;
    for (const DepthToSpaceCase& c : kScalarCases) {
        for (int btw : {8, 10, 12, 16}) {
            for (Geometry g : Geometries(btw)) {
                g.stride += g.stride % 2;  // words are addressed at (row * stride) / 2
                for (const auto& s : kStrengths) CheckDepthToSpace(c, g, s, false, seed++);
            }
        }
    }
    ScopedValue<unsigned char> verbose(g_log_level, 5);
    const Geometry g{16, 2, 32, 10};
    CheckDepthToSpace(kScalarCases[0], g, kStrengths[2], false, 1);
    EXPECT_FALSE(log_.Contains("Strength"));
}

// Samples are 16-bit words: wider bit widths are mixed as 16-bit ones.
TEST_F(PackingTest, ScalarTreatsWidthsAbove16As16) {
    const Geometry g{16, 2, 32, 16};
    std::mt19937 rng(9);
    Frame wide(g, true, rng), in(g, true, rng);
    const auto before = wide.Luma();
    std::vector<unsigned char> tensor(TensorBytes(g, 6));
    for (auto& b : tensor) b = static_cast<unsigned char>(rng());
    DepthToSpaceYuv(wide.img(), in.img(), tensor.data(), kStrengths[3]);
    const auto as16 = wide.Luma();
    wide.img()->btw = 40;
    DepthToSpaceYuv(wide.img(), in.img(), tensor.data(), kStrengths[3]);
    EXPECT_NE(as16, before);
    EXPECT_EQ(wide.Luma(), as16);
}

// 8-bit frames: strength 0 is the frame, 64 the tensor.
TEST_F(PackingTest, Scalar8BitEndpoints) {
    const Geometry g{16, 4, 20, 8};
    for (const DepthToSpaceCase& c : kScalarCases) {
        std::mt19937 rng(3);
        Frame out(g, c.yuv, rng), in(g, c.yuv, rng);
        std::vector<unsigned char> tensor(TensorBytes(g, c.yuv ? 6 : 4));
        for (auto& b : tensor) b = static_cast<unsigned char>(rng());
        const unsigned char none[2] = {0, 0}, full[2] = {64, 64};
        c.fn(out.img(), in.img(), tensor.data(), none);
        for (int row = 0; row < g.height; ++row) {
            const bool chroma = c.yuv && row < g.height / 2;
            for (int col = 0; col < g.width; ++col) {
                const ptrdiff_t at = static_cast<ptrdiff_t>(row) * g.stride + col;
                ASSERT_EQ(out.img()->plane_addr[0][at], in.img()->plane_addr[0][at]) << c.name << " " << at;
                if (chroma) {
                    ASSERT_EQ(out.img()->plane_addr[1][at], in.img()->plane_addr[1][at])
                        << c.name << " " << at;
                }
            }
        }
        c.fn(out.img(), in.img(), tensor.data(), full);
        EXPECT_EQ(out.img()->plane_addr[0][0], tensor[0]) << c.name;
        EXPECT_EQ(out.img()->plane_addr[0][g.stride + 1], tensor[3]) << c.name;
    }
}

// ---- failures and logging -------------------------------------------------------------------------

struct Buffers {
    std::mt19937 rng{11};
    Frame a{{32, 4, 64, 10}, true, rng};
    Frame b{{32, 4, 64, 10}, true, rng};
    std::vector<unsigned char> tensor = std::vector<unsigned char>(16 * 2 * 6, 0x5a);
    const unsigned char strength[2] = {20, 30};

    bool Untouched(const std::vector<unsigned char>& luma, const std::vector<unsigned char>& chroma) const {
        return a.Luma() == luma && a.Chroma() == chroma &&
               tensor == std::vector<unsigned char>(tensor.size(), 0x5a);
    }
};

TEST_F(PackingTest, NullPointersAreRefusedWithTheirMessage) {
    const std::string s2dYuv = "Input or output buffer is nullptr in SpaceToDepth_NEON_YUV!";
    const std::string s2dGray = "Input or output buffer is nullptr in SpaceToDepthGray_NEON!";
    const std::string d2sYuv = "Input or output buffer is nullptr in DepthToSpace_NEON_YUV!";
    const std::string d2sGray = "Input or output buffer is nullptr in DepthToSpaceGray!";
    const std::string scalarYuv = "Input or output buffer is nullptr in DepthToSpaceYuv!";
    Buffers buf;
    VAI_IMG_* img = buf.a.img();
    VAI_IMG_* other = buf.b.img();
    unsigned char* t = buf.tensor.data();
    const unsigned char* s = buf.strength;
    const struct {
        std::string message;
        std::function<void()> call;
    } cases[] = {
        {s2dYuv, [&] { SpaceToDepthYuv_NEON(nullptr, img); }},
        {s2dYuv, [&] { SpaceToDepthYuv_NEON(t, nullptr); }},
        {s2dGray, [&] { SpaceToDepthGray_NEON(nullptr, img); }},
        {s2dGray, [&] { SpaceToDepthGray_NEON(t, nullptr); }},
        {d2sYuv, [&] { DepthToSpaceYuv_NEON(nullptr, other, t, s); }},
        {d2sYuv, [&] { DepthToSpaceYuv_NEON(img, nullptr, t, s); }},
        {d2sYuv, [&] { DepthToSpaceYuv_NEON(img, other, nullptr, s); }},
        {d2sYuv, [&] { DepthToSpaceYuv_NEON(img, other, t, nullptr); }},
        {d2sYuv, [&] { DepthToSpaceYuv_NEON(nullptr, t, s); }},
        {d2sYuv, [&] { DepthToSpaceYuv_NEON(img, static_cast<const void*>(nullptr), s); }},
        {d2sGray, [&] { DepthToSpaceGray_NEON(nullptr, other, t, s); }},
        {d2sGray, [&] { DepthToSpaceGray_NEON(img, nullptr, t, s); }},
        {d2sGray, [&] { DepthToSpaceGray_NEON(img, other, nullptr, s); }},
        {d2sGray, [&] { DepthToSpaceGray_NEON(nullptr, t, s); }},
        {d2sGray, [&] { DepthToSpaceGray_NEON(img, static_cast<const void*>(nullptr), s); }},
        {scalarYuv, [&] { DepthToSpaceYuv(nullptr, other, t, s); }},
        {scalarYuv, [&] { DepthToSpaceYuv(img, nullptr, t, s); }},
        {scalarYuv, [&] { DepthToSpaceYuv(img, other, nullptr, s); }},
        {scalarYuv, [&] { DepthToSpaceYuv(img, other, t, nullptr); }},
        {d2sGray, [&] { DepthToSpaceGray(nullptr, other, t, s); }},
        {d2sGray, [&] { DepthToSpaceGray(img, nullptr, t, s); }},
        {d2sGray, [&] { DepthToSpaceGray(img, other, nullptr, s); }},
    };
    const auto luma = buf.a.Luma(), chroma = buf.a.Chroma();
    for (size_t i = 0; i < sizeof(cases) / sizeof(cases[0]); ++i) {
        log_.Clear();
        cases[i].call();
        const auto lines = log_.Lines();
        ASSERT_EQ(lines.size(), 1u) << "case " << i;
        EXPECT_EQ(lines[0].text, cases[i].message) << "case " << i;
        EXPECT_EQ(lines[0].prio, ANDROID_LOG_ERROR) << "case " << i;
        EXPECT_EQ(lines[0].tag, "Video_AI_PROC") << "case " << i;
        EXPECT_TRUE(buf.Untouched(luma, chroma)) << "case " << i;
    }
    ScopedValue<unsigned char> silent(g_log_level, 0);
    log_.Clear();
    SpaceToDepthYuv_NEON(nullptr, img);
    EXPECT_TRUE(log_.Lines().empty());
}

TEST_F(PackingTest, EightBitFramesAreRefusedWhereSixteenBitOnesAreNeeded) {
    for (int8_t btw : {8, 0, -3}) {
        SCOPED_TRACE(static_cast<int>(btw));
        Buffers buf;
        buf.a.img()->btw = btw;
        const auto luma = buf.a.Luma(), chroma = buf.a.Chroma();
        const struct {
            const char* message;
            std::function<void()> call;
        } cases[] = {
            {"btw of input image buffer is 8bit!",
             [&] { SpaceToDepthYuv_NEON(buf.tensor.data(), buf.a.img()); }},
            {"btw of output image buffer is 8bit!",
             [&] { DepthToSpaceYuv_NEON(buf.a.img(), buf.b.img(), buf.tensor.data(), buf.strength); }},
            {"btw of output image buffer is 8bit!",
             [&] { DepthToSpaceYuv_NEON(buf.a.img(), buf.tensor.data(), buf.strength); }},
            {"btw of output image buffer is 8bit!",
             [&] { DepthToSpaceGray_NEON(buf.a.img(), buf.b.img(), buf.tensor.data(), buf.strength); }},
            {"btw of output image buffer is 8bit!",
             [&] { DepthToSpaceGray_NEON(buf.a.img(), buf.tensor.data(), buf.strength); }},
        };
        for (const auto& c : cases) {
            log_.Clear();
            c.call();
            EXPECT_EQ(log_.Texts(), std::vector<std::string>{c.message});
            EXPECT_TRUE(buf.Untouched(luma, chroma));
        }
    }
    // Only the output's bit width decides.
    Buffers buf;
    buf.b.img()->btw = 8;
    log_.Clear();
    DepthToSpaceYuv_NEON(buf.a.img(), buf.b.img(), buf.tensor.data(), buf.strength);
    EXPECT_TRUE(log_.Lines().empty());
}

TEST_F(PackingTest, ClampedStrengthIsLoggedAtVerboseLevel) {
    Buffers buf;
    const unsigned char strength[2] = {200, 10};
    {
        ScopedValue<unsigned char> verbose(g_log_level, 5);
        DepthToSpaceYuv_NEON(buf.a.img(), buf.b.img(), buf.tensor.data(), strength);
        DepthToSpaceYuv_NEON(buf.a.img(), buf.tensor.data(), strength);
        DepthToSpaceGray_NEON(buf.a.img(), buf.b.img(), buf.tensor.data(), strength);
        DepthToSpaceGray_NEON(buf.a.img(), buf.tensor.data(), strength);
        // The strength line comes before the bit-width check.
        buf.a.img()->btw = 8;
        DepthToSpaceGray_NEON(buf.a.img(), buf.tensor.data(), strength);
    }
    const auto lines = log_.Lines();
    const std::vector<std::string> expected = {"The Strength is: (y:64, uv:10)",
                                               "The Strength is: (y:64, uv:10)",
                                               "The Strength is 64",
                                               "The Strength is 64",
                                               "The Strength is 64",
                                               "btw of output image buffer is 8bit!"};
    EXPECT_EQ(log_.Texts(), expected);
    for (size_t i = 0; i + 1 < lines.size(); ++i) EXPECT_EQ(lines[i].prio, ANDROID_LOG_VERBOSE);

    log_.Clear();
    ScopedValue<unsigned char> debug(g_log_level, 4);
    buf.a.img()->btw = 10;
    DepthToSpaceYuv_NEON(buf.a.img(), buf.tensor.data(), strength);
    EXPECT_TRUE(log_.Lines().empty());
}

TEST_F(PackingTest, EmptyFramesWriteNothing) {
    for (const Geometry& g : {Geometry{0, 4, 64, 10}, Geometry{32, 0, 64, 10}, Geometry{32, 1, 64, 10}}) {
        SCOPED_TRACE(Describe(g));
        Buffers buf;
        VAI_IMG_* img = buf.a.img();
        img->width = g.width;
        img->height = g.height;
        const auto luma = buf.a.Luma(), chroma = buf.a.Chroma();
        SpaceToDepthYuv_NEON(buf.tensor.data(), img);
        SpaceToDepthGray_NEON(buf.tensor.data(), img);
        DepthToSpaceYuv_NEON(img, buf.b.img(), buf.tensor.data(), buf.strength);
        DepthToSpaceYuv_NEON(img, buf.tensor.data(), buf.strength);
        DepthToSpaceGray_NEON(img, buf.b.img(), buf.tensor.data(), buf.strength);
        DepthToSpaceGray_NEON(img, buf.tensor.data(), buf.strength);
        DepthToSpaceYuv(img, buf.b.img(), buf.tensor.data(), buf.strength);
        DepthToSpaceGray(img, buf.b.img(), buf.tensor.data(), buf.strength);
        EXPECT_TRUE(buf.Untouched(luma, chroma));
    }
}

}  // namespace
