#pragma once

#include <QtCore/QObject>
#include <QtWidgets/QComboBox>
#include <QtWidgets/QPushButton>
#include <QtWidgets/QWidget>

#include <initializer_list>

// Small changes of how a control of the panel answers to keys, wheel and pointer. Main thread; each lives as
// long as its control.

/// Return in a field presses a button. The key goes no further, so that it does not also press the default
/// button of the dialog that holds the view.
class ReturnKeyPresses final : public QObject {
public:
    ReturnKeyPresses(QPushButton* button, std::initializer_list<QWidget*> fields);
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QPushButton* const button_;
};

/// Keeps the wheel from changing a control that it only passes over: a host may scroll the panel.
class WheelNeedsFocus final : public QObject {
public:
    explicit WheelNeedsFocus(QWidget* control);
    bool eventFilter(QObject* watched, QEvent* event) override;
};

/// Shows a chooser's text whole in its tool tip: long names may differ only where the chooser cuts them off.
class WholeTextInToolTip final : public QObject {
public:
    explicit WholeTextInToolTip(QComboBox* chooser);
    bool eventFilter(QObject* watched, QEvent* event) override;
};
