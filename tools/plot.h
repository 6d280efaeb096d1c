// `vaitool plot`: one SVG chart per camera entry of the strengths a back-end takes from a tuning file,
// computed by the library's own strength functions, with the bin bounds marked.
#pragma once

#include <CLI/CLI.hpp>

namespace vaitool {

// Adds the subcommand; when it runs, its exit status lands in `status`.
void RegisterPlot(CLI::App& app, int& status);

}  // namespace vaitool
