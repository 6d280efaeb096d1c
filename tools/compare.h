// `vaitool compare`: PSNR and SSIM of clips against a reference, per frame and on average, and a
// side-by-side picture of one frame.
#pragma once

#include <CLI/CLI.hpp>

#include <cstdint>
#include <string>
#include <vector>

#include "clip.h"

namespace vaitool {

struct Quality {
    double y_mse = 0, uv_mse = 0;    // at the clip's bit depth; a mosaic's samples count as luma
    double y_ssim = 0, uv_ssim = 0;  // Gaussian-window SSIM; chroma: mean of both planes
};

Quality CompareFrames(const std::vector<uint8_t>& reference, const std::vector<uint8_t>& test,
                      const ClipFormat& f);
// On the clip's full scale (ClipFormat::peak); infinite for equal frames.
double Psnr(double mse, const ClipFormat& f);

struct CompareArgs {
    std::string reference;
    std::vector<std::string> clips;
    ClipFormat raw;  // for raw clips
    std::string csv;
    std::string png;
    int png_frame = -1;  // -1: the middle frame
};

int Compare(const CompareArgs& args);

void RegisterCompare(CLI::App& app, int& status);

}  // namespace vaitool
