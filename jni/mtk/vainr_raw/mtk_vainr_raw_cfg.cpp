#include "mtk/vainr_raw/mtk_vainr_raw_cfg.h"

#include "mtk/common/mtk_cfg_reader.h"

using MTK_VAINR_RAW_PROC::VAINR_CamPars_;
using MTK_VAINR_RAW_PROC::VAINR_CfgPars_;

namespace MTK_VAINR_RAW_PROC {

bool LoadVAINRCfg_MTK(const char* cfgFile, const char* project, VAINR_CfgPars_* pars) {
    // BinNumber 0 would make the upper clamp read before the table.
    const vai::mtk::CfgLimits limits{vai::mtk_raw::kMaxCams, false};
    return vai::mtk::LoadCfg(cfgFile, project, pars, limits,
                             [](const rapidjson::Value& entry, VAINR_CamPars_& c) {
                                 return JsonGet(entry, "BoostValue", c.BoostValue);
                             });
}

}  // namespace MTK_VAINR_RAW_PROC
