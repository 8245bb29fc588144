// Whom the object speaks to: the host's services, or the desktop's where the host has none.

#include "plugin/Environment.h"
#include "platform/UserDefaults.h"
#include "plugin/DesktopServices.h"
#include "tests/support/KeyringSession.h"
#include "tests/support/RecordingHost.h"

#include <QtCore/QFile>
#include <QtCore/QTimer>
#include <QtWidgets/QApplication>
#include <QtWidgets/QMessageBox>
#include <QtWidgets/QPushButton>

#include <gtest/gtest.h>

using test_support::RecordingHost;

namespace {

/// The message box that is open; null where there is none.
QMessageBox* openMessageBox() {
    for (QWidget* const widget : QApplication::topLevelWidgets()) {
        if (auto* const box = qobject_cast<QMessageBox*>(widget); box && box->isVisible())
            return box;
    }
    return nullptr;
}

/// Answers every API question with a wrong object.
class ConfusedManager final : public hostapi::PROAPIObject {
public:
    std::shared_ptr<hostapi::PROAPIObject> apiForProtocol(QLatin1String) override {
        return std::make_shared<ConfusedManager>();
    }
};

std::shared_ptr<const Environment> makeEnvironment(hostapi::PROAPIObject& manager, const QString& service,
                                                   QString* error = nullptr) {
    qputenv("QUILLMARK_SERVICE_CONFIG", QFile::encodeName(service));
    return Environment::make(manager, RecordingHost::defaultBundlePath(), error);
}

} // namespace

TEST(Environment, UsesTheHostsServices) {
    RecordingHost host;
    const auto environment = makeEnvironment(host, host.useService({}));
    ASSERT_NE(environment, nullptr);
    EXPECT_EQ(&environment->alerts, static_cast<hostapi::AlertPresenter*>(&host));
    EXPECT_EQ(&environment->credentials, &host.credentials);
    EXPECT_EQ(&environment->defaults, static_cast<hostapi::DefaultsStore*>(&host));
    EXPECT_EQ(&environment->observer, static_cast<hostapi::ExportObserver*>(&host));
    EXPECT_NE(environment->hostServices, nullptr);
}

TEST(Environment, UsesTheDesktopsForEachThatTheHostLeavesOut) {
    RecordingHost host;
    host.usesDesktopAlerts = true;
    host.usesDesktopCredentials = true;
    const auto environment = makeEnvironment(host, host.useService({}));
    ASSERT_NE(environment, nullptr);
    EXPECT_EQ(&environment->alerts, &desktop_services::alerts());
    EXPECT_EQ(&environment->credentials, &desktop_services::credentials());
    EXPECT_EQ(&environment->defaults, static_cast<hostapi::DefaultsStore*>(&host));
}

TEST(Environment, UsesTheDesktopForAHostWithoutServices) {
    RecordingHost host;
    host.offersHostServices = false;
    const auto environment = makeEnvironment(host, host.useService({}));
    ASSERT_NE(environment, nullptr);
    EXPECT_EQ(environment->hostServices, nullptr);
    EXPECT_EQ(&environment->alerts, &desktop_services::alerts());
    EXPECT_EQ(&environment->credentials, &desktop_services::credentials());
    EXPECT_EQ(&environment->defaults, &desktop_services::defaults());
    EXPECT_EQ(&environment->observer, &desktop_services::observer());
}

TEST(Environment, AnObjectOfAnotherClassIsNoService) {
    RecordingHost host;
    ConfusedManager manager;
    const auto environment = makeEnvironment(manager, host.useService({}));
    ASSERT_NE(environment, nullptr);
    EXPECT_EQ(&environment->alerts, &desktop_services::alerts());
    QString error;
    EXPECT_EQ(Quillmark::initWithAPIManager(&manager, RecordingHost::defaultBundlePath(), &error), nullptr);
    EXPECT_FALSE(error.isEmpty());
}

TEST(Environment, HoldsTheServicesHosts) {
    RecordingHost host;
    const auto environment = makeEnvironment(host, host.useService({}));
    ASSERT_NE(environment, nullptr);
    EXPECT_EQ(environment->configuration.webHost, QStringLiteral("www.quillmark.example"));
    EXPECT_EQ(environment->configuration.ftpHost, QStringLiteral("ftp.quillmark.example"));
    EXPECT_EQ(environment->bundle.path(), RecordingHost::defaultBundlePath());
}

TEST(Environment, WithoutAConfigurationThereIsNone) {
    RecordingHost host;
    QString error;
    EXPECT_EQ(makeEnvironment(host, QStringLiteral("/no/such/service.ini"), &error), nullptr);
    EXPECT_TRUE(error.contains(QStringLiteral("/no/such/service.ini"))) << error.toStdString();
}

TEST(DesktopServices, DefaultsAreTheUsers) {
    auto& defaults = desktop_services::defaults();
    const QLatin1String key("imageQuality");
    defaults.setValue(key, 7.5);
    EXPECT_EQ(platform::UserDefaults::value(key).toDouble(), 7.5);
    EXPECT_EQ(defaults.value(key).toDouble(), 7.5);
    defaults.remove(key);
    EXPECT_FALSE(defaults.value(key).isValid());
    EXPECT_FALSE(platform::UserDefaults::value(key).isValid());
}

TEST(DesktopServices, ASheetIsAMessageBoxOfItsWindowAndDoesNotWait) {
    QWidget window;
    window.show();
    desktop_services::alerts().beginSheet(
        {hostapi::AlertStyle::Warning, QStringLiteral("Message <b>"), QStringLiteral("Information <i>")},
        &window);
    QMessageBox* const box = openMessageBox();
    ASSERT_NE(box, nullptr);
    EXPECT_EQ(box->parentWidget(), &window);
    EXPECT_EQ(box->windowModality(), Qt::WindowModal);
    EXPECT_EQ(box->text(), QStringLiteral("Message <b>"));
    EXPECT_EQ(box->informativeText(), QStringLiteral("Information <i>"));
    EXPECT_EQ(box->textFormat(), Qt::PlainText);
    EXPECT_EQ(box->icon(), QMessageBox::Warning);
    EXPECT_EQ(box->standardButtons(), QMessageBox::Ok);
    box->close();
}

TEST(DesktopServices, AModalAlertWaitsForItsAnswer) {
    const std::vector<std::pair<hostapi::AlertStyle, QMessageBox::Icon>> styles{
        {hostapi::AlertStyle::Informational, QMessageBox::Information},
        {hostapi::AlertStyle::Critical, QMessageBox::Critical},
        {hostapi::AlertStyle::Warning, QMessageBox::Warning}};
    for (const auto& [style, icon] : styles) {
        bool wasAnswered = false;
        QMessageBox::Icon shown = QMessageBox::NoIcon;
        QTimer answer;
        QObject::connect(&answer, &QTimer::timeout, [&] {
            if (QMessageBox* const box = openMessageBox()) {
                shown = box->icon();
                wasAnswered = true;
                box->button(QMessageBox::Ok)->click();
            }
        });
        answer.start(1);
        desktop_services::alerts().runModal({style, QStringLiteral("Message"), std::nullopt});
        EXPECT_TRUE(wasAnswered);
        EXPECT_EQ(shown, icon);
    }
}

TEST(DesktopServices, CredentialsAreTheKeyrings) {
    const test_support::KeyringSession keyring(QStringLiteral("unlocked"));
    auto& credentials = desktop_services::credentials();
    const hostapi::InternetPassword ann{
        "www.quillmark.example", "ann", "instantupload", 0, 0x68747470, 0x746c6664};
    QByteArray password;
    EXPECT_EQ(credentials.findInternetPassword(ann, &password, nullptr), hostapi::kCredentialItemNotFound);
    EXPECT_EQ(credentials.addInternetPassword(ann, "secret", nullptr), hostapi::kCredentialSuccess);
    EXPECT_EQ(credentials.addInternetPassword(ann, "other", nullptr), hostapi::kCredentialDuplicateItem);

    std::shared_ptr<hostapi::CredentialItem> item;
    ASSERT_EQ(credentials.findInternetPassword(ann, &password, &item), hostapi::kCredentialSuccess);
    EXPECT_EQ(password, "secret");
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(credentials.modifyItem(*item, "ann", "changed"), hostapi::kCredentialSuccess);
    EXPECT_EQ(credentials.findInternetPassword(ann, &password, nullptr), hostapi::kCredentialSuccess);
    EXPECT_EQ(password, "changed");

    hostapi::InternetPassword bob = ann;
    bob.account = "bob";
    std::shared_ptr<hostapi::CredentialItem> added;
    EXPECT_EQ(credentials.addInternetPassword(bob, "his", &added), hostapi::kCredentialSuccess);
    ASSERT_NE(added, nullptr);
    EXPECT_EQ(credentials.modifyItem(*added, "bob", "new"), hostapi::kCredentialSuccess);
    EXPECT_EQ(credentials.findInternetPassword(bob, &password, nullptr), hostapi::kCredentialSuccess);
    EXPECT_EQ(password, "new");
}

TEST(DesktopServices, AnItemOfAnotherStoreIsNotFound) {
    hostapi::CredentialItem foreign;
    EXPECT_EQ(desktop_services::credentials().modifyItem(foreign, "ann", "secret"),
              hostapi::kCredentialItemNotFound);
    EXPECT_FALSE(
        desktop_services::credentials().messageForStatus(hostapi::kCredentialItemNotFound).isEmpty());
}

TEST(DesktopServices, TheObserverTakesWhatItIsTold) {
    RecordingHost host;
    host.offersHostServices = false;
    const auto plugIn = host.makePlugIn();
    ASSERT_NE(plugIn, nullptr);
    // An image that can't be decoded is what an observer is told of; here nobody hears it.
    plugIn->exportManagerWillBeginExportToPath(plugIn->tempDirectoryPath);
    EXPECT_FALSE(plugIn->exportManagerShouldWriteImageData("no image", QStringLiteral("a.jpg"), 0));
    EXPECT_TRUE(host.calls().isEmpty());
}
