#pragma once

#include <QtCore/QString>

#include <cstddef>

namespace hostapi {

/// The progress record that a plug-in keeps and its host reads in place.
///
/// Order and types of the fields are part of the contract. Both sides touch them only between
/// `lockProgress` and `unlockProgress`; copying `message` under the lock is enough to keep it.
struct ExportProgress {
    std::size_t currentValue = 0; ///< Steps done; bytes while images are uploaded.
    std::size_t totalValue = 0;   ///< Steps in all, in the unit of `currentValue`.
    QString message;              ///< What the user reads; a null string before the first export.
    bool indeterminateProgress = false;
};

static_assert(offsetof(ExportProgress, currentValue) == 0);
static_assert(offsetof(ExportProgress, totalValue) == sizeof(std::size_t));
static_assert(offsetof(ExportProgress, message) == 2 * sizeof(std::size_t));
static_assert(offsetof(ExportProgress, indeterminateProgress) == 2 * sizeof(std::size_t) + sizeof(QString));
static_assert(sizeof(bool) == 1);

} // namespace hostapi
