#pragma once

#include "hostapi/SettingsPanel.h"
#include "tests/support/RecordingHost.h"
#include "tests/support/ScriptedWebServer.h"
#include "tests/support/Waiting.h"

#include <gtest/gtest.h>

#include <map>

namespace service_tests {

inline const QString kWebHost = QStringLiteral("www.quillmark.example");

// The four requests, by the name of their page.
inline const QByteArray kLoginPage = "login.php";
inline const QByteArray kEventListPage = "eventlist.php";
inline const QByteArray kCategoryListPage = "categorylist.php";
inline const QByteArray kFinishingPage = "processimages.php";

/// A login answer with these elements.
QByteArray loginAnswer(const QByteArray& success = "1", const QByteArray& highRes = "0");
/// An event list answer with events "id" 1 to `count`, named "Event N", and two pricing templates.
QByteArray eventListAnswer(int count);

/// Holds answers back until the test lets them go.
class Gate {
public:
    test_support::WebAnswer hold(test_support::WebAnswer answer) const {
        answer.gate = future_;
        return answer;
    }
    void open() { promise_.set_value(); }

private:
    std::promise<void> promise_;
    const std::shared_future<void> future_ = promise_.get_future().share();
};

/// A plug-in with its panel in a dialog, and a service that answers by script.
///
/// At its end nothing may refer to the plug-in any more, nor any thread be at work for it.
class ServiceTest : public testing::Test {
protected:
    using Script = test_support::ScriptedWebServer::Script;

    ServiceTest();
    void SetUp() override;
    void TearDown() override;

    /// How requests for a page are answered from now on.
    void answer(const QByteArray& page, Script script);
    void answer(const QByteArray& page, const test_support::WebAnswer& always);
    void answer(const QByteArray& page, const QByteArray& body);

    /// Makes the plug-in and its dialog anew.
    void makePlugIn();
    /// The same with a further server, by its entry of `Transport::connectTo`.
    void makePlugInThatReaches(const QString& connectTo);
    /// The host lets go of the plug-in and destroys its dialog.
    void closeDialog();

    void type(const QString& userName, const QString& password);
    void pressLoginButton();
    /// Types, presses, and waits until the panel has been told the outcome.
    void logIn(const QString& userName = QStringLiteral("ann"),
               const QString& password = QStringLiteral("secret"));
    bool waitForLists();
    /// Logs in and waits until the lists have been loaded.
    void logInAndLoadLists();
    bool waitForStatus(const QString& text);
    bool waitForRequests(int count);

    /// The request lines for a page, in order, without the method and the version.
    QStringList targets(const QByteArray& page) const;
    std::optional<QString> detail(const QString& key) const;

    test_support::RecordingHost host;
    test_support::ScriptedWebServer server;
    std::shared_ptr<Quillmark> plugIn;
    std::unique_ptr<QWidget> dialog;

private:
    std::mutex mutex_;
    std::map<QByteArray, Script> scripts_;
    std::weak_ptr<Quillmark> lastPlugIn_;
};

inline const QString kLoggedIn = QStringLiteral("Logged in as Ann Smith");
inline const QString kLoginFailed = QStringLiteral("Login failed!");
inline const QString kCancelled = QStringLiteral("shouldCancelExport");
inline const QString kFinished = QStringLiteral("shouldFinishExport");
inline const QString kListsFailed = QStringLiteral("listsCouldNotBeLoaded");
inline const QString kUnanswered = QStringLiteral("finishingRequestUnanswered");

} // namespace service_tests
