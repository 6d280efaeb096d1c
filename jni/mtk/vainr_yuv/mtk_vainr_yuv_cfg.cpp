#include "mtk/vainr_yuv/mtk_vainr_yuv_cfg.h"

#include <cstring>

#include "algocore/utils/json_utils.h"
#include "algocore/utils/vai_log.h"

using MTK_VAINR_YUV_PROC::VAINR_CfgPars_;

namespace MTK_VAINR_YUV_PROC {

bool LoadVAINRCfg_MTK(const char* cfgFile, const char* project, VAINR_CfgPars_* pars) {
    using vai::mtk_yuv::kMaxBins;
    using vai::mtk_yuv::kMaxCams;
    if (cfgFile == nullptr || project == nullptr || pars == nullptr) {
        VAI_LOGE("UNEXPECTED_NULL in LoadVAINRCfg_MTK!");
        return false;
    }
    VAI_LOGV("Parse \"%s\" cfg file begin", cfgFile);
    rapidjson::Document doc;
    if (!JsonParseFile(cfgFile, doc)) return false;

    const auto name_len = static_cast<rapidjson::SizeType>(strnlen(project, vai::mtk_yuv::kProjectNameMax));
    // A missing project reads as null, and its first key then fails.
    static const rapidjson::Value kNull;
    const rapidjson::Value* found = &kNull;
    if (doc.IsObject()) {
        auto it = doc.FindMember(rapidjson::Value(rapidjson::StringRef(project, name_len)));
        if (it != doc.MemberEnd()) found = &it->value;
    }
    const rapidjson::Value& proj = *found;
    if ((proj.IsObject() && proj.ObjectEmpty()) || (proj.IsArray() && proj.Empty())) return false;
    // Logged names are bounded too: the caller's name need not be terminated.
    const int name_width = static_cast<int>(name_len);

    if (!JsonGet(proj, "LogLevel", pars->LogLevel) || !JsonGet(proj, "processType", pars->processType) ||
        !JsonGet(proj, "DumpRangeIdx", pars->DumpRangeIdx) ||
        !JsonGet(proj, "FrontCamNum", pars->FrontCamNum) || !JsonGet(proj, "RearCamNum", pars->RearCamNum) ||
        !JsonGet(proj, "SwitchFrameNum", pars->SwitchFrameNum)) {
        return false;
    }

    const auto pars_it = proj.FindMember("VideoAIProcPars");
    if (pars_it == proj.MemberEnd() || !pars_it->value.IsArray() || pars_it->value.Empty()) {
        VAI_LOGE("%.*s project have no \"VideoAIProcPars\" in %s cfg file!", name_width, project, cfgFile);
        return false;
    }
    const rapidjson::Value& array = pars_it->value;

    // The record has room for five cameras and sixteen bins; larger files are refused, not overrun.
    const uint64_t cam_num = uint64_t{pars->RearCamNum} + pars->FrontCamNum;
    if (cam_num > kMaxCams || cam_num > array.Size()) {
        VAI_LOGE(
            "RearCamNum(%u) + FrontCamNum(%u) exceeds the %d cameras of the record or the %u entries "
            "of \"VideoAIProcPars\" in %s cfg file!",
            pars->RearCamNum, pars->FrontCamNum, kMaxCams, array.Size(), cfgFile);
        return false;
    }
    for (uint32_t i = 0; i < cam_num; ++i) {
        const rapidjson::Value& elem = array[i];
        VAINR_CamPars_& c = pars->camPars[i];
        c.camId = i;
        if (!JsonGet(elem, "processEnable", c.processEnable) ||
            !JsonGet(elem, "BoostValue4K", c.BoostValue4K) ||
            !JsonGet(elem, "BoostValue1080P", c.BoostValue1080P) ||
            !JsonGet(elem, "BinNumber", c.BinNumber)) {
            return false;
        }
        if (c.BinNumber > kMaxBins) {
            VAI_LOGE("BinNumber(%u) of camera %u exceeds %d bins in %s cfg file!", c.BinNumber, i, kMaxBins,
                     cfgFile);
            return false;
        }
        const auto bins = static_cast<unsigned char>(c.BinNumber);
        if (!JsonGetArray(elem, "NrStrength", c.NrStrength, bins) ||
            !JsonGetArray(elem, "DetailStrength", c.DetailStrength, bins) ||
            !JsonGetArray(elem, "ISOBinIndex", c.ISOBinIndex, bins)) {
            return false;
        }
    }
    VAI_LOGV("Parse \"%s\" cfg file end", cfgFile);
    return true;
}

}  // namespace MTK_VAINR_YUV_PROC
