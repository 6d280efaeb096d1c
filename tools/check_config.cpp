#include "check_config.h"

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "algocore/utils/json_utils.h"
#include "interface/VideoAIProc.h"
#include "tuning_modes.h"

namespace vaitool {
namespace {

using rapidjson::Value;

struct Finding {
    bool error;
    std::string path;  // JSON pointer; empty for the whole file
    std::string message;
};

std::string Child(const std::string& path, const std::string& key) {
    std::string out = path + "/";
    for (char c : key) {
        if (c == '~') {
            out += "~0";
        } else if (c == '/') {
            out += "~1";
        } else {
            out += c;
        }
    }
    return out;
}

std::string Child(const std::string& path, size_t index) {
    return path + "/" + std::to_string(index);
}

std::string Kind(const Value& v) {
    if (v.IsNull()) return "null";
    if (v.IsBool()) return "a boolean";
    if (v.IsString()) return "a string";
    if (v.IsArray()) return "an array";
    if (v.IsObject()) return "an object";
    if (v.IsInt64() && v.GetInt64() < 0) return "negative";
    if (v.IsUint64()) return "above 4294967295";
    return "a decimal number";
}

class Checker {
  public:
    Checker(const TuningMode& mode, const TuningArgs& args) : mode_(mode), args_(args) {}

    std::vector<Finding> Run() {
        std::ifstream in(args_.file, std::ios::binary);
        const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        rapidjson::Document doc;
        // The library's own parse, which refuses what its loaders would not survive (deep nesting,
        // numbers RapidJSON's conversion crashes on). Its log line would repeat the finding.
        const unsigned char level = g_log_level;
        g_log_level = 0;
        const bool parsed = JsonParseFile(args_.file.c_str(), doc);
        g_log_level = level;
        if (!parsed) {
            // Only to say where the text breaks: numbers stay text and nothing recurses.
            rapidjson::Document probe;
            probe.Parse<rapidjson::kParseCommentsFlag | rapidjson::kParseNumbersAsStringsFlag |
                        rapidjson::kParseIterativeFlag>(text.c_str());
            if (probe.HasParseError()) {
                const size_t at = probe.GetErrorOffset();
                const auto line = 1 + std::count(text.begin(), text.begin() + std::min(at, text.size()), '\n');
                Error("", std::string("not valid JSON: ") + rapidjson::GetParseError_En(probe.GetParseError()) +
                              " (line " + std::to_string(line) + ")");
            } else {
                Error("", "objects and arrays nest deeper than the library reads");
            }
        } else if (!doc.IsObject()) {
            Error("", "the file must be an object with one member per project");
        } else {
            CheckRoot(doc);
        }
        // The library's verdict is final: a file it refuses is never reported clean.
        accepted_ = mode_.load(args_.file.c_str(), args_.project.c_str())->accepted();
        if (!accepted_ && errors() == 0)
            Error("", std::string("the ") + mode_.name + " loader refuses the file");
        return findings_;
    }
    bool accepted() const { return accepted_; }

  private:
    void Error(const std::string& path, const std::string& message) {
        findings_.push_back({true, path, message});
    }
    void Warn(const std::string& path, const std::string& message) {
        findings_.push_back({false, path, message});
    }
    size_t errors() const {
        return static_cast<size_t>(
            std::count_if(findings_.begin(), findings_.end(), [](const Finding& f) { return f.error; }));
    }

    // The value of `key` when it is an unsigned 32-bit number; otherwise a finding.
    bool Number(const Value& obj, const std::string& path, const char* key, uint32_t* out) {
        const auto it = obj.FindMember(key);
        if (it == obj.MemberEnd()) {
            Error(Child(path, key), "missing; the loader needs it");
            return false;
        }
        if (!it->value.IsUint()) {
            Error(Child(path, key), "must be an unsigned 32-bit integer, is " + Kind(it->value));
            return false;
        }
        *out = it->value.GetUint();
        return true;
    }

    void UnknownKeys(const Value& obj, const std::string& path, const std::vector<const char*>& known) {
        for (const auto& m : obj.GetObject()) {
            const std::string key(m.name.GetString(), m.name.GetStringLength());
            if (std::none_of(known.begin(), known.end(), [&](const char* k) { return key == k; }))
                Warn(Child(path, key),
                     std::string("unknown key, not read by the ") + mode_.name + " back-end (a typo?)");
        }
    }

    void CheckRoot(const Value& doc) {
        for (const auto& m : doc.GetObject()) {
            if (m.name.GetStringLength() > kProjectNameBytes)
                Error(Child("", std::string(m.name.GetString(), m.name.GetStringLength())),
                      "project name of " + std::to_string(m.name.GetStringLength()) +
                          " bytes; the init record holds 16, so no caller can select it");
        }
        const std::string path = Child("", args_.project);
        const auto it = doc.FindMember(args_.project.c_str());
        if (it == doc.MemberEnd()) {
            std::string names;
            for (const auto& m : doc.GetObject())
                names += std::string(names.empty() ? "" : ", ") + m.name.GetString();
            Error(path, "no such project (the file has: " + names + ")");
            return;
        }
        if (!it->value.IsObject()) {
            Error(path, "must be an object, is " + Kind(it->value));
            return;
        }
        CheckProject(it->value, path);
    }

    void CheckProject(const Value& project, const std::string& path) {
        uint32_t values[6] = {};
        bool have_all = true;
        for (size_t i = 0; i < kProjectNumbers.size(); ++i) {
            have_all &= Number(project, path, kProjectNumbers[i], &values[i]);
        }
        std::vector<const char*> known = kProjectNumbers;
        known.push_back("VideoAIProcPars");
        UnknownKeys(project, path, known);

        const std::string pars_path = Child(path, "VideoAIProcPars");
        const auto it = project.FindMember("VideoAIProcPars");
        if (it == project.MemberEnd() || !it->value.IsArray() || it->value.Empty()) {
            Error(pars_path, it == project.MemberEnd() ? "missing; the loader needs one entry per camera"
                                                       : "must be a non-empty array of camera entries");
            return;
        }
        const Value& pars = it->value;
        size_t cams = std::min<size_t>(pars.Size(), mode_.max_cameras);
        if (have_all) {
            const uint64_t wanted = uint64_t{values[3]} + values[4];  // FrontCamNum + RearCamNum
            const std::string sum = "RearCamNum + FrontCamNum = " + std::to_string(wanted);
            if (wanted > mode_.max_cameras)
                Error(Child(path, "RearCamNum"), sum + ", but the " + mode_.name + " record holds " +
                                                     std::to_string(mode_.max_cameras) + " cameras");
            if (wanted > pars.Size())
                Error(pars_path, "holds " + std::to_string(pars.Size()) + " entries, but " + sum);
            cams = std::min<uint64_t>(cams, wanted);
        }
        for (size_t i = 0; i < cams; ++i)
            CheckCamera(pars[static_cast<rapidjson::SizeType>(i)], Child(pars_path, i));
    }

    void CheckCamera(const Value& cam, const std::string& path) {
        if (!cam.IsObject()) {
            Error(path, "must be an object, is " + Kind(cam));
            return;
        }
        uint32_t bins = kMaxBins;
        for (const char* key : mode_.camera_numbers) {
            uint32_t v = 0;
            if (Number(cam, path, key, &v) && std::string(key) == "BinNumber") {
                // Past 16 the loader refuses the file; the tables are still checked over the 16 it holds.
                bins = std::min(v, kMaxBins);
                if (v == 0) {
                    Error(Child(path, key),
                          mode_.refuses_zero_bins
                              ? "0 bins: the back-end refuses the file"
                              : "0 bins: the back-end still uses bin 0, whose values stay the built-in ones");
                }
                if (v > kMaxBins) Error(Child(path, key), std::to_string(v) + " bins; the record holds 16");
            }
        }
        for (const char* key : mode_.camera_tables) CheckTable(cam, path, key, bins);
        std::vector<const char*> known = mode_.camera_numbers;
        known.insert(known.end(), mode_.camera_tables.begin(), mode_.camera_tables.end());
        UnknownKeys(cam, path, known);
    }

    void CheckTable(const Value& cam, const std::string& cam_path, const char* key, uint32_t bins) {
        const std::string path = Child(cam_path, key);
        const auto it = cam.FindMember(key);
        if (it == cam.MemberEnd() || !it->value.IsArray()) {
            Error(path, it == cam.MemberEnd()
                            ? "missing; the loader needs it"
                            : "must be an array of unsigned integers, is " + Kind(it->value));
            return;
        }
        const Value& table = it->value;
        if (table.Size() < bins)
            Error(path, "holds " + std::to_string(table.Size()) + " values for " + std::to_string(bins) +
                            " bins: bin " + std::to_string(table.Size()) +
                            " and up keep the built-in values");
        const StrengthCurve* curve = nullptr;
        for (const StrengthCurve& c : mode_.curves) {
            if (std::string(c.key) == key) curve = &c;
        }
        const bool bounds = std::string(key) == "ISOBinIndex";
        const rapidjson::SizeType used = std::min<rapidjson::SizeType>(table.Size(), bins);
        for (rapidjson::SizeType j = 0; j < used; ++j) {
            const Value& v = table[j];
            if (!v.IsUint()) {
                Error(Child(path, j), "must be an unsigned 32-bit integer, is " + Kind(v));
            } else if (curve != nullptr && v.GetUint() > curve->max_value) {
                Error(Child(path, j), std::to_string(v.GetUint()) + " is above " +
                                          std::to_string(curve->max_value) + ", " + curve->beyond);
            } else if (bounds && j > 0 && table[j - 1].IsUint() && v.GetUint() <= table[j - 1].GetUint()) {
                Error(Child(path, j), std::to_string(v.GetUint()) + " is not above the bound before it (" +
                                          std::to_string(table[j - 1].GetUint()) +
                                          "); bounds must ascend strictly");
            }
        }
    }

    const TuningMode& mode_;
    const TuningArgs& args_;
    std::vector<Finding> findings_;
    bool accepted_ = false;
};

void PrintJson(const TuningArgs& args, const std::vector<Finding>& findings, size_t errors, bool accepted) {
    rapidjson::StringBuffer buf;
    rapidjson::Writer<rapidjson::StringBuffer> w(buf);
    w.StartObject();
    w.Key("file");
    w.String(args.file.c_str());
    w.Key("mode");
    w.Int(args.mode);
    w.Key("project");
    w.String(args.project.c_str());
    w.Key("loader_accepts");
    w.Bool(accepted);
    w.Key("errors");
    w.Uint64(errors);
    w.Key("warnings");
    w.Uint64(findings.size() - errors);
    w.Key("findings");
    w.StartArray();
    for (const Finding& f : findings) {
        w.StartObject();
        w.Key("severity");
        w.String(f.error ? "error" : "warning");
        w.Key("path");
        w.String(f.path.c_str());
        w.Key("message");
        w.String(f.message.c_str());
        w.EndObject();
    }
    w.EndArray();
    w.EndObject();
    std::printf("%s\n", buf.GetString());
}

int CheckConfig(const TuningArgs& args, bool json) {
    const TuningMode& mode = *FindTuningMode(args.mode);
    Checker checker(mode, args);
    const std::vector<Finding> findings = checker.Run();
    const size_t errors = static_cast<size_t>(
        std::count_if(findings.begin(), findings.end(), [](const Finding& f) { return f.error; }));
    if (json) {
        PrintJson(args, findings, errors, checker.accepted());
    } else {
        for (const Finding& f : findings) {
            std::printf("%s: %s: %s\n", f.error ? "error" : "warning",
                        f.path.empty() ? "(file)" : f.path.c_str(), f.message.c_str());
        }
        if (findings.empty()) {
            std::printf("%s: clean for mode %d (%s), project %s\n", args.file.c_str(), mode.mode, mode.name,
                        args.project.c_str());
        } else {
            std::printf("%s: %zu error(s), %zu warning(s); the library's loader %s it\n", args.file.c_str(),
                        errors, findings.size() - errors, checker.accepted() ? "accepts" : "refuses");
        }
    }
    return errors == 0 ? 0 : 1;
}

}  // namespace

void RegisterCheckConfig(CLI::App& app, int& status) {
    struct Args {
        TuningArgs tuning;
        bool json = false;
    };
    auto args = std::make_shared<Args>();
    CLI::App* sub = app.add_subcommand(
        "check-config",
        "Loads a tuning file with the back-end's own loader and lists every problem with its JSON path. "
        "Exit status: 0 without errors (warnings allowed), 1 with errors, 2 on usage errors.");
    AddTuningArgs(sub, &args->tuning);
    sub->add_flag("--json", args->json, "print the findings as JSON");
    sub->callback([args, &status] { status = CheckConfig(args->tuning, args->json); });
}

}  // namespace vaitool
