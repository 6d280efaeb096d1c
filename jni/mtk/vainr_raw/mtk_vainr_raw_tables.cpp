// What a MediaTek RAW tuning table means: the built-in defaults and the strengths picked from it. Kept
// apart from the loader and the frame path so the tuning tools link this very code.
#include "algocore/utils/iso_bins.h"
#include "mtk/common/mtk_cfg_reader.h"
#include "mtk/vainr_raw/mtk_vainr_raw_cfg.h"

using MTK_VAINR_RAW_PROC::VAINR_CamPars_;
using MTK_VAINR_RAW_PROC::VAINR_CfgPars_;

namespace vai {
namespace mtk_raw {
namespace {

// Signed strength byte of a configuration value 0..255.
int8_t Flip(uint32_t v) {
    return static_cast<int8_t>(static_cast<uint8_t>(v) ^ 0x80u);
}

}  // namespace

void SetDefaultCfg(VAINR_CfgPars_* cfg) {
    mtk::SetDefaults(cfg, [](VAINR_CamPars_& c) { c.BoostValue = 100; });
}

void Strengths(const VAINR_CamPars_& c, float g, int8_t* nr, int8_t* ee) {
    const IsoBinPos p = FindIsoBin(c.ISOBinIndex, UsedBins(c.BinNumber, mtk::kMaxBins), g);
    if (p.kind == IsoBinPos::kNone) {
        *nr = *ee = 0;
        return;
    }
    *nr = Flip(IsoBinValue(c.NrStrength, p));
    *ee = Flip(IsoBinValue(c.DetailStrength, p));
}

}  // namespace mtk_raw
}  // namespace vai
