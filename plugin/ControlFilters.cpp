#include "plugin/ControlFilters.h"

#include <QtGui/QHelpEvent>
#include <QtGui/QKeyEvent>
#include <QtWidgets/QToolTip>

namespace {

/// A tool tip of a name from the service is kept to what fits a screen.
constexpr qsizetype kLongestToolTip = 1000;

} // namespace

ReturnKeyPresses::ReturnKeyPresses(QPushButton* button, std::initializer_list<QWidget*> fields)
    : QObject(button)
    , button_(button) {
    for (QWidget* const field : fields) {
        if (field)
            field->installEventFilter(this);
    }
}

bool ReturnKeyPresses::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() != QEvent::KeyPress)
        return QObject::eventFilter(watched, event);
    const int key = static_cast<QKeyEvent*>(event)->key();
    if (key != Qt::Key_Return && key != Qt::Key_Enter)
        return QObject::eventFilter(watched, event);
    button_->click();
    return true;
}

WheelNeedsFocus::WheelNeedsFocus(QWidget* control)
    : QObject(control) {
    control->setFocusPolicy(Qt::StrongFocus);
    control->installEventFilter(this);
}

bool WheelNeedsFocus::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() != QEvent::Wheel || static_cast<QWidget*>(watched)->hasFocus())
        return QObject::eventFilter(watched, event);
    // Left to what is around the control.
    event->ignore();
    return true;
}

WholeTextInToolTip::WholeTextInToolTip(QComboBox* chooser)
    : QObject(chooser) {
    chooser->installEventFilter(this);
}

bool WholeTextInToolTip::eventFilter(QObject* watched, QEvent* event) {
    auto* const chooser = static_cast<QComboBox*>(watched);
    if (event->type() != QEvent::ToolTip || chooser->currentText().isEmpty())
        return QObject::eventFilter(watched, event);
    // A tool tip guesses its text's format: this is markup that shows the name literally, and wraps it.
    const QString text = chooser->currentText().left(kLongestToolTip).toHtmlEscaped();
    QToolTip::showText(static_cast<QHelpEvent*>(event)->globalPos(), QStringLiteral("<p>%1</p>").arg(text),
                       chooser);
    return true;
}
