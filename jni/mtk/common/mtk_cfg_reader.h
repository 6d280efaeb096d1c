// The configuration layout both MediaTek back-ends read: a project object with six header keys and a
// "VideoAIProcPars" array of per-camera entries, whose tables run to each entry's BinNumber. The
// records differ only in their boost keys, which each back-end reads itself.
#pragma once

#include <cstdint>
#include <cstring>

#include "algocore/utils/json_utils.h"
#include "algocore/utils/vai_log.h"

namespace vai {
namespace mtk {

constexpr int kProjectNameMax = 16;
constexpr uint32_t kMaxBins = 16;

struct CfgLimits {
    uint32_t max_cams;  // entries of the record's camPars
    bool zero_bins_ok;  // false: BinNumber 0 refuses the file
};

// The member of `doc` named by `project` (read up to kProjectNameMax bytes), or a null value; false
// for a project that is an empty object or array. `name_len` receives the bounded name length.
bool FindProject(const rapidjson::Document& doc, const char* project, const rapidjson::Value** proj,
                 int* name_len);

// Checks the camera count against the record and the file's array, with an error line.
bool CamCountFits(uint32_t rear, uint32_t front, uint32_t max_cams, rapidjson::SizeType entries,
                  const char* cfgFile);
bool BinNumberFits(uint32_t bins, uint32_t cam, const CfgLimits& limits, const char* cfgFile);

// The built-in defaults both records share, for every camera entry; `set_boost(entry)` writes the
// record's own boost keys.
template <typename Cfg, typename SetBoost>
void SetDefaults(Cfg* cfg, SetBoost set_boost) {
    static const uint32_t kNr[] = {0, 51, 76, 102, 127, 153, 178, 204};
    static const uint32_t kDetail[] = {153, 140, 127, 114, 102, 89, 76, 63};
    // 9200, not 9600, is the tuned value.
    static const uint32_t kIso[] = {800, 1600, 3200, 6400, 9200, 12800, 19200, 25600};
    std::memset(cfg, 0, sizeof(*cfg));  // processType and DumpRangeIdx 0
    cfg->LogLevel = 1;
    cfg->RearCamNum = 3;
    cfg->FrontCamNum = 1;
    cfg->SwitchFrameNum = 7;
    for (auto& c : cfg->camPars) {
        c.processEnable = 1;
        c.BinNumber = 8;
        set_boost(c);
        std::memcpy(c.NrStrength, kNr, sizeof(kNr));
        std::memcpy(c.DetailStrength, kDetail, sizeof(kDetail));
        std::memcpy(c.ISOBinIndex, kIso, sizeof(kIso));
    }
}

// Fills `pars` (a MediaTek VAINR_CfgPars_) over its current contents; `read_boost(entry, cam)` reads
// the boost keys between "processEnable" and "BinNumber". False on any missing or mistyped key and on
// files past `limits`, with the fields read so far kept.
template <typename Cfg, typename ReadBoost>
bool LoadCfg(const char* cfgFile, const char* project, Cfg* pars, const CfgLimits& limits,
             ReadBoost read_boost) {
    if (cfgFile == nullptr || project == nullptr || pars == nullptr) {
        VAI_LOGE("UNEXPECTED_NULL in LoadVAINRCfg_MTK!");
        return false;
    }
    VAI_LOGV("Parse \"%s\" cfg file begin", cfgFile);
    rapidjson::Document doc;
    if (!JsonParseFile(cfgFile, doc)) return false;
    const rapidjson::Value* found = nullptr;
    int name_len = 0;
    if (!FindProject(doc, project, &found, &name_len)) return false;
    const rapidjson::Value& proj = *found;
    if (!JsonGet(proj, "LogLevel", pars->LogLevel) || !JsonGet(proj, "processType", pars->processType) ||
        !JsonGet(proj, "DumpRangeIdx", pars->DumpRangeIdx) ||
        !JsonGet(proj, "FrontCamNum", pars->FrontCamNum) || !JsonGet(proj, "RearCamNum", pars->RearCamNum) ||
        !JsonGet(proj, "SwitchFrameNum", pars->SwitchFrameNum)) {
        return false;
    }
    const auto it = proj.FindMember("VideoAIProcPars");
    if (it == proj.MemberEnd() || !it->value.IsArray() || it->value.Empty()) {
        // Bounded: the caller's name need not be terminated.
        VAI_LOGE("%.*s project have no \"VideoAIProcPars\" in %s cfg file!", name_len, project, cfgFile);
        return false;
    }
    const rapidjson::Value& array = it->value;
    if (!CamCountFits(pars->RearCamNum, pars->FrontCamNum, limits.max_cams, array.Size(), cfgFile)) {
        return false;
    }
    const uint32_t cams = pars->RearCamNum + pars->FrontCamNum;
    for (uint32_t i = 0; i < cams; ++i) {
        const rapidjson::Value& entry = array[i];
        auto& c = pars->camPars[i];
        c.camId = i;
        if (!JsonGet(entry, "processEnable", c.processEnable) || !read_boost(entry, c) ||
            !JsonGet(entry, "BinNumber", c.BinNumber) || !BinNumberFits(c.BinNumber, i, limits, cfgFile)) {
            return false;
        }
        const auto bins = static_cast<unsigned char>(c.BinNumber);
        if (!JsonGetArray(entry, "NrStrength", c.NrStrength, bins) ||
            !JsonGetArray(entry, "DetailStrength", c.DetailStrength, bins) ||
            !JsonGetArray(entry, "ISOBinIndex", c.ISOBinIndex, bins)) {
            return false;
        }
    }
    VAI_LOGV("Parse \"%s\" cfg file end", cfgFile);
    return true;
}

}  // namespace mtk
}  // namespace vai
