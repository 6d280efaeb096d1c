// What a Qualcomm tuning table means: the built-in defaults and the strengths picked from it. Kept
// apart from the loader and the frame path so the tuning tools link this very code.
#include <cstring>

#include "algocore/utils/iso_bins.h"
#include "qcom/vainr_yuv/qcom_vainr_yuv_cfg.h"

using QCOM_VAINR_YUV_PROC::VAINR_CamPars_;
using QCOM_VAINR_YUV_PROC::VAINR_CfgPars_;

namespace vai {
namespace qcom {

void SetDefaultCfg(VAINR_CfgPars_* cfg) {
    static const uint32_t kNr[] = {0, 12, 19, 25, 32, 38, 44, 51};
    static const uint32_t kChroma[] = {32, 32, 32, 32, 32, 36, 38, 40};
    // 9200, not 9600, is the tuned value.
    static const uint32_t kIso[] = {800, 1600, 3200, 6400, 9200, 12800, 19200, 25600};
    std::memset(cfg, 0, sizeof(*cfg));
    cfg->processType = 0;
    cfg->LogLevel = 1;
    cfg->RearCamNum = 4;
    cfg->FrontCamNum = 1;
    cfg->SwitchFrameNum = 7;
    cfg->DumpRangeIdx = 0;
    for (int i = 0; i < kMaxCams; ++i) {
        VAINR_CamPars_& c = cfg->cam[i];
        c.camIdx = 0;
        c.processEnable = 1;
        c.BinNumber = 8;
        c.BoostValue = 100;
        std::memcpy(c.NrStrength, kNr, sizeof(kNr));
        std::memcpy(c.ChromaNrStrength, kChroma, sizeof(kChroma));
        std::memcpy(c.ISOBinIndex, kIso, sizeof(kIso));
    }
}

namespace {

uint32_t Interpolate(uint32_t lo_strength, uint32_t hi_strength, uint32_t w_lo, uint32_t w_hi, uint32_t d) {
    if (lo_strength == hi_strength) return hi_strength;
    if (d == 0) return 0;
    return (lo_strength * w_lo + hi_strength * w_hi) / d;
}

}  // namespace

Strengths ComputeStrengths(const VAINR_CamPars_& e, float g) {
    const uint32_t n = UsedBins(e.BinNumber, kMaxBins);
    uint32_t y = 0, uv = 0;
    if (g < static_cast<float>(e.ISOBinIndex[0])) {
        y = e.NrStrength[0];
        uv = e.ChromaNrStrength[0];
    } else if (g >= static_cast<float>(e.ISOBinIndex[n - 1])) {
        y = e.NrStrength[n - 1];
        uv = e.ChromaNrStrength[n - 1];
    } else {
        for (uint32_t j = 0; j + 1 < n; ++j) {
            if (g < static_cast<float>(e.ISOBinIndex[j + 1])) {
                const uint32_t lo = e.ISOBinIndex[j], hi = e.ISOBinIndex[j + 1];
                const uint32_t w_hi = TruncWeight(g - static_cast<float>(lo));
                const uint32_t w_lo = TruncWeight(static_cast<float>(hi) - g);
                const uint32_t d = hi - lo;
                y = Interpolate(e.NrStrength[j], e.NrStrength[j + 1], w_lo, w_hi, d);
                uv = Interpolate(e.ChromaNrStrength[j], e.ChromaNrStrength[j + 1], w_lo, w_hi, d);
                break;
            }
        }
    }
    return {static_cast<uint8_t>(y), static_cast<uint8_t>(uv)};
}

}  // namespace qcom
}  // namespace vai
