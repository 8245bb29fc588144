#include "platform/Alert.h"

#include "platform/Thread.h"
#include "tests/support/Waiting.h"

#include <QtCore/QPointer>
#include <QtCore/QThread>
#include <QtCore/QTimer>
#include <QtGui/QScreen>
#include <QtTest/QTest>
#include <QtWidgets/QApplication>
#include <QtWidgets/QLabel>
#include <QtWidgets/QMessageBox>
#include <QtWidgets/QPlainTextEdit>
#include <QtWidgets/QPushButton>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>

namespace {

using platform::Alert;
using platform::AlertStyle;
using test_support::waitUntil;

QMessageBox* shownBox() {
    for (auto* widget : QApplication::topLevelWidgets()) {
        auto* box = qobject_cast<QMessageBox*>(widget);
        if (box && box->isVisible())
            return box;
    }
    return nullptr;
}

void pressOK(QMessageBox& box) {
    QTest::mouseClick(box.button(QMessageBox::Ok), Qt::LeftButton);
}

/// Shows the alert modally, looks at its box, and presses "OK".
void answer(const Alert& alert, const std::function<void(QMessageBox&)>& look) {
    bool isAnswered = false;
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, [&] {
        auto* box = shownBox();
        if (!box || isAnswered)
            return;
        isAnswered = true;
        look(*box);
        pressOK(*box);
    });
    timer.start(5);
    alert.runModal();
    EXPECT_TRUE(isAnswered);
    EXPECT_FALSE(shownBox());
}

std::vector<QString> visibleTexts(const QMessageBox& box) {
    std::vector<QString> texts;
    for (const auto* label : box.findChildren<QLabel*>()) {
        if (label->isVisible() && !label->text().isEmpty())
            texts.push_back(label->text());
    }
    for (const auto* view : box.findChildren<QPlainTextEdit*>()) {
        if (view->isVisible())
            texts.push_back(view->toPlainText());
    }
    return texts;
}

TEST(Alert, ModalAlertShowsItsTextsAndOneButton) {
    answer(Alert(AlertStyle::Critical, QStringLiteral("Message"), QStringLiteral("More")),
           [](QMessageBox& box) {
               EXPECT_EQ(box.text(), QStringLiteral("Message"));
               EXPECT_EQ(box.informativeText(), QStringLiteral("More"));
               EXPECT_EQ(visibleTexts(box), (std::vector{QStringLiteral("Message"), QStringLiteral("More")}));
               EXPECT_EQ(box.standardButtons(), QMessageBox::Ok);
               ASSERT_EQ(box.buttons().size(), 1);
               EXPECT_EQ(box.buttons().first()->text().remove(QLatin1Char('&')), QStringLiteral("OK"));
               EXPECT_EQ(box.windowModality(), Qt::ApplicationModal);
               EXPECT_EQ(QApplication::activeModalWidget(), &box);
               EXPECT_TRUE(QTest::qWaitForWindowActive(&box));
           });
}

TEST(Alert, StyleGivesTheIcon) {
    answer(Alert(AlertStyle::Critical, QStringLiteral("x"), {}),
           [](QMessageBox& box) { EXPECT_EQ(box.icon(), QMessageBox::Critical); });
    answer(Alert(AlertStyle::Warning, QStringLiteral("x"), {}),
           [](QMessageBox& box) { EXPECT_EQ(box.icon(), QMessageBox::Warning); });
    answer(Alert(AlertStyle::Informational, QStringLiteral("x"), {}),
           [](QMessageBox& box) { EXPECT_EQ(box.icon(), QMessageBox::Information); });
}

TEST(Alert, AbsentAndEmptyInformativeTextShowNothing) {
    for (const std::optional<QString>& text : {std::optional<QString>(), std::optional<QString>(QString())}) {
        answer(Alert(AlertStyle::Warning, QStringLiteral("Message"), text), [](QMessageBox& box) {
            EXPECT_EQ(visibleTexts(box), std::vector{QStringLiteral("Message")});
        });
    }
}

TEST(Alert, MarkupIsShownLiterally) {
    const QString markup = QStringLiteral("<h1>Done</h1><img src=\"file:///etc/passwd\"> &amp; 100%1 %s");
    answer(Alert(AlertStyle::Informational, markup, markup), [&markup](QMessageBox& box) {
        EXPECT_EQ(visibleTexts(box), (std::vector{markup, markup}));
        for (const auto* label : box.findChildren<QLabel*>()) {
            if (label->isVisible() && !label->text().isEmpty()) {
                EXPECT_EQ(label->textFormat(), Qt::PlainText);
            }
        }
    });
}

TEST(Alert, EscapeAnswersToo) {
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, [] {
        if (auto* box = shownBox())
            QTest::keyClick(box, Qt::Key_Escape);
    });
    timer.start(5);
    Alert(AlertStyle::Warning, QStringLiteral("x"), {}).runModal();
    EXPECT_FALSE(shownBox());
}

TEST(Alert, LongTextsStayOnTheScreen) {
    QStringList words;
    for (int number = 0; number < 2000; ++number)
        words += QStringLiteral("word%1").arg(number);
    const QString prose = words.join(QLatin1Char(' '));
    const QString lines = words.join(QLatin1Char('\n'));
    const QString unbroken(10000, QLatin1Char('x'));
    for (const QString& text :
         {prose, lines, unbroken, prose.left(3500), lines.left(300), unbroken.left(1500)}) {
        answer(Alert(AlertStyle::Critical, text, text), [&text](QMessageBox& box) {
            EXPECT_TRUE(box.screen()->availableGeometry().contains(box.frameGeometry()))
                << box.width() << " x " << box.height();
            EXPECT_EQ(visibleTexts(box), (std::vector{text, text}));
            EXPECT_EQ(box.text(), text);
            EXPECT_EQ(box.informativeText(), text);
            EXPECT_TRUE(box.rect().contains(box.button(QMessageBox::Ok)->geometry()));
        });
    }
}

TEST(Alert, AnyThreadMayShowItAndWaits) {
    std::atomic<bool> isAnswered = false;
    const auto thread = platform::Thread::start("alert", [&isAnswered] {
        Alert(AlertStyle::Critical, QStringLiteral("From a worker"), {}).runModal();
        isAnswered = true;
    });
    bool wasSeen = false;
    QTimer timer; // the alert's own loop runs inside the wait below
    QObject::connect(&timer, &QTimer::timeout, [&] {
        if (auto* box = shownBox()) {
            EXPECT_FALSE(isAnswered);
            EXPECT_EQ(box->text(), QStringLiteral("From a worker"));
            wasSeen = true;
            pressOK(*box);
        }
    });
    timer.start(5);
    EXPECT_TRUE(waitUntil([&] { return isAnswered && !thread->isRunning(); }));
    EXPECT_TRUE(wasSeen);
}

TEST(Alert, ModalAlertOutlivesTheWindowItCameUpOver) {
    auto window = std::make_unique<QWidget>();
    window->show();
    window->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(window.get()));
    answer(Alert(AlertStyle::Critical, QStringLiteral("Message"), {}), [&window](QMessageBox& box) {
        EXPECT_EQ(box.windowHandle()->transientParent(), window->windowHandle());
        window->close();
        window.reset();
        test_support::runLoopFor(std::chrono::milliseconds(20));
        EXPECT_TRUE(box.isVisible());
    });
}

/// A window that counts the clicks which reach it.
class Window : public QPushButton {
public:
    Window() {
        connect(this, &QPushButton::clicked, [this] { ++clicks_; });
        show();
    }
    int clicksAfterOne() {
        QTest::mouseClick(windowHandle(), Qt::LeftButton, {}, rect().center());
        return clicks_;
    }

private:
    int clicks_ = 0;
};

TEST(Alert, SheetReturnsAtOnceAndBlocksItsWindowOnly) {
    Window window;
    Window other;
    Alert(AlertStyle::Warning, QStringLiteral("Message"), QStringLiteral("More")).beginSheet(&window);
    const QPointer<QMessageBox> box = shownBox();
    ASSERT_TRUE(box);
    EXPECT_EQ(box->windowModality(), Qt::WindowModal);
    EXPECT_EQ(visibleTexts(*box), (std::vector{QStringLiteral("Message"), QStringLiteral("More")}));
    EXPECT_EQ(window.clicksAfterOne(), 0);
    EXPECT_EQ(other.clicksAfterOne(), 1);
    pressOK(*box);
    EXPECT_TRUE(waitUntil([&box] { return box.isNull(); }));
    EXPECT_EQ(window.clicksAfterOne(), 1);
}

TEST(Alert, ModalAlertBlocksEveryWindow) {
    Window window;
    answer(Alert(AlertStyle::Critical, QStringLiteral("Message"), {}),
           [&window](QMessageBox&) { EXPECT_EQ(window.clicksAfterOne(), 0); });
    EXPECT_EQ(window.clicksAfterOne(), 1);
}

TEST(Alert, SheetNeedsNoWindow) {
    Alert(AlertStyle::Warning, QStringLiteral("Message"), {}).beginSheet(nullptr);
    const QPointer<QMessageBox> box = shownBox();
    ASSERT_TRUE(box);
    pressOK(*box);
    EXPECT_TRUE(waitUntil([&box] { return box.isNull(); }));
}

TEST(Alert, SheetGoesWithItsWindow) {
    auto window = std::make_unique<QWidget>();
    window->show();
    Alert(AlertStyle::Warning, QStringLiteral("Message"), {}).beginSheet(window.get());
    const QPointer<QMessageBox> box = shownBox();
    ASSERT_TRUE(box);
    window.reset();
    EXPECT_TRUE(box.isNull());
}

TEST(Alert, SheetBelongsToTheWindowThatHoldsTheWidget) {
    QWidget window;
    auto* panel = new QWidget(&window);
    window.show();
    Alert(AlertStyle::Warning, QStringLiteral("Message"), {}).beginSheet(panel);
    ASSERT_TRUE(shownBox());
    EXPECT_EQ(shownBox()->parentWidget(), &window);
}

} // namespace
