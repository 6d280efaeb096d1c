// Shared set-up of the Qualcomm back-end suites: configuration files, frames and the test runtime,
// loaded by path like the real one.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <functional>
#include <future>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "algocore/memory/ALGOGalloc.h"
#include "algocore/utils/vai_log.h"
#include "frame.h"
#include "interface/pxrt_binding.h"
#include "pxrt_test_control.h"
#include "qcom/vainr_yuv/qcom_vainr_yuv_cfg.h"
#include "qcom/vainr_yuv/qcom_vainr_yuv_proc_sat.h"

namespace qcom_test {

using vai_frame::Frame;

using QCOM_VAINR_YUV_PROC::VAINR_CfgPars_;

inline VAINR_CfgPars_ Defaults() {
    VAINR_CfgPars_ c;
    vai::qcom::SetDefaultCfg(&c);
    return c;
}

// A path unique to the running test (ctest runs each test in its own process, in parallel).
inline std::string TestFile(const std::string& suffix) {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string name = std::string(info->test_suite_name()) + "." + info->name();
    for (char& c : name) {
        if (c == '/') c = '_';
    }
    return std::string(VAI_TEST_BINARY_DIR) + "/" + name + suffix;
}

// A configuration file of project "TestProject": `head` members and one "VideoAIProcPars" entry per camera.
inline std::string ProjectJson(const std::string& head, const std::vector<std::string>& cams) {
    std::string list;
    for (const std::string& c : cams) list += (list.empty() ? "" : ",\n") + c;
    return "// test file\n{\"TestProject\": {" + head + ",\n\"VideoAIProcPars\": [" + list + "]}}\n";
}

// `s` with the last `from` replaced by `to`: edits land in the last camera.
inline std::string Edit(std::string s, const std::string& from, const std::string& to) {
    return s.replace(s.rfind(from), from.size(), to);
}

// The record as a file of project "TestProject" with `cams` camera entries, every table in full.
inline std::string Json(const VAINR_CfgPars_& r, size_t cams = vai::qcom::kMaxCams) {
    const auto list = [](const uint32_t(&v)[vai::qcom::kMaxBins]) {
        std::string s;
        for (uint32_t x : v) s += (s.empty() ? "[" : ", ") + std::to_string(x);
        return s + "]";
    };
    std::ostringstream head;
    head << "\"LogLevel\": " << r.LogLevel << ", \"processType\": " << r.processType
         << ", \"DumpRangeIdx\": " << r.DumpRangeIdx << ", \"FrontCamNum\": " << r.FrontCamNum
         << ", \"RearCamNum\": " << r.RearCamNum << ", \"SwitchFrameNum\": " << r.SwitchFrameNum;
    std::vector<std::string> entries;
    for (size_t i = 0; i < cams; ++i) {
        const auto& c = r.cam[std::min<size_t>(i, vai::qcom::kMaxCams - 1)];
        entries.push_back("{\"processEnable\": " + std::to_string(c.processEnable) + ", \"BoostValue\": " +
                          std::to_string(c.BoostValue) + ", \"BinNumber\": " + std::to_string(c.BinNumber) +
                          ", \"NrStrength\": " + list(c.NrStrength) + ", \"ChromaNrStrength\": " +
                          list(c.ChromaNrStrength) + ", \"ISOBinIndex\": " + list(c.ISOBinIndex) + "}");
    }
    return ProjectJson(head.str(), entries);
}

// Writes `text` to the test's own file and returns its path.
inline std::string WriteTestFile(const std::string& suffix, const std::string& text) {
    const std::string path = TestFile(suffix);
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

// A 16-bit semi-planar frame with every luma and chroma sample set.
inline std::unique_ptr<Frame> MakeFrame(int w, int h, uint16_t luma = 0, uint16_t chroma = 0, int bits = 10) {
    auto f = std::make_unique<Frame>(vai_frame::Format{w, h, bits});
    f->Fill(luma, chroma);
    return f;
}

// A session whose tensors hold packed w x h frames.
inline pxrt_test::SessionLayout LayoutFor(int w, int h, bool yuv) {
    const size_t bytes = size_t(w / 2) * (h / 2) * (yuv ? 6 : 4);
    return {{bytes}, {bytes}};
}

// Run hook: every output byte becomes `value`.
inline pxrt_test::RunHook FillOutput(uint8_t value) {
    return [value](void*, PXRT::TensorArray*, PXRT::TensorArray* outputs) {
        for (auto& t : *outputs) {
            pxrt_test::TensorInfo info;
            if (!pxrt_test::Describe(t.get(), &info)) return -7;
            std::memset(t->GetData(), value, info.bytes);
        }
        return 0;
    };
}

// Holds the one runtime call that waits on it until the test opens it.
struct Gate {
    std::promise<void> reached_, open_;
    std::future<void> reached = reached_.get_future();
    std::shared_future<void> opened = open_.get_future().share();
    void Wait() {
        reached_.set_value();
        opened.wait();
    }
    bool Reached() { return reached.wait_for(std::chrono::seconds(20)) == std::future_status::ready; }
    void Open() { open_.set_value(); }
};

// Polls `done` until it holds or `timeout` passes.
inline bool WaitFor(const std::function<bool()>& done,
                    std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
    const auto end = std::chrono::steady_clock::now() + timeout;
    while (!done()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::yield();
    }
    return true;
}

// Every runtime object, the runtime library and every traced block are gone.
inline bool TornDown() {
    const pxrt_test::Live l = pxrt_test::LiveObjects();
    std::lock_guard<std::mutex> lock(vemo::AlgorithmMemory::sMapLock);
    return l.interpreters == 0 && l.sessions == 0 && l.tensors == 0 && l.sessions_dropped == 0 &&
           vemo::AlgorithmMemory::sMemMap.empty() && g_hDllLib == nullptr &&
           pxrt_test::Loads() == pxrt_test::Unloads();
}

// Per-test environment: runtime path, fresh runtime script, tracing on, log level restored.
class Env {
  public:
    Env() {
        setenv("VAI_PXRT_LIBRARY", VAI_TEST_RUNTIME_PATH, 1);
        pxrt_test::Reset();
        vemo::AlgorithmMemory::memTraceInit(256);
        saved_level_ = g_log_level;
        g_log_level = 1;
    }
    ~Env() {
        pxrt_test::Reset();
        g_log_level = saved_level_;
        // Close the tracing period again, so later suites in the same process start from a count of 0.
        vemo::AlgorithmMemory::sDebugEnable = 0;
        --vemo::AlgorithmMemory::sInitNumber;
        vemo::AlgorithmMemory::sNativeUsingMaxSize = 0;
        unsetenv("VAI_PXRT_LIBRARY");
    }

  private:
    unsigned char saved_level_ = 1;
};

// Init parameters with one model path per camera type ("model<i>").
struct Init {
    vAIPROC::InitParams_ p{};
    std::string cfg;
    std::string models[5];
    explicit Init(const std::string& cfg_path, int cam_type = 0) : cfg(cfg_path) {
        std::snprintf(p.project_name, sizeof(p.project_name), "%s", "TestProject");
        for (int i = 0; i < 5; ++i) {
            models[i] = "model" + std::to_string(i);
            p.model_path[i] = models[i].c_str();
        }
        p.cfg_path = cfg.c_str();
        p.algo_mode = 1;
        p.cam_type = cam_type;
    }
};

inline QCOM_VAINR_YUV_PROC::VAINR_Ctx_* Ctx(void* h) {
    return static_cast<QCOM_VAINR_YUV_PROC::VAINR_Ctx_*>(h);
}

inline vAIPROC::ProcParams_ Params(int cam, float iso = 100.0f, float drc = 1.0f) {
    vAIPROC::ProcParams_ p{};
    p.cam_type = cam;
    p.iso = iso;
    p.drc_gain = drc;
    return p;
}

inline std::vector<pxrt_test::Op> Ops() {
    std::vector<pxrt_test::Op> ops;
    for (const pxrt_test::Call& c : pxrt_test::Calls()) ops.push_back(c.op);
    return ops;
}

}  // namespace qcom_test
