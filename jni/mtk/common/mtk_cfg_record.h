// The configuration record both MediaTek back-ends share: the project's header keys, then the
// per-camera entries, whose type and count are the back-end's. Each back-end's VAINR_CfgPars_ derives
// from it without members of its own, so it keeps this layout and stays a standard-layout aggregate.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vai {
namespace mtk {

template <typename CamPars, size_t kCams>
struct CfgRecord {
    uint32_t processType;  // required in the file, not consulted
    uint32_t LogLevel;
    uint32_t RearCamNum;
    uint32_t FrontCamNum;
    uint32_t SwitchFrameNum;  // required in the file, not consulted
    uint32_t DumpRangeIdx;    // 0: no dumps; else first request * 1000 + end request
    CamPars camPars[kCams];
};

}  // namespace mtk
}  // namespace vai
