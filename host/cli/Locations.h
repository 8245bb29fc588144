#pragma once

#include <QtCore/QString>

#include <optional>

namespace host::cli {

/// The folder of the running program, without a "/" at its end.
QString programFolder();

/// The module that does the command's work: beside the program where it was built, else where it is
/// installed.
QString commandModule();

/// The plug-in's bundle: the installed, else the built one; none where there is neither.
std::optional<QString> installedOrBuiltBundle();

} // namespace host::cli
