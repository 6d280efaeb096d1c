// Long runs through each back-end: random camera changes (Qualcomm model switches), model set-up
// cycles (MediaTek) and runtime failures at random, all from a fixed seed. Afterwards nothing may be
// left alive and resident memory must have settled. VAI_SOAK_FRAMES sets the frames per back-end.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <string>

#include "algocore/utils/status_code.h"
#include "hardening_util.h"
#include "log_capture.h"

namespace {

using namespace hardening;
using pxrt_test::Op;

long RssKb() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmRSS:", 0) == 0) return std::atol(line.c_str() + 6);
    }
    return -1;
}

class Soak : public ::testing::TestWithParam<int> {
  protected:
    bool OneIn(unsigned n) { return rng_() % n == 0; }
    int Below(unsigned n) { return static_cast<int>(rng_() % n); }
    // A failure of a random runtime call within the next few; CreateSession only where allowed.
    void ArmFailure(bool session) {
        const Op ops[] = {Op::kCreateInputTensor, Op::kCreateOutputTensor, Op::kRun, Op::kCreateSession};
        pxrt_test::Fail(ops[Below(session ? 4 : 3)], -9, Below(3), 1);
        ++armed_;
    }

    qcom_test::Env env_;
    LogCapture log_;  // cleared every frame, so that it does not grow
    std::mt19937 rng_{20261123};
    long armed_ = 0;
};

TEST_P(Soak, EverythingIsReleasedAndMemorySettles) {
    const int mode = GetParam();
    const char* env = std::getenv("VAI_SOAK_FRAMES");
    const long frames = env != nullptr ? std::atol(env) : 3000;
    const long warm_up = frames / 10;
    pxrt_test::SetRecording(false);
    pxrt_test::SetDefaultLayout(Layout(mode));
    // Level 5 on Qualcomm: the last line of a switch's own teardown says when it is over.
    Params params(mode, qcom_test::WriteTestFile(".json", Config(mode, mode == 1 ? 5 : 1)));
    Image in(0x5a), out(0);
    void* h = nullptr;
    long inits = 0, lost = 0, switches = 0, cycles = 0, delivered = 0, failed_frames = 0, rss_before = 0;
    int cam = 0, busy = 0;
    const unsigned cams = mode == 10 ? 4 : 5;
    const auto t0 = std::chrono::steady_clock::now();

    for (long frame = 0; frame < frames; ++frame) {
        if (frame == warm_up) rss_before = RssKb();
        if (h == nullptr) {
            params.p.cam_type = cam;
            if (OneIn(4)) pxrt_test::Fail(Op::kCreateSession, -9, 0, 1), ++armed_;
            ++inits;
            if ((h = Start(&params.p)) == nullptr) continue;
            pxrt_test::Fail(Op::kCreateSession, 0, 0, 0);
        }
        if (OneIn(20)) cam = Below(cams);
        bool doomed = false;
        if (mode == 1) {
            // The frame that starts a switch: the type it changed to has stayed. A running switch is
            // let finish before then, and after a few frames (real frames are far slower than these).
            auto* ctx = qcom_test::Ctx(h);
            const bool starts = ctx->switch_pending == 1 && ctx->last_cam_type == static_cast<uint32_t>(cam);
            const auto idle = [ctx] { return ctx->switch_done.load(std::memory_order_acquire) == 1; };
            ASSERT_TRUE(idle() || !(starts || ++busy > 4) || qcom_test::WaitFor(idle));
            if (starts) {
                ++switches, busy = 0;
                if ((doomed = OneIn(10))) pxrt_test::Fail(Op::kCreateSession, -9, 0, 1), ++armed_;
            }
        } else if (OneIn(50)) {
            ++cycles;
            ASSERT_EQ(Video_AI_Model_Uninit(h), SDK_SUCCESS);
            params.p.cam_type = Below(cams);
            if (OneIn(10)) pxrt_test::Fail(Op::kCreateSession, -9, 0, 1), ++armed_;
            const int set_up = Video_AI_Model_Init(h, &params.p);
            ASSERT_TRUE(set_up == params.p.cam_type || set_up == -1) << set_up;
            if (set_up == -1 && mode == 10) {  // the handle is gone
                h = nullptr, ++lost;
                continue;
            }
        }
        if (OneIn(100)) ArmFailure(mode != 1);
        vAIPROC::ProcParams_ p = qcom_test::Params(cam, 3200);
        in.img.req_id = out.img.req_id = static_cast<uint64_t>(frame);
        log_.Clear();
        const int status = Video_AI_Proc_Process(h, &out.img, &in.img, &p);
        ASSERT_TRUE(status == SDK_SUCCESS || status == SDK_INVALID_MODEL_ERR) << status;
        ++delivered, failed_frames += status != SDK_SUCCESS;
        if (doomed) {  // the switch thread destroys the instance
            ASSERT_EQ(status, SDK_SUCCESS);
            EXPECT_EQ(out.bytes, in.bytes);
            h = nullptr, ++lost;
            ASSERT_TRUE(qcom_test::WaitFor([&] { return log_.Contains("uninit elapsed time is"); }));
        }
    }
    if (h != nullptr) {
        EXPECT_EQ(mode != 1 ? Video_AI_Model_Uninit(h) : SDK_SUCCESS, SDK_SUCCESS);
        EXPECT_EQ(Video_AI_Proc_Uninit(h), SDK_SUCCESS);
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    const long rss_after = RssKb();
    EXPECT_TRUE(qcom_test::WaitFor(qcom_test::TornDown));
    EXPECT_EQ(vemo::AlgorithmMemory::getInternalMemSize(), 0u);
    const size_t runs = pxrt_test::CallCount(Op::kRun), sessions = pxrt_test::CallCount(Op::kCreateSession);
    std::printf(
        "soak mode %d: %ld frames (%ld processed), %ld model switches, %ld model cycles, %ld inits, "
        "%ld handles lost, %ld failures armed, %zu Run calls (%ld failed), %ld copies, VmRSS %ld -> %ld kB, "
        "%.1f s\n",
        mode, frames, delivered, switches, cycles, inits, lost, armed_, runs, failed_frames,
        delivered - static_cast<long>(runs), rss_before, rss_after, seconds);
    // Every switch predicted above reached the runtime, and nothing else opened a session.
    EXPECT_EQ(sessions, static_cast<size_t>(inits + switches + cycles));
    EXPECT_GT(runs, static_cast<size_t>(frames / 4));
    EXPECT_GE(mode == 1 ? switches : cycles, frames / (mode == 1 ? 60 : 100));
    EXPECT_GT(lost + failed_frames, 0);
// Sanitizer quarantines grow by design; under an emulator the figure is not the library's.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) && !defined(VAI_RSS_IS_EMULATORS)
    EXPECT_LT(rss_after - rss_before, 1024) << "kB of resident memory gained";
#endif
}

INSTANTIATE_TEST_SUITE_P(Backend, Soak, ::testing::ValuesIn(kModes), ModeName);

}  // namespace
