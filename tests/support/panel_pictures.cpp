// Takes pictures of the settings panel and the progress window in each of their states:
// panel_pictures FOLDER light|dark
//
// Fills in and presses the real panel against a service within the program, and draws it without a display.

#include "tests/support/RecordingHost.h"
#include "tests/support/ScriptedWebServer.h"
#include "tests/support/Waiting.h"

#include "hostapi/SettingsPanel.h"

#include <QtCore/QDir>
#include <QtGui/QPainter>
#include <QtWidgets/QAbstractItemView>
#include <QtWidgets/QApplication>
#include <QtWidgets/QDialog>
#include <QtWidgets/QDialogButtonBox>
#include <QtWidgets/QMessageBox>
#include <QtWidgets/QVBoxLayout>

#include <cstdio>
#include <stdexcept>

namespace panel = hostapi::panel;
using test_support::waitUntil;
using test_support::WebAnswer;

namespace {

const QString kWebHost = QStringLiteral("www.quillmark.example");
constexpr int kManyEvents = 1000;

void require(bool holds, const char* what) {
    if (!holds)
        throw std::runtime_error(what);
}

/// A desktop's dark colours, of no desktop in particular.
QPalette darkPalette() {
    QPalette dark(QColor(0x3a, 0x3d, 0x41));
    dark.setColor(QPalette::Base, QColor(0x26, 0x28, 0x2b));
    dark.setColor(QPalette::Window, QColor(0x30, 0x33, 0x37));
    dark.setColor(QPalette::Highlight, QColor(0x3d, 0x7a, 0xb8));
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        dark.setColor(QPalette::Disabled, role, QColor(0x85, 0x88, 0x8c));
    return dark;
}

/// The proofing service: how much it allows, how many events it has, and whether it answers yet.
struct Service {
    bool allowsHighResolution = true;
    bool knowsPassword = true;
    int eventCount = 3;
    std::shared_future<void> loginGate;
    std::shared_future<void> listGate;

    WebAnswer answer(const QByteArray& target) const {
        if (target.contains("/login.php"))
            return held(QByteArray("<Login><Success>") + (knowsPassword ? "1" : "0") +
                            "</Success><UserId>4711</UserId><Password>token</Password>"
                            "<LoggedInName>Ann Archer</LoggedInName><AllowHighResUploads>" +
                            (allowsHighResolution ? "1" : "0") + "</AllowHighResUploads></Login>",
                        loginGate);
        if (target.contains("/eventlist.php"))
            return held(eventList(), listGate);
        return WebAnswer::ok("<List><Category id=\"1\"><Name>Ceremony</Name></Category>"
                             "<Category id=\"2\"><Name>Reception</Name></Category></List>");
    }

private:
    static WebAnswer held(const QByteArray& body, const std::shared_future<void>& gate) {
        WebAnswer answer = WebAnswer::ok(body);
        answer.gate = gate;
        return answer;
    }
    QByteArray eventList() const {
        static constexpr const char* kNames[] = {"Smith Wedding", "Spring Portraits", "School Play"};
        QByteArray list = "<List>";
        for (int i = 0; i < eventCount; ++i) {
            const QByteArray number = QByteArray::number(i + 1);
            list += "<Event id=\"" + number + "\"><Name>" +
                    (i < 3 ? QByteArray(kNames[i]) : "Event " + number) + "</Name></Event>";
        }
        return list + "<PricingTemplate id=\"5\"><Name>Standard Prints</Name></PricingTemplate>"
                      "<PricingTemplate id=\"6\"><Name>Albums</Name></PricingTemplate></List>";
    }
};

/// An application's export dialog with the panel in it.
class ExportDialog {
public:
    explicit ExportDialog(const Service& service)
        : server_(certificates().issue({kWebHost})) {
        host.usesDesktopAlerts = true;
        host.imageCount = 12;
        host.useService(server_.connectTo(kWebHost), certificates().caFile());
        server_.setScript([service](const auto& request) { return service.answer(request.target()); });
        plugIn = host.makePlugIn();
        require(plugIn != nullptr, "the plug-in could not be made");
        auto* const layout = new QVBoxLayout(&dialog);
        layout->setContentsMargins(0, 0, 0, 12);
        layout->addWidget(plugIn->settingsView());
        auto* const buttons = new QDialogButtonBox(QDialogButtonBox::Cancel);
        buttons->addButton(QStringLiteral("Export"), QDialogButtonBox::AcceptRole);
        buttons->setContentsMargins(12, 0, 12, 0);
        layout->addWidget(buttons);
        dialog.setWindowTitle(QStringLiteral("Export"));
        dialog.show();
        plugIn->willBeActivated();
    }

    ExportDialog& logIn() {
        plugIn->usernameField->setText(QStringLiteral("ann"));
        plugIn->passwordField->setText(QStringLiteral("photographs"));
        plugIn->loginButton->click();
        return *this;
    }
    ExportDialog& waitForLists() {
        require(waitUntil([this] { return plugIn->isLoggedIn && plugIn->loginButton->isEnabled(); }),
                "the login failed");
        return *this;
    }
    ExportDialog& choose() {
        plugIn->eventChooser->setCurrentIndex(0);
        plugIn->categoryChooser->setCurrentIndex(0);
        return *this;
    }

    test_support::RecordingHost host;
    std::shared_ptr<Quillmark> plugIn;
    QDialog dialog;

private:
    static test_support::TestCertificates& certificates() {
        static test_support::TestCertificates authority;
        return authority;
    }
    test_support::ScriptedWebServer server_;
};

/// The folder that the pictures go to.
class Pictures {
public:
    explicit Pictures(const QString& folder)
        : folder_(folder) {
        require(folder_.mkpath(QStringLiteral(".")), "the folder could not be made");
    }

    void take(QWidget& window, const char* name) { save(grab(window), name); }

    /// A window with another one above it, as the desktop would place it.
    void take(QWidget& window, QWidget& above, const QPoint& at, const char* name) {
        QPixmap picture = grab(window);
        const QPixmap front = above.grab();
        QPainter painter(&picture);
        painter.fillRect(QRect({}, picture.deviceIndependentSize().toSize()), QColor(0, 0, 0, 90));
        painter.drawPixmap(at, front);
        painter.setPen(QColor(0, 0, 0, 120));
        painter.drawRect(QRect(at, front.deviceIndependentSize().toSize()).adjusted(-1, -1, 0, 0));
        painter.end();
        save(picture, name);
    }

private:
    static QPixmap grab(QWidget& window) {
        // What was shown or hidden a moment ago counts for the size only when the loop has seen it.
        settle();
        window.adjustSize();
        settle();
        return window.grab();
    }
    static void settle() { test_support::runLoopFor(std::chrono::milliseconds(50)); }
    void save(const QPixmap& picture, const char* name) {
        require(picture.save(folder_.filePath(QLatin1String(name) + QStringLiteral(".png"))),
                "a picture could not be written");
    }
    QDir folder_;
};

/// What the plug-in says when the settings are not complete.
void takeSheet(ExportDialog& export_, Pictures& pictures, const char* name) {
    export_.plugIn->exportManagerShouldBeginExport();
    auto* const sheet = export_.dialog.findChild<QMessageBox*>();
    require(sheet != nullptr, "no sheet was shown");
    sheet->adjustSize();
    const QSize dialog = export_.dialog.size();
    pictures.take(export_.dialog, *sheet, QPoint((dialog.width() - sheet->width()) / 2, dialog.height() / 8),
                  name);
    delete sheet;
}

void takeLogins(Pictures& pictures) {
    {
        ExportDialog loggedOut{Service()};
        pictures.take(loggedOut.dialog, "01-logged-out");
        takeSheet(loggedOut, pictures, "11-please-log-in");
    }
    std::promise<void> answer;
    Service service;
    service.loginGate = answer.get_future().share();
    service.knowsPassword = false;
    ExportDialog loggingIn(service);
    loggingIn.logIn();
    pictures.take(loggingIn.dialog, "02-logging-in");
    answer.set_value();
    require(waitUntil([&] { return loggingIn.plugIn->loginButton->isEnabled(); }), "no answer came");
    pictures.take(loggingIn.dialog, "03-login-failed");
}

void takeLists(Pictures& pictures) {
    std::promise<void> answer;
    Service service;
    service.listGate = answer.get_future().share();
    ExportDialog dialog(service);
    dialog.logIn();
    require(waitUntil([&] { return dialog.plugIn->isLoggedIn; }), "the login failed");
    pictures.take(dialog.dialog, "04-lists-loading");
    answer.set_value();
    dialog.waitForLists();
    pictures.take(dialog.dialog, "05-logged-in");
    takeSheet(dialog, pictures, "16-no-event");
    dialog.plugIn->eventChooser->setCurrentIndex(0);
    takeSheet(dialog, pictures, "17-no-category");
    dialog.choose().plugIn->pricingChooser->setCurrentIndex(0);
    pictures.take(dialog.dialog, "06-chosen");
    auto* const automatic =
        dialog.plugIn->settingsView_->findChild<QCheckBox*>(panel::kAutoCreateCategoriesButton);
    automatic->setChecked(true);
    pictures.take(dialog.dialog, "07-automatic-categories");
}

void takeSizes(Pictures& pictures) {
    Service standard;
    standard.allowsHighResolution = false;
    ExportDialog without(standard);
    without.logIn().waitForLists().choose();
    pictures.take(without.dialog, "08-without-high-resolution");

    ExportDialog with{Service()};
    with.logIn().waitForLists().choose();
    Quillmark& plugIn = *with.plugIn;
    plugIn.doResizeButton->click();
    plugIn.qualitySlider->setValue(8 * panel::kQualityScale);
    const auto enter = [&](const char* width, const char* height) {
        plugIn.resizeWidth->setText(QLatin1String(width));
        plugIn.resizeHeight->setText(QLatin1String(height));
    };
    enter("4096", "3072");
    pictures.take(with.dialog, "09-resizing");
    enter("wide", "1280");
    takeSheet(with, pictures, "12-width-no-integer");
    enter("1280", "1280.5");
    takeSheet(with, pictures, "13-height-no-integer");
    enter("1279", "1280");
    takeSheet(with, pictures, "14-width-too-small");
    enter("1280", "900");
    takeSheet(with, pictures, "15-height-too-small");
}

void takeOpenList(Pictures& pictures) {
    Service service;
    service.eventCount = kManyEvents;
    ExportDialog dialog(service);
    dialog.logIn().waitForLists();
    QComboBox& chooser = *dialog.plugIn->eventChooser;
    dialog.dialog.adjustSize();
    chooser.showPopup();
    QWidget* const list = chooser.view()->window();
    pictures.take(dialog.dialog, *list, chooser.mapTo(&dialog.dialog, QPoint(0, chooser.height())),
                  "10-many-events");
    chooser.hidePopup();
}

void takeProgress(Pictures& pictures) {
    ExportDialog dialog{Service()};
    dialog.logIn().waitForLists().choose();
    Quillmark& plugIn = *dialog.plugIn;
    plugIn.exportManagerShouldBeginExport();
    require(plugIn.progressWindow != nullptr, "the progress window could not be loaded");
    const auto show = [&](std::size_t current, std::size_t total, const QString& message, const char* name) {
        plugIn.lockProgress();
        *plugIn.progress() = {current, total, message, false};
        plugIn.unlockProgress();
        plugIn.updateTimer();
        pictures.take(*plugIn.progressWindow, name);
    };
    show(5, 12, QStringLiteral("Step 1 of 3: Preparing Image 5 of 12..."), "18-preparing");
    show(1, 2, QStringLiteral("Step 2 of 3: Preparing remote directories..."), "19-remote-directories");
    show(90, 300, QStringLiteral("Step 3 of 3: Uploading Image 4 of 12 ... 01:07 remaining"), "20-uploading");
    plugIn.exportManagerShouldCancelExport();
}

} // namespace

int main(int argc, char** argv) {
    const QString colors = QString::fromLocal8Bit(argc == 3 ? argv[2] : "");
    if (colors != QLatin1String("light") && colors != QLatin1String("dark")) {
        std::fputs("usage: panel_pictures FOLDER light|dark\n", stderr);
        return 2;
    }
    qputenv("QT_QPA_PLATFORM", "offscreen");
    // Whatever a window without a display can't do, it says.
    qputenv("QT_LOGGING_RULES", "*.warning=false");
    QApplication application(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    QApplication::setStyle(QStringLiteral("Fusion"));
    if (colors == QLatin1String("dark"))
        QApplication::setPalette(darkPalette());
    try {
        Pictures pictures(QString::fromLocal8Bit(argv[1]));
        takeLogins(pictures);
        takeLists(pictures);
        takeSizes(pictures);
        takeOpenList(pictures);
        takeProgress(pictures);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "panel_pictures: %s\n", error.what());
        return 1;
    }
    return 0;
}
