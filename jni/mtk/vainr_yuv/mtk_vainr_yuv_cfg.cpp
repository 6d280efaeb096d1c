#include "mtk/vainr_yuv/mtk_vainr_yuv_cfg.h"

#include <cstring>

#include "mtk/common/mtk_cfg_reader.h"

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

}  // namespace mtk_yuv
}  // namespace vai

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
