// `vaitool check-config`: loads a tuning file with the library's loader and lists every problem with
// its JSON path. Exit status 0 without errors (warnings allowed), 1 with errors, 2 on usage errors.
#pragma once

#include <CLI/CLI.hpp>

namespace vaitool {

// Adds the subcommand; when it runs, its exit status lands in `status`.
void RegisterCheckConfig(CLI::App& app, int& status);

}  // namespace vaitool
