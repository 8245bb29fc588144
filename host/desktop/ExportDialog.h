#pragma once

#include "host/core/HostedPlugIn.h"
#include "host/desktop/AnnouncedLabel.h"

#include <QtCore/QPointer>
#include <QtWidgets/QDialog>
#include <QtWidgets/QPushButton>
#include <QtWidgets/QScrollArea>

namespace host::desktop {

/// Holds a plug-in's settings view between a heading and the buttons "Export" and "Cancel"; it grows with the
/// view as far as the screen allows. What was chosen is the plug-in's to remember. Main thread.
class ExportDialog final : public QDialog {
    Q_OBJECT

public:
    /// Takes `view`, the settings view of `plugIn`.
    ExportDialog(QWidget& view, HostedPlugIn& plugIn, const QString& heading, QWidget* parent);

    QWidget& settingsView() const { return *view_; }
    /// What the user must know beside the settings; none where it is empty.
    void setNotice(const QString& notice);

Q_SIGNALS:
    void exportRequested();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void linkKeyboardLoop(HostedPlugIn& plugIn);
    void growWithView();

    QPointer<QWidget> view_;
    QScrollArea* scrollArea_;
    AnnouncedLabel* notice_;
    QPushButton* exportButton_;
    QPushButton* cancelButton_;
};

} // namespace host::desktop
