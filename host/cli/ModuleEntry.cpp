#include "host/cli/RunCommand.h"

extern "C" Q_DECL_EXPORT void quillmark_export_run_command(const host::cli::Options& options) {
    host::cli::runCommand(options);
}
