#pragma once

#include <QtCore/QString>

namespace host::cli {

/// The module that does the command's work: beside the program where it was built, else where it is
/// installed.
QString commandModule();

} // namespace host::cli
