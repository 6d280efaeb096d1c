#include "plot.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tuning_modes.h"

namespace vaitool {
namespace {

constexpr int kWidth = 760, kChartHeight = 300;
constexpr double kLeft = 64, kRight = 736, kTop = 44, kBottom = 244;
constexpr int kSamples = 400;
const char* const kColours[] = {"#1f77b4", "#d62728", "#2ca02c", "#9467bd"};

std::string Escape(const std::string& s) {
    std::string out;
    for (char c : s) {
        if (c == '&') {
            out += "&amp;";
        } else if (c == '<') {
            out += "&lt;";
        } else if (c == '>') {
            out += "&gt;";
        } else if (c == '"') {
            out += "&quot;";
        } else {
            out += c;
        }
    }
    return out;
}

std::string Num(double v) {
    char buf[32];
    std::snprintf(buf, sizeof(buf), "%.1f", v);
    return buf;
}

// One chart, its origin at the top left of its band.
void Chart(std::ostringstream& svg, const TuningMode& mode, const LoadedTuning& t, uint32_t cam,
           const std::string& project, int band) {
    const uint32_t bins = std::clamp<uint32_t>(t.bin_number(cam), 1, kMaxBins);
    const uint32_t* bounds = t.iso_bins(cam);
    const uint32_t low = *std::min_element(bounds, bounds + bins),
                   high = *std::max_element(bounds, bounds + bins);
    // Log scale: bins are tuned in stops, and a stop either side shows the clamped ends.
    const double lo = std::log2(std::max(1.0, low / 2.0));
    const double hi = std::max(lo + 2, std::log2(std::max(1.0, high * 2.0)));
    auto x = [&](double gain) {
        return kLeft + (std::log2(std::max(gain, 1.0)) - lo) / (hi - lo) * (kRight - kLeft);
    };

    // Samples over the range plus every bound, where the slopes change.
    std::set<double> gains;
    for (int i = 0; i <= kSamples; ++i) gains.insert(std::exp2(lo + (hi - lo) * i / kSamples));
    for (uint32_t b = 0; b < bins; ++b) {
        if (bounds[b] >= std::exp2(lo) && bounds[b] <= std::exp2(hi)) gains.insert(bounds[b]);
    }
    std::vector<std::vector<int>> values;
    int vmax = mode.axis_max, vmin = mode.axis_min;
    for (double g : gains) {
        values.push_back(t.strengths(cam, static_cast<float>(g)));
        for (int v : values.back()) {
            vmax = std::max(vmax, v);
            vmin = std::min(vmin, v);
        }
    }
    auto y = [&](double v) { return kBottom - (v - vmin) / (vmax - vmin) * (kBottom - kTop); };

    svg << "<g class=\"chart\" transform=\"translate(0," << band * kChartHeight << ")\">\n";
    std::string title =
        project + ", camera " + std::to_string(cam) + (cam < t.rear_cameras() ? " (rear)" : " (front)");
    if (t.process_enable(cam) == 0) title += ": processing off, frames are copied";
    svg << "<text x=\"" << kLeft << "\" y=\"24\" font-size=\"14\">" << Escape(title) << "</text>\n";
    svg << "<rect x=\"" << kLeft << "\" y=\"" << kTop << "\" width=\"" << kRight - kLeft << "\" height=\""
        << kBottom - kTop << "\" fill=\"none\" stroke=\"#444\"/>\n";
    for (int i = 0; i <= 4; ++i) {
        const double v = vmin + (vmax - vmin) * i / 4.0;
        svg << "<text x=\"" << kLeft - 6 << "\" y=\"" << Num(y(v) + 4) << "\" text-anchor=\"end\">"
            << static_cast<int>(std::lround(v)) << "</text>\n";
    }
    for (uint32_t b = 0; b < bins; ++b) {
        const std::string bx = Num(x(bounds[b]));
        svg << "<line class=\"bin\" x1=\"" << bx << "\" y1=\"" << kTop << "\" x2=\"" << bx << "\" y2=\""
            << kBottom << "\" stroke=\"#999\" stroke-dasharray=\"4 3\"/>\n";
        svg << "<text x=\"" << bx << "\" y=\"" << kBottom + (b % 2 == 0 ? 14 : 26)
            << "\" text-anchor=\"middle\" font-size=\"10\">" << bounds[b] << "</text>\n";
    }
    for (size_t c = 0; c < mode.curves.size(); ++c) {
        const char* colour = kColours[c % std::size(kColours)];
        svg << "<polyline class=\"curve\" fill=\"none\" stroke=\"" << colour
            << "\" stroke-width=\"2\" points=\"";
        size_t i = 0;
        for (double g : gains) {
            svg << (i == 0 ? "" : " ") << Num(x(g)) << "," << Num(y(values[i][c]));
            ++i;
        }
        svg << "\"/>\n";
        svg << "<text x=\"" << kRight - 8 << "\" y=\"" << kTop + 16 + 14 * c
            << "\" text-anchor=\"end\" fill=\"" << colour << "\">" << mode.curves[c].key << "</text>\n";
    }
    svg << "<text x=\"" << (kLeft + kRight) / 2 << "\" y=\"" << kBottom + 44 << "\" text-anchor=\"middle\">"
        << mode.gain_label << " (log scale; dashed: bin bounds)</text>\n";
    svg << "<text transform=\"translate(16," << (kTop + kBottom) / 2
        << ") rotate(-90)\" text-anchor=\"middle\">strength handed on</text>\n";
    svg << "</g>\n";
}

int Plot(const TuningArgs& args, const std::string& output) {
    const TuningMode& mode = *FindTuningMode(args.mode);
    const std::unique_ptr<LoadedTuning> t = mode.load(args.file.c_str(), args.project.c_str());
    if (!t->accepted()) {
        std::fprintf(stderr,
                     "error: the %s loader refuses '%s' (project %s); vaitool check-config lists why\n",
                     mode.name, args.file.c_str(), args.project.c_str());
        return 1;
    }
    const uint32_t charts = t->cameras();
    std::ostringstream svg;
    svg << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << kWidth << "\" height=\""
        << charts * kChartHeight << "\" viewBox=\"0 0 " << kWidth << " " << charts * kChartHeight
        << "\" font-family=\"sans-serif\" font-size=\"11\">\n"
        << "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
    for (uint32_t cam = 0; cam < charts; ++cam)
        Chart(svg, mode, *t, cam, args.project, static_cast<int>(cam));
    svg << "</svg>\n";
    std::ofstream out(output, std::ios::binary);
    out << svg.str();
    out.close();
    if (!out) {
        std::fprintf(stderr, "error: cannot write '%s'\n", output.c_str());
        std::remove(output.c_str());
        return 1;
    }
    std::printf("%s: %u chart(s) of mode %d (%s), project %s\n", output.c_str(), charts, mode.mode, mode.name,
                args.project.c_str());
    return 0;
}

}  // namespace

void RegisterPlot(CLI::App& app, int& status) {
    struct Args {
        TuningArgs tuning;
        std::string output = "tuning.svg";
    };
    auto args = std::make_shared<Args>();
    CLI::App* sub = app.add_subcommand(
        "plot",
        "Writes an SVG chart per camera entry of the strengths the back-end takes from a tuning file, "
        "against the gain its bins are compared with.");
    AddTuningArgs(sub, &args->tuning);
    sub->add_option("-o,--output", args->output, "SVG file to write")->capture_default_str();
    sub->callback([args, &status] { status = Plot(args->tuning, args->output); });
}

}  // namespace vaitool
