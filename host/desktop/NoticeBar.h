#pragma once

#include <QtWidgets/QFrame>
#include <QtWidgets/QLabel>
#include <QtWidgets/QPushButton>

namespace host::desktop {

/// A line above the light table that tells something and offers to do something about it. Main thread.
class NoticeBar final : public QFrame {
    Q_OBJECT

public:
    explicit NoticeBar(QWidget* parent = nullptr);
    void showNotice(const QString& text, const QString& buttonText);

Q_SIGNALS:
    void activated();

private:
    QLabel* text_;
    QPushButton* button_;
};

} // namespace host::desktop
