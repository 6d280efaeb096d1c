// vaitool check-config and plot, run as a tuning engineer runs them, on the sample configurations and
// on broken copies of them.
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <rapidjson/pointer.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using rapidjson::Document;
using rapidjson::Pointer;
using rapidjson::Value;

const std::string kConfigs = VAI_TEST_SOURCE_DIR "/configs/";
// Sample file, its mode and the strength curves that mode plots.
const std::map<std::string, std::pair<int, int>> kSamples = {{"qcom_vainr_yuv.json", {1, 2}},
                                                             {"mtk_vainr_yuv.json", {9, 1}},
                                                             {"mtk_vainr_raw.json", {10, 2}}};

struct Result {
    int status;
    std::string out;
};

Result Tool(const std::string& args) {
    FILE* p = popen((VAI_TOOL_CMD " " + args + " 2>/dev/null").c_str(), "r");
    std::string out;
    char buf[4096];
    for (size_t n; (n = std::fread(buf, 1, sizeof(buf), p)) > 0;) out.append(buf, n);
    const int st = pclose(p);
    return {WIFEXITED(st) ? WEXITSTATUS(st) : -1, out};
}

std::string Read(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

Document Json(const std::string& text) {
    Document d;
    d.Parse<rapidjson::kParseCommentsFlag>(text.c_str());
    return d;
}

std::string Write(const Document& d, const std::string& name) {
    rapidjson::StringBuffer buf;
    rapidjson::Writer<rapidjson::StringBuffer> w(buf);
    d.Accept(w);
    const std::string path = VAI_TEST_BINARY_DIR "/tuning_" + name + ".json";
    std::ofstream(path) << buf.GetString();
    return path;
}

const std::string P = "/DemoProject", C = P + "/VideoAIProcPars/";

void SetUint(Document& d, const std::string& path, int64_t v) {
    Pointer(path.c_str()).Set(d, v);
}

struct Broken {
    const char* name;
    int mode;
    std::function<void(Document&)> edit;  // null: the file is cut short
    std::string args;
    int status;
    std::string path;  // a finding expected there
    const char* severity;
    bool loader_accepts;
};

TEST(TuningTool, BrokenFiles) {
    const Broken rows[] = {
        {"not JSON", 1, nullptr, "", 1, "", "error", false},
        {"missing key", 1, [](Document& d) { Pointer((C + "1/BoostValue").c_str()).Erase(d); }, "", 1,
         C + "1/BoostValue", "error", false},
        {"mistyped key", 1, [](Document& d) { Pointer((P + "/SwitchFrameNum").c_str()).Set(d, "7"); }, "", 1,
         P + "/SwitchFrameNum", "error", false},
        {"negative strength", 9, [](Document& d) { SetUint(d, C + "0/NrStrength/2", -3); }, "", 1,
         C + "0/NrStrength/2", "error", false},
        {"cameras beyond the record", 1, [](Document& d) { SetUint(d, P + "/RearCamNum", 5); }, "", 1,
         P + "/RearCamNum", "error", false},
        {"cameras beyond the array", 9,
         [](Document& d) {
             Pointer((C + "4").c_str()).Erase(d);
             Pointer((C + "3").c_str()).Erase(d);
         },
         "", 1, P + "/VideoAIProcPars", "error", false},
        {"BinNumber 0", 1, [](Document& d) { SetUint(d, C + "0/BinNumber", 0); }, "", 1, C + "0/BinNumber",
         "error", true},
        {"BinNumber above 16", 9, [](Document& d) { SetUint(d, C + "3/BinNumber", 17); }, "", 1,
         C + "3/BinNumber", "error", false},
        {"bounds not ascending", 1, [](Document& d) { SetUint(d, C + "2/ISOBinIndex/3", 3200); }, "", 1,
         C + "2/ISOBinIndex/3", "error", true},
        {"strength beyond the blend", 1, [](Document& d) { SetUint(d, C + "4/ChromaNrStrength/5", 65); }, "",
         1, C + "4/ChromaNrStrength/5", "error", true},
        {"strength beyond a byte", 9, [](Document& d) { SetUint(d, C + "1/NrStrength/7", 256); }, "", 1,
         C + "1/NrStrength/7", "error", true},
        {"table shorter than BinNumber", 9,
         [](Document& d) { Pointer((C + "0/ISOBinIndex/7").c_str()).Erase(d); }, "", 1, C + "0/ISOBinIndex",
         "error", true},
        {"project name over 16 bytes", 1,
         [](Document& d) {
             Value copy(d["DemoProject"], d.GetAllocator());
             d.AddMember("ProjectNameOf17By", copy, d.GetAllocator());
         },
         "", 1, "/ProjectNameOf17By", "error", true},
        {"unknown key", 1,
         [](Document& d) {
             SetUint(d, C + "1/NrStrenght", 3);
             Value copy(d["DemoProject"], d.GetAllocator());
             d.AddMember("ProjectNameOf16B", copy, d.GetAllocator());  // the longest a caller can select
         },
         "", 0, C + "1/NrStrenght", "warning", true},
        {"table not an array", 9, [](Document& d) { SetUint(d, C + "2/DetailStrength", 5); }, "", 1,
         C + "2/DetailStrength", "error", false},
        {"no such project", 9, [](Document&) {}, "-p Other", 1, "/Other", "error", false},
        {"empty camera array", 9,
         [](Document& d) { Pointer((P + "/VideoAIProcPars").c_str()).Set(d, Value(rapidjson::kArrayType)); },
         "", 1, P + "/VideoAIProcPars", "error", false},
        {"unsupported mode", 5, [](Document&) {}, "", 2, "", nullptr, false},
        {"project over 16 characters", 1, [](Document&) {}, "-p 12345678901234567", 2, "", nullptr, false},
    };
    int n = 0;
    for (const Broken& row : rows) {
        SCOPED_TRACE(row.name);
        Document d = Json(Read(kConfigs + (row.mode == 9 ? "mtk_vainr_yuv.json" : "qcom_vainr_yuv.json")));
        std::string file;
        if (row.edit) {
            row.edit(d);
            file = Write(d, std::to_string(n++));
        } else {
            file = VAI_TEST_BINARY_DIR "/tuning_cut.json";
            std::ofstream(file) << Read(kConfigs + "qcom_vainr_yuv.json").substr(0, 300);
        }
        const Result r =
            Tool("check-config --json -m " + std::to_string(row.mode) + " " + row.args + " " + file);
        EXPECT_EQ(r.status, row.status);
        if (row.severity == nullptr) {
            EXPECT_EQ(r.out, "");
            continue;
        }
        const Document report = Json(r.out);
        ASSERT_TRUE(report.IsObject()) << r.out;
        EXPECT_EQ(report["loader_accepts"].GetBool(), row.loader_accepts);
        bool found = false;
        for (const Value& f : report["findings"].GetArray()) {
            found |=
                f["path"].GetString() == row.path && f["severity"].GetString() == std::string(row.severity);
        }
        EXPECT_TRUE(found) << r.out;
    }
}

TEST(TuningTool, SampleConfigsAreClean) {
    for (const auto& entry : fs::directory_iterator(kConfigs)) {
        const std::string name = entry.path().filename().string();
        SCOPED_TRACE(name);
        const auto sample = kSamples.find(name);
        ASSERT_NE(sample, kSamples.end()) << "give the test this file's mode";
        const Result r = Tool("check-config --json -m " + std::to_string(sample->second.first) + " " +
                              entry.path().string());
        EXPECT_EQ(r.status, 0);
        const Document report = Json(r.out);
        ASSERT_TRUE(report.IsObject()) << r.out;
        EXPECT_TRUE(report["loader_accepts"].GetBool());
        EXPECT_EQ(report["findings"].Size(), 0u) << r.out;
        const std::string text =
            Tool("check-config -m " + std::to_string(sample->second.first) + " " + entry.path().string()).out;
        EXPECT_NE(text.find(": clean for mode"), std::string::npos) << text;
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

TEST(TuningTool, PlotSvgStructure) {
    for (const auto& [name, mode] : kSamples) {
        SCOPED_TRACE(name);
        const std::string out = VAI_TEST_BINARY_DIR "/tuning_" + name + ".svg";
        ASSERT_EQ(Tool("plot -m " + std::to_string(mode.first) + " -o " + out + " " + kConfigs + name).status,
                  0);
        std::vector<Chart> charts;
        ASSERT_TRUE(ScanSvg(Read(out), &charts));
        const Document cfg = Json(Read(kConfigs + name));
        const Value& project = cfg["DemoProject"];
        ASSERT_EQ(charts.size(), project["RearCamNum"].GetUint() + project["FrontCamNum"].GetUint());
        for (size_t i = 0; i < charts.size(); ++i) {
            EXPECT_EQ(charts[i].curves, mode.second);
            EXPECT_GT(charts[i].points, 0);
            EXPECT_EQ(charts[i].outside, 0);
            EXPECT_EQ(charts[i].bins, static_cast<int>(project["VideoAIProcPars"][i]["BinNumber"].GetUint()));
        }
    }
    // A file the loader refuses gets no chart.
    const std::string refused = VAI_TEST_BINARY_DIR "/tuning_refused.svg";
    std::remove(refused.c_str());
    EXPECT_EQ(Tool("plot -m 9 -o " + refused + " " + kConfigs + "qcom_vainr_yuv.json").status, 1);
    EXPECT_FALSE(fs::exists(refused));
}

}  // namespace
