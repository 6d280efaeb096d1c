// `vaitool synth`: a noisy clip and its clean reference from a photograph, with slow camera motion and
// the sensor noise model the bundled networks were trained on.
#pragma once

#include <CLI/CLI.hpp>

#include <cstdint>
#include <string>

#include "clip.h"

namespace vaitool {

struct SynthArgs {
    std::string image;
    std::string output;
    std::string clean;            // optional
    std::string layout = "p010";  // raw outputs
    int bits = 10;                // Y4M outputs: 8 or 10
    int width = 1920;
    int height = 1080;
    int frames = 10;
    float iso = 3200.0f;
    uint64_t seed = 1;
};

// Returns the exit status; errors go to stderr as one line.
int Synth(const SynthArgs& args);

void RegisterSynth(CLI::App& app, int& status);

// Writes `data` to `path` through a temporary name, renamed into place only when all is written.
std::string WriteFileAtomically(const std::string& path, const std::string& data);

}  // namespace vaitool
