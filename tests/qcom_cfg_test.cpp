#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>

#include "log_capture.h"
#include "qcom_test_util.h"
#include "qcom/vainr_yuv/qcom_vainr_yuv_cfg.h"

namespace {

using QCOM_VAINR_YUV_PROC::LoadVAINRCfg_Qcom;
using QCOM_VAINR_YUV_PROC::VAINR_CfgPars_;
using namespace qcom_test;

VAINR_CfgPars_ Defaults() {
    VAINR_CfgPars_ c;
    vai::qcom::SetDefaultCfg(&c);
    return c;
}

class QcomCfgTest : public ::testing::Test {
  protected:
    bool Load(const std::string& json, const char* project = "TestProject") {
        const std::string path = WriteText(TestFile(".json"), json);
        cfg_ = Defaults();
        return LoadVAINRCfg_Qcom(path.c_str(), project, &cfg_);
    }
    ScopedValue<unsigned char> level_{g_log_level, 1};
    LogCapture log_;
    VAINR_CfgPars_ cfg_{};
};

TEST_F(QcomCfgTest, SampleFileHoldsTheDefaults) {
    VAINR_CfgPars_ cfg = Defaults();
    ASSERT_TRUE(LoadVAINRCfg_Qcom(VAI_TEST_SOURCE_DIR "/configs/qcom_vainr_yuv.json", "DemoProject", &cfg));
    VAINR_CfgPars_ expected = Defaults();
    for (int i = 0; i < 5; ++i) expected.cam[i].camIdx = static_cast<uint32_t>(i);
    EXPECT_EQ(std::memcmp(&cfg, &expected, sizeof(cfg)), 0);
    EXPECT_TRUE(log_.Lines().empty());
}

TEST_F(QcomCfgTest, DefaultTables) {
    const VAINR_CfgPars_ c = Defaults();
    EXPECT_EQ(c.processType, 0u);
    EXPECT_EQ(c.LogLevel, 1u);
    EXPECT_EQ(c.RearCamNum + c.FrontCamNum, 5u);
    EXPECT_EQ(c.SwitchFrameNum, 7u);
    const uint32_t iso[16] = {800, 1600, 3200, 6400, 9200, 12800, 19200, 25600};
    const uint32_t nr[16] = {0, 12, 19, 25, 32, 38, 44, 51};
    const uint32_t chroma[16] = {32, 32, 32, 32, 32, 36, 38, 40};
    for (const auto& cam : c.cam) {
        EXPECT_EQ(cam.processEnable, 1u);
        EXPECT_EQ(cam.BinNumber, 8u);
        EXPECT_EQ(cam.BoostValue, 100u);
        EXPECT_EQ(std::memcmp(cam.ISOBinIndex, iso, sizeof(iso)), 0);
        EXPECT_EQ(std::memcmp(cam.NrStrength, nr, sizeof(nr)), 0);
        EXPECT_EQ(std::memcmp(cam.ChromaNrStrength, chroma, sizeof(chroma)), 0);
    }
}

TEST_F(QcomCfgTest, ReadsEveryKey) {
    CfgText t;
    t.LogLevel = 3;
    t.processType = 1;
    t.DumpRangeIdx = 5010;
    t.RearCamNum = 2;
    t.FrontCamNum = 1;
    t.SwitchFrameNum = 9;
    t.cams.resize(3);
    t.cams[2] = {0, 77, 3, {1, 2, 3, 99}, {4, 5, 6}, {10, 20, 30}};
    ASSERT_TRUE(Load(t.Json()));
    EXPECT_EQ(cfg_.LogLevel, 3u);
    EXPECT_EQ(cfg_.processType, 1u);
    EXPECT_EQ(cfg_.DumpRangeIdx, 5010u);
    EXPECT_EQ(cfg_.SwitchFrameNum, 9u);
    const auto& c = cfg_.cam[2];
    EXPECT_EQ(c.camIdx, 2u);
    EXPECT_EQ(c.processEnable, 0u);
    EXPECT_EQ(c.BoostValue, 77u);
    EXPECT_EQ(c.BinNumber, 3u);
    // Only BinNumber entries are read; the rest keep the defaults.
    EXPECT_EQ(c.NrStrength[2], 3u);
    EXPECT_EQ(c.NrStrength[3], 25u);
    EXPECT_EQ(c.ISOBinIndex[0], 10u);
    EXPECT_EQ(c.ISOBinIndex[3], 6400u);
    // Cameras beyond the counts stay at the defaults.
    EXPECT_EQ(cfg_.cam[3].camIdx, 0u);
    EXPECT_EQ(cfg_.cam[3].BoostValue, 100u);
}

// A project name of all 16 bytes, without a terminator, selects the member of exactly that name.
TEST_F(QcomCfgTest, ProjectNameNeedNotBeTerminated) {
    CfgText t;
    t.project = "ABCDEFGHIJKLMNOP";
    t.SwitchFrameNum = 42;
    struct {
        char name[16];
        char after[8];
    } p;
    std::memcpy(p.name, "ABCDEFGHIJKLMNOP", 16);
    std::memcpy(p.after, "QRSTUVW", 8);
    ASSERT_TRUE(Load(t.Json(), p.name));
    EXPECT_EQ(cfg_.SwitchFrameNum, 42u);
}

struct Bad {
    const char* name;
    std::function<void(CfgText&)> edit;
    const char* message;  // the last line logged, or "" for none
};

TEST_F(QcomCfgTest, RejectsBadFiles) {
    const Bad cases[] = {
        {"six cameras",
         [](CfgText& t) {
             t.FrontCamNum = 2;
             t.cams.resize(6);
         },
         "RearCamNum(4) + FrontCamNum(2) exceeds 5 cameras in"},
        {"camera count wraps",
         [](CfgText& t) {
             t.RearCamNum = 4294967295u;
             t.FrontCamNum = 2;
         },
         "RearCamNum(4294967295) + FrontCamNum(2) exceeds 5 cameras in"},
        {"17 bins", [](CfgText& t) { t.cams[3].BinNumber = 17; },
         "BinNumber(17) of camera 3 exceeds 16 bins in"},
        {"fewer elements than cameras", [](CfgText& t) { t.cams.resize(4); },
         "parse \"processEnable\" pars failed!"},
        {"empty camera array", [](CfgText& t) { t.cams.clear(); },
         "TestProject project have no \"VideoAIProcPars\" in "},
    };
    for (const Bad& c : cases) {
        CfgText t;
        c.edit(t);
        log_.Clear();
        EXPECT_FALSE(Load(t.Json())) << c.name;
        if (c.message[0] != '\0') {
            ASSERT_FALSE(log_.Texts().empty()) << c.name;
            EXPECT_NE(log_.Texts().back().find(c.message), std::string::npos)
                << c.name << ": " << log_.Texts().back();
        }
    }
}

TEST_F(QcomCfgTest, SixteenBinsAreAccepted) {
    CfgText t;
    t.cams[1].BinNumber = 16;
    t.cams[1].iso.clear();
    t.cams[1].nr.clear();
    t.cams[1].chroma.clear();
    for (unsigned i = 0; i < 20; ++i) {
        t.cams[1].iso.push_back(100 * (i + 1));
        t.cams[1].nr.push_back(i);
        t.cams[1].chroma.push_back(i + 1);
    }
    ASSERT_TRUE(Load(t.Json()));
    EXPECT_EQ(cfg_.cam[1].ISOBinIndex[15], 1600u);
    EXPECT_EQ(cfg_.cam[1].NrStrength[15], 15u);
    EXPECT_EQ(cfg_.cam[2].ISOBinIndex[8], 0u);  // the record of the next camera is untouched
}

TEST_F(QcomCfgTest, KeysAreRequiredInOrder) {
    // Each scalar key missing in turn: the ones before it are read, the failure names it.
    const char* keys[] = {"LogLevel",    "processType", "DumpRangeIdx",
                          "FrontCamNum", "RearCamNum",  "SwitchFrameNum"};
    for (const char* key : keys) {
        CfgText t;
        t.LogLevel = 4;
        std::string json = t.Json();
        const std::string needle = std::string("\"") + key + "\":";
        const size_t at = json.find(needle);
        ASSERT_NE(at, std::string::npos);
        json.replace(at, needle.size(), std::string("\"x") + key + "\":");
        log_.Clear();
        EXPECT_FALSE(Load(json)) << key;
        EXPECT_EQ(log_.Texts(), std::vector<std::string>{std::string("parse \"") + key + "\" pars failed!"})
            << key;
        EXPECT_EQ(cfg_.LogLevel, std::strcmp(key, "LogLevel") == 0 ? 1u : 4u) << key;
    }
}

TEST_F(QcomCfgTest, MistypedCameraValue) {
    std::string json = CfgText().Json();
    const size_t at = json.rfind("\"BoostValue\": 100");
    json.replace(at, 17, "\"BoostValue\": -1 ");
    EXPECT_FALSE(Load(json));
    EXPECT_EQ(log_.Texts(), std::vector<std::string>{"parse \"BoostValue\" pars failed!"});
    EXPECT_EQ(cfg_.cam[3].camIdx, 3u);  // the cameras before the last were read
}

TEST_F(QcomCfgTest, NullArgumentsAndMissingProject) {
    VAINR_CfgPars_ c = Defaults();
    EXPECT_FALSE(LoadVAINRCfg_Qcom(nullptr, "p", &c));
    EXPECT_FALSE(LoadVAINRCfg_Qcom("x.json", nullptr, &c));
    EXPECT_FALSE(LoadVAINRCfg_Qcom("x.json", "p", nullptr));
    EXPECT_EQ(log_.Count("UNEXPECTED_NULL in LoadVAINRCfg_Qcom!"), 3u);
    EXPECT_FALSE(Load(CfgText().Json(), "OtherProject"));
    EXPECT_FALSE(Load("{ not json", "TestProject"));
}

}  // namespace
