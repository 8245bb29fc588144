// Login and logout: the panel's states, the login record, and what the service is asked.

#include "platform/RunLoop.h"
#include "plugin/DefaultsKeys.h"
#include "tests/service/ServiceTest.h"

#include <QtGui/QKeyEvent>
#include <QtTest/QTest>
#include <QtWidgets/QApplication>

#include <thread>

using namespace service_tests;
using test_support::runLoopFor;
using test_support::waitUntil;
using test_support::WebAnswer;
using test_support::WebRequest;
using namespace std::chrono_literals;

namespace {

const QString kAnn = QStringLiteral("ann");
const QString kSecret = QStringLiteral("secret");

class Login : public ServiceTest {
protected:
    void expectLoggedOutPanel() {
        for (const QWidget* control : std::initializer_list<QWidget*>{
                 plugIn->usernameField, plugIn->passwordField, plugIn->rememberCheckBox, plugIn->loginButton})
            EXPECT_TRUE(control->isEnabled()) << control->objectName().toStdString();
        EXPECT_EQ(plugIn->loginButton->text(), QStringLiteral("Login"));
        EXPECT_FALSE(plugIn->loginProgress->isVisible());
        expectBoxesVisible(false);
        EXPECT_FALSE(plugIn->isLoggedIn);
    }

    void expectBoxesVisible(bool visible) {
        EXPECT_EQ(plugIn->settingsBox->isVisible(), visible);
        EXPECT_EQ(plugIn->eventBox->isVisible(), visible);
        EXPECT_EQ(plugIn->pricingBox->isVisible(), visible);
    }

    /// No further request within a while.
    void expectNoRequest(int requestsSoFar = 0) {
        runLoopFor(200ms);
        EXPECT_EQ(server.requestLines().size(), requestsSoFar);
    }

    void expectLoginFails() {
        logIn();
        EXPECT_EQ(plugIn->loggedInStatusLabel->text(), kLoginFailed);
        expectLoggedOutPanel();
        EXPECT_FALSE(plugIn->threadLaunched());
        EXPECT_EQ(detail(kPasswordKey), std::nullopt);
        EXPECT_EQ(detail(kUsernameKey), kAnn);
        EXPECT_TRUE(host.alerts().empty());
    }

    void logOutAndWait() {
        pressLoginButton();
        ASSERT_FALSE(plugIn->isLoggedIn);
    }
};

} // namespace

TEST_F(Login, PanelStartsLoggedOut) {
    expectLoggedOutPanel();
}

TEST_F(Login, EmptyFieldsDoNothing) {
    for (const auto& [user, password] :
         {std::pair(QString(), QString()), std::pair(kAnn, QString()), std::pair(QString(), kSecret)}) {
        type(user, password);
        pressLoginButton();
        expectLoggedOutPanel();
        EXPECT_TRUE(plugIn->loggedInStatusLabel->text().isEmpty());
        EXPECT_FALSE(plugIn->threadLaunched());
        EXPECT_EQ(detail(kUsernameKey), std::nullopt);
    }
    expectNoRequest();
}

TEST_F(Login, RequestCarriesWhatWasTyped) {
    logIn();
    EXPECT_EQ(targets(kLoginPage),
              (QStringList{QStringLiteral("/instantupload/login.php?user=ann&pwd=secret")}));
}

TEST_F(Login, CharactersOfTheQueryChangeTheQuery) {
    logIn(QStringLiteral("ann&admin=1"), QStringLiteral("a=b&c"));
    EXPECT_EQ(targets(kLoginPage),
              (QStringList{QStringLiteral("/instantupload/login.php?user=ann&admin=1&pwd=a=b&c")}));
}

TEST_F(Login, NamesThatFormNoURLFail) {
    for (const char* name : {"ann smith", "ann<", "ann\"", "50%", "ann|", "ann[1]"}) {
        logIn(QString::fromLatin1(name));
        EXPECT_EQ(plugIn->loggedInStatusLabel->text(), kLoginFailed);
        expectLoggedOutPanel();
    }
    logIn(QStringLiteral("ren\u00e9"));
    EXPECT_EQ(plugIn->loggedInStatusLabel->text(), kLoginFailed);
    logIn(kAnn, QStringLiteral("two words"));
    EXPECT_EQ(plugIn->loggedInStatusLabel->text(), kLoginFailed);
    expectNoRequest();
}

TEST_F(Login, PanelIsBusyWhileTheServiceThinks) {
    std::promise<void> mayAnswer;
    WebAnswer late = WebAnswer::ok(loginAnswer("0"));
    late.gate = mayAnswer.get_future().share();
    answer(kLoginPage, late);
    type(kAnn, kSecret);
    pressLoginButton();
    EXPECT_TRUE(waitForRequests(1));
    for (const QWidget* control : std::initializer_list<QWidget*>{
             plugIn->usernameField, plugIn->passwordField, plugIn->rememberCheckBox, plugIn->loginButton})
        EXPECT_FALSE(control->isEnabled()) << control->objectName().toStdString();
    EXPECT_TRUE(plugIn->loginProgress->isVisible());
    EXPECT_EQ(plugIn->loginProgress->maximum(), 0);
    EXPECT_TRUE(plugIn->threadLaunched());
    EXPECT_TRUE(plugIn->loginThreadRef->isRunning());
    EXPECT_EQ(detail(kUsernameKey), kAnn);
    EXPECT_EQ(detail(kPasswordKey), kSecret);
    mayAnswer.set_value();
    EXPECT_TRUE(waitForStatus(kLoginFailed));
    expectLoggedOutPanel();
    EXPECT_EQ(plugIn->usernameField->text(), kAnn);
    EXPECT_EQ(plugIn->passwordField->text(), kSecret);
}

TEST_F(Login, SuccessShowsTheNameAndRevealsTheSettings) {
    std::promise<void> mayAnswer;
    WebAnswer late = WebAnswer::ok(eventListAnswer(1));
    late.gate = mayAnswer.get_future().share();
    answer(kEventListPage, late);
    logIn();
    EXPECT_EQ(plugIn->loggedInStatusLabel->text(), kLoggedIn);
    EXPECT_EQ(plugIn->loginButton->text(), QStringLiteral("Logout"));
    expectBoxesVisible(true);
    EXPECT_TRUE(plugIn->isLoggedIn);
    EXPECT_FALSE(plugIn->loginProgress->isVisible());
    EXPECT_TRUE(plugIn->eventLoadingProgress->isVisible());
    EXPECT_TRUE(plugIn->pricingLoadingProgress->isVisible());
    EXPECT_TRUE(plugIn->threadLaunched());
    // Until the lists are there nobody logs out.
    for (const QWidget* control : std::initializer_list<QWidget*>{
             plugIn->usernameField, plugIn->passwordField, plugIn->rememberCheckBox, plugIn->loginButton})
        EXPECT_FALSE(control->isEnabled()) << control->objectName().toStdString();
    mayAnswer.set_value();
    EXPECT_TRUE(waitForLists());
    EXPECT_FALSE(plugIn->usernameField->isEnabled());
    EXPECT_FALSE(plugIn->rememberCheckBox->isEnabled());
}

TEST_F(Login, RecordIsTheAnswerMergedWithWhatWasTyped) {
    logInAndLoadLists();
    EXPECT_EQ(detail(kSuccessKey), QStringLiteral("1"));
    EXPECT_EQ(detail(kUserIdKey), QStringLiteral("4711"));
    EXPECT_EQ(detail(kEncPasswordKey), QStringLiteral("t0ken"));
    EXPECT_EQ(detail(kLoggedInNameKey), QStringLiteral("Ann Smith"));
    EXPECT_EQ(detail(kAllowHighResUploadsKey), QStringLiteral("0"));
    EXPECT_EQ(detail(kUsernameKey), kAnn);
    // With the box off the password stays in memory, and nothing is stored.
    EXPECT_EQ(detail(kPasswordKey), kSecret);
    EXPECT_FALSE(host.defaults().contains(defaults_keys::kQuillmarkUsername));
    EXPECT_FALSE(host.defaults().contains(defaults_keys::kSavedKeyChain));
    EXPECT_TRUE(host.credentials.entries.empty());
}

TEST_F(Login, MissingNameReadsAsNull) {
    answer(kLoginPage, "<Login><Success>1</Success></Login>");
    logIn();
    EXPECT_EQ(plugIn->loggedInStatusLabel->text(), QStringLiteral("Logged in as (null)"));
    EXPECT_TRUE(waitForLists());
}

TEST_F(Login, NameIsShownLiterally) {
    answer(kLoginPage, "<Login><Success>1</Success><LoggedInName>%@ &lt;b&gt;Ann</LoggedInName></Login>");
    logIn();
    EXPECT_EQ(plugIn->loggedInStatusLabel->text(), QStringLiteral("Logged in as %@ <b>Ann"));
    EXPECT_EQ(plugIn->loggedInStatusLabel->textFormat(), Qt::PlainText);
    EXPECT_TRUE(waitForLists());
}

TEST_F(Login, OnlyTheExactTextMeansSuccess) {
    for (const QByteArray success : {"0", "", "\n1", "1 ", "true", "01", "yes", "11"}) {
        answer(kLoginPage, loginAnswer(success));
        expectLoginFails();
    }
    answer(kLoginPage, "<Login><UserId>4711</UserId></Login>");
    expectLoginFails();
    answer(kLoginPage, "Login successful");
    expectLoginFails();
}

TEST_F(Login, EveryFailureOfTheRequestEndsTheSameWay) {
    WebAnswer reset;
    reset.cuts = {test_support::Cut::Reset};
    for (const WebAnswer& failure :
         {WebAnswer::of(404, loginAnswer()), WebAnswer::of(500, loginAnswer()),
          WebAnswer::of(201, loginAnswer()), WebAnswer::ok({}), reset,
          WebAnswer::redirect(302, "http://www.quillmark.example/instantupload/login.php")}) {
        answer(kLoginPage, failure);
        expectLoginFails();
    }
}

TEST_F(Login, ASecondTryMaySucceed) {
    answer(kLoginPage, loginAnswer("0"));
    expectLoginFails();
    answer(kLoginPage, loginAnswer());
    logInAndLoadLists();
    EXPECT_TRUE(plugIn->isLoggedIn);
}

TEST_F(Login, AccountWithoutHighResMustResize) {
    for (const QByteArray highRes : {"0", " 1", "1\n", "true", ""}) {
        makePlugIn();
        answer(kLoginPage, loginAnswer("1", highRes));
        logInAndLoadLists();
        EXPECT_FALSE(plugIn->hiResUploads);
        EXPECT_FALSE(plugIn->doResizeButton->isEnabled());
        EXPECT_TRUE(plugIn->doResizeButton->isChecked());
        EXPECT_TRUE(plugIn->doResizeImages());
        EXPECT_FALSE(plugIn->resizeWidth->isEnabled());
    }
    makePlugIn();
    answer(kLoginPage, "<Login><Success>1</Success></Login>");
    logIn();
    ASSERT_TRUE(waitForLists());
    EXPECT_FALSE(plugIn->doResizeButton->isEnabled());
    EXPECT_TRUE(plugIn->doResizeImages());
}

TEST_F(Login, AccountWithHighResMayChoose) {
    answer(kLoginPage, loginAnswer("1", "1"));
    logInAndLoadLists();
    EXPECT_TRUE(plugIn->hiResUploads);
    EXPECT_TRUE(plugIn->doResizeButton->isEnabled());
    EXPECT_FALSE(plugIn->doResizeButton->isChecked());
    EXPECT_FALSE(plugIn->doResizeImages());
}

TEST_F(Login, FailedEventListLeavesTheButtonDisabled) {
    answer(kEventListPage, WebAnswer::of(500, "broken"));
    logIn();
    EXPECT_EQ(plugIn->loggedInStatusLabel->text(), kLoggedIn);
    EXPECT_TRUE(
        waitUntil([this] { return host.count(kListsFailed) == 1 && !plugIn->eventThreadRef->isRunning(); }));
    runLoopFor(50ms);
    EXPECT_FALSE(plugIn->loginButton->isEnabled());
    EXPECT_TRUE(plugIn->threadLaunched());
    EXPECT_TRUE(plugIn->eventLoadingProgress->isVisible());
}

TEST_F(Login, LogoutWithTheBoxOffForgetsTheRecordAltogether) {
    logInAndLoadLists();
    logOutAndWait();
    expectLoggedOutPanel();
    EXPECT_TRUE(plugIn->loggedInStatusLabel->text().isEmpty());
    EXPECT_TRUE(plugIn->usernameField->text().isEmpty());
    EXPECT_TRUE(plugIn->passwordField->text().isEmpty());
    EXPECT_EQ(plugIn->loginDetails.get(), nullptr);
    EXPECT_TRUE(plugIn->hideEventControls());
    EXPECT_TRUE(plugIn->hidePricingControls());
}

TEST_F(Login, LoginAfterALogoutWithTheBoxOffSendsNullTwiceAndFails) {
    logInAndLoadLists();
    logOutAndWait();
    answer(kLoginPage, [](const WebRequest& request) {
        return WebAnswer::ok(loginAnswer(request.target().contains("user=ann&pwd=secret") ? "1" : "0"));
    });
    for (int i = 1; i <= 2; ++i) {
        logIn();
        EXPECT_EQ(plugIn->loggedInStatusLabel->text(), kLoginFailed);
        EXPECT_EQ(targets(kLoginPage).value(i),
                  QStringLiteral("/instantupload/login.php?user=(null)&pwd=(null)"));
        EXPECT_EQ(plugIn->loginDetails.get(), nullptr);
    }
    // A new object starts afresh.
    makePlugIn();
    logInAndLoadLists();
}

TEST_F(Login, LogoutWithTheBoxOnKeepsTheRecordAndTheFields) {
    plugIn->rememberCheckBox->setChecked(true);
    logInAndLoadLists();
    logOutAndWait();
    expectLoggedOutPanel();
    EXPECT_EQ(plugIn->usernameField->text(), kAnn);
    EXPECT_EQ(plugIn->passwordField->text(), kSecret);
    EXPECT_EQ(detail(kUserIdKey), QStringLiteral("4711"));
    EXPECT_EQ(detail(kPasswordKey), std::nullopt);
    EXPECT_EQ(host.defaults().value(defaults_keys::kQuillmarkUsername), kAnn);
    EXPECT_TRUE(plugIn->hideEventControls());
    EXPECT_TRUE(plugIn->hidePricingControls());
}

TEST_F(Login, KeptRecordWinsOverTheNextAnswer) {
    plugIn->rememberCheckBox->setChecked(true);
    logInAndLoadLists();
    logOutAndWait();
    answer(kLoginPage,
           "<Login><Success>0</Success><UserId>13</UserId><Password>other</Password>"
           "<LoggedInName>Bob</LoggedInName><AllowHighResUploads>1</AllowHighResUploads></Login>");
    logIn(QStringLiteral("bob"), QStringLiteral("builder"));
    EXPECT_EQ(targets(kLoginPage).last(), QStringLiteral("/instantupload/login.php?user=bob&pwd=builder"));
    EXPECT_EQ(plugIn->loggedInStatusLabel->text(), kLoggedIn);
    EXPECT_EQ(detail(kUsernameKey), QStringLiteral("bob"));
    EXPECT_EQ(detail(kUserIdKey), QStringLiteral("4711"));
    EXPECT_EQ(detail(kEncPasswordKey), QStringLiteral("t0ken"));
    EXPECT_EQ(detail(kAllowHighResUploadsKey), QStringLiteral("0"));
    ASSERT_TRUE(waitForLists());
    logOutAndWait();

    answer(kLoginPage, WebAnswer::of(403, loginAnswer()));
    logIn();
    EXPECT_EQ(plugIn->loggedInStatusLabel->text(), kLoginFailed);
}

TEST_F(Login, CancelDuringALoginIsFinishedByTheWorker) {
    std::promise<void> mayAnswer;
    WebAnswer late = WebAnswer::ok(loginAnswer());
    late.gate = mayAnswer.get_future().share();
    answer(kLoginPage, late);
    type(kAnn, kSecret);
    pressLoginButton();
    ASSERT_TRUE(waitForRequests(1));
    plugIn->exportManagerShouldCancelExport();
    EXPECT_EQ(host.count(kCancelled), 0);
    EXPECT_NE(plugIn->eventList(), nullptr);
    mayAnswer.set_value();
    EXPECT_TRUE(waitUntil([this] { return host.count(kCancelled) == 1; }));
    EXPECT_TRUE(waitUntil([this] { return !plugIn->loginThreadRef->isRunning(); }));
    EXPECT_EQ(plugIn->eventList(), nullptr);
    EXPECT_EQ(plugIn->categoryList(), nullptr);
    EXPECT_EQ(plugIn->pricingList(), nullptr);
    EXPECT_EQ(plugIn->loginDetails.get(), nullptr);
    // Nothing is reported: neither outcome reaches the panel, and no lists are asked for.
    runLoopFor(100ms);
    EXPECT_TRUE(plugIn->loggedInStatusLabel->text().isEmpty());
    EXPECT_FALSE(plugIn->isLoggedIn);
    EXPECT_TRUE(targets(kEventListPage).isEmpty());
}

TEST_F(Login, CancelDuringALoginClosesTheProgressWindowBeforeTheHostIsTold) {
    Gate gate;
    answer(kLoginPage, gate.hold(WebAnswer::ok(loginAnswer())));
    type(kAnn, kSecret);
    pressLoginButton();
    ASSERT_TRUE(waitForRequests(1));
    plugIn->showProgressBar();
    const QPointer<QWidget> window = plugIn->progressWindow;
    const QPointer<QTimer> timer = plugIn->progressBarTimer;
    ASSERT_TRUE(window && timer);
    plugIn->exportManagerShouldCancelExport();
    EXPECT_TRUE(window && window->isVisible()) << "the worker finishes the cancel";
    EXPECT_TRUE(timer && timer->isActive());

    bool wasOpen = true;
    bool hadRecord = true;
    std::thread::id teller;
    host.onCall = [&](const QString&) {
        teller = std::this_thread::get_id();
        platform::RunLoop::main()->call([&] { wasOpen = timer || (window && window->isVisible()); });
        hadRecord = plugIn->loginDetails.get() != nullptr;
    };
    gate.open();
    EXPECT_TRUE(waitUntil([this] { return host.count(kCancelled) == 1; }));
    EXPECT_TRUE(waitUntil([this] { return !plugIn->loginThreadRef->isRunning(); }));
    host.onCall = nullptr;
    EXPECT_NE(teller, std::this_thread::get_id());
    EXPECT_FALSE(wasOpen);
    EXPECT_FALSE(hadRecord);
    EXPECT_EQ(host.calls(), (QStringList{kCancelled}));
}

TEST_F(Login, FurtherPressesWhileALoginRunsSendNothing) {
    Gate gate;
    answer(kLoginPage, gate.hold(WebAnswer::ok(loginAnswer("0"))));
    type(kAnn, kSecret);
    pressLoginButton();
    ASSERT_TRUE(waitForRequests(1));
    pressLoginButton();
    plugIn->loginButton->click();
    for (QLineEdit* const field : {plugIn->usernameField.data(), plugIn->passwordField.data()}) {
        for (const Qt::Key key : {Qt::Key_Return, Qt::Key_Enter}) {
            QTest::keyClick(field, key);
            // Also where the key comes without the window's own look at who is enabled.
            QKeyEvent press(QEvent::KeyPress, key, Qt::NoModifier);
            QApplication::sendEvent(field, &press);
        }
    }
    expectNoRequest(1);
    gate.open();
    ASSERT_TRUE(waitForStatus(kLoginFailed));
    expectNoRequest(1);
}

TEST_F(Login, CancelDuringAFailingLoginIsFinishedLikewise) {
    std::promise<void> mayAnswer;
    WebAnswer late = WebAnswer::of(500, "broken");
    late.gate = mayAnswer.get_future().share();
    answer(kLoginPage, late);
    type(kAnn, kSecret);
    pressLoginButton();
    ASSERT_TRUE(waitForRequests(1));
    plugIn->exportManagerShouldCancelExport();
    mayAnswer.set_value();
    EXPECT_TRUE(waitUntil([this] { return host.count(kCancelled) == 1; }));
    runLoopFor(50ms);
    EXPECT_TRUE(plugIn->loggedInStatusLabel->text().isEmpty());
}

TEST_F(Login, ReturnInAFieldPressesTheButton) {
    type(kAnn, kSecret);
    QTest::keyClick(plugIn->passwordField, Qt::Key_Return);
    EXPECT_TRUE(waitForStatus(kLoggedIn));
    EXPECT_TRUE(waitForLists());
}

TEST_F(Login, WithoutAPanelNothingHappens) {
    dialog.reset();
    plugIn->authenticate();
    plugIn->doneLogin(nullptr);
    plugIn->logOut();
    plugIn->authenticateWithSavedData();
    expectNoRequest();
}
