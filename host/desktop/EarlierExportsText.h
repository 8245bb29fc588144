#pragma once

#include "host/desktop/Exporter.h"

namespace host::desktop {

/// That earlier exports are not complete, or that it is not known what they have left; empty where nothing is
/// left.
QString earlierExportsNotice(const EarlierExports& exports);

/// Which journals can't be read, and why.
QString unreadableJournalsText(const std::vector<EarlierExports::Journal>& journals);

} // namespace host::desktop
