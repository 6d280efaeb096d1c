// Per-frame capture parameters for `vaitool denoise`: constant, or read from a CSV file.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace vaitool {

struct FrameParams {
    float iso;
    float drc_gain;
    float zoom;
    int cam_type;
};

// A CSV file has a header row naming its columns: "frame" (required) and any of "iso", "drc_gain",
// "zoom", "cam_type". Rows are in ascending frame order; a frame without a row keeps the last row
// before it, frames before the first row and columns the file lacks take the constant values.
class FrameSchedule {
  public:
    explicit FrameSchedule(const FrameParams& constant) : constant_(constant) {}
    // Returns an error text naming the file and line, empty on success.
    std::string Load(const std::string& path);
    const FrameParams& At(int frame) const;

  private:
    FrameParams constant_;
    std::vector<std::pair<int, FrameParams>> rows_;
};

}  // namespace vaitool
