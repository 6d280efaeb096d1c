// The back-ends whose tuning files `vaitool check-config` and `vaitool plot` understand, one row each.
#pragma once

#include <CLI/CLI.hpp>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace vaitool {

// A per-camera table the back-end turns into a strength.
struct StrengthCurve {
    const char* key;     // JSON key of the table
    uint32_t max_value;  // highest table value the back-end uses as written
    const char* beyond;  // what happens above it, for the problem list
};

// A file as the back-end's own loader left it, over the built-in defaults.
class LoadedTuning {
  public:
    virtual ~LoadedTuning() = default;
    virtual bool accepted() const = 0;  // the loader's result
    virtual uint32_t rear_cameras() const = 0;
    virtual uint32_t cameras() const = 0;  // RearCamNum + FrontCamNum, bounded by the record
    virtual uint32_t process_enable(uint32_t cam) const = 0;
    virtual uint32_t bin_number(uint32_t cam) const = 0;
    virtual const uint32_t* iso_bins(uint32_t cam) const = 0;  // 16 entries
    // What the back-end hands on at `gain`, one value per curve of the mode.
    virtual std::vector<int> strengths(uint32_t cam, float gain) const = 0;
};

struct TuningMode {
    int mode;
    const char* name;
    const char* gain_label;                   // what the bin bounds are compared with
    uint32_t max_cameras;                     // entries of the record
    std::vector<const char*> camera_numbers;  // per-camera keys besides the tables
    std::vector<const char*> camera_tables;   // per-camera arrays of BinNumber values
    std::vector<StrengthCurve> curves;        // in the order strengths() returns them
    int axis_min, axis_max;                   // range of the values handed on
    std::unique_ptr<LoadedTuning> (*load)(const char* path, const char* project);
    bool refuses_zero_bins = false;  // else BinNumber 0 loads and counts as one bin
};

// Keys of the project object, the same for every back-end.
extern const std::vector<const char*> kProjectNumbers;
constexpr size_t kProjectNameBytes = 16;  // InitParams_::project_name
constexpr uint32_t kMaxBins = 16;

const TuningMode* FindTuningMode(int mode);

// Options both subcommands take.
struct TuningArgs {
    int mode = 0;
    std::string project = "DemoProject";
    std::string file;
};
void AddTuningArgs(CLI::App* sub, TuningArgs* args);

}  // namespace vaitool
