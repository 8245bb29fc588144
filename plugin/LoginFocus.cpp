#include "plugin/LoginFocus.h"

#include <QtCore/QEvent>

#include <utility>

LoginFocus::LoginFocus(QPushButton* loginButton, std::initializer_list<QWidget*> fields, QWidget* next)
    : QObject(loginButton)
    , loginButton_(loginButton)
    , next_(next) {
    loginButton->installEventFilter(this);
    for (QWidget* const field : fields) {
        if (field)
            field->installEventFilter(this);
    }
}

bool LoginFocus::eventFilter(QObject* watched, QEvent* event) {
    auto* const control = static_cast<QWidget*>(watched);
    // Only what is disabled loses the focus after the fact.
    if (event->type() == QEvent::FocusOut && !control->isEnabled())
        lose(control);
    else if (event->type() == QEvent::EnabledChange && control == loginButton_ && control->isEnabled())
        bringBack();
    return QObject::eventFilter(watched, event);
}

void LoginFocus::lose(QWidget* control) {
    if (lostBy_)
        return;
    lostBy_ = control;
    // The focus goes on from control to control while one after the other is disabled.
    const auto remember = [this] { sentTo_ = loginButton_->window()->focusWidget(); };
    QMetaObject::invokeMethod(this, remember, Qt::QueuedConnection);
}

void LoginFocus::bringBack() {
    const QPointer<QWidget> lostBy = std::exchange(lostBy_, nullptr);
    if (!lostBy || loginButton_->window()->focusWidget() != sentTo_)
        return;
    QWidget* const target = next_ && next_->isVisible() ? next_ : lostBy;
    target->setFocus();
}
