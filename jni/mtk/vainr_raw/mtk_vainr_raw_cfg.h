// Tuning of the MediaTek RAW back-end, read from the JSON file named by InitParams_::cfg_path.
#pragma once

#include <cstdint>
#include <type_traits>

#include "interface/vai_export.h"
#include "mtk/common/mtk_cfg_record.h"

namespace MTK_VAINR_RAW_PROC {

// Per camera type.
struct VAINR_CamPars_ {
    uint32_t camId;
    uint32_t processEnable;       // 0: frames of this camera type are copied unchanged
    uint32_t BinNumber;           // ISO bins used from the three tables, 1..16
    uint32_t BoostValue;          // session options
    uint32_t NrStrength[16];      // 0..255, handed to the model as signed bytes (value - 128)
    uint32_t DetailStrength[16];  // likewise, for models with a detail input
    uint32_t ISOBinIndex[16];     // upper gain bound of each bin, ascending
};

struct VAINR_CfgPars_ : vai::mtk::CfgRecord<VAINR_CamPars_, 4> {};
static_assert(std::is_standard_layout_v<VAINR_CfgPars_> &&
              sizeof(VAINR_CfgPars_) == 24 + 4 * sizeof(VAINR_CamPars_));

// Reads the project object named `project` (at most 16 characters, need not be NUL-terminated) into
// `pars` over its current contents. False on any missing or mistyped key, on more cameras than the
// record or the file's array holds, and on a BinNumber of 0 or above 16.
VAI_EXPORT bool LoadVAINRCfg_MTK(const char* cfgFile, const char* project, VAINR_CfgPars_* pars);

}  // namespace MTK_VAINR_RAW_PROC

namespace vai {
namespace mtk_raw {

constexpr int kMaxCams = 4;

// The built-in defaults, for all four cameras.
void SetDefaultCfg(MTK_VAINR_RAW_PROC::VAINR_CfgPars_* cfg);
// Noise-reduction and detail strengths, as the model receives them, for gain `g` from one camera's
// tables (both 0 when the camera has no bins).
void Strengths(const MTK_VAINR_RAW_PROC::VAINR_CamPars_& c, float g, int8_t* nr, int8_t* ee);

}  // namespace mtk_raw
}  // namespace vai
