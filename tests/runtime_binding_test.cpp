#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "log_capture.h"
#include "interface/pxrt_binding.h"
#include "pxrt_test_control.h"
#include "interface/vai_handle.h"
#include "algocore/utils/vai_log.h"

namespace {

class BindingTest : public ::testing::Test {
  protected:
    void TearDown() override {
        vai::PxrtUnload();
        mPXRTCreateInterpreterFunc = nullptr;
        mPXRTCreateInTensorFunc = nullptr;
        mPXRTCreateOutTensorFunc = nullptr;
        unsetenv("VAI_PXRT_LIBRARY");
    }
    ScopedValue<unsigned char> level_{g_log_level, 5};
    LogCapture log_;
};

// Read at every call; unset and empty mean the device path.
TEST_F(BindingTest, PathComesFromTheEnvironment) {
    const struct {
        const char *env, *path;
    } cases[] = {{nullptr, "/odm/lib64/libPXRT.so"},
                 {"/tmp/a.so", "/tmp/a.so"},
                 {"/tmp/b.so", "/tmp/b.so"},
                 {"", "/odm/lib64/libPXRT.so"}};
    for (const auto& c : cases) {
        if (c.env != nullptr) setenv("VAI_PXRT_LIBRARY", c.env, 1);
        EXPECT_STREQ(vai::PxrtLibraryPath(), c.path);
    }
}

// Twice, at verbose level and below it: the runtime is really unmapped in between and loads again.
TEST_F(BindingTest, LoadBindsTheThreeFactoriesAndUnloadClearsThem) {
    setenv("VAI_PXRT_LIBRARY", VAI_TEST_RUNTIME_PATH, 1);
    for (unsigned char level : {5, 4}) {
        g_log_level = level;
        log_.Clear();
        const int loads = pxrt_test::Loads(), unloads = pxrt_test::Unloads();
        ASSERT_TRUE(vai::PxrtLoad());
        EXPECT_NE(g_hDllLib, nullptr);
        ASSERT_NE(mPXRTCreateInterpreterFunc, nullptr);
        EXPECT_NE(mPXRTCreateInTensorFunc, nullptr);
        EXPECT_NE(mPXRTCreateOutTensorFunc, nullptr);
        EXPECT_NE(mPXRTCreateInTensorFunc, mPXRTCreateOutTensorFunc);
        EXPECT_EQ(pxrt_test::Loads(), loads + 1);
        const std::vector<std::string> verbose = {"dlopen libPXRT success!", "dlsym Func success!"};
        EXPECT_EQ(log_.Texts(), level == 5 ? verbose : std::vector<std::string>{});

        // Objects made by the runtime outlive it: it is closed before they are released.
        std::unique_ptr<PXRT::Interpreter> interp(mPXRTCreateInterpreterFunc());
        ASSERT_NE(interp, nullptr);
        vai::PxrtUnload();
        EXPECT_EQ(g_hDllLib, nullptr);
        EXPECT_EQ(mPXRTCreateInterpreterFunc, nullptr);
        EXPECT_EQ(mPXRTCreateInTensorFunc, nullptr);
        EXPECT_EQ(mPXRTCreateOutTensorFunc, nullptr);
        EXPECT_EQ(pxrt_test::Unloads(), unloads + 1);
        EXPECT_STREQ(interp->GetVersion(), pxrt_test::kVersion);
        interp.reset();
        EXPECT_EQ(pxrt_test::LiveObjects().interpreters, 0);
    }
    const int unloads = pxrt_test::Unloads();
    vai::PxrtUnload();  // nothing loaded: no second dlclose
    EXPECT_EQ(pxrt_test::Unloads(), unloads);
}

// A failed load keeps no handle; after a missing symbol the pointers keep what dlsym gave.
TEST_F(BindingTest, FailedLoads) {
    const std::string missing = std::string(VAI_TEST_BINARY_DIR) + "/no_such_runtime.so";
    const struct {
        std::string path;
        bool factories;  // the first two factories were found
        std::string error, detail;
    } cases[] = {
        {missing, false, "g_hDllLib is nullptr! dlopen libPXRT fail, reason: ", missing},
        {VAI_TEST_RUNTIME_INCOMPLETE_PATH, true,
         "mPXRTFunc is nullptr! dlsym Func fail, resaon: ", "CreateOutputTensor"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        log_.Clear();
        setenv("VAI_PXRT_LIBRARY", c.path.c_str(), 1);
        const int loads = pxrt_test::Loads(), unloads = pxrt_test::Unloads();
        EXPECT_FALSE(vai::PxrtLoad());
        EXPECT_EQ(g_hDllLib, nullptr);
        EXPECT_EQ(mPXRTCreateInterpreterFunc != nullptr, c.factories);
        EXPECT_EQ(mPXRTCreateInTensorFunc != nullptr, c.factories);
        EXPECT_EQ(mPXRTCreateOutTensorFunc, nullptr);
        vai::PxrtUnload();  // closed exactly once, if it was opened
        EXPECT_EQ(pxrt_test::Unloads() - unloads, pxrt_test::Loads() - loads);
        const std::vector<LogLine> lines = log_.Lines();
        ASSERT_FALSE(lines.empty());
        EXPECT_EQ(lines.back().prio, ANDROID_LOG_ERROR);
        EXPECT_EQ(lines.back().text.rfind(c.error, 0), 0u) << lines.back().text;
        EXPECT_NE(lines.back().text.find(c.detail), std::string::npos) << lines.back().text;
    }
    EXPECT_NE(log_.Lines().back().text.find(" g_hDllLib: 0x"), std::string::npos);
}

// Arrays go in reverse, each from its last tensor to its first, then the interpreter.
TEST(VaiHandle, ReleasesTensorsInReverseThenTheInterpreter) {
    std::vector<std::string> deaths;
    auto noting = [&deaths](std::string name) { return [&deaths, name](auto) { deaths.push_back(name); }; };
    {
        VAI_HANDLE_ h;
        h.interpreter = std::shared_ptr<PXRT::Interpreter>(nullptr, noting("interpreter"));
        for (int s = 0; s < 2; ++s) {
            for (int i = 0; i < 2; ++i) {
                const std::string id = std::to_string(s) + std::to_string(i);
                h.input_tensors[s].emplace_back(std::shared_ptr<PXRT::ITensor>(nullptr, noting("in" + id)));
                h.output_tensors[s].emplace_back(std::shared_ptr<PXRT::ITensor>(nullptr, noting("out" + id)));
            }
        }
        h.input_tensors[0].emplace_back();  // an empty slot is skipped
    }
    EXPECT_EQ(deaths, (std::vector<std::string>{"out11", "out10", "out01", "out00", "in11", "in10", "in01",
                                                "in00", "interpreter"}));
}

}  // namespace
