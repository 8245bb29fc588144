#pragma once

#include <QtCore/QStringList>
#include <QtCore/QTimer>
#include <QtWidgets/QApplication>
#include <QtWidgets/QMessageBox>

/// Answers every message box with the button that is wished for, and keeps what it said. `NoButton`: with
/// none.
class MessageAnswers {
public:
    MessageAnswers() {
        QObject::connect(&timer_, &QTimer::timeout, &timer_, [this] { answerOne(); });
        timer_.start(5);
    }
    QStringList texts;
    QMessageBox::StandardButton wish = QMessageBox::Ok;

private:
    void answerOne() {
        for (QWidget* const widget : QApplication::topLevelWidgets()) {
            auto* const box = qobject_cast<QMessageBox*>(widget);
            if (!box || !box->isVisible())
                continue;
            QAbstractButton* const button =
                box->button(wish) ? box->button(wish) : box->button(QMessageBox::Ok);
            if (!button)
                continue;
            texts << box->text() + QLatin1Char('|') + box->informativeText();
            button->click();
            return;
        }
    }
    QTimer timer_;
};
