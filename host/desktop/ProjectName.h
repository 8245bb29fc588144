#pragma once

#include <QtCore/QString>

namespace host::desktop {

/// Why the text can't name a project, for a person to read; empty where it can. A category, and with it a
/// folder on the server, may get the project's name: only what can name a folder will do.
QString projectNameFault(const QString& name);

} // namespace host::desktop
