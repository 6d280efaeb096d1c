#include "mtk/common/mtk_cfg_reader.h"

#include <cstring>

namespace vai {
namespace mtk {

bool FindProject(const rapidjson::Document& doc, const char* project, const rapidjson::Value** proj,
                 int* name_len) {
    const auto len = static_cast<rapidjson::SizeType>(strnlen(project, kProjectNameMax));
    *name_len = static_cast<int>(len);
    // A missing project reads as null, and its first key then fails with the getter's own line.
    static const rapidjson::Value kNull;
    *proj = &kNull;
    if (doc.IsObject()) {
        const auto it = doc.FindMember(rapidjson::Value(rapidjson::StringRef(project, len)));
        if (it != doc.MemberEnd()) *proj = &it->value;
    }
    const rapidjson::Value& p = **proj;
    return !((p.IsObject() && p.ObjectEmpty()) || (p.IsArray() && p.Empty()));
}

bool CamCountFits(uint32_t rear, uint32_t front, uint32_t max_cams, rapidjson::SizeType entries,
                  const char* cfgFile) {
    // In 64 bits: the sum of two large counts must not wrap into range.
    const uint64_t cams = uint64_t{rear} + front;
    if (cams <= max_cams && cams <= entries) return true;
    VAI_LOGE(
        "RearCamNum(%u) + FrontCamNum(%u) exceeds the %u cameras of the record or the %u entries "
        "of \"VideoAIProcPars\" in %s cfg file!",
        rear, front, max_cams, entries, cfgFile);
    return false;
}

bool BinNumberFits(uint32_t bins, uint32_t cam, const CfgLimits& limits, const char* cfgFile) {
    if (bins > kMaxBins) {
        VAI_LOGE("BinNumber(%u) of camera %u exceeds %u bins in %s cfg file!", bins, cam, kMaxBins, cfgFile);
        return false;
    }
    if (bins == 0 && !limits.zero_bins_ok) {
        VAI_LOGE("BinNumber of camera %u is 0 in %s cfg file, at least one bin is needed!", cam, cfgFile);
        return false;
    }
    return true;
}

}  // namespace mtk
}  // namespace vai
