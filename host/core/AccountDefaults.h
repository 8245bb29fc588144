#pragma once

#include "hostapi/HostServices.h"

#include <QtCore/QSet>

#include <mutex>
#include <optional>

namespace host {

/// The account whose login is remembered in the desktop's user defaults.
std::optional<QString> rememberedAccount();

/// The desktop's user defaults, without a remembered login that this run must not use.
///
/// A login of another account than `account` is hidden, so that nothing of one account reaches an export of
/// another; where the run brings its own password, the remembered one is. Hidden means absent until the
/// plug-in stores a value of its own. What it stores goes to the desktop's defaults.
class AccountDefaults final : public hostapi::DefaultsStore {
public:
    /// `account`: the account of this run, where one was named.
    AccountDefaults(const std::optional<QString>& account, bool bringsPassword);

    QVariant value(QLatin1String key) override;
    void setValue(QLatin1String key, const QVariant& value) override;
    void remove(QLatin1String key) override;

private:
    std::mutex mutex_;
    QSet<QString> hidden_;
};

} // namespace host
