#pragma once

#include "host/cli/Options.h"

namespace host::cli {

/// Does what the options ask for, and ends the process with the exit status of the outcome.
[[noreturn]] void runCommand(const Options& options);

/// The name by which the module that holds all this hands it out. The command itself is linked against
/// little, so that it can answer at once where there is nothing to load.
inline constexpr const char* kRunCommandSymbol = "quillmark_export_run_command";
using RunCommandFunction = void (*)(const Options& options);

} // namespace host::cli
