// Bad configuration files and dump targets, through the entry points of every back-end: whether
// initialisation succeeds, the line that says why not, whether frames still reach the network, and
// that nothing is left behind either way.
#include <gtest/gtest.h>
#include <dlfcn.h>
#include <pthread.h>

#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include "algocore/utils/status_code.h"
#include "hardening_util.h"
#include "interface/pxrt_binding.h"
#include "log_capture.h"
#include "qcom/vainr_yuv/qcom_vainr_yuv_proc_sat.h"

namespace {

namespace fs = std::filesystem;
using namespace hardening;

// `depth` nested arrays around a 1.
std::string Nested(int depth) {
    return std::string(depth, '[') + "1" + std::string(depth, ']');
}

// Links every dump name the next seconds can produce to /dev/full, so each write lands on a full disk.
void LinkDumpsToFullDisk(const std::string& dir, int mode) {
    const std::string tag = mode == 1 ? "qcom_yuv" : mode == 9 ? "s[0]_mtk_yuv" : "s[0]_mtk_raw";
    const std::string ext = mode == 9 ? "nv21" : "packed_word";
    const std::string size = "_" + std::to_string(kW) + "x" + std::to_string(kH) + "_";
    for (time_t t = time(nullptr) - 1, end = t + 12; t < end; ++t) {
        char stamp[32];
        strftime(stamp, sizeof(stamp), "IMG%Y%m%d%H%M%S", localtime(&t));
        for (int req = 0; req < 3; ++req) {
            for (const char* side : {"_in.", "_out."}) {
                const std::string name =
                    std::string(stamp) + "_req" + std::to_string(req) + size + tag + "_vainr" + side + ext;
                fs::create_symlink("/dev/full", dir + name);
            }
        }
    }
}

// Adds a member to the project, after the last of the keys every back-end reads.
std::function<std::string(std::string)> Extra(const std::string& member) {
    const std::string last = "\"SwitchFrameNum\": 0";
    return [=](std::string t) { return qcom_test::Edit(t, last, last + member); };
}
const auto kKeep = [](std::string t) { return t; };
const char kParseFailed[] = "\" parse failed!";

struct Case {
    const char* name;
    std::function<std::string(std::string)> edit;  // of a valid configuration, written to cfg.json
    const char* path;  // read instead of cfg.json: absolute, or in the test's directory ("": itself)
    const char* dump;  // dumps requests 0..2 into the test's directory + this ("": every file /dev/full)
    bool starts;       // initialisation succeeds and frames go through the network
    const char* line;  // logged, at least `times` times
    size_t times = 1;
};

const Case kCases[] = {
    {"directory", kKeep, "", nullptr, false, kParseFailed},
    {"/dev/zero", kKeep, "/dev/zero", nullptr, false, kParseFailed},
    {"empty file", [](std::string) { return std::string(); }, nullptr, nullptr, false, kParseFailed},
    {"truncated", [](std::string t) { return t.substr(0, t.size() / 2); }, nullptr, nullptr, false,
     kParseFailed},
    {"Latin-1 project name",
     [](std::string t) { return qcom_test::Edit(t, "TestProject", "TestPr\xf6ject"); }, nullptr, nullptr,
     false, "Cfg parse failed in "},
    {"Latin-1 in a string nobody reads", Extra(", \"Note\": \"caf\xe9\""), nullptr, nullptr, true, ""},
    {"nested 1000 deep", Extra(", \"Deep\": " + Nested(1000)), nullptr, nullptr, false, kParseFailed},
    {"nested 100000 deep", Extra(", \"Deep\": " + Nested(100000)), nullptr, nullptr, false, kParseFailed},
    {"dump directory under a file", kKeep, nullptr, "cfg.json/dumps/", true,
     "[saveYuvFile] open fail errno = 20, reason = Not a directory", 6},
    {"dump files on a full disk", kKeep, nullptr, "", true, "write file_path ", 6},
};

// Initialises on a thread with a stack the size of a HAL binder thread's.
void* StartOnSmallStack(vAIPROC::InitParams_* p) {
    std::pair<vAIPROC::InitParams_*, void*> call{p, nullptr};
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstacksize(&attr, 1 << 20);
    pthread_t thread;
    const auto body = [](void* arg) -> void* {
        auto* c = static_cast<std::pair<vAIPROC::InitParams_*, void*>*>(arg);
        c->second = Start(c->first);
        return nullptr;
    };
    EXPECT_EQ(pthread_create(&thread, &attr, body, &call), 0);
    pthread_join(thread, nullptr);
    return call.second;
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
        std::ofstream(dir + "cfg.json", std::ios::binary)
            << c.edit(Config(mode, 1, c.dump != nullptr ? 3 : 0));
        if (c.dump != nullptr) setenv("VAI_DUMP_DIR", (dir + c.dump).c_str(), 1);
        if (c.dump != nullptr && *c.dump == '\0') LinkDumpsToFullDisk(dir, mode);
        Params params(mode, c.path == nullptr ? dir + "cfg.json" : *c.path == '/' ? c.path : dir + c.path);
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

// Teardown unloads the runtime for every back-end: a second instance then copies frames, and fails
// what would create runtime objects, instead of calling a cleared factory.
TEST_P(FaultTest, AnotherInstanceUnloadedTheRuntime) {
    const int mode = GetParam();
    pxrt_test::SetDefaultLayout(Layout(mode));
    Params params(mode, qcom_test::WriteTestFile(".json", Config(mode, 1)));
    void* first = Start(&params.p);
    void* second = Start(&params.p);
    ASSERT_TRUE(first != nullptr && second != nullptr);
    if (mode != 1) Video_AI_Model_Uninit(first);
    Video_AI_Proc_Uninit(first);
    const size_t runs = pxrt_test::CallCount(pxrt_test::Op::kRun);
    Image in(0x5a), out(0);
    vAIPROC::ProcParams_ p = qcom_test::Params(0, 3200);
    EXPECT_EQ(Video_AI_Proc_Process(second, &out.img, &in.img, &p), SDK_SUCCESS);
    if (mode == 1) {  // its sessions outlive the unloading; a switch needs the factories and fails
        EXPECT_EQ(pxrt_test::CallCount(pxrt_test::Op::kRun), runs + 1);
        EXPECT_EQ(vai::qcom::ModelSwitch(second, 2), vai::qcom::kSwitchRuntimeFailed);
    } else {
        EXPECT_EQ(pxrt_test::CallCount(pxrt_test::Op::kRun), runs);
        EXPECT_EQ(out.bytes, in.bytes);
        EXPECT_EQ(Video_AI_Model_Init(second, &params.p), -1);  // mode 10 destroys the instance here
        if (mode == 9) Video_AI_Proc_Uninit(second);
    }
    // The second load is never closed: teardown found the handle already cleared.
    void* lib = dlopen(vai::PxrtLibraryPath(), RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(lib, nullptr);
    dlclose(lib);
    dlclose(lib);
    EXPECT_TRUE(qcom_test::TornDown());
}

INSTANTIATE_TEST_SUITE_P(Backend, FaultTest, ::testing::ValuesIn(kModes), ModeName);

}  // namespace
