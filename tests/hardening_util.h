// Shared by the soak and fault suites: one configuration and one frame that suit every back-end,
// and initialisation through the entry points.
#pragma once

#include <string>
#include <vector>

#include "interface/VideoAIProc.h"
#include "qcom_test_util.h"

namespace hardening {

constexpr int kW = 32, kH = 16;
constexpr int kModes[] = {1, 9, 10};

inline std::string ModeName(const ::testing::TestParamInfo<int>& i) {
    return "Mode" + std::to_string(i.param);
}

// Each camera carries the keys of all three back-ends; MediaTek RAW has room for four cameras.
inline std::string Config(int mode, unsigned log_level, unsigned dump_range = 0) {
    const std::string cam = R"({"processEnable": 1, "BoostValue": 100, "BoostValue4K": 100,
        "BoostValue1080P": 100, "BinNumber": 8, "NrStrength": [0, 51, 76, 102, 127, 153, 178, 204],
        "ChromaNrStrength": [32, 32, 32, 32, 32, 36, 38, 40], "DetailStrength": [153, 140, 127, 114, 102, 89, 76, 63],
        "ISOBinIndex": [800, 1600, 3200, 6400, 9200, 12800, 19200, 25600]})";
    const int cams = mode == 10 ? 4 : 5;
    const std::string head = "\"LogLevel\": " + std::to_string(log_level) +
                             ", \"processType\": 1, \"DumpRangeIdx\": " + std::to_string(dump_range) +
                             ", \"FrontCamNum\": 1, \"RearCamNum\": " + std::to_string(cams - 1) +
                             ", \"SwitchFrameNum\": 0";
    return qcom_test::ProjectJson(head, std::vector<std::string>(cams, cam));
}

// Sessions that take kW x kH frames: packed for Qualcomm; for MediaTek the frame tensor over the
// caller's buffer, a strength input and a zoom or detail input.
inline pxrt_test::SessionLayout Layout(int mode) {
    return mode == 1 ? qcom_test::LayoutFor(kW, kH, true) : pxrt_test::SessionLayout{{64, 16, 4}, {64}};
}

// A 10-bit semi-planar kW x kH frame in one buffer, so that it is also one NV21 block for dumps.
struct Image {
    std::vector<uint8_t> bytes;
    vAIPROC::VAI_IMG_ img{};
    explicit Image(uint8_t fill) : bytes(kW * kH * 3, fill) {
        img.btw = 10, img.img_num = 1, img.plane_num = 2, img.width = kW, img.height = kH;
        img.plane_addr[0] = bytes.data(), img.plane_addr[1] = bytes.data() + kW * kH * 2;
        img.plane_size[0] = kW * kH * 2, img.plane_size[1] = kW * kH;
        img.stride[0] = img.stride[1] = kW * 2;
        img.slice[0] = kH, img.slice[1] = kH / 2;
    }
};

// Init parameters for `mode` with model paths "model<type>" for every back-end's table.
struct Params : qcom_test::Init {
    Params(int mode, const std::string& cfg_path) : qcom_test::Init(cfg_path) {
        p.algo_mode = mode, p.cam_mode = 1;
        for (int i = 0; i < 10; ++i) p.mtk_yuv_model_path[i / 5][i % 5] = models[i % 5].c_str();
    }
};

// Video_AI_Proc_Init, then for MediaTek Video_AI_Model_Init; null when either fails (a MediaTek YUV
// handle whose model set-up failed is released here).
inline void* Start(vAIPROC::InitParams_* p) {
    void* h = Video_AI_Proc_Init(p);
    if (h == nullptr || p->algo_mode == 1 || Video_AI_Model_Init(h, p) == p->cam_type) return h;
    if (p->algo_mode == 9) Video_AI_Proc_Uninit(h);
    return nullptr;
}

}  // namespace hardening
