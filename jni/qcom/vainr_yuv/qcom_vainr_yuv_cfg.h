// Tuning of the Qualcomm YUV back-end, read from the JSON file named by InitParams_::cfg_path.
#pragma once

#include <cstdint>

#include "interface/vai_export.h"

namespace QCOM_VAINR_YUV_PROC {

// Per camera type.
struct VAINR_CamPars_ {
    uint32_t camIdx;
    uint32_t processEnable;  // 0: frames of this camera type are copied unchanged
    uint32_t BinNumber;      // gain bins used from the three tables
    uint32_t BoostValue;     // handed to the runtime with the session options
    uint32_t NrStrength[16];
    uint32_t ChromaNrStrength[16];
    uint32_t ISOBinIndex[16];  // ISO x DRC gain at which each bin applies, ascending
};

struct VAINR_CfgPars_ {
    uint32_t processType;  // 1: YUV model; otherwise luma-only
    uint32_t LogLevel;
    uint32_t RearCamNum;
    uint32_t FrontCamNum;
    uint32_t SwitchFrameNum;  // stable frames before processing or switching models
    uint32_t DumpRangeIdx;    // 0: no dumps; else first request * 1000 + end request
    VAINR_CamPars_ cam[5];
};

// Reads the project object named `project_name` (at most 16 characters, need not be NUL-terminated)
// into `cfg` over its current contents. False on any missing or mistyped key, on more than five
// cameras and on a BinNumber above 16.
VAI_EXPORT bool LoadVAINRCfg_Qcom(const char* cfg_path, const char* project_name, VAINR_CfgPars_* cfg);

}  // namespace QCOM_VAINR_YUV_PROC

namespace vai {
namespace qcom {

constexpr int kMaxCams = 5;
constexpr int kMaxBins = 16;
constexpr int kProjectNameMax = 16;

// The built-in defaults, for all five cameras.
void SetDefaultCfg(QCOM_VAINR_YUV_PROC::VAINR_CfgPars_* cfg);

struct Strengths {
    uint8_t y;
    uint8_t uv;
};

// Luma and chroma strengths for gain `gain` from one camera's tables: the first or last bin outside
// them, linear interpolation between two bins inside. BinNumber 0 counts as 1.
Strengths ComputeStrengths(const QCOM_VAINR_YUV_PROC::VAINR_CamPars_& cam, float gain);

}  // namespace qcom
}  // namespace vai
