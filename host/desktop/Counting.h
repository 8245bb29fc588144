#pragma once

#include <QtCore/QCoreApplication>

#include <cstddef>

namespace host::desktop {

/// "1 photograph", "2 photographs".
inline QString photographs(std::size_t count) {
    return count == 1 ? QCoreApplication::translate("Counting", "1 photograph")
                      : QCoreApplication::translate("Counting", "%1 photographs").arg(count);
}

} // namespace host::desktop
