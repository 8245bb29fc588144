// The built module, as another application meets it: through the hostapi headers alone.

#include "examples/host/ExportDialog.h"
#include "hostapi/SettingsPanel.h"
#include "tests/plugin/TestBundle.h"
#include "tests/support/KeyringSession.h"
#include "tests/support/MessageAnswers.h"
#include "tests/support/ScriptedFTPServer.h"
#include "tests/support/ScriptedWebServer.h"
#include "tests/support/Waiting.h"

#include <QtCore/QBuffer>
#include <QtCore/QProcess>
#include <QtGui/QImage>
#include <QtWidgets/QApplication>
#include <QtWidgets/QCheckBox>
#include <QtWidgets/QComboBox>
#include <QtWidgets/QLineEdit>
#include <QtWidgets/QMessageBox>
#include <QtWidgets/QPushButton>

#include <gtest/gtest.h>

/// LeakSanitizer asks this before it looks for leaks. GCC 12's crashes on the thread-local storage of a
/// module that was loaded at run time while threads of it live; the tests that link the module's code do
/// look.
extern "C" __attribute__((visibility("default"))) int __lsan_is_turned_off();
int __lsan_is_turned_off() {
    return 1;
}

namespace panel = hostapi::panel;
using test_support::waitUntil;
using test_support::WebAnswer;
using test_support::WebRequest;

namespace {

const QString kBundle = QStringLiteral(QUILLMARK_BUNDLE_DIR);

QByteArray encoded(const QSize& size) {
    QImage image(size, QImage::Format_RGB888);
    image.fill(Qt::darkGreen);
    QByteArray data;
    QBuffer buffer(&data);
    image.save(&buffer, "PNG");
    return data;
}

/// A service within the test, and the configuration that leads the plug-in to it.
class Service {
public:
    Service()
        : web_(certificates_.issue({QStringLiteral("www.quillmark.example")})) {
        web_.setScript([](const WebRequest& request) { return answer(request.target()); });
        QFile file(folder_.filePath(QStringLiteral("service.ini")));
        if (!file.open(QIODevice::WriteOnly))
            return;
        file.write(QStringLiteral("[service]\nwebHost=www.quillmark.example\nftpHost=ftp.quillmark.example\n"
                                  "[transport]\nconnectTo=\"%1, %2\"\ncaFile=%3\n")
                       .arg(web_.connectTo(QStringLiteral("www.quillmark.example")), ftp.connectTo(),
                            certificates_.caFile())
                       .toUtf8());
        qputenv("QUILLMARK_SERVICE_CONFIG", QFile::encodeName(file.fileName()));
    }
    ~Service() { qunsetenv("QUILLMARK_SERVICE_CONFIG"); }

    test_support::ScriptedFTPServer ftp;

private:
    static WebAnswer answer(const QByteArray& target) {
        if (target.contains("/login.php"))
            return WebAnswer::ok("<Login><Success>1</Success><UserId>4711</UserId><Password>token</Password>"
                                 "<LoggedInName>Ann</LoggedInName></Login>");
        if (target.contains("/eventlist.php"))
            return WebAnswer::ok("<List><Event id=\"77\"><Name>Wedding</Name></Event></List>");
        if (target.contains("/categorylist.php"))
            return WebAnswer::ok("<List><Category id=\"1\"><Name>Ceremony</Name></Category></List>");
        return WebAnswer::ok("<Information><Result>All done.</Result></Information>");
    }

    const QTemporaryDir folder_;
    test_support::TestCertificates certificates_;
    test_support::ScriptedWebServer web_;
};

class Module : public testing::Test {
protected:
    template <typename Control>
    Control* control(QLatin1String name) const {
        return dialog->findChild<Control*>(name);
    }

    void openDialog(std::vector<Picture> pictures) {
        dialog = std::make_unique<ExportDialog>(std::move(pictures));
        QString error;
        ASSERT_TRUE(dialog->loadPlugIn(apiManager, kBundle, &error)) << error.toStdString();
        QObject::connect(dialog.get(), &QDialog::finished, dialog.get(),
                         [this](int result) { outcome = result; });
        dialog->show();
    }

    void logIn() {
        control<QLineEdit>(panel::kUsernameField)->setText(QStringLiteral("ann"));
        control<QLineEdit>(panel::kPasswordField)->setText(QStringLiteral("secret"));
        control<QCheckBox>(panel::kRememberCheckBox)->setChecked(true);
        control<QPushButton>(panel::kLoginButton)->click();
        auto* const events = control<QComboBox>(panel::kEventChooser);
        ASSERT_TRUE(waitUntil([&] { return events->count() == 1 && events->isVisible(); }));
    }

    APIManager apiManager;
    std::unique_ptr<ExportDialog> dialog;
    std::optional<int> outcome;
};

/// What the example prints to its standard error, and its exit status.
std::pair<QString, int> runExample(const QStringList& arguments) {
    QProcess process;
    process.start(QStringLiteral(QUILLMARK_BUILD_DIR "/examples/example-host"), arguments);
    process.waitForFinished();
    return {QString::fromUtf8(process.readAllStandardError()), process.exitCode()};
}

} // namespace

TEST_F(Module, IsLoadedAndMakesThePrincipalObject) {
    openDialog({});
    QPluginLoader loader(QDir(kBundle).absoluteFilePath(hostapi::kModuleFileName));
    auto* const module = qobject_cast<hostapi::PlugInModule*>(loader.instance());
    ASSERT_NE(module, nullptr) << loader.errorString().toStdString();
    QString error;
    const auto plugIn = module->initWithAPIManager(&apiManager, kBundle, &error);
    ASSERT_NE(plugIn, nullptr) << error.toStdString();
    EXPECT_TRUE(plugIn->allowsOnlyPlugInPresets());
    EXPECT_FALSE(plugIn->wantsDestinationPathPrompt());
    EXPECT_TRUE(QDir(plugIn->destinationPath()).exists());
}

TEST_F(Module, ItsPanelHasTheControlsThatAHostMayRelyOn) {
    openDialog({});
    for (const QLatin1String name :
         {panel::kUsernameField, panel::kPasswordField, panel::kResizeWidth, panel::kResizeHeight})
        EXPECT_NE(control<QLineEdit>(name), nullptr) << name.data();
    for (const QLatin1String name :
         {panel::kEventChooser, panel::kPricingChooser, panel::kCategoryChooser, panel::kColorspaceChooser})
        EXPECT_NE(control<QComboBox>(name), nullptr) << name.data();
    for (const QLatin1String name :
         {panel::kRememberCheckBox, panel::kAutoCreateCategoriesButton, panel::kDoResizeButton})
        EXPECT_NE(control<QCheckBox>(name), nullptr) << name.data();
    EXPECT_NE(control<QPushButton>(panel::kLoginButton), nullptr);
    EXPECT_EQ(dialog->focusWidget(), control<QLineEdit>(panel::kUsernameField)) << "the first view";
}

TEST_F(Module, TellsWhyItsObjectCannotBeMade) {
    ExportDialog withoutModule({});
    QString error;
    EXPECT_FALSE(withoutModule.loadPlugIn(apiManager, QStringLiteral("/no/such.bundle"), &error));
    EXPECT_FALSE(error.isEmpty());

    QPluginLoader loader(QDir(kBundle).absoluteFilePath(hostapi::kModuleFileName));
    auto* const module = qobject_cast<hostapi::PlugInModule*>(loader.instance());
    ASSERT_NE(module, nullptr) << loader.errorString().toStdString();
    TestBundle bundle;
    bundle.remove(QStringLiteral("ProPhotoRGB.icc"));
    error.clear();
    apiManager.exportManager = std::make_shared<ExportManager>(std::vector<Picture>());
    EXPECT_EQ(module->initWithAPIManager(&apiManager, bundle.path(), &error), nullptr);
    EXPECT_TRUE(error.contains(QStringLiteral("ProPhotoRGB"))) << error.toStdString();
}

TEST_F(Module, ShowsWhatIsMissingInASheetOfTheHostsWindow) {
    openDialog({});
    dialog->exportButton->click();
    auto* const sheet = dialog->findChild<QMessageBox*>();
    ASSERT_NE(sheet, nullptr);
    EXPECT_EQ(sheet->text(), QStringLiteral("Please log in first"));
    EXPECT_EQ(sheet->windowModality(), Qt::WindowModal);
    sheet->button(QMessageBox::Ok)->click();
    EXPECT_TRUE(dialog->isVisible());
}

TEST_F(Module, ADialogThatIsClosedBeforeTheExportIsGoneAtOnce) {
    openDialog({});
    dialog->reject();
    EXPECT_EQ(outcome, int(QDialog::Rejected));
}

TEST_F(Module, ExportsPicturesForAHostThatKnowsOnlyItsHeaders) {
    const test_support::KeyringSession keyring(QStringLiteral("unlocked"));
    Service service;
    MessageAnswers alerts;
    openDialog({{encoded({40, 30}), QStringLiteral("a.png"), QStringLiteral("Spring")},
                {encoded({30, 40}), QStringLiteral("b.png"), QStringLiteral("Summer")}});
    logIn();
    control<QComboBox>(panel::kEventChooser)->setCurrentIndex(0);
    control<QCheckBox>(panel::kAutoCreateCategoriesButton)->setChecked(true);
    dialog->exportButton->click();
    ASSERT_TRUE(waitUntil([&] { return outcome.has_value(); }))
        << alerts.texts.join(QLatin1Char('\n')).toStdString();

    EXPECT_EQ(outcome, int(QDialog::Accepted));
    EXPECT_EQ(alerts.texts, QStringList{QStringLiteral("Your Quillmark export is complete.|All done.")});
    const auto files = service.ftp.files();
    EXPECT_EQ(files.size(), 2U);
    EXPECT_EQ(files.count("77/Spring/a.jpg"), 1U);
    EXPECT_EQ(files.count("77/Summer/b.jpg"), 1U);
}

TEST_F(Module, AnExportThatTheUserCancelsEndsRejected) {
    const test_support::KeyringSession keyring(QStringLiteral("unlocked"));
    Service service;
    openDialog({{encoded({40, 30}), QStringLiteral("a.png"), QStringLiteral("Spring")}});
    logIn();
    control<QComboBox>(panel::kEventChooser)->setCurrentIndex(0);
    control<QCheckBox>(panel::kAutoCreateCategoriesButton)->setChecked(true);
    dialog->exportButton->click();
    ASSERT_TRUE(waitUntil([&] { return !dialog->exportButton->isEnabled(); })) << "it has begun";
    dialog->reject();
    ASSERT_TRUE(waitUntil([&] { return outcome.has_value(); }));
    EXPECT_EQ(outcome, int(QDialog::Rejected));
}

TEST(ExampleHost, TellsHowItIsUsedAndWhatIsWrong) {
    EXPECT_EQ(runExample({}), std::pair(QStringLiteral("usage: example-host BUNDLE PICTURE...\n"), 2));
    const auto [missing, status] = runExample({kBundle, QStringLiteral("/no/such.jpg")});
    EXPECT_TRUE(missing.contains(QStringLiteral("/no/such.jpg"))) << missing.toStdString();
    EXPECT_EQ(status, 1);
    const auto [noBundle, itsStatus] = runExample(
        {QStringLiteral("/no/such.bundle"), QStringLiteral(QUILLMARK_SOURCE_DIR "/docs/pictures/panel.png")});
    EXPECT_TRUE(noBundle.contains(QStringLiteral("/no/such.bundle"))) << noBundle.toStdString();
    EXPECT_EQ(itsStatus, 1);
}

TEST(HostingPage, ShowsTheHostThatTheseTestsRun) {
    const auto read = [](const char* path) {
        QFile file(QStringLiteral(QUILLMARK_SOURCE_DIR) + QLatin1String(path));
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    };
    const QString source = read("/examples/host/ExportDialog.h");
    ASSERT_FALSE(source.isEmpty());
    EXPECT_TRUE(
        read("/docs/hosting.md").contains(QStringLiteral("```cpp\n") + source + QStringLiteral("```\n")));
}
