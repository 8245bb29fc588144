// The host closes its dialog and lets go of the plug-in in the middle of the service's work.

#include "tests/service/ServiceTest.h"

using namespace service_tests;
using test_support::runLoopFor;
using test_support::waitUntil;
using test_support::WebAnswer;
using test_support::WebRequest;
using namespace std::chrono_literals;

namespace {

/// An answer that waits until the test lets it go.
struct Gate {
    std::promise<void> promise;
    std::shared_future<void> future = promise.get_future().share();

    WebAnswer hold(WebAnswer answer) const {
        answer.gate = future;
        return answer;
    }
    void open() { promise.set_value(); }
};

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
};

} // namespace

TEST_F(Lifetime, ClosingDuringALoginThatSucceeds) {
    closeDuring(kLoginPage, WebAnswer::ok(loginAnswer()), [this] {
        type(QStringLiteral("ann"), QStringLiteral("secret"));
        pressLoginButton();
    });
    EXPECT_EQ(targets(kEventListPage).size(), 1);
}

TEST_F(Lifetime, ClosingDuringALoginThatFails) {
    closeDuring(kLoginPage, WebAnswer::of(500, "x"), [this] {
        type(QStringLiteral("ann"), QStringLiteral("secret"));
        pressLoginButton();
    });
    EXPECT_TRUE(targets(kEventListPage).isEmpty());
}

TEST_F(Lifetime, ClosingDuringACancelledLogin) {
    closeDuring(kLoginPage, WebAnswer::ok(loginAnswer()), [this] {
        type(QStringLiteral("ann"), QStringLiteral("secret"));
        pressLoginButton();
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
    type(QStringLiteral("ann"), QStringLiteral("secret"));
    pressLoginButton();
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
        type(QStringLiteral("ann"), QStringLiteral("secret"));
        pressLoginButton();
        runLoopFor(std::chrono::milliseconds(moment));
        const std::weak_ptr<Quillmark> alive = plugIn;
        closeDialog();
        ASSERT_TRUE(waitUntil([&] { return alive.expired(); }));
    }
}

TEST_F(Lifetime, ClosingInsideTheCompletionAlert) {
    logInAndLoadLists();
    host.onAlert = [this](const test_support::ShownAlert&) { closeDialog(); };
    plugIn->_startFinishThread();
    EXPECT_TRUE(waitUntil([this] { return host.count(kFinished) == 1; }));
}
