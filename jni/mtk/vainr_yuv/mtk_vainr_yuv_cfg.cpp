#include "mtk/vainr_yuv/mtk_vainr_yuv_cfg.h"

#include <cstring>

#include "mtk/common/mtk_cfg_reader.h"

using MTK_VAINR_YUV_PROC::VAINR_CfgPars_;

namespace MTK_VAINR_YUV_PROC {

bool LoadVAINRCfg_MTK(const char* cfgFile, const char* project, VAINR_CfgPars_* pars) {
    // BinNumber 0 is loaded as given; it counts as one bin when the strength is computed.
    const vai::mtk::CfgLimits limits{vai::mtk_yuv::kMaxCams, true};
    return vai::mtk::LoadCfg(cfgFile, project, pars, limits,
                             [](const rapidjson::Value& entry, VAINR_CamPars_& c) {
                                 return JsonGet(entry, "BoostValue4K", c.BoostValue4K) &&
                                        JsonGet(entry, "BoostValue1080P", c.BoostValue1080P);
                             });
}

}  // namespace MTK_VAINR_YUV_PROC
