#include "mtk/vainr_raw/mtk_vainr_raw_cfg.h"

#include <cstring>

#include "mtk/common/mtk_cfg_reader.h"

using MTK_VAINR_RAW_PROC::VAINR_CamPars_;
using MTK_VAINR_RAW_PROC::VAINR_CfgPars_;

namespace vai {
namespace mtk_raw {

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

}  // namespace mtk_raw
}  // namespace vai

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
