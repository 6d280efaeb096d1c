// vaitool check-config and plot, run as a tuning engineer runs them, on the sample configurations and
// on broken copies of them.
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <rapidjson/pointer.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "tool_test_util.h"

namespace {

namespace fs = std::filesystem;
using rapidjson::Document;
using rapidjson::Pointer;
using rapidjson::Value;

const std::string kConfigs = VAI_TEST_SOURCE_DIR "/configs/";
std::string Sample(int mode) {
    return kConfigs + (mode == 9    ? "mtk_vainr_yuv.json"
                       : mode == 10 ? "mtk_vainr_raw.json"
                                    : "qcom_vainr_yuv.json");
}

// vaitool's exit status and what it wrote to stdout.
ShellRun Tool(const std::string& args) {
    return Shell(VAI_TOOL_CMD " " + args + " 2>/dev/null");
}

Document Json(const std::string& text) {
    Document d;
    return std::move(d.Parse<rapidjson::kParseCommentsFlag>(text.c_str()));
}

const std::string P = "/DemoProject", A = P + "/VideoAIProcPars", C = A + "/";

// A broken copy of a sample file: the exit status and, for a file the tool reads, the loader's verdict
// and a finding at `finding` (by default at the first edit), an error when the status is 1.
struct Broken {
    const char* name;
    int mode;
    // Members set to JSON text, or to a copy of the member a pointer names (JSON text never starts with
    // '/'), or removed (null); an edit at "" cuts the file short.
    std::vector<std::pair<std::string, const char*>> edits;
    int status;
    bool loader_accepts;
    std::string finding = "";
    std::string args = "";
};

TEST(TuningTool, BrokenFiles) {
    const Broken rows[] = {
        {"not JSON", 1, {{"", nullptr}}, 1, false},
        {"missing key", 1, {{C + "1/BoostValue", nullptr}}, 1, false},
        {"mistyped key", 1, {{P + "/SwitchFrameNum", "\"7\""}}, 1, false},
        {"negative strength", 9, {{C + "0/NrStrength/2", "-3"}}, 1, false},
        {"cameras beyond the record", 1, {{P + "/RearCamNum", "5"}}, 1, false},
        {"cameras beyond the array", 9, {{C + "4", nullptr}, {C + "3", nullptr}}, 1, false, A},
        {"BinNumber 0", 1, {{C + "0/BinNumber", "0"}}, 1, true},
        {"BinNumber 0 where it is refused", 10, {{C + "0/BinNumber", "0"}}, 1, false},
        {"BinNumber above 16", 9, {{C + "3/BinNumber", "17"}}, 1, false},
        {"bounds not ascending", 1, {{C + "2/ISOBinIndex/3", "3200"}}, 1, true},
        {"strength beyond the blend", 1, {{C + "4/ChromaNrStrength/5", "65"}}, 1, true},
        {"strength beyond a byte", 9, {{C + "1/NrStrength/7", "256"}}, 1, true},
        {"table shorter than BinNumber", 9, {{C + "0/ISOBinIndex/7", nullptr}}, 1, true, C + "0/ISOBinIndex"},
        {"project name over 16 bytes", 1, {{"/ProjectNameOf17By", "/DemoProject"}}, 1, true},
        // A 16-byte project name, the longest a caller can select, is no finding.
        {"unknown key", 1, {{C + "1/NrStrenght", "3"}, {"/ProjectNameOf16B", "/DemoProject"}}, 0, true},
        {"table not an array", 9, {{C + "2/DetailStrength", "5"}}, 1, false},
        {"no such project", 9, {}, 1, false, "/Other", "-p Other"},
        {"unsupported mode", 5, {}, 2, false},
        {"project over 16 characters", 1, {}, 2, false, "", "-p 12345678901234567"},
    };
    for (const Broken& row : rows) {
        SCOPED_TRACE(row.name);
        Document d = Json(ReadFile(Sample(row.mode)));
        size_t keep = std::string::npos;
        for (const auto& [at, to] : row.edits) {
            if (at.empty()) {
                keep = 300;
            } else if (to == nullptr) {
                Pointer(at.c_str()).Erase(d);
            } else {
                Document v;
                v.Parse(to);
                Value copy(to[0] == '/' ? *Pointer(to).Get(d) : static_cast<Value&>(v), d.GetAllocator());
                Pointer(at.c_str()).Set(d, copy);
            }
        }
        rapidjson::StringBuffer buf;
        rapidjson::Writer<rapidjson::StringBuffer> w(buf);
        d.Accept(w);
        const std::string file = VAI_TEST_BINARY_DIR "/tuning_broken.json";
        std::ofstream(file) << std::string(buf.GetString()).substr(0, keep);
        const ShellRun r =
            Tool("check-config --json -m " + std::to_string(row.mode) + " " + row.args + " " + file);
        EXPECT_EQ(r.status, row.status);
        if (row.status == 2) {
            EXPECT_EQ(r.out, "");  // usage errors go to stderr
            continue;
        }
        const Document report = Json(r.out);
        ASSERT_TRUE(report.IsObject()) << r.out;
        EXPECT_EQ(report["loader_accepts"].GetBool(), row.loader_accepts);
        const std::string path = row.edits.empty() || !row.finding.empty() ? row.finding : row.edits[0].first;
        bool found = false;
        for (const Value& f : report["findings"].GetArray()) {
            found |= f["path"].GetString() == path &&
                     f["severity"].GetString() == std::string(row.status ? "error" : "warning");
        }
        EXPECT_TRUE(found) << r.out;
    }
}

// Element counts of one chart.
struct Chart {
    int curves = 0, bins = 0;
    double frame[4] = {};         // the plot area's rectangle: left, top, right, bottom
    int points = 0, outside = 0;  // curve points, and those off the plot area
};

double Attr(const std::string& tag, const std::string& name) {
    const size_t at = tag.find(" " + name + "=\"");
    return at == std::string::npos ? 0 : std::atof(tag.c_str() + at + name.size() + 3);
}

// A tag scan: every element closed in order, under one <svg>; the charts and what they hold.
bool ScanSvg(const std::string& svg, std::vector<Chart>* charts) {
    std::vector<std::string> open;
    bool had_root = false;
    for (size_t at = svg.find('<'); at != std::string::npos; at = svg.find('<', at + 1)) {
        if (svg.compare(at, 2, "<?") == 0) continue;
        const size_t end = svg.find('>', at);
        if (end == std::string::npos) return false;
        const std::string tag = svg.substr(at + 1, end - at - 1);
        if (tag[0] == '/') {
            if (open.empty() || open.back() != tag.substr(1)) return false;
            open.pop_back();
            continue;
        }
        const std::string name = tag.substr(0, tag.find_first_of(" /"));
        if (open.empty() && (had_root || name != "svg")) return false;
        had_root = true;
        if (name == "g" && tag.find("class=\"chart\"") != std::string::npos) charts->emplace_back();
        if (!charts->empty() && open.size() >= 2) {
            Chart& c = charts->back();
            c.curves += name == "polyline" && tag.find("class=\"curve\"") != std::string::npos;
            c.bins += name == "line" && tag.find("class=\"bin\"") != std::string::npos;
            if (name == "rect") {
                c.frame[0] = Attr(tag, "x"), c.frame[1] = Attr(tag, "y");
                c.frame[2] = c.frame[0] + Attr(tag, "width"), c.frame[3] = c.frame[1] + Attr(tag, "height");
            }
            const size_t points = tag.find("points=\"");
            if (name == "polyline" && points != std::string::npos) {
                std::istringstream in(tag.substr(points + 8));
                double x, y;
                for (char comma; in >> x >> comma >> y;) {
                    c.points++;
                    c.outside += x < c.frame[0] || x > c.frame[2] || y < c.frame[1] || y > c.frame[3];
                }
            }
        }
        if (tag.back() != '/') open.push_back(name);
    }
    return had_root && open.empty();
}

// The sample files are clean for their mode, and plot as one chart per camera, each with the mode's
// strength curves inside its plot area and a line per gain bin.
TEST(TuningTool, SampleConfigs) {
    for (const auto& [mode, curves] : {std::pair{1, 2}, {9, 1}, {10, 2}}) {
        const std::string file = Sample(mode), args = " -m " + std::to_string(mode) + " ";
        SCOPED_TRACE(file);
        const ShellRun r = Tool("check-config --json" + args + file);
        EXPECT_EQ(r.status, 0);
        const Document report = Json(r.out);
        ASSERT_TRUE(report.IsObject()) << r.out;
        EXPECT_TRUE(report["loader_accepts"].GetBool());
        EXPECT_EQ(report["findings"].Size(), 0u) << r.out;

        const std::string out = VAI_TEST_BINARY_DIR "/tuning_" + std::to_string(mode) + ".svg";
        ASSERT_EQ(Tool("plot" + args + "-o " + out + " " + file).status, 0);
        std::vector<Chart> charts;
        ASSERT_TRUE(ScanSvg(ReadFile(out), &charts));
        const Document cfg = Json(ReadFile(file));
        const Value& project = cfg["DemoProject"];
        ASSERT_EQ(charts.size(), project["RearCamNum"].GetUint() + project["FrontCamNum"].GetUint());
        for (size_t i = 0; i < charts.size(); ++i) {
            EXPECT_EQ(charts[i].curves, curves);
            EXPECT_GT(charts[i].points, 0);
            EXPECT_EQ(charts[i].outside, 0);
            EXPECT_EQ(charts[i].bins, static_cast<int>(project["VideoAIProcPars"][i]["BinNumber"].GetUint()));
        }
    }
    // A file the loader refuses gets no chart.
    const std::string refused = VAI_TEST_BINARY_DIR "/tuning_refused.svg";
    std::remove(refused.c_str());
    EXPECT_EQ(Tool("plot -m 9 -o " + refused + " " + Sample(1)).status, 1);
    EXPECT_FALSE(fs::exists(refused));
}

}  // namespace
