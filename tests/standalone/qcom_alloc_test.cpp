// The Qualcomm frame path allocates nothing: operator new (and, outside sanitizer builds, malloc) is
// replaced in this binary by counting versions.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "qcom_test_util.h"

// The replacements below pair malloc with free on purpose.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif

namespace {
std::atomic<long> gAllocations{0};
std::atomic<bool> gCounting{false};

void Note() {
    if (gCounting.load(std::memory_order_relaxed)) gAllocations.fetch_add(1, std::memory_order_relaxed);
}
}  // namespace

void* operator new(size_t n) {
    Note();
    if (void* p = std::malloc(n == 0 ? 1 : n)) return p;
    throw std::bad_alloc();
}
void* operator new[](size_t n) {
    return operator new(n);
}
void* operator new(size_t n, const std::nothrow_t&) noexcept {
    Note();
    return std::malloc(n == 0 ? 1 : n);
}
void* operator new[](size_t n, const std::nothrow_t& t) noexcept {
    return operator new(n, t);
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, size_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, size_t) noexcept {
    std::free(p);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* malloc(size_t n) {
    Note();
    return __libc_malloc(n);
}
void* calloc(size_t n, size_t s) {
    Note();
    return __libc_calloc(n, s);
}
void* realloc(void* p, size_t n) {
    Note();
    return __libc_realloc(p, n);
}
}
#endif

namespace {

using namespace qcom_test;

class QcomAllocTest : public ::testing::TestWithParam<unsigned> {};

TEST_P(QcomAllocTest, FramePathAllocatesNothing) {
    Env env;
    constexpr int kW = 64, kH = 32;
    const bool yuv = GetParam() == 1;
    pxrt_test::SetDefaultLayout(LayoutFor(kW, kH, yuv));
    VAINR_CfgPars_ cfg = Defaults();
    cfg.processType = GetParam();
    cfg.SwitchFrameNum = 2;
    Init init(WriteTestFile(".json", Json(cfg)));
    void* h = QCOM_VAINR_YUV_PROC::VAINR_Init(&init.p);
    ASSERT_NE(h, nullptr);

    auto in = MakeFrame(kW, kH, 0x4000, 0x2000), out = MakeFrame(kW, kH);
    const vAIPROC::ProcParams_ params = Params(0, 1200.0f);
    pxrt_test::SetRecording(false);  // the runtime's own records would count
    gCounting = true;
    int* volatile probe = new int(1);  // the counter itself works: otherwise this test proves nothing
    delete probe;
    ASSERT_GE(gAllocations.exchange(0), 1);
    // The first two frames are copies.
    for (int i = 0; i < 10; ++i)
        ASSERT_EQ(QCOM_VAINR_YUV_PROC::VAINR_Process(h, out->img(), in->img(), &params), 0);
    // An in-place frame takes the three-argument unpackers. (The luma-only in-place frame is left out:
    // its chroma copy onto itself is refused by the tracer with an error line, and logging may allocate.)
    if (yuv) {
        ASSERT_EQ(QCOM_VAINR_YUV_PROC::VAINR_Process(h, in->img(), in->img(), &params), 0);
    }
    gCounting = false;

    EXPECT_EQ(gAllocations.load(), 0);
    EXPECT_EQ(pxrt_test::CallCount(pxrt_test::Op::kRun), yuv ? 9u : 8u);
    EXPECT_EQ(QCOM_VAINR_YUV_PROC::VAINR_Uninit(h), 0);
}

INSTANTIATE_TEST_SUITE_P(ProcessType, QcomAllocTest, ::testing::Values(0u, 1u));

}  // namespace
