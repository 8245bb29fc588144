#pragma once

#include <QtCore/QString>

#include <optional>

namespace host {

/// The folder of the running program, without a "/" at its end.
QString programFolder();

/// Where an installation keeps its modules and the plug-in's bundle.
QString installedModulesFolder();

/// The plug-in's bundle: the installed, else the built one; none where there is neither.
std::optional<QString> installedOrBuiltBundle();

} // namespace host
