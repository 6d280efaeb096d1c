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
    const uint32_t b = UsedBins(c.BinNumber, kMaxBins);
    const uint32_t* bin = c.ISOBinIndex;
    const uint32_t* s = c.NrStrength;
    if (iso < static_cast<float>(bin[0])) return static_cast<uint8_t>(s[0]);
    if (iso >= static_cast<float>(bin[b - 1])) return static_cast<uint8_t>(s[b - 1]);
    for (uint32_t i = 0; i + 1 < b; ++i) {
        if (iso < static_cast<float>(bin[i + 1])) {
            const uint32_t d = bin[i + 1] - bin[i];
            if (d == 0) return 0;
            const uint32_t w_lo = TruncWeight(static_cast<float>(bin[i + 1]) - iso);
            const uint32_t w_hi = TruncWeight(iso - static_cast<float>(bin[i]));
            return static_cast<uint8_t>((s[i] * w_lo + s[i + 1] * w_hi) / d);
        }
    }
    return 0;
}

}  // namespace mtk_yuv
}  // namespace vai
