// The host closes its dialog and lets go of the plug-in in the middle of the service's work.

#include "tests/service/ServiceTest.h"

#include <QtTest/QTest>
#include <QtWidgets/QAbstractButton>

#include <chrono>
#include <thread>

using namespace service_tests;
using test_support::runLoopFor;
using test_support::waitUntil;
using test_support::WebAnswer;
using test_support::WebRequest;
using namespace std::chrono_literals;

namespace {

class Lifetime : public ServiceTest {
protected:
    /// Closes while a request for `page` is unanswered, and lets the answer come afterwards.
    void closeDuring(const QByteArray& page, const WebAnswer& late, const std::function<void()>& start) {
        Gate gate;
        answer(page, gate.hold(late));
        const auto before = targets(page).size();
        start();
        ASSERT_TRUE(waitUntil([&] { return targets(page).size() > before; }));
        const std::weak_ptr<Quillmark> alive = plugIn;
        closeDialog();
        EXPECT_FALSE(alive.expired()) << "the worker holds the plug-in";
        gate.open();
        EXPECT_TRUE(waitUntil([&] { return alive.expired(); }));
    }

    /// Closes once a worker has ended, before what it has handed over runs.
    void closeAfter(const std::shared_ptr<platform::Thread>& worker) {
        // The main thread's loop stands still meanwhile.
        const auto deadline = std::chrono::steady_clock::now() + test_support::kDeadline;
        while (worker->isRunning() && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
        ASSERT_FALSE(worker->isRunning());
        const std::weak_ptr<Quillmark> alive = plugIn;
        closeDialog();
        EXPECT_FALSE(alive.expired()) << "what is handed over holds the plug-in";
        EXPECT_TRUE(waitUntil([&] { return alive.expired(); }));
    }

    void pressLogin() {
        type(QStringLiteral("ann"), QStringLiteral("secret"));
        pressLoginButton();
    }
};

} // namespace

TEST_F(Lifetime, ClosingDuringALoginThatSucceeds) {
    closeDuring(kLoginPage, WebAnswer::ok(loginAnswer()), [this] { pressLogin(); });
    EXPECT_EQ(targets(kEventListPage).size(), 1);
}

TEST_F(Lifetime, ClosingDuringALoginThatFails) {
    closeDuring(kLoginPage, WebAnswer::of(500, "x"), [this] { pressLogin(); });
    EXPECT_TRUE(targets(kEventListPage).isEmpty());
}

TEST_F(Lifetime, ClosingDuringACancelledLogin) {
    closeDuring(kLoginPage, WebAnswer::ok(loginAnswer()), [this] {
        pressLogin();
        plugIn->exportManagerShouldCancelExport();
    });
    EXPECT_EQ(host.count(kCancelled), 1);
}

TEST_F(Lifetime, ClosingWhileTheEventListLoads) {
    closeDuring(kEventListPage, WebAnswer::ok(eventListAnswer(3)), [this] { logIn(); });
}

TEST_F(Lifetime, ClosingWhileTheEventListFails) {
    closeDuring(kEventListPage, WebAnswer::of(500, "x"), [this] { logIn(); });
}

TEST_F(Lifetime, ClosingBetweenTwoCategoryLists) {
    answer(kEventListPage, eventListAnswer(3));
    closeDuring(kCategoryListPage, WebAnswer::ok("<x/>"), [this] { logIn(); });
}

TEST_F(Lifetime, ClosingDuringTheFinishingRequest) {
    logInAndLoadLists();
    plugIn->showProgressBar();
    closeDuring(kFinishingPage, WebAnswer::ok("<Result>x</Result>"),
                [this] { plugIn->_startFinishThread(); });
    EXPECT_EQ(host.count(kFinished), 1);
}

TEST_F(Lifetime, ClosingDuringAFinishingRequestThatFails) {
    logInAndLoadLists();
    closeDuring(kFinishingPage, WebAnswer::of(500, "x"), [this] { plugIn->_startFinishThread(); });
    EXPECT_EQ(host.count(kFinished), 0);
}

TEST_F(Lifetime, DestroyingTheViewAloneLeavesTheWorkersAtPeace) {
    answer(kEventListPage, eventListAnswer(3));
    Gate gate;
    answer(kLoginPage, gate.hold(WebAnswer::ok(loginAnswer())));
    pressLogin();
    ASSERT_TRUE(waitForRequests(1));
    dialog.reset();
    gate.open();
    EXPECT_TRUE(waitUntil([this] { return plugIn->isLoggedIn && !plugIn->threadLaunched(); }));
    EXPECT_EQ(plugIn->eventList()->size(), 3U);
}

TEST_F(Lifetime, ClosingAtAnyMomentOfALogin) {
    answer(kEventListPage, eventListAnswer(4));
    // From before the request to long after the lists: a little later each time.
    for (int moment = 0; moment < 40; ++moment) {
        makePlugIn();
        pressLogin();
        runLoopFor(std::chrono::milliseconds(moment));
        const std::weak_ptr<Quillmark> alive = plugIn;
        closeDialog();
        ASSERT_TRUE(waitUntil([&] { return alive.expired(); }));
    }
}

TEST_F(Lifetime, ClosingAtAnyMomentOfAFinishingRequest) {
    for (int moment = 0; moment < 20; ++moment) {
        makePlugIn();
        plugIn->showProgressBar();
        plugIn->_startFinishThread();
        runLoopFor(std::chrono::milliseconds(moment));
        const std::weak_ptr<Quillmark> alive = plugIn;
        closeDialog();
        ASSERT_TRUE(waitUntil([&] { return alive.expired(); }));
    }
    EXPECT_EQ(host.count(kFinished), 20);
}

TEST_F(Lifetime, ClosingAtAnyMomentOfACancelledLogin) {
    for (int moment = 0; moment < 20; ++moment) {
        makePlugIn();
        pressLogin();
        plugIn->showProgressBar();
        runLoopFor(std::chrono::milliseconds(moment));
        const int told = host.count(kCancelled);
        plugIn->exportManagerShouldCancelExport();
        const std::weak_ptr<Quillmark> alive = plugIn;
        closeDialog();
        // A cancel that comes when the worker has looked for one already is told by nobody.
        ASSERT_TRUE(waitUntil([&] {
            const auto left = alive.lock();
            return !left || host.count(kCancelled) > told || !left->threadLaunched();
        }));
        // What the cancel of a list load leaves open is the user's to close.
        if (const auto left = alive.lock())
            left->closeProgressBar();
        ASSERT_TRUE(waitUntil([&] { return alive.expired(); }));
    }
}

TEST_F(Lifetime, ClosingBetweenTheLoginAndItsCompletion) {
    pressLogin();
    closeAfter(plugIn->loginThreadRef);
}

TEST_F(Lifetime, ClosingBetweenTheListsAndTheirCompletion) {
    logIn();
    closeAfter(plugIn->eventThreadRef);
}

TEST_F(Lifetime, ClosingBetweenTheFinishingRequestAndItsCompletion) {
    Gate gate;
    answer(kFinishingPage, gate.hold(WebAnswer::ok("<Result>x</Result>")));
    plugIn->_startFinishThread();
    ASSERT_TRUE(waitForRequests(1));
    gate.open();
    closeAfter(plugIn->finishThreadRef);
    EXPECT_EQ(host.count(kFinished), 1);
}

TEST_F(Lifetime, ClosingInsideTheKeychainAlert) {
    host.credentials.failAdd = hostapi::kCredentialDuplicateItem;
    plugIn->rememberCheckBox->setChecked(true);
    host.onAlert = [this](const test_support::ShownAlert&) { closeDialog(); };
    pressLogin();
    EXPECT_TRUE(waitUntil([this] { return !plugIn; }));
    EXPECT_EQ(host.alerts().size(), 1U);
}

TEST_F(Lifetime, ClosingWhenTheHostIsToldToFinishOrToCancel) {
    for (const QString& told : {kFinished, kCancelled}) {
        makePlugIn();
        host.onCall = [this, told](const QString& call) {
            if (call == told)
                closeDialog();
        };
        plugIn->showProgressBar();
        if (told == kFinished)
            plugIn->_startFinishThread();
        else
            plugIn->exportManagerShouldCancelExport();
        EXPECT_TRUE(waitUntil([this] { return !plugIn; }));
        host.onCall = nullptr;
    }
}

TEST_F(Lifetime, ViewThatOutlivesThePlugInIsHarmless) {
    logInAndLoadLists();
    plugIn->eventChooser->setCurrentIndex(0);
    const std::weak_ptr<Quillmark> alive = plugIn;
    const auto requests = server.requestLines();
    const auto calls = host.calls();
    QPushButton* const loginButton = plugIn->loginButton;
    QLineEdit* const userName = plugIn->usernameField;
    plugIn.reset();
    ASSERT_TRUE(waitUntil([&] { return alive.expired(); }));
    const QVariantMap defaults = host.defaults();

    ASSERT_TRUE(dialog->findChild<QWidget*>(hostapi::panel::kLoginButton))
        << "the host's window keeps the view";
    for (QWidget* const widget : dialog->findChildren<QWidget*>()) {
        widget->setEnabled(true);
        widget->show();
    }
    for (auto* const chooser : dialog->findChildren<QComboBox*>()) {
        for (int i = chooser->count() - 1; i >= -1; --i)
            chooser->setCurrentIndex(i);
        if (chooser->isEditable())
            chooser->setEditText(QStringLiteral("typed"));
        EXPECT_EQ(chooser->currentIndex(), -1) << chooser->objectName().toStdString();
    }
    for (auto* const slider : dialog->findChildren<QSlider*>()) {
        slider->setValue(slider->minimum());
        EXPECT_EQ(slider->value(), slider->minimum());
    }
    for (auto* const field : dialog->findChildren<QLineEdit*>()) {
        field->setText(QStringLiteral("12"));
        QTest::keyClick(field, Qt::Key_Return);
        EXPECT_EQ(field->text(), QStringLiteral("12")) << field->objectName().toStdString();
        if (auto* const clear = field->findChild<QAbstractButton*>()) {
            clear->click();
            EXPECT_TRUE(field->text().isEmpty()) << field->objectName().toStdString();
        }
    }
    userName->setText(QStringLiteral("ann"));
    for (auto* const button : dialog->findChildren<QAbstractButton*>()) {
        const bool wasOn = button->isChecked();
        button->click();
        EXPECT_EQ(button->isChecked(), button->isCheckable() ? !wasOn : wasOn)
            << button->objectName().toStdString();
    }
    EXPECT_EQ(loginButton->text(), QStringLiteral("Logout")) << "nobody is there to log out";
    runLoopFor(100ms);
    EXPECT_EQ(server.requestLines(), requests);
    EXPECT_EQ(host.calls(), calls);
    EXPECT_EQ(host.defaults(), defaults);
}

TEST_F(Lifetime, ClosingInsideTheCompletionAlert) {
    logInAndLoadLists();
    host.onAlert = [this](const test_support::ShownAlert&) { closeDialog(); };
    plugIn->_startFinishThread();
    EXPECT_TRUE(waitUntil([this] { return host.count(kFinished) == 1; }));
}
