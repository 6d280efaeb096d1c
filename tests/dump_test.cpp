#include "algocore/utils/dump.h"

#include <dirent.h>
#include <sys/time.h>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "log_capture.h"
#include "algocore/utils/vai_log.h"

namespace {

std::vector<std::string> ListDir(const std::string& dir) {
    std::vector<std::string> names;
    if (DIR* d = opendir(dir.c_str())) {
        while (dirent* e = readdir(d)) {
            const std::string n = e->d_name;
            if (n != "." && n != "..") names.push_back(n);
        }
        closedir(d);
    }
    return names;
}

std::vector<unsigned char> ReadAll(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>()};
}

bool IsDirectory(const std::string& path) {
    struct stat st {};
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// Each test dumps into a directory of its own (tests run in parallel), named by VAI_DUMP_DIR.
class DumpTest : public ::testing::Test {
  protected:
    void SetUp() override {
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        parent_ = std::string(VAI_TEST_BINARY_DIR) + "/dump_" + info->name();
        dir_ = parent_ + "/frames/";
        std::filesystem::remove_all(parent_);
        std::filesystem::create_directories(parent_);
        setenv("VAI_DUMP_DIR", dir_.c_str(), 1);
    }
    void TearDown() override {
        unsetenv("VAI_DUMP_DIR");
        std::filesystem::remove_all(parent_);
    }

    ScopedValue<unsigned char> level_{g_log_level, 1};
    LogCapture log_;
    std::string parent_, dir_;
};

TEST_F(DumpTest, DumpsExactlyTheRequestsInRange) {
    const struct {
        uint8_t enable;
        uint32_t start, end;
        unsigned long long req;
        bool dumped;
    } cases[] = {
        {1, 10, 20, 9, false},
        {1, 10, 20, 10, true},
        {1, 10, 20, 19, true},
        {1, 10, 20, 20, false},
        {1, 5, 5, 5, false},
        {1, 5, 5, 4, false},
        {0, 10, 20, 15, false},
        {2, 0, 1, 0, true},
        // Compared as 64-bit numbers: a request beyond 2^32 is not folded into the range.
        {1, 10, 20, (1ull << 32) + 15, false},
    };
    unsigned char frame[4] = {1, 2, 3, 4};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.start) + ".." + std::to_string(c.end) + " req " +
                     std::to_string(c.req));
        std::filesystem::remove_all(dir_);
        DumpPars_ pars{c.enable, c.start, c.end};
        DumpFile(frame, 2, 2, sizeof(frame), "t", "raw", c.req, &pars);
        EXPECT_EQ(ListDir(dir_).size(), c.dumped ? 1u : 0u);
    }
}

TEST_F(DumpTest, CreatesTheDirectoryEvenWhenSwitchedOff) {
    ASSERT_FALSE(IsDirectory(dir_));
    DumpPars_ off{0, 0, 100};
    DumpFile(nullptr, 0, 0, 0, "t", "raw", 1, &off);
    EXPECT_TRUE(IsDirectory(dir_));
    struct stat st {};
    ASSERT_EQ(stat(dir_.c_str(), &st), 0);
    const mode_t mask = umask(0);
    umask(mask);
    EXPECT_EQ(st.st_mode & 0777, 0775u & ~mask);
    EXPECT_TRUE(ListDir(dir_).empty());
    // Without a dump block nothing is dumped either.
    DumpFile(nullptr, 0, 0, 0, "t", "raw", 1, nullptr);
    EXPECT_TRUE(ListDir(dir_).empty());
    EXPECT_TRUE(log_.Lines().empty());
}

TEST_F(DumpTest, NameCarriesLocalTimeRequestSizeTagAndExtension) {
    std::vector<unsigned char> frame(300);
    for (size_t i = 0; i < frame.size(); ++i) frame[i] = static_cast<unsigned char>(i * 7);
    DumpPars_ pars{1, 0, 100};
    const time_t before = time(nullptr);
    DumpFile(frame.data(), 4096, 3072, 200, "s[0]_mtk_raw_vainr_in", "packed_word", 57, &pars);
    const time_t after = time(nullptr);

    const auto names = ListDir(dir_);
    ASSERT_EQ(names.size(), 1u);
    std::vector<std::string> allowed;
    for (time_t t = before; t <= after; ++t) {
        char date[32];
        strftime(date, sizeof(date), "%Y%m%d%H%M%S", localtime(&t));
        allowed.push_back(std::string("IMG") + date + "_req57_4096x3072_s[0]_mtk_raw_vainr_in.packed_word");
    }
    EXPECT_NE(std::find(allowed.begin(), allowed.end(), names[0]), allowed.end()) << names[0];
    // Only `size` bytes of the buffer are written.
    EXPECT_EQ(ReadAll(dir_ + names[0]), std::vector<unsigned char>(frame.begin(), frame.begin() + 200));
    // Written at error priority, so that dumps show at the default level.
    const auto lines = log_.Lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].text, "write file_path " + dir_ + names[0]);
    EXPECT_EQ(lines[0].prio, ANDROID_LOG_ERROR);
}

TEST_F(DumpTest, FailingOpenLogsPathThenErrno) {
    // The directory cannot be created under a missing parent, so the open fails with ENOENT.
    const std::string missing = parent_ + "/no/such/dir/";
    setenv("VAI_DUMP_DIR", missing.c_str(), 1);
    DumpPars_ pars{1, 0, 10};
    unsigned char frame[2] = {};
    DumpFile(frame, 1, 1, sizeof(frame), "tag", "yuv", 3, &pars);
    const auto texts = log_.Texts();
    ASSERT_EQ(texts.size(), 2u);
    EXPECT_EQ(texts[0].rfind("not find file_path " + missing + "IMG", 0), 0u) << texts[0];
    EXPECT_NE(texts[0].find("_req3_1x1_tag.yuv"), std::string::npos) << texts[0];
    EXPECT_EQ(texts[1], "[saveYuvFile] open fail errno = " + std::to_string(ENOENT) +
                            ", reason = " + std::strerror(ENOENT));

    // The errno is the open's own: a directory in place of the file gives EISDIR.
    log_.Clear();
    mkdir((parent_ + "/blocker").c_str(), 0755);
    EXPECT_EQ(WriteFile((parent_ + "/blocker").c_str(), frame, 2), -1);
    EXPECT_EQ(log_.Texts(),
              (std::vector<std::string>{"not find file_path " + parent_ + "/blocker",
                                        "[saveYuvFile] open fail errno = " + std::to_string(EISDIR) +
                                            ", reason = " + std::strerror(EISDIR)}));

    // Silent at level 0.
    log_.Clear();
    ScopedValue<unsigned char> silent(g_log_level, 0);
    WriteFile((parent_ + "/blocker").c_str(), frame, 2);
    EXPECT_TRUE(log_.Lines().empty());
}

TEST_F(DumpTest, WriteFileWritesTheBytesAndReportsTheClose) {
    const std::string path = parent_ + "/plain.bin";
    std::vector<unsigned char> data(1000);
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<unsigned char>(i ^ 0x5a);
    EXPECT_EQ(WriteFile(path.c_str(), data.data(), static_cast<int>(data.size())), 0);
    EXPECT_EQ(ReadAll(path), data);
    EXPECT_EQ(WriteFile(path.c_str(), data.data(), 0), 0);
    EXPECT_TRUE(ReadAll(path).empty());
}

TEST_F(DumpTest, DirectoryComesFromTheEnvironmentAtEachCall) {
    EXPECT_EQ(std::string(DumpDirectory()), dir_);
    unsetenv("VAI_DUMP_DIR");
    EXPECT_STREQ(DumpDirectory(), "/data/vendor/camera/videoai/");
    setenv("VAI_DUMP_DIR", "/elsewhere/", 1);
    EXPECT_STREQ(DumpDirectory(), "/elsewhere/");
    setenv("VAI_DUMP_DIR", "", 1);
    EXPECT_STREQ(DumpDirectory(), "/data/vendor/camera/videoai/");
}

TEST(DateTimeTest, CopiesBrokenDownLocalTimeAsItIs) {
    DateTime_ dt;
    dt.reserved = 12345;
    // The same clock GetDateTime reads: time() is coarser and can lag a second behind it.
    auto now = [] {
        timeval tv{};
        gettimeofday(&tv, nullptr);
        return static_cast<time_t>(tv.tv_sec);
    };
    const time_t before = now();
    ASSERT_EQ(GetDateTime(&dt), 0);
    const time_t after = now();
    EXPECT_EQ(dt.reserved, 12345);
    bool matched = false;
    for (time_t t = before; t <= after && !matched; ++t) {
        const tm* l = localtime(&t);
        matched = dt.second == l->tm_sec && dt.minute == l->tm_min && dt.hour == l->tm_hour &&
                  dt.day == l->tm_mday && dt.month == l->tm_mon && dt.year == l->tm_year;
    }
    EXPECT_TRUE(matched) << dt.year << "-" << dt.month << "-" << dt.day;
    EXPECT_EQ(GetDateTime(nullptr), -1);
}

}  // namespace
