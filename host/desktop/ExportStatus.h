#pragma once

#include "host/desktop/AnnouncedLabel.h"
#include "hostapi/ExportProgress.h"

#include <QtWidgets/QProgressBar>
#include <QtWidgets/QPushButton>
#include <QtWidgets/QWidget>

namespace host::desktop {

/// Shows how the running export goes, in a window's status bar, with a button to cancel it. Main thread.
class ExportStatus final : public QWidget {
    Q_OBJECT

public:
    explicit ExportStatus(QWidget* parent = nullptr);

    /// Shows itself for an export that has just begun.
    void begin();
    void follow(const hostapi::ExportProgress& progress);
    /// How many exports wait for the running one.
    void setWaiting(std::size_t count);
    /// The cancel has begun.
    void setCancelling();

Q_SIGNALS:
    void cancelRequested();

private:
    void showMessage(const QString& message);

    AnnouncedLabel* message_;
    QProgressBar* bar_;
    QLabel* waiting_;
    QPushButton* cancelButton_;
    QString stage_;
};

} // namespace host::desktop
