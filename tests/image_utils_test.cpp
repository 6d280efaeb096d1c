// Image copy and frame dumping.
#include <sys/stat.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "algocore/utils/dump.h"
#include "algocore/utils/image_copy.h"
#include "algocore/utils/status_code.h"
#include "algocore/utils/vai_log.h"
#include "log_capture.h"
#include "tool_test_util.h"

using vAIPROC::VAI_IMG_;

namespace {

namespace fs = std::filesystem;

// Two images of two planes (room for four), each plane a buffer with a pattern of its own.
struct Images {
    VAI_IMG_ img[2] = {};
    std::vector<unsigned char> planes[2][4];

    explicit Images(int seed) {
        for (int i = 0; i < 2; ++i) {
            img[i].plane_num = 2;
            for (int p = 0; p < 4; ++p) {
                for (int k = 0; k < 64; ++k)
                    planes[i][p].push_back(static_cast<unsigned char>(seed + 16 * i + p + k));
                img[i].plane_addr[p] = planes[i][p].data();
                img[i].plane_size[p] = 64;
            }
        }
        img[0].img_num = 2;
    }
};

// Planes are copied or skipped one by one: skips never change the result, and there is no roll-back.
TEST(CopyImageTest, PlaneWiseCopy) {
    ScopedValue<unsigned char> level(g_log_level, 1);
    const struct {
        void (*setup)(Images& in, Images& out);
        int result;
        unsigned copied;  // bit 4 * image + plane
        bool logs;        // one error line
    } cases[] = {
        {[](Images&, Images&) {}, 0, 0x33, false},
        {[](Images&, Images& o) { o.img[0].img_num = 1; }, kImageCountMismatch, 0, true},
        {[](Images& i, Images& o) { i.img[0].img_num = o.img[0].img_num = 0; }, 0, 0, false},
        {[](Images& i, Images& o) { i.img[0].img_num = o.img[0].img_num = 1; }, 0, 0x3, false},
        {[](Images&, Images& o) { o.img[0].plane_num = 1; }, 0, 0x30, true},
        {[](Images& i, Images&) { i.img[1].plane_size[0] = 32; }, 0, 0x23, true},
        {[](Images& i, Images& o) { o.img[0].plane_addr[1] = i.img[0].plane_addr[1]; }, 0, 0x31, true},
        {[](Images& i, Images& o) { i.img[0].plane_size[0] = o.img[0].plane_size[0] = 0; }, 0, 0x32, false},
        {[](Images& i, Images& o) { i.img[0].plane_num = o.img[0].plane_num = 9; }, 0, 0x3f, true}};
    for (size_t n = 0; n < std::size(cases); ++n) {
        SCOPED_TRACE("case " + std::to_string(n));
        LogCapture log;
        Images in(1), out(100);
        const Images before(100);
        cases[n].setup(in, out);
        EXPECT_EQ(CopyImage(out.img, in.img), cases[n].result);
        for (int k = 0; k < 8; ++k) {
            const Images& from = (cases[n].copied >> k & 1) ? in : before;
            EXPECT_EQ(out.planes[k / 4][k % 4], from.planes[k / 4][k % 4]) << "plane " << k;
        }
        const auto lines = log.Lines();
        EXPECT_EQ(lines.size(), cases[n].logs ? 1u : 0u);
        EXPECT_TRUE(lines.empty() || lines[0].prio == ANDROID_LOG_ERROR);
    }
}

TEST(CopyImageTest, RawBufferCopyAndNullArguments) {
    Images a(1);
    std::vector<unsigned char> src(8, 7), dst(16, 0), expected(16, 0);
    std::fill(expected.begin() + 8, expected.end(), 7);
    EXPECT_EQ(CopyImage(dst.data(), src.data(), 0u) + CopyImage(dst.data() + 8, src.data(), 8u), 0);
    EXPECT_EQ(dst, expected);
    const std::vector<int> results = {CopyImage(nullptr, src.data(), 4u), CopyImage(dst.data(), nullptr, 4u),
                                      CopyImage(a.img, nullptr), CopyImage(nullptr, a.img)};
    EXPECT_EQ(results, std::vector<int>(4, kNullImage));
}

std::vector<std::string> ListDir(const std::string& dir) {
    std::vector<std::string> names;
    std::error_code ec;
    for (const auto& e : fs::directory_iterator(dir, ec)) names.push_back(e.path().filename().string());
    return names;
}

// Each test dumps into a directory of its own (tests run in parallel), named by VAI_DUMP_DIR.
class DumpTest : public ::testing::Test {
  protected:
    DumpTest() {
        fs::remove_all(parent_);
        fs::create_directories(parent_);
        setenv("VAI_DUMP_DIR", dir_.c_str(), 1);
    }
    ~DumpTest() override {
        unsetenv("VAI_DUMP_DIR");
        fs::remove_all(parent_);
    }
    ScopedValue<unsigned char> level_{g_log_level, 1};
    LogCapture log_;
    const std::string parent_ = std::string(VAI_TEST_BINARY_DIR) + "/dump_" +
                                ::testing::UnitTest::GetInstance()->current_test_info()->name();
    const std::string dir_ = parent_ + "/frames/";
};

// The directory (mode 0775) is made at every call whatever the switch says, with or without the final "/" in
// VAI_DUMP_DIR; a file only for requests in range, compared as 64-bit numbers.
TEST_F(DumpTest, DumpsExactlyTheRequestsInRange) {
    const struct {
        uint8_t enable;
        uint32_t start, end;
        unsigned long long req;
        bool dumped, slash;
    } cases[] = {// clang-format off
        {1, 10, 20, 9, false, true}, {1, 10, 20, 10, true, true}, {1, 10, 20, 19, true, true},
        {1, 10, 20, 20, false, true}, {0, 10, 20, 15, false, true}, {2, 0, 1, 0, true, true},
        {1, 10, 20, (1ull << 32) + 15, false, true}, {1, 10, 20, 15, true, false}, {0, 10, 20, 15, false, false}};
    // clang-format on
    unsigned char frame[4] = {1, 2, 3, 4};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.enable) + " " + std::to_string(c.req) + (c.slash ? "" : " no slash"));
        fs::remove_all(dir_);
        setenv("VAI_DUMP_DIR", c.slash ? dir_.c_str() : (parent_ + "/frames").c_str(), 1);
        DumpPars_ pars{c.enable, c.start, c.end};
        DumpFile(frame, 2, 2, sizeof(frame), "t", "raw", c.req, &pars);
        EXPECT_EQ(ListDir(dir_).size(), c.dumped ? 1u : 0u);
        EXPECT_EQ(ListDir(parent_), std::vector<std::string>{"frames"});
    }
    DumpFile(frame, 2, 2, sizeof(frame), "t", "raw", 1, nullptr);
    EXPECT_TRUE(ListDir(dir_).empty());
    struct stat st {};
    ASSERT_EQ(stat(dir_.c_str(), &st), 0);
    const mode_t mask = umask(0);
    umask(mask);
    EXPECT_EQ(st.st_mode & 0777, 0775u & ~mask);
}

// The name carries the local time (GetDateTime's fields, month from 0 and year from 1900), request, size, tag
// and extension, cut to 255 characters; only `size` bytes are written, and the line is at error priority so
// that dumps show at any level.
TEST_F(DumpTest, NameContentsAndLogLine) {
    std::vector<unsigned char> frame(300);
    for (size_t i = 0; i < frame.size(); ++i) frame[i] = static_cast<unsigned char>(i * 7);
    DumpPars_ pars{1, 0, 100};
    DateTime_ dt{};
    dt.reserved = 12345;
    const time_t before = time(nullptr);
    ASSERT_EQ(GetDateTime(&dt), 0);
    DumpFile(frame.data(), 4096, 3072, 200, "s[0]_mtk_raw_vainr_in", "packed_word", 57, &pars);
    DumpFile(frame.data(), 1, 1, 1, std::string(300, 't').c_str(), "x", 58, &pars);
    const time_t after = time(nullptr) + 1;  // time() can lag a second behind gettimeofday()
    EXPECT_EQ(dt.reserved, 12345);
    EXPECT_EQ(GetDateTime(nullptr), -1);

    auto names = ListDir(dir_);
    ASSERT_EQ(names.size(), 2u);
    std::sort(names.begin(), names.end(), [](const auto& a, const auto& b) { return a.size() < b.size(); });
    EXPECT_EQ(dir_.size() + names[1].size(), 255u);
    bool matched = false;
    for (time_t t = before; t <= after; ++t) {
        char name[100];
        const tm* l = localtime(&t);
        strftime(name, sizeof(name), "IMG%Y%m%d%H%M%S_req57_4096x3072_s[0]_mtk_raw_vainr_in.packed_word", l);
        matched |= names[0] == name &&
                   std::vector<int>{dt.second, dt.minute, dt.hour, dt.day, dt.month, dt.year} ==
                       std::vector<int>{l->tm_sec, l->tm_min, l->tm_hour, l->tm_mday, l->tm_mon, l->tm_year};
    }
    EXPECT_TRUE(matched) << names[0] << " " << dt.year << "-" << dt.month << "-" << dt.day;
    EXPECT_EQ(ReadFile(dir_ + names[0]), std::string(frame.begin(), frame.begin() + 200));
    const auto lines = log_.Lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(std::to_string(lines[0].prio) + " " + lines[0].text,
              std::to_string(ANDROID_LOG_ERROR) + " write file_path " + dir_ + names[0]);
}

TEST_F(DumpTest, WriteFile) {
    const std::string path = parent_ + "/plain.bin";
    std::string data = "written whole, then emptied";  // byte contents are the dump test's
    EXPECT_EQ(WriteFile(path.c_str(), data.data(), static_cast<int>(data.size())), 0);
    EXPECT_EQ(ReadFile(path), data);
    EXPECT_EQ(WriteFile(path.c_str(), data.data(), 0), 0);
    EXPECT_TRUE(ReadFile(path).empty());
    // A failing open logs the path, then the open's own errno.
    const std::string missing = parent_ + "/no/such/file";
    log_.Clear();
    EXPECT_EQ(WriteFile(missing.c_str(), data.data(), 2), -1);
    EXPECT_EQ(log_.Texts(),
              (std::vector<std::string>{"not find file_path " + missing,
                                        "[saveYuvFile] open fail errno = " + std::to_string(ENOENT) +
                                            ", reason = " + std::strerror(ENOENT)}));
}

}  // namespace
