// Shared set-up of the MediaTek back-end suites: configuration text edited in place, the tensors the
// runtime was asked for, the init failures both share, and dump listings.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "qcom_test_util.h"

namespace mtk_test {

using Rows = std::vector<std::vector<int64_t>>;

const std::string kHead = R"("LogLevel": 4, "processType": 0, "DumpRangeIdx": 0, "FrontCamNum": 1,
    "RearCamNum": 3, "SwitchFrameNum": 7)";

// A file of project "TestProject" with one "VideoAIProcPars" entry per element of `cams`.
inline std::string Json(const std::string& head, const std::vector<std::string>& cams) {
    std::string list;
    for (const std::string& c : cams) list += (list.empty() ? "" : ",\n") + c;
    return "// test file\n{\"TestProject\": {" + head + ",\n\"VideoAIProcPars\": [" + list + "]}}\n";
}

// `s` with the last `from` replaced by `to`, or the last number of `key` set: edits land in the last camera.
inline std::string Edit(std::string s, const std::string& from, const std::string& to) {
    return s.replace(s.rfind(from), from.size(), to);
}
inline std::string Set(std::string s, const std::string& key, const std::string& value) {
    const size_t at = s.rfind("\"" + key + "\": ") + key.size() + 4;
    return s.replace(at, s.find_first_of(",}", at) - at, value);
}

// Tensor factory calls: on `session`, buffer, bytes, index, one, kind, fd, zero.
inline Rows TensorCalls(void* session) {
    Rows rows;
    for (const pxrt_test::Call& c : pxrt_test::Calls()) {
        if (c.op != pxrt_test::Op::kCreateInputTensor && c.op != pxrt_test::Op::kCreateOutputTensor) continue;
        rows.push_back({c.session == session, reinterpret_cast<intptr_t>(c.buffer), int64_t(c.bytes),
                        c.tensor_index, c.one, c.kind, c.fd, c.zero});
    }
    return rows;
}

// No runtime library, a missing factory symbol, no interpreter, no configuration file: each makes
// `init` return null and leave nothing behind.
template <class Init>
void ExpectInitFailuresLeaveNothing(Init init, void* (*init_fn)(const vAIPROC::InitParams_*)) {
    const std::function<void(Init&)> failures[] = {
        [](Init&) { setenv("VAI_PXRT_LIBRARY", "/nonexistent/libPXRT.so", 1); },
        [](Init&) { setenv("VAI_PXRT_LIBRARY", VAI_TEST_RUNTIME_INCOMPLETE_PATH, 1); },
        [](Init&) { pxrt_test::Fail(pxrt_test::Op::kCreateInterpreter, 0); },
        [](Init& i) { i.p.cfg_path = "/nonexistent.json"; }};
    for (const auto& fail : failures) {
        pxrt_test::Reset();
        setenv("VAI_PXRT_LIBRARY", VAI_TEST_RUNTIME_PATH, 1);
        fail(init);
        EXPECT_EQ(init_fn(&init.p), nullptr);
        mPXRTCreateInterpreterFunc = nullptr;  // a failed dlsym keeps what it found
        mPXRTCreateInTensorFunc = mPXRTCreateOutTensorFunc = nullptr;
        EXPECT_TRUE(qcom_test::TornDown());
    }
    EXPECT_EQ(init_fn(nullptr), nullptr);
}

// The files in `dir`, by their names from "_req" on (the time before it varies), with their bytes.
inline std::map<std::string, std::vector<uint8_t>> Dumps(const std::string& dir) {
    std::map<std::string, std::vector<uint8_t>> files;
    for (const auto& e : std::filesystem::directory_iterator(dir)) {
        const std::string name = e.path().filename().string();
        std::ifstream f(e.path(), std::ios::binary);
        files[name.substr(name.find("_req"))].assign(std::istreambuf_iterator<char>(f), {});
    }
    return files;
}

}  // namespace mtk_test
