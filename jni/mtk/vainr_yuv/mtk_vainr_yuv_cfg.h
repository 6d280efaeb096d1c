// Tuning of the MediaTek YUV back-end, read from the JSON file named by InitParams_::cfg_path.
#pragma once

#include <cstdint>
#include <type_traits>

#include "interface/vai_export.h"
#include "mtk/common/mtk_cfg_record.h"

namespace MTK_VAINR_YUV_PROC {

// Per camera type.
struct VAINR_CamPars_ {
    uint32_t camId;
    uint32_t processEnable;  // 0: frames of this camera type are copied unchanged
    uint32_t BinNumber;      // ISO bins used from the three tables
    uint32_t BoostValue4K;   // session options of the 4K model
    uint32_t BoostValue1080P;
    uint32_t NrStrength[16];
    uint32_t DetailStrength[16];  // kept for the tuning tools; the model does not take it
    uint32_t ISOBinIndex[16];     // upper ISO bound of each bin, ascending
};

struct VAINR_CfgPars_ : vai::mtk::CfgRecord<VAINR_CamPars_, 5> {};
static_assert(std::is_standard_layout_v<VAINR_CfgPars_> &&
              sizeof(VAINR_CfgPars_) == 24 + 5 * sizeof(VAINR_CamPars_));

// Reads the project object named `project` (at most 16 characters, need not be NUL-terminated) into
// `pars` over its current contents. False on any missing or mistyped key, on more cameras than the
// record or the file's array holds, and on a BinNumber above 16.
VAI_EXPORT bool LoadVAINRCfg_MTK(const char* cfgFile, const char* project, VAINR_CfgPars_* pars);

}  // namespace MTK_VAINR_YUV_PROC

namespace vai {
namespace mtk_yuv {

constexpr int kMaxCams = 5;

// The built-in defaults, for all five cameras.
void SetDefaultCfg(MTK_VAINR_YUV_PROC::VAINR_CfgPars_* cfg);
// Strength byte for sensor ISO `iso` from one camera's tables. BinNumber 0 counts as 1.
uint8_t NrStrength(const MTK_VAINR_YUV_PROC::VAINR_CamPars_& cam, float iso);

}  // namespace mtk_yuv
}  // namespace vai
