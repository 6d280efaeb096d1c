#include "schedule.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace vaitool {

namespace {

std::vector<std::string> Split(const std::string& line) {
    std::vector<std::string> cells;
    std::istringstream in(line);
    for (std::string cell; std::getline(in, cell, ',');) {
        const size_t b = cell.find_first_not_of(" \t\r"), e = cell.find_last_not_of(" \t\r");
        cells.push_back(b == std::string::npos ? "" : cell.substr(b, e - b + 1));
    }
    return cells;
}

}  // namespace

std::string FrameSchedule::Load(const std::string& path) {
    static const char* const kColumns[] = {"frame", "iso", "drc_gain", "zoom", "cam_type"};
    std::ifstream in(path);
    if (!in) return "cannot open parameter file '" + path + "'";
    std::string line;
    std::getline(in, line);
    std::vector<int> column;  // index into kColumns per CSV column
    for (const std::string& name : Split(line)) {
        const auto* it = std::find(std::begin(kColumns), std::end(kColumns), name);
        if (it == std::end(kColumns))
            return path + ":1: unknown column \"" + name +
                   "\" (columns: frame, iso, drc_gain, zoom, cam_type)";
        column.push_back(static_cast<int>(it - std::begin(kColumns)));
    }
    if (std::find(column.begin(), column.end(), 0) == column.end())
        return path + ":1: the header row must name a \"frame\" column";

    for (int n = 2; std::getline(in, line); ++n) {
        if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
        const std::vector<std::string> cells = Split(line);
        const std::string where = path + ":" + std::to_string(n) + ": ";
        if (cells.size() != column.size())
            return where + std::to_string(cells.size()) + " values, the header names " +
                   std::to_string(column.size());
        FrameParams p = rows_.empty() ? constant_ : rows_.back().second;
        int frame = -1;
        for (size_t c = 0; c < cells.size(); ++c) {
            char* end = nullptr;
            const double v = std::strtod(cells[c].c_str(), &end);
            if (cells[c].empty() || *end != '\0' || v < 0)
                return where + "\"" + cells[c] + "\" is not a non-negative number";
            switch (column[c]) {
                case 0:
                    frame = static_cast<int>(v);
                    break;
                case 1:
                    p.iso = static_cast<float>(v);
                    break;
                case 2:
                    p.drc_gain = static_cast<float>(v);
                    break;
                case 3:
                    p.zoom = static_cast<float>(v);
                    break;
                default:
                    if (v > 4 || v != static_cast<int>(v)) return where + "cam_type must be 0 to 4";
                    p.cam_type = static_cast<int>(v);
            }
        }
        if (!rows_.empty() && frame <= rows_.back().first) return where + "frame numbers must ascend";
        rows_.emplace_back(frame, p);
    }
    return "";
}

const FrameParams& FrameSchedule::At(int frame) const {
    auto it = std::upper_bound(rows_.begin(), rows_.end(), frame,
                               [](int f, const std::pair<int, FrameParams>& r) { return f < r.first; });
    return it == rows_.begin() ? constant_ : std::prev(it)->second;
}

}  // namespace vaitool
