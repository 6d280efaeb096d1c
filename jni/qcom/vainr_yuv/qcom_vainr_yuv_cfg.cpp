#include "qcom/vainr_yuv/qcom_vainr_yuv_cfg.h"

#include <cstring>

#include "algocore/utils/json_utils.h"
#include "algocore/utils/vai_log.h"

using QCOM_VAINR_YUV_PROC::VAINR_CfgPars_;

namespace QCOM_VAINR_YUV_PROC {

bool LoadVAINRCfg_Qcom(const char* cfg_path, const char* project_name, VAINR_CfgPars_* cfg) {
    using vai::qcom::kMaxBins;
    using vai::qcom::kMaxCams;
    if (cfg_path == nullptr || project_name == nullptr || cfg == nullptr) {
        VAI_LOGE("UNEXPECTED_NULL in LoadVAINRCfg_Qcom!");
        return false;
    }
    VAI_LOGV("Parse \"%s\" cfg file begin", cfg_path);
    rapidjson::Document doc;
    if (!JsonParseFile(cfg_path, doc)) return false;

    const auto name_len = static_cast<rapidjson::SizeType>(strnlen(project_name, vai::qcom::kProjectNameMax));
    if (!doc.IsObject()) return false;
    auto project_it = doc.FindMember(rapidjson::Value(rapidjson::StringRef(project_name, name_len)));
    if (project_it == doc.MemberEnd()) return false;
    const rapidjson::Value& project = project_it->value;
    // Logged names are bounded too: the caller's name need not be terminated.
    const int name_width = static_cast<int>(name_len);

    if (!JsonGet(project, "LogLevel", cfg->LogLevel) || !JsonGet(project, "processType", cfg->processType) ||
        !JsonGet(project, "DumpRangeIdx", cfg->DumpRangeIdx) ||
        !JsonGet(project, "FrontCamNum", cfg->FrontCamNum) ||
        !JsonGet(project, "RearCamNum", cfg->RearCamNum) ||
        !JsonGet(project, "SwitchFrameNum", cfg->SwitchFrameNum)) {
        return false;
    }

    const auto pars_it = project.IsObject() ? project.FindMember("VideoAIProcPars") : project.MemberEnd();
    if (pars_it == project.MemberEnd() || !pars_it->value.IsArray() || pars_it->value.Empty()) {
        VAI_LOGE("%.*s project have no \"VideoAIProcPars\" in %s cfg file!", name_width, project_name,
                 cfg_path);
        return false;
    }
    const rapidjson::Value& pars = pars_it->value;

    // The record has room for five cameras and sixteen bins; larger files are refused, not overrun.
    const uint64_t cam_num = uint64_t{cfg->RearCamNum} + cfg->FrontCamNum;
    if (cam_num > kMaxCams) {
        VAI_LOGE("RearCamNum(%u) + FrontCamNum(%u) exceeds %d cameras in %s cfg file!", cfg->RearCamNum,
                 cfg->FrontCamNum, kMaxCams, cfg_path);
        return false;
    }
    static const rapidjson::Value kMissing;  // a missing element fails on its first key
    for (uint32_t i = 0; i < cam_num; ++i) {
        const rapidjson::Value& elem = i < pars.Size() ? pars[i] : kMissing;
        VAINR_CamPars_& c = cfg->cam[i];
        c.camIdx = i;
        if (!JsonGet(elem, "processEnable", c.processEnable) || !JsonGet(elem, "BoostValue", c.BoostValue) ||
            !JsonGet(elem, "BinNumber", c.BinNumber)) {
            return false;
        }
        if (c.BinNumber > kMaxBins) {
            VAI_LOGE("BinNumber(%u) of camera %u exceeds %d bins in %s cfg file!", c.BinNumber, i, kMaxBins,
                     cfg_path);
            return false;
        }
        const auto bins = static_cast<unsigned char>(c.BinNumber);
        if (!JsonGetArray(elem, "NrStrength", c.NrStrength, bins) ||
            !JsonGetArray(elem, "ChromaNrStrength", c.ChromaNrStrength, bins) ||
            !JsonGetArray(elem, "ISOBinIndex", c.ISOBinIndex, bins)) {
            return false;
        }
    }
    VAI_LOGV("Parse \"%s\" cfg file end", cfg_path);
    return true;
}

}  // namespace QCOM_VAINR_YUV_PROC
