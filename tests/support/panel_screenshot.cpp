// Takes the pictures of the documentation: panel_screenshot CONFIGURATION USER PASSWORD OUTPUT.png
//
// Logs in at the service of the configuration and chooses the first event, as a person would, then draws
// the panel without a display.

#include "tests/support/RecordingHost.h"
#include "tests/support/Waiting.h"

#include <QtGui/QPixmap>
#include <QtWidgets/QApplication>

#include <cstdio>

namespace {

int fail(const char* reason) {
    std::fprintf(stderr, "panel_screenshot: %s\n", reason);
    return 1;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 5)
        return fail("CONFIGURATION USER PASSWORD OUTPUT.png");
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    QApplication::setStyle(QStringLiteral("Fusion"));

    test_support::RecordingHost host;
    qputenv("QUILLMARK_SERVICE_CONFIG", argv[1]);
    const auto plugIn =
        Quillmark::initWithAPIManager(&host, test_support::RecordingHost::defaultBundlePath(), nullptr);
    if (!plugIn)
        return fail("the plug-in could not be made");
    QWidget* const view = plugIn->settingsView();
    if (!view)
        return fail("the panel could not be loaded");
    plugIn->willBeActivated();
    plugIn->usernameField->setText(QString::fromLocal8Bit(argv[2]));
    plugIn->passwordField->setText(QString::fromLocal8Bit(argv[3]));
    plugIn->loginButton->click();
    if (!test_support::waitUntil([&] { return plugIn->isLoggedIn && plugIn->loginButton->isEnabled(); }))
        return fail("the login failed");
    plugIn->eventChooser->setCurrentIndex(0);
    plugIn->categoryChooser->setCurrentIndex(0);
    view->resize(view->sizeHint());
    view->show();
    test_support::runLoopFor(std::chrono::milliseconds(300));
    return view->grab().save(QString::fromLocal8Bit(argv[4])) ? 0 : fail("the picture could not be written");
}
