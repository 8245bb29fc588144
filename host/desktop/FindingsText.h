#pragma once

#include "host/desktop/PhotographFiles.h"

namespace host::desktop {

/// What a look at files and folders has passed over, could not read or found empty; empty where there is no
/// such thing.
QString passedOverText(const FoundPhotographs& found);

/// What stands on an empty light table: how to fill it, and that the folders that were looked into held no
/// photographs.
QString emptyTableText(const QStringList& folderNames = {});

} // namespace host::desktop
