// What becomes of a login, the lists and the finishing request where the system has no thread left for them.

#include "tests/support/ThreadShortage.h"

#include "tests/service/ServiceTest.h"

using namespace service_tests;
using test_support::ThreadShortage;
using test_support::waitUntil;

namespace {

using ThreadShortageTest = ServiceTest;

TEST_F(ThreadShortageTest, LoginFailsAndMayBeTriedAgain) {
    type(QStringLiteral("ann"), QStringLiteral("secret"));
    {
        const ThreadShortage shortage;
        EXPECT_NO_THROW(pressLoginButton());
    }
    EXPECT_TRUE(waitForStatus(kLoginFailed));
    EXPECT_FALSE(plugIn->threadLaunched());
    EXPECT_TRUE(plugIn->loginButton->isEnabled());
    EXPECT_FALSE(plugIn->loginProgress->isVisible());
    logInAndLoadLists();
    EXPECT_EQ(plugIn->loggedInStatusLabel->text(), kLoggedIn);
}

TEST_F(ThreadShortageTest, ListsFailAsWithoutAnAnswer) {
    const ThreadShortage shortage;
    const auto result = std::make_shared<Record>();
    result->setText(kSuccessKey, QStringLiteral("1"));
    EXPECT_NO_THROW(plugIn->doneLogin(result));
    EXPECT_EQ(host.calls(), QStringList(kListsFailed));
    EXPECT_TRUE(host.alerts().empty());
}

TEST_F(ThreadShortageTest, FinishingRequestGetsNoAnswerAndTheProgressWindowIsClosed) {
    logInAndLoadLists();
    plugIn->showProgressBar();
    {
        const ThreadShortage shortage;
        EXPECT_NO_THROW(plugIn->_startFinishThread());
    }
    EXPECT_EQ(host.count(kUnanswered), 1);
    EXPECT_FALSE(plugIn->progressBarTimer);
    EXPECT_TRUE(waitUntil([&] { return !plugIn->progressWindow; }));
    EXPECT_EQ(host.count(kFinished), 0);
    EXPECT_TRUE(host.alerts().empty());
}

} // namespace
