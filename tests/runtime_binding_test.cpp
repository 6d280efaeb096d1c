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

TEST_F(BindingTest, PathComesFromTheEnvironmentAtEveryCall) {
    unsetenv("VAI_PXRT_LIBRARY");
    EXPECT_STREQ(vai::PxrtLibraryPath(), "/odm/lib64/libPXRT.so");
    setenv("VAI_PXRT_LIBRARY", "/tmp/a.so", 1);
    EXPECT_STREQ(vai::PxrtLibraryPath(), "/tmp/a.so");
    setenv("VAI_PXRT_LIBRARY", "/tmp/b.so", 1);
    EXPECT_STREQ(vai::PxrtLibraryPath(), "/tmp/b.so");
    setenv("VAI_PXRT_LIBRARY", "", 1);
    EXPECT_STREQ(vai::PxrtLibraryPath(), "/odm/lib64/libPXRT.so");
}

TEST_F(BindingTest, LoadBindsTheThreeFactoriesAndUnloadClearsThem) {
    setenv("VAI_PXRT_LIBRARY", VAI_TEST_RUNTIME_PATH, 1);
    // Twice: the runtime is really unmapped in between and loads again.
    for (int round = 0; round < 2; ++round) {
        log_.Clear();
        const int loads = pxrt_test::Loads(), unloads = pxrt_test::Unloads();
        ASSERT_TRUE(vai::PxrtLoad());
        EXPECT_NE(g_hDllLib, nullptr);
        ASSERT_NE(mPXRTCreateInterpreterFunc, nullptr);
        EXPECT_NE(mPXRTCreateInTensorFunc, nullptr);
        EXPECT_NE(mPXRTCreateOutTensorFunc, nullptr);
        EXPECT_NE(mPXRTCreateInTensorFunc, mPXRTCreateOutTensorFunc);
        EXPECT_EQ(pxrt_test::Loads(), loads + 1);
        EXPECT_EQ(log_.Texts(), (std::vector<std::string>{"dlopen libPXRT success!", "dlsym Func success!"}));

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
    vai::PxrtUnload();  // nothing loaded: no second dlclose
    EXPECT_EQ(g_hDllLib, nullptr);
}

TEST_F(BindingTest, MissingLibraryFails) {
    const std::string path = std::string(VAI_TEST_BINARY_DIR) + "/no_such_runtime.so";
    setenv("VAI_PXRT_LIBRARY", path.c_str(), 1);
    EXPECT_FALSE(vai::PxrtLoad());
    EXPECT_EQ(g_hDllLib, nullptr);
    EXPECT_EQ(mPXRTCreateInterpreterFunc, nullptr);
    const std::vector<LogLine> lines = log_.Lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].prio, ANDROID_LOG_ERROR);
    EXPECT_EQ(lines[0].text.rfind("g_hDllLib is nullptr! dlopen libPXRT fail, reason: ", 0), 0u)
        << lines[0].text;
    EXPECT_NE(lines[0].text.find(path), std::string::npos);
}

TEST_F(BindingTest, MissingSymbolClosesTheLibraryAgain) {
    setenv("VAI_PXRT_LIBRARY", VAI_TEST_RUNTIME_INCOMPLETE_PATH, 1);
    EXPECT_FALSE(vai::PxrtLoad());
    // The handle is not kept once closed; the pointers keep what dlsym gave.
    EXPECT_EQ(g_hDllLib, nullptr);
    EXPECT_NE(mPXRTCreateInterpreterFunc, nullptr);
    EXPECT_NE(mPXRTCreateInTensorFunc, nullptr);
    EXPECT_EQ(mPXRTCreateOutTensorFunc, nullptr);
    const std::vector<std::string> texts = log_.Texts();
    ASSERT_EQ(texts.size(), 2u);
    EXPECT_EQ(texts[0], "dlopen libPXRT success!");
    EXPECT_EQ(texts[1].rfind("mPXRTFunc is nullptr! dlsym Func fail, resaon: ", 0), 0u) << texts[1];
    EXPECT_NE(texts[1].find("CreateOutputTensor"), std::string::npos);
    EXPECT_NE(texts[1].find(" g_hDllLib: 0x"), std::string::npos);
}

TEST_F(BindingTest, SilentBelowVerbose) {
    g_log_level = 4;
    setenv("VAI_PXRT_LIBRARY", VAI_TEST_RUNTIME_PATH, 1);
    ASSERT_TRUE(vai::PxrtLoad());
    EXPECT_TRUE(log_.Lines().empty());
}

// Objects that note when they die, to observe VAI_HANDLE_'s teardown order.
std::vector<std::string>* gDeaths = nullptr;

class NamedTensor : public PXRT::ITensor {
  public:
    explicit NamedTensor(std::string name) : name_(std::move(name)) {}
    ~NamedTensor() override { gDeaths->push_back(name_); }
    int Reserved0() override { return 0; }
    void* GetData() override { return nullptr; }

  private:
    std::string name_;
};

class NamedInterpreter : public PXRT::Interpreter {
  public:
    ~NamedInterpreter() override { gDeaths->push_back("interpreter"); }
    int CreateSession(const char*, int, void**, const PXRT::SessionOptions*, int) override { return 0; }
    int Reserved3() override { return 0; }
    int ReleaseSession(void*) override { return 0; }
    int Reserved5() override { return 0; }
    int Run(void*, PXRT::TensorArray*, PXRT::TensorArray*) override { return 0; }
    int GetSessionInputNumber(void*, size_t*) override { return 0; }
    int GetSessionOutputNumber(void*, size_t*) override { return 0; }
    int GetSessionInputSize(void*, size_t, size_t*) override { return 0; }
    int GetSessionOutputSize(void*, size_t, size_t*) override { return 0; }
    const char* GetVersion() override { return ""; }
};

TEST(VaiHandle, ReleasesTensorsInReverseThenTheInterpreter) {
    std::vector<std::string> deaths;
    gDeaths = &deaths;
    {
        VAI_HANDLE_ h;
        h.interpreter.reset(new NamedInterpreter);
        for (int s = 0; s < 2; ++s) {
            for (int i = 0; i < 2; ++i) {
                h.input_tensors[s].emplace_back(
                    new NamedTensor("in" + std::to_string(s) + std::to_string(i)));
                h.output_tensors[s].emplace_back(
                    new NamedTensor("out" + std::to_string(s) + std::to_string(i)));
            }
        }
        h.input_tensors[0].emplace_back();  // an empty slot is skipped
    }
    EXPECT_EQ(deaths, (std::vector<std::string>{"out11", "out10", "out01", "out00", "in11", "in10", "in01",
                                                "in00", "interpreter"}));
    gDeaths = nullptr;
}

}  // namespace
