// What a MediaTek RAW tuning table means: the built-in defaults and the strengths picked from it. Kept
// apart from the loader and the frame path so the tuning tools link this very code.
#include <cstring>

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
    static const uint32_t kNr[] = {0, 51, 76, 102, 127, 153, 178, 204};
    static const uint32_t kDetail[] = {153, 140, 127, 114, 102, 89, 76, 63};
    // 9200, not 9600, is the tuned value.
    static const uint32_t kIso[] = {800, 1600, 3200, 6400, 9200, 12800, 19200, 25600};
    std::memset(cfg, 0, sizeof(*cfg));
    cfg->LogLevel = 1;
    cfg->RearCamNum = 3;
    cfg->FrontCamNum = 1;
    cfg->SwitchFrameNum = 7;
    for (VAINR_CamPars_& c : cfg->camPars) {
        c.processEnable = 1;
        c.BinNumber = 8;
        c.BoostValue = 100;
        std::memcpy(c.NrStrength, kNr, sizeof(kNr));
        std::memcpy(c.DetailStrength, kDetail, sizeof(kDetail));
        std::memcpy(c.ISOBinIndex, kIso, sizeof(kIso));
    }
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
