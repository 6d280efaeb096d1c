// What a MediaTek YUV tuning table means: the built-in defaults and the strength picked from it. Kept
// apart from the loader and the frame path so the tuning tools link this very code.
#include <cstring>

#include "algocore/utils/iso_bins.h"
#include "mtk/vainr_yuv/mtk_vainr_yuv_cfg.h"

using MTK_VAINR_YUV_PROC::VAINR_CamPars_;
using MTK_VAINR_YUV_PROC::VAINR_CfgPars_;

namespace vai {
namespace mtk_yuv {

void SetDefaultCfg(VAINR_CfgPars_* cfg) {
    static const uint32_t kNr[] = {0, 51, 76, 102, 127, 153, 178, 204};
    static const uint32_t kDetail[] = {153, 140, 127, 114, 102, 89, 76, 63};
    // 9200, not 9600, is the tuned value.
    static const uint32_t kIso[] = {800, 1600, 3200, 6400, 9200, 12800, 19200, 25600};
    std::memset(cfg, 0, sizeof(*cfg));
    cfg->processType = 0;
    cfg->LogLevel = 1;
    cfg->RearCamNum = 3;
    cfg->FrontCamNum = 1;
    cfg->SwitchFrameNum = 7;
    cfg->DumpRangeIdx = 0;
    for (VAINR_CamPars_& c : cfg->camPars) {
        c.processEnable = 1;
        c.BinNumber = 8;
        c.BoostValue4K = 100;
        c.BoostValue1080P = 100;
        std::memcpy(c.NrStrength, kNr, sizeof(kNr));
        std::memcpy(c.DetailStrength, kDetail, sizeof(kDetail));
        std::memcpy(c.ISOBinIndex, kIso, sizeof(kIso));
    }
}

uint8_t NrStrength(const VAINR_CamPars_& c, float iso) {
    const IsoBinPos p = FindIsoBin(c.ISOBinIndex, UsedBins(c.BinNumber, kMaxBins), iso);
    return static_cast<uint8_t>(IsoBinValue(c.NrStrength, p));
}

}  // namespace mtk_yuv
}  // namespace vai
