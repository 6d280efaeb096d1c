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

// Which of the handle and the three factory pointers are set.
std::vector<bool> Bound() {
    return {g_hDllLib != nullptr, mPXRTCreateInterpreterFunc != nullptr, mPXRTCreateInTensorFunc != nullptr,
            mPXRTCreateOutTensorFunc != nullptr};
}

// The path is read at every call; empty means the device path. A failed load keeps no handle, and after a
// missing symbol the factory pointers keep what dlsym gave. The runtime loads again once unmapped.
TEST(Binding, LoadBindsTheFactoriesFromTheConfiguredPathAndUnloadClearsThem) {
    ScopedValue<unsigned char> level{g_log_level, 5};
    LogCapture log;
    EXPECT_STREQ(vai::PxrtLibraryPath(), "/odm/lib64/libPXRT.so");
    const std::string missing = std::string(VAI_TEST_BINARY_DIR) + "/no_such_runtime.so";
    const std::vector<bool> all(4, true), none(4, false);
    const struct {
        std::string path;
        std::vector<bool> bound;  // after the load; a failure is one error line
    } cases[] = {
        {VAI_TEST_RUNTIME_PATH, all},
        {missing, none},
        {"", none},
        {VAI_TEST_RUNTIME_INCOMPLETE_PATH, {false, true, true, false}},
        {VAI_TEST_RUNTIME_PATH, all},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        setenv("VAI_PXRT_LIBRARY", c.path.c_str(), 1);
        log.Clear();
        const int loads = pxrt_test::Loads(), unloads = pxrt_test::Unloads();
        EXPECT_EQ(vai::PxrtLoad(), c.bound[0]);
        EXPECT_EQ(Bound(), c.bound);
        EXPECT_STREQ(vai::PxrtLibraryPath(), c.path.empty() ? "/odm/lib64/libPXRT.so" : c.path.c_str());
        size_t errors = 0;
        for (const LogLine& l : log.Lines()) errors += l.prio == ANDROID_LOG_ERROR;
        EXPECT_EQ(errors, c.bound[0] ? 0u : 1u);

        // Objects made by the runtime outlive it: it is closed before they are released.
        std::unique_ptr<PXRT::Interpreter> interp(c.bound[0] ? mPXRTCreateInterpreterFunc() : nullptr);
        EXPECT_EQ(interp != nullptr && mPXRTCreateInTensorFunc != mPXRTCreateOutTensorFunc, c.bound[0]);
        vai::PxrtUnload();
        vai::PxrtUnload();  // nothing loaded: no second dlclose
        EXPECT_EQ(Bound(), c.bound[0] ? none : c.bound);
        EXPECT_EQ(pxrt_test::Loads() - loads, c.bound[1] ? 1 : 0);
        EXPECT_EQ(pxrt_test::Unloads() - unloads, pxrt_test::Loads() - loads);
    }
    EXPECT_EQ(pxrt_test::LiveObjects().interpreters, 0);
    unsetenv("VAI_PXRT_LIBRARY");
}

// Arrays go in reverse, each from its last tensor to its first, then the interpreter.
TEST(VaiHandle, ReleasesTensorsInReverseThenTheInterpreter) {
    std::vector<std::string> deaths;
    auto noting = [&deaths](std::string name) { return [&deaths, name](auto) { deaths.push_back(name); }; };
    {
        VAI_HANDLE_ h;
        h.interpreter = std::shared_ptr<PXRT::Interpreter>(nullptr, noting("interpreter"));
        auto tensor = [&](std::string n) { return std::shared_ptr<PXRT::ITensor>(nullptr, noting(n)); };
        for (const std::string id : {"00", "01", "10", "11"}) {
            h.input_tensors[id[0] - '0'].push_back(tensor("in" + id));
            h.output_tensors[id[0] - '0'].push_back(tensor("out" + id));
        }
        h.input_tensors[0].emplace_back();  // an empty slot is skipped
    }
    EXPECT_EQ(deaths, (std::vector<std::string>{"out11", "out10", "out01", "out00", "in11", "in10", "in01",
                                                "in00", "interpreter"}));
}

}  // namespace
