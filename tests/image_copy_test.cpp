#include "algocore/utils/image_copy.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "log_capture.h"
#include "algocore/utils/vai_log.h"

using vAIPROC::VAI_IMG_;

namespace {

// A set of images whose planes are separate byte buffers filled with a per-buffer pattern.
struct Images {
    std::vector<VAI_IMG_> img;
    std::vector<std::vector<unsigned char>> planes;
    int planeCount;

    // A count of 0 still gets one described image, so tests can see it is left alone.
    Images(int count, int perImage, uint32_t size, unsigned char seed)
        : img(count > 0 ? count : 1), planeCount(perImage) {
        planes.reserve(img.size() * planeCount);
        for (size_t i = 0; i < img.size(); ++i) {
            img[i].plane_num = static_cast<uint8_t>(planeCount);
            for (int p = 0; p < planeCount; ++p) {
                planes.emplace_back(size);
                for (uint32_t k = 0; k < size; ++k)
                    planes.back()[k] = static_cast<unsigned char>(seed + i * 16 + p + k);
                img[i].plane_addr[p] = planes.back().data();
                img[i].plane_size[p] = size;
            }
        }
        img[0].img_num = static_cast<uint8_t>(count);
    }
    std::vector<unsigned char>& Plane(int i, int p) { return planes[i * planeCount + p]; }
};

class CopyImageTest : public ::testing::Test {
  protected:
    ScopedValue<unsigned char> level_{g_log_level, 1};
    LogCapture log_;
};

TEST_F(CopyImageTest, CopiesEveryPlaneOfEveryImage) {
    Images in(2, 2, 64, 1), out(2, 2, 64, 100);
    EXPECT_EQ(CopyImage(out.img.data(), in.img.data()), 0);
    for (int i = 0; i < 2; ++i) {
        for (int p = 0; p < 2; ++p) EXPECT_EQ(out.Plane(i, p), in.Plane(i, p)) << i << "," << p;
    }
    EXPECT_TRUE(log_.Lines().empty());
}

TEST_F(CopyImageTest, NullArraysGive10) {
    Images a(1, 1, 8, 0);
    EXPECT_EQ(CopyImage(static_cast<VAI_IMG_*>(nullptr), a.img.data()), 10);
    EXPECT_EQ(CopyImage(a.img.data(), static_cast<VAI_IMG_*>(nullptr)), 10);
    EXPECT_EQ(log_.Count("In or out image is nullptr in CopyImage"), 2u);
}

TEST_F(CopyImageTest, CountMismatchGives4AndCopiesNothing) {
    Images in(2, 1, 16, 1), out(1, 1, 16, 50);
    const auto before = out.Plane(0, 0);
    EXPECT_EQ(CopyImage(out.img.data(), in.img.data()), 4);
    EXPECT_EQ(out.Plane(0, 0), before);
    EXPECT_TRUE(log_.Contains("img number of in(2) and out(1) is different in CopyImage!"));
}

TEST_F(CopyImageTest, ZeroImagesSucceedWithoutTouchingPlanes) {
    Images in(0, 1, 16, 1), out(0, 1, 16, 50);
    const auto before = out.Plane(0, 0);
    EXPECT_EQ(CopyImage(out.img.data(), in.img.data()), 0);
    EXPECT_EQ(out.Plane(0, 0), before);
}

TEST_F(CopyImageTest, PlaneCountMismatchSkipsOnlyThatImage) {
    Images in(2, 2, 16, 1), out(2, 2, 16, 50);
    out.img[0].plane_num = 1;
    const auto before = out.Plane(0, 0);
    EXPECT_EQ(CopyImage(out.img.data(), in.img.data()), 0);
    EXPECT_EQ(out.Plane(0, 0), before);
    EXPECT_EQ(out.Plane(1, 0), in.Plane(1, 0));
    EXPECT_TRUE(log_.Contains("img plane_num of in(2) and out(1) is different in CopyImage(image:0), skip!"));
}

TEST_F(CopyImageTest, SizeMismatchSkipsPlaneAndGoesOn) {
    Images in(1, 2, 200, 1), out(1, 2, 200, 50);
    in.img[0].plane_size[0] = 100;
    const auto before = out.Plane(0, 0);
    EXPECT_EQ(CopyImage(out.img.data(), in.img.data()), 0);
    EXPECT_EQ(out.Plane(0, 0), before);
    EXPECT_EQ(out.Plane(0, 1), in.Plane(0, 1));
    char expected[512];
    std::snprintf(expected, sizeof(expected),
                  "in_img(id:0, palneId:0, planeAddr:%p, planeSize:100) and out_img(id:0, palneId:0, "
                  "planeAddr:%p, planeSize:200)are dismatch in CopyImage, skip!",
                  static_cast<void*>(in.img[0].plane_addr[0]), static_cast<void*>(out.img[0].plane_addr[0]));
    EXPECT_EQ(log_.Texts(), std::vector<std::string>{expected});
}

TEST_F(CopyImageTest, SamePlaneAddressIsReportedAndLeftAlone) {
    Images in(1, 1, 32, 1), out(1, 1, 32, 50);
    out.img[0].plane_addr[0] = in.img[0].plane_addr[0];
    const auto before = in.Plane(0, 0);
    EXPECT_EQ(CopyImage(out.img.data(), in.img.data()), 0);
    EXPECT_EQ(in.Plane(0, 0), before);
    EXPECT_TRUE(log_.Contains("are dismatch in CopyImage, skip!"));
}

TEST_F(CopyImageTest, ZeroSizedPlaneIsCopiedSilently) {
    Images in(1, 1, 0, 1), out(1, 1, 0, 50);
    unsigned char a = 1, b = 2;
    in.img[0].plane_addr[0] = &a;
    out.img[0].plane_addr[0] = &b;
    EXPECT_EQ(CopyImage(out.img.data(), in.img.data()), 0);
    EXPECT_EQ(b, 2);
    EXPECT_TRUE(log_.Lines().empty());
}

TEST_F(CopyImageTest, PlaneCountBeyondTheRecordStopsAtFour) {
    Images in(1, 4, 8, 1), out(1, 4, 8, 50);
    in.img[0].plane_num = out.img[0].plane_num = 9;
    EXPECT_EQ(CopyImage(out.img.data(), in.img.data()), 0);
    for (int p = 0; p < 4; ++p) EXPECT_EQ(out.Plane(0, p), in.Plane(0, p));
    EXPECT_TRUE(log_.Contains("exceeds 4 planes"));
}

TEST_F(CopyImageTest, MessagesFollowTheLogLevel) {
    g_log_level = 0;
    EXPECT_EQ(CopyImage(static_cast<VAI_IMG_*>(nullptr), nullptr), 10);
    EXPECT_TRUE(log_.Lines().empty());
}

TEST_F(CopyImageTest, RawBufferCopy) {
    unsigned char src[16], dst[16] = {};
    for (int i = 0; i < 16; ++i) src[i] = static_cast<unsigned char>(i + 1);
    EXPECT_EQ(CopyImage(static_cast<void*>(dst), static_cast<void*>(src), 16u), 0);
    EXPECT_EQ(std::memcmp(src, dst, 16), 0);
    EXPECT_EQ(CopyImage(static_cast<void*>(dst), static_cast<void*>(src), 0u), 0);
    EXPECT_EQ(CopyImage(nullptr, static_cast<void*>(src), 4u), 10);
    EXPECT_EQ(CopyImage(static_cast<void*>(dst), nullptr, 4u), 10);
    EXPECT_EQ(log_.Count("In or out buf is nullptr in CopyImage"), 2u);
}

}  // namespace
