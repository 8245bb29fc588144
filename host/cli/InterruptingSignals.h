#pragma once

#include <csignal>

namespace host::cli {

/// Ctrl-C, SIGTERM and, unless it is to be ignored as under nohup, the loss of the terminal.
sigset_t interruptingSignals();

/// Keeps these signals waiting for the thread that fetches them: in the calling thread and all that it
/// starts. To be called first of all, so that none ends the process unheard.
void holdInterruptingSignals();

} // namespace host::cli
