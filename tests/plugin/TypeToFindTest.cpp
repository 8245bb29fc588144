// Finding an item of a long list by typing a part of its name.

#include "tests/support/RecordingHost.h"
#include "tests/support/Waiting.h"

#include <QtTest/QSignalSpy>
#include <QtTest/QTest>
#include <QtWidgets/QAbstractItemView>
#include <QtWidgets/QApplication>

#include <gtest/gtest.h>

using test_support::RecordingHost;

namespace {

class TypeToFind : public testing::Test {
protected:
    TypeToFind() {
        // A slow machine is no slow typist.
        QApplication::setKeyboardInputInterval(60'000);
        plugIn = host.makePlugIn();
        view.reset(plugIn->settingsView());
        plugIn->eventBox->show();
        view->show();
    }
    ~TypeToFind() override { QApplication::setKeyboardInputInterval(interval_); }

    void showEvents(const QStringList& names) {
        auto list = std::make_shared<RecordList>();
        for (const QString& name : names) {
            auto record = std::make_shared<Record>();
            record->setText(kIdKey, QStringLiteral("id of ") + name);
            record->setText(kNameKey, name);
            list->push_back(record);
        }
        plugIn->setEventList(list);
        plugIn->doneEventLoad();
    }

    void type(const char* text) {
        // To the list, while it is open.
        auto* const items = plugIn->eventChooser->view();
        QTest::keyClicks(items->isVisible() ? static_cast<QWidget*>(items) : plugIn->eventChooser.data(),
                         QString::fromLatin1(text));
    }
    /// The next key comes late.
    void pause() {
        QApplication::setKeyboardInputInterval(0);
        test_support::runLoopFor(std::chrono::milliseconds(2));
    }

    RecordingHost host;
    std::shared_ptr<Quillmark> plugIn;
    std::unique_ptr<QWidget> view;

private:
    const int interval_ = QApplication::keyboardInputInterval();
};

const QStringList kEvents{QStringLiteral("Anna's Wedding"), QStringLiteral("Smith Wedding"),
                          QStringLiteral("Winter Market"),  QStringLiteral("Wedge Issue"),
                          QStringLiteral("Newedge GmbH"),   QStringLiteral("Änne")};

} // namespace

TEST_F(TypeToFind, ANameThatBeginsWithTheTextComesFirst) {
    showEvents(kEvents);
    type("wed");
    EXPECT_EQ(plugIn->eventChooser->currentText(), QStringLiteral("Wedge Issue"));
    EXPECT_EQ(plugIn->chosenEventId(), QStringLiteral("id of Wedge Issue"));
}

TEST_F(TypeToFind, AWordThatBeginsWithTheTextComesBeforeTheTextWithinOne) {
    showEvents({QStringLiteral("Newedge GmbH"), QStringLiteral("Smith Wedding")});
    type("wed");
    EXPECT_EQ(plugIn->eventChooser->currentText(), QStringLiteral("Smith Wedding"));
}

TEST_F(TypeToFind, ASpaceContinuesTheText) {
    showEvents({QStringLiteral("Smith Portraits"), QStringLiteral("Smith Wedding")});
    type("smith w");
    EXPECT_FALSE(plugIn->eventChooser->view()->isVisible());
    EXPECT_EQ(plugIn->eventChooser->currentText(), QStringLiteral("Smith Wedding"));
}

TEST_F(TypeToFind, ASpaceAloneOpensTheList) {
    showEvents(kEvents);
    type(" ");
    EXPECT_TRUE(plugIn->eventChooser->view()->isVisible());
    plugIn->eventChooser->hidePopup();
}

TEST_F(TypeToFind, OneLetterAgainAndAgainGoesFromNameToName) {
    showEvents(kEvents);
    type("w");
    EXPECT_EQ(plugIn->eventChooser->currentText(), QStringLiteral("Winter Market"));
    type("w");
    EXPECT_EQ(plugIn->eventChooser->currentText(), QStringLiteral("Wedge Issue"));
    type("W");
    EXPECT_EQ(plugIn->eventChooser->currentText(), QStringLiteral("Winter Market"));
}

TEST_F(TypeToFind, APauseBeginsANewText) {
    showEvents(kEvents);
    type("s");
    ASSERT_EQ(plugIn->eventChooser->currentText(), QStringLiteral("Smith Wedding"));
    pause();
    QTest::sendKeyEvent(QTest::Click, plugIn->eventChooser, Qt::Key_Adiaeresis, QStringLiteral("ä"), {});
    EXPECT_EQ(plugIn->eventChooser->currentText(), QStringLiteral("Änne"));
}

TEST_F(TypeToFind, ATextThatNoNameHasChangesNothing) {
    showEvents(kEvents);
    type("smi");
    QSignalSpy choices(plugIn.get(), &Quillmark::chosenEventIdChanged);
    type("zzz");
    EXPECT_EQ(plugIn->eventChooser->currentText(), QStringLiteral("Smith Wedding"));
    EXPECT_EQ(choices.size(), 0);
}

TEST_F(TypeToFind, WithoutItemsNothingIsFound) {
    showEvents({});
    type("a");
    EXPECT_EQ(plugIn->eventChooser->currentIndex(), -1);
}

TEST_F(TypeToFind, InTheOpenListItMarksAndReturnChooses) {
    showEvents(kEvents);
    plugIn->eventChooser->setFocus();
    plugIn->eventChooser->showPopup();
    type("smith wed");
    auto* const items = plugIn->eventChooser->view();
    EXPECT_EQ(items->currentIndex().data().toString(), QStringLiteral("Smith Wedding"));
    EXPECT_FALSE(plugIn->chosenEventId().has_value()) << "looked at, not chosen";
    QTest::keyClick(items, Qt::Key_Return);
    EXPECT_FALSE(items->isVisible());
    EXPECT_EQ(plugIn->chosenEventId(), QStringLiteral("id of Smith Wedding"));
}

TEST_F(TypeToFind, OtherKeysKeepTheirMeaning) {
    showEvents(kEvents);
    QTest::sendKeyEvent(QTest::Click, plugIn->eventChooser, Qt::Key_S, QStringLiteral("\x13"),
                        Qt::ControlModifier);
    EXPECT_EQ(plugIn->eventChooser->currentIndex(), -1);
    QTest::keyClick(plugIn->eventChooser, Qt::Key_Down);
    EXPECT_EQ(plugIn->eventChooser->currentIndex(), 0);
    QTest::keyClick(plugIn->eventChooser, Qt::Key_End);
    EXPECT_EQ(plugIn->eventChooser->currentIndex(), int(kEvents.size()) - 1);
}

TEST_F(TypeToFind, AThousandEventsAreFoundWithoutAWait) {
    QStringList names;
    for (int i = 0; i < 1000; ++i)
        names << QStringLiteral("2026-05-%1 Event number %2").arg(i % 28 + 1).arg(i, 4, 10, QLatin1Char('0'));
    QElapsedTimer timer;
    timer.start();
    showEvents(names);
    plugIn->eventChooser->showPopup();
    type("0777");
    QTest::keyClick(plugIn->eventChooser->view(), Qt::Key_Return);
    EXPECT_EQ(plugIn->chosenEventId(), QStringLiteral("id of ") + names[777]);
    // A person waits for none of it: some milliseconds, and here many times that for a busy machine.
    EXPECT_LT(timer.elapsed(), 3000);
}
