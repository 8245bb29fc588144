#pragma once

#include "host/desktop/AnnouncedLabel.h"

#include <QtWidgets/QFrame>
#include <QtWidgets/QPushButton>

namespace host::desktop {

/// A bar above the light table that tells something, and may offer to do something about it. Main thread.
class NoticeBar final : public QFrame {
    Q_OBJECT

public:
    explicit NoticeBar(QWidget* parent = nullptr);
    /// Without a text for it, there is no button.
    void showNotice(const QString& text, const QString& buttonText = {});

Q_SIGNALS:
    void activated();

private:
    AnnouncedLabel* text_;
    QPushButton* button_;
};

} // namespace host::desktop
