#pragma once

#include <QtCore/QString>

namespace platform {

/// This process's own folder below the system's temporary folder ($TMPDIR or /tmp), without a trailing
/// "/": mode 0700, owned by the user, held by a file lock as long as the process lives. A second process
/// of the same user gets a second one; a folder that is a link, or someone else's, is passed over.
QString temporaryFolder();

} // namespace platform
