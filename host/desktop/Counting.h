#pragma once

#include <QtCore/QString>

#include <cstddef>

namespace host::desktop {

/// "1 photograph", "2 photographs".
inline QString photographs(std::size_t count) {
    return count == 1 ? QStringLiteral("1 photograph") : QStringLiteral("%1 photographs").arg(count);
}

} // namespace host::desktop
