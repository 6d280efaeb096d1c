// Bad configuration files and dump targets, through the entry points of every back-end: whether
// initialisation succeeds, the line that says why not, whether frames still reach the network, and
// that nothing is left behind either way.
#include <gtest/gtest.h>
#include <pthread.h>

#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include "algocore/utils/status_code.h"
#include "hardening_util.h"
#include "log_capture.h"

namespace {

namespace fs = std::filesystem;
using namespace hardening;

// `depth` nested arrays around a 1.
std::string Nested(int depth) {
    return std::string(depth, '[') + "1" + std::string(depth, ']');
}

// Links every dump name the next seconds can produce to /dev/full, so each write lands on a full disk.
void LinkDumpsToFullDisk(const std::string& dir, int mode) {
    const std::string tag = mode == 1 ? "qcom_yuv_vainr" : mode == 9 ? "s[0]_mtk_yuv_vainr" : "s[0]_mtk_raw_vainr";
    const std::string ext = mode == 9 ? "nv21" : "packed_word";
    for (time_t t = time(nullptr) - 1, end = t + 12; t < end; ++t) {
        char stamp[32];
        strftime(stamp, sizeof(stamp), "IMG%Y%m%d%H%M%S", localtime(&t));
        for (int req = 0; req < 3; ++req) {
            for (const char* side : {"_in.", "_out."}) {
                const std::string name = std::string(stamp) + "_req" + std::to_string(req) + "_" +
                                         std::to_string(kW) + "x" + std::to_string(kH) + "_" + tag + side + ext;
                fs::create_symlink("/dev/full", dir + name);
            }
        }
    }
}

struct Case {
    const char* name;
    // Writes the test's configuration and returns its path; may also point the dumps elsewhere.
    std::function<std::string(int mode, const std::string& dir)> prepare;
    bool starts;       // initialisation succeeds and frames go through the network
    const char* line;  // logged, at least `times` times
    size_t times = 1;
};

std::string Write(const std::string& dir, const std::string& text) {
    std::ofstream(dir + "cfg.json", std::ios::binary) << text;
    return dir + "cfg.json";
}

const Case kCases[] = {
    {"directory", [](int, const std::string& dir) { return dir; }, false, "\" parse failed!"},
    {"/dev/zero", [](int, const std::string&) { return std::string("/dev/zero"); }, false, "\" parse failed!"},
    {"empty file", [](int, const std::string& dir) { return Write(dir, ""); }, false, "\" parse failed!"},
    {"truncated",
     [](int mode, const std::string& dir) {
         const std::string text = Config(mode, 1);
         return Write(dir, text.substr(0, text.size() / 2));
     },
     false, "\" parse failed!"},
    {"Latin-1 project name",
     [](int mode, const std::string& dir) {
         return Write(dir, mtk_test::Edit(Config(mode, 1), "TestProject", "TestPr\xf6ject"));
     },
     false, "Cfg parse failed in "},
    {"Latin-1 in a string nobody reads",
     [](int mode, const std::string& dir) { return Write(dir, Config(mode, 1, 0, ", \"Note\": \"caf\xe9\"")); },
     true, ""},
    {"nested 1000 deep",
     [](int mode, const std::string& dir) {
         return Write(dir, Config(mode, 1, 0, ", \"Deep\": " + Nested(1000)));
     },
     true, ""},
    {"nested 100000 deep",
     [](int mode, const std::string& dir) {
         return Write(dir, Config(mode, 1, 0, ", \"Deep\": " + Nested(100000)));
     },
     true, ""},
    {"dump directory under a file",
     [](int mode, const std::string& dir) {
         setenv("VAI_DUMP_DIR", (dir + "cfg.json/dumps/").c_str(), 1);
         return Write(dir, Config(mode, 1, 3));
     },
     true, "[saveYuvFile] open fail errno = 20, reason = Not a directory", 6},
    {"dump files on a full disk",
     [](int mode, const std::string& dir) {
         setenv("VAI_DUMP_DIR", dir.c_str(), 1);
         LinkDumpsToFullDisk(dir, mode);
         return Write(dir, Config(mode, 1, 3));
     },
     true, "write file_path ", 6},
};

// Initialises on a thread with a stack the size of a HAL binder thread's.
void* StartOnSmallStack(vAIPROC::InitParams_* p) {
    struct Call {
        vAIPROC::InitParams_* p;
        void* h;
    } call{p, nullptr};
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstacksize(&attr, 1 << 20);
    pthread_t thread;
    const auto body = [](void* arg) -> void* {
        auto* c = static_cast<Call*>(arg);
        c->h = Start(c->p);
        return nullptr;
    };
    EXPECT_EQ(pthread_create(&thread, &attr, body, &call), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attr);
    return call.h;
}

class FaultTest : public ::testing::TestWithParam<int> {
  protected:
    qcom_test::Env env_;
    LogCapture log_;
};

TEST_P(FaultTest, BadFilesAndDumpTargets) {
    const int mode = GetParam();
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        const std::string dir = qcom_test::TestFile("_" + std::to_string(&c - kCases) + "/");
        fs::remove_all(dir);
        fs::create_directories(dir);
        pxrt_test::Reset();
        pxrt_test::SetDefaultLayout(Layout(mode));
        log_.Clear();
        Params params(mode, c.prepare(mode, dir));
        void* h = StartOnSmallStack(&params.p);
        EXPECT_EQ(h != nullptr, c.starts);
        if (h != nullptr) {
            Image in(0x5a), out(0);
            for (uint64_t req = 0; req < 3; ++req) {
                vAIPROC::ProcParams_ p = qcom_test::Params(0, 3200);
                in.img.req_id = out.img.req_id = req;
                EXPECT_EQ(Video_AI_Proc_Process(h, &out.img, &in.img, &p), SDK_SUCCESS);
            }
            EXPECT_EQ(pxrt_test::CallCount(pxrt_test::Op::kRun), 3u);
            EXPECT_EQ(mode != 1 ? Video_AI_Model_Uninit(h) : SDK_SUCCESS, SDK_SUCCESS);
            EXPECT_EQ(Video_AI_Proc_Uninit(h), SDK_SUCCESS);
        }
        unsetenv("VAI_DUMP_DIR");
        EXPECT_GE(log_.Count(c.line), *c.line == '\0' ? 0 : c.times) << c.line;
        EXPECT_TRUE(qcom_test::TornDown());
        for (const auto& e : fs::directory_iterator(dir)) {  // nothing reached the disk but the file
            EXPECT_TRUE(e.is_symlink() || e.path().filename() == "cfg.json") << e.path();
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Backend, FaultTest, ::testing::ValuesIn(kModes),
                         [](const ::testing::TestParamInfo<int>& i) { return "Mode" + std::to_string(i.param); });

}  // namespace
