#pragma once

#include <QtCore/QObject>
#include <QtCore/QPointer>
#include <QtWidgets/QPushButton>
#include <QtWidgets/QWidget>

#include <initializer_list>

/// Brings the keyboard's focus back after a login. The login's controls are disabled meanwhile, which sends
/// the focus out of the panel: perhaps to the host's export button. After a failed login it returns to the
/// control that had it, after a good one it goes to the control that comes next; where the user has moved it
/// since, it stays. Main thread; lives as long as the login button.
class LoginFocus final : public QObject {
public:
    LoginFocus(QPushButton* loginButton, std::initializer_list<QWidget*> fields, QWidget* next);

    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void lose(QWidget* control);
    void bringBack();

    QPushButton* const loginButton_;
    const QPointer<QWidget> next_;
    QPointer<QWidget> lostBy_; ///< The control that was disabled while it had the focus.
    QPointer<QWidget> sentTo_; ///< Where the focus went instead.
};
