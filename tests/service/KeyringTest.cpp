// Remembered logins in the desktop's own keyring.

#include "plugin/DefaultsKeys.h"
#include "tests/service/ServiceTest.h"
#include "tests/support/FreedMemory.h"
#include "tests/support/KeyringSession.h"

#include <QtCore/QDir>
#include <QtCore/QDirIterator>
#include <QtCore/QFile>

#include <unistd.h>

using namespace service_tests;
using test_support::KeyringSession;

namespace {

const QString kAnn = QStringLiteral("ann");
const QString kUnlocked = QStringLiteral("unlocked");
const QString kLocked = QStringLiteral("locked");
const QString kAbsent = QStringLiteral("absent");

QByteArray contentsOf(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

class Keyring : public ServiceTest {
protected:
    Keyring() { host.usesDesktopCredentials = true; }

    void logInRemembered(const QString& userName = kAnn, const QString& password = QStringLiteral("secret")) {
        makePlugIn();
        plugIn->rememberCheckBox->setChecked(true);
        logIn(userName, password);
        EXPECT_EQ(plugIn->loggedInStatusLabel->text(), kLoggedIn);
        EXPECT_TRUE(waitForLists());
        EXPECT_TRUE(plugIn->isLoggedIn);
        EXPECT_EQ(host.defaults().value(defaults_keys::kSavedKeyChain), true);
    }

    void expectSavingFailed(const QString& status) {
        ASSERT_EQ(host.alerts().size(), 1U);
        const auto alert = host.alerts()[0].alert;
        EXPECT_EQ(alert.style, hostapi::AlertStyle::Critical);
        EXPECT_EQ(alert.message, QStringLiteral("There was an error saving the password to the keychain."));
        const QString start = QStringLiteral("Informative Message: ") + status + QStringLiteral(", ");
        EXPECT_TRUE(alert.informativeText->startsWith(start)) << alert.informativeText->toStdString();
        EXPECT_GT(alert.informativeText->size(), start.size());
    }

    static QByteArray found(const QString& account) {
        return KeyringSession::secretTool(
            QStringLiteral("lookup server www.quillmark.example object instantupload protocol http authtype "
                           "dflt port 0 user")
                .split(QLatin1Char(' ')) +
            QStringList{account});
    }
};

} // namespace

TEST_F(Keyring, RememberedPasswordIsKeptThereForTheNextPlugIn) {
    const KeyringSession session(kUnlocked);
    logInRemembered();
    EXPECT_TRUE(host.alerts().empty());
    EXPECT_EQ(found(kAnn), "secret");

    makePlugIn();
    plugIn->willBeActivated();
    EXPECT_EQ(plugIn->passwordField->text(), QStringLiteral("secret"));
    EXPECT_TRUE(waitForStatus(kLoggedIn));
    EXPECT_TRUE(waitForLists());
}

TEST_F(Keyring, PasswordStandsNowhereElse) {
    const KeyringSession session(kUnlocked);
    const QString password = QStringLiteral("Uncommon-Horse-4711");
    host.offersHostServices = false; // alerts and defaults are the desktop's as well
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    for (const char* success : {"0", "1"}) {
        answer(kLoginPage, loginAnswer(success));
        makePlugIn();
        plugIn->rememberCheckBox->setChecked(true);
        logIn(kAnn, password);
    }
    EXPECT_TRUE(waitForLists());
    EXPECT_EQ(found(kAnn), password.toUtf8());
    QByteArray everything = QByteArray::fromStdString(testing::internal::GetCapturedStdout() +
                                                      testing::internal::GetCapturedStderr());
    for (char** variable = environ; *variable; ++variable)
        everything += *variable;
    everything += contentsOf(QStringLiteral("/proc/self/cmdline"));
    // The test's own home, which holds what the desktop keeps for the user.
    QDirIterator files(QDir::homePath() + QStringLiteral("/.."), QDir::Files | QDir::Hidden,
                       QDirIterator::Subdirectories);
    int count = 0;
    for (; files.hasNext(); ++count)
        everything += contentsOf(files.next());
    EXPECT_GT(count, 0);
    EXPECT_TRUE(everything.contains("quillmarkUsername")) << "the defaults are among them";
    EXPECT_FALSE(everything.contains(password.toUtf8()));
    EXPECT_FALSE(everything.contains(password.toUtf8().toBase64().chopped(4)));
}

TEST_F(Keyring, SavingAndReadingLeaveNoPasswordInMemory) {
    const KeyringSession session(kUnlocked);
    makePlugIn();
    const QString password = QStringLiteral("Uncommon-Horse-4711");
    const test_support::FreedMemory freed("Uncommon-Horse-4711");
    {
        Record details;
        details.setText(kUsernameKey, kAnn);
        details.setText(kPasswordKey, password);
        plugIn->storePasswordInKeyChain(details);
        plugIn->storePasswordInKeyChain(details);
        auto read = plugIn->getPasswordfromKeyChain(kAnn);
        EXPECT_EQ(read, password);
        platform::wipe(*read);
    }
    EXPECT_EQ(freed.findings(), 0);
}

TEST_F(Keyring, SecondSaveChangesTheItem) {
    const KeyringSession session(kUnlocked);
    logInRemembered();
    logInRemembered(kAnn, QStringLiteral("changed"));
    EXPECT_TRUE(host.alerts().empty());
    EXPECT_EQ(found(kAnn), "changed");
}

TEST_F(Keyring, NameBeyondASCIIBecomesADuplicate) {
    const KeyringSession session(kUnlocked);
    answer(kLoginPage, loginAnswer());
    Record details;
    details.setText(kUsernameKey, QStringLiteral("ren\u00e9x"));
    details.setText(kPasswordKey, QStringLiteral("secret"));
    plugIn->storePasswordInKeyChain(details);
    EXPECT_TRUE(host.alerts().empty());
    EXPECT_EQ(found(QStringLiteral("ren\u00e9")), "secret");
    plugIn->storePasswordInKeyChain(details);
    expectSavingFailed(QStringLiteral("-25299"));
}

TEST_F(Keyring, WithoutAKeyringTheLoginSucceedsWithAnAlert) {
    const KeyringSession session(kAbsent);
    logInRemembered();
    expectSavingFailed(QStringLiteral("-25291"));
    EXPECT_EQ(plugIn->getPasswordfromKeyChain(kAnn), std::nullopt);
}

TEST_F(Keyring, LockedKeyringThatTheUserDoesNotUnlockGivesTheAlert) {
    KeyringSession session(kLocked);
    session.answerPrompts(QString());
    logInRemembered();
    ASSERT_EQ(host.alerts().size(), 1U);
    EXPECT_TRUE(host.alerts()[0].alert.informativeText->startsWith(QStringLiteral("Informative Message: -")));
    EXPECT_EQ(plugIn->getPasswordfromKeyChain(kAnn), std::nullopt);
}

TEST_F(Keyring, LockedKeyringThatTheUserUnlocksIsUsed) {
    KeyringSession session(kLocked);
    session.answerPrompts(QLatin1String(KeyringSession::kPassword));
    logInRemembered();
    EXPECT_TRUE(host.alerts().empty());
    EXPECT_EQ(plugIn->getPasswordfromKeyChain(kAnn), QStringLiteral("secret"));
}
