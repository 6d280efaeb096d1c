#include "tuning_modes.h"

#include <algorithm>

#include "interface/VideoAIProc.h"
#include "mtk/vainr_raw/mtk_vainr_raw_cfg.h"
#include "mtk/vainr_yuv/mtk_vainr_yuv_cfg.h"
#include "qcom/vainr_yuv/qcom_vainr_yuv_cfg.h"

namespace vaitool {

const std::vector<const char*> kProjectNumbers = {"LogLevel",    "processType", "DumpRangeIdx",
                                                  "FrontCamNum", "RearCamNum",  "SwitchFrameNum"};

namespace {

// Runs the loader of the shared library over the defaults its back-end starts from, and answers
// with the back-end's own strength function.
template <class Cfg, class Cam, size_t N>
class Loaded : public LoadedTuning {
  public:
    template <auto Cams, void (*Defaults)(Cfg*), bool (*Loader)(const char*, const char*, Cfg*),
              std::vector<int> (*Strengths)(const Cam&, float)>
    static std::unique_ptr<LoadedTuning> Load(const char* path, const char* project) {
        auto t = std::make_unique<Loaded>();
        Defaults(&t->cfg_);
        // Its log lines would repeat what the problem list says with JSON paths.
        const unsigned char level = g_log_level;
        g_log_level = 0;
        t->accepted_ = Loader(path, project, &t->cfg_);
        g_log_level = level;
        t->cams_ = &(t->cfg_.*Cams)[0];
        t->strengths_ = Strengths;
        return t;
    }

    bool accepted() const override { return accepted_; }
    uint32_t rear_cameras() const override { return cfg_.RearCamNum; }
    uint32_t cameras() const override {
        return static_cast<uint32_t>(std::min<uint64_t>(uint64_t{cfg_.RearCamNum} + cfg_.FrontCamNum, N));
    }
    uint32_t process_enable(uint32_t cam) const override { return cams_[cam].processEnable; }
    uint32_t bin_number(uint32_t cam) const override { return cams_[cam].BinNumber; }
    const uint32_t* iso_bins(uint32_t cam) const override { return cams_[cam].ISOBinIndex; }
    std::vector<int> strengths(uint32_t cam, float gain) const override {
        return strengths_(cams_[cam], gain);
    }

  private:
    Cfg cfg_{};
    const Cam* cams_ = nullptr;
    std::vector<int> (*strengths_)(const Cam&, float) = nullptr;
    bool accepted_ = false;
};

using QcomCfg = QCOM_VAINR_YUV_PROC::VAINR_CfgPars_;
using QcomCam = QCOM_VAINR_YUV_PROC::VAINR_CamPars_;
using MtkYuvCfg = MTK_VAINR_YUV_PROC::VAINR_CfgPars_;
using MtkYuvCam = MTK_VAINR_YUV_PROC::VAINR_CamPars_;
using MtkRawCfg = MTK_VAINR_RAW_PROC::VAINR_CfgPars_;
using MtkRawCam = MTK_VAINR_RAW_PROC::VAINR_CamPars_;

std::vector<int> QcomStrengths(const QcomCam& cam, float gain) {
    const vai::qcom::Strengths s = vai::qcom::ComputeStrengths(cam, gain);
    return {s.y, s.uv};
}

std::vector<int> MtkYuvStrengths(const MtkYuvCam& cam, float iso) {
    return {vai::mtk_yuv::NrStrength(cam, iso)};
}

std::vector<int> MtkRawStrengths(const MtkRawCam& cam, float gain) {
    int8_t nr = 0, ee = 0;
    vai::mtk_raw::Strengths(cam, gain, &nr, &ee);
    return {nr, ee};
}

const char kBlendLimit[] = "the most the back-end blends (network output only)";
const char kByteLimit[] = "and only its low byte reaches the model";
const char kFlipLimit[] = "its low byte reaches the model with the top bit flipped (128 is 0)";

const std::vector<TuningMode> kModes = {
    {1,
     "Qualcomm YUV",
     "ISO x DRC gain",
     5,
     {"processEnable", "BoostValue", "BinNumber"},
     {"NrStrength", "ChromaNrStrength", "ISOBinIndex"},
     {{"NrStrength", 64, kBlendLimit}, {"ChromaNrStrength", 64, kBlendLimit}},
     0,
     64,
     &Loaded<QcomCfg, QcomCam, 5>::Load<&QcomCfg::cam, vai::qcom::SetDefaultCfg,
                                        QCOM_VAINR_YUV_PROC::LoadVAINRCfg_Qcom, QcomStrengths>},
    {9,
     "MediaTek YUV",
     "ISO",
     5,
     {"processEnable", "BoostValue4K", "BoostValue1080P", "BinNumber"},
     {"NrStrength", "DetailStrength", "ISOBinIndex"},
     {{"NrStrength", 255, kByteLimit}},
     0,
     255,
     &Loaded<MtkYuvCfg, MtkYuvCam, 5>::Load<&MtkYuvCfg::camPars, vai::mtk_yuv::SetDefaultCfg,
                                            MTK_VAINR_YUV_PROC::LoadVAINRCfg_MTK, MtkYuvStrengths>},
    {10,
     "MediaTek RAW",
     "ISO x DRC gain",
     4,
     {"processEnable", "BoostValue", "BinNumber"},
     {"NrStrength", "DetailStrength", "ISOBinIndex"},
     {{"NrStrength", 255, kFlipLimit}, {"DetailStrength", 255, kFlipLimit}},
     -128,
     127,
     &Loaded<MtkRawCfg, MtkRawCam, 4>::Load<&MtkRawCfg::camPars, vai::mtk_raw::SetDefaultCfg,
                                            MTK_VAINR_RAW_PROC::LoadVAINRCfg_MTK, MtkRawStrengths>,
     true},
};

}  // namespace

const TuningMode* FindTuningMode(int mode) {
    for (const TuningMode& m : kModes) {
        if (m.mode == mode) return &m;
    }
    return nullptr;
}

void AddTuningArgs(CLI::App* sub, TuningArgs* args) {
    std::string modes;
    for (const TuningMode& m : kModes) {
        modes += (modes.empty() ? "" : ", ") + std::to_string(m.mode) + " " + m.name;
    }
    sub->add_option("-m,--mode", args->mode, "algorithm mode: " + modes)
        ->required()
        ->check(CLI::Validator(
            [modes](std::string& v) {
                return FindTuningMode(std::atoi(v.c_str())) != nullptr
                           ? std::string()
                           : "mode " + v + " has no tuning tables (modes: " + modes + ")";
            },
            "MODE"));
    sub->add_option("-p,--project", args->project, "project in the configuration file")
        ->check(CLI::Validator(
            [](std::string& v) {
                return !v.empty() && v.size() <= kProjectNameBytes ? std::string()
                                                                   : "must be 1 to 16 characters";
            },
            "NAME"))
        ->capture_default_str();
    sub->add_option("file", args->file, "JSON configuration file")->required()->check(CLI::ExistingFile);
}

}  // namespace vaitool
