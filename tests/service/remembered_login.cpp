// Logs in with a remembered password, "päss", as an application does that has just been started, and prints,
// in UTF-8, what the password field then holds.

#include "plugin/DefaultsKeys.h"
#include "tests/support/LeakSuppressions.h"
#include "tests/support/RecordingHost.h"
#include "tests/support/Waiting.h"

#include <QtWidgets/QApplication>

#include <clocale>
#include <cstdio>

int main(int argc, char** argv) {
    const QApplication application(argc, argv);
    // As later versions of Qt do.
    std::setlocale(LC_CTYPE, "C.UTF-8");
    const QString userName = QStringLiteral("ann");
    test_support::RecordingHost host;
    host.setValue(defaults_keys::kQuillmarkUsername, userName);
    host.setValue(defaults_keys::kSavedKeyChain, true);
    const auto plugIn = host.makePlugIn();
    if (!plugIn)
        return 1;
    const std::unique_ptr<QWidget> view(plugIn->settingsView());
    host.credentials.addInternetPassword(plugIn->keychainAttributes(userName), "p\xC3\xA4ss", nullptr);
    plugIn->willBeActivated();
    std::fputs(plugIn->passwordField->text().toUtf8().constData(), stdout);
    return test_support::waitUntil([&] { return !plugIn->threadLaunched(); }) ? 0 : 1;
}
