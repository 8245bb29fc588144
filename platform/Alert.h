#pragma once

#include <QtCore/QString>

#include <optional>

class QWidget;

namespace platform {

enum class AlertStyle { Warning, Informational, Critical };

/// An alert of the desktop with the single button "OK", over QMessageBox. Texts are shown literally, as
/// plain text.
class Alert {
public:
    Alert(AlertStyle style, QString message, std::optional<QString> informativeText);

    /// Shows it application-modal on the main thread and returns when it has been answered. Any thread.
    void runModal() const;
    /// Shows it as a sheet of `window`, modal for that window alone, and returns at once. Main thread.
    void beginSheet(QWidget* window) const;

private:
    AlertStyle style_;
    QString message_;
    std::optional<QString> informativeText_;
};

} // namespace platform
