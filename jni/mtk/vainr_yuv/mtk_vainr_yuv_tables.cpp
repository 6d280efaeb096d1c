// What a MediaTek YUV tuning table means: the built-in defaults and the strength picked from it. Kept
// apart from the loader and the frame path so the tuning tools link this very code.
#include "algocore/utils/iso_bins.h"
#include "mtk/common/mtk_cfg_reader.h"
#include "mtk/vainr_yuv/mtk_vainr_yuv_cfg.h"

using MTK_VAINR_YUV_PROC::VAINR_CamPars_;
using MTK_VAINR_YUV_PROC::VAINR_CfgPars_;

namespace vai {
namespace mtk_yuv {

void SetDefaultCfg(VAINR_CfgPars_* cfg) {
    mtk::SetDefaults(cfg, [](VAINR_CamPars_& c) { c.BoostValue4K = c.BoostValue1080P = 100; });
}

uint8_t NrStrength(const VAINR_CamPars_& c, float iso) {
    const IsoBinPos p = FindIsoBin(c.ISOBinIndex, UsedBins(c.BinNumber, mtk::kMaxBins), iso);
    return static_cast<uint8_t>(IsoBinValue(c.NrStrength, p));
}

}  // namespace mtk_yuv
}  // namespace vai
