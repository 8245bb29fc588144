// What is remembered of a login: the three defaults, and the password in the keychain.

#include "platform/Keychain.h"
#include "platform/Secret.h"
#include "plugin/DefaultsKeys.h"
#include "tests/service/ServiceTest.h"
#include "tests/support/CharacterLocale.h"
#include "tests/support/FreedMemory.h"
#include "tests/support/ScriptedFTPServer.h"

#include <QtTest/QTest>

using namespace service_tests;
using hostapi::AlertStyle;
using platform::Keychain;
using test_support::CharacterLocale;
using test_support::runLoopFor;
using test_support::ShownAlert;
using test_support::waitUntil;
using namespace std::chrono_literals;

namespace {

const QString kAnn = QStringLiteral("ann");
const QString kSecret = QStringLiteral("secret");
const QString kSavingFailed = QStringLiteral("There was an error saving the password to the keychain.");

class Credentials : public ServiceTest {
protected:
    bool has(QLatin1String key) { return host.defaults().contains(key); }

    void save(const QString& userName, const QString& password) {
        Record details;
        details.setText(kUsernameKey, userName);
        details.setText(kPasswordKey, password);
        plugIn->storePasswordInKeyChain(details);
    }

    void rememberLogin(const QString& userName = kAnn, const QByteArray& password = "secret") {
        host.setValue(defaults_keys::kRememberDetails, true);
        host.setValue(defaults_keys::kQuillmarkUsername, userName);
        host.setValue(defaults_keys::kSavedKeyChain, true);
        host.credentials.addInternetPassword(plugIn->keychainAttributes(userName), password, nullptr);
    }

    void expectNoLogin() {
        runLoopFor(100ms);
        EXPECT_FALSE(plugIn->threadLaunched());
        EXPECT_TRUE(server.requests().empty());
        EXPECT_TRUE(plugIn->passwordField->text().isEmpty());
    }

    const std::vector<std::shared_ptr<test_support::MemoryCredentials::Entry>>& entries() {
        return host.credentials.entries;
    }
};

} // namespace

TEST_F(Credentials, ItemHasAllItsAttributes) {
    save(kAnn, kSecret);
    ASSERT_EQ(entries().size(), 1U);
    const auto& attributes = entries()[0]->attributes;
    EXPECT_EQ(attributes.server, "www.quillmark.example");
    EXPECT_EQ(attributes.account, "ann");
    EXPECT_EQ(attributes.path, "instantupload");
    EXPECT_EQ(attributes.port, 0);
    EXPECT_EQ(attributes.protocol, 0x68747470U);
    EXPECT_EQ(attributes.authenticationType, 0x746c6664U);
    EXPECT_EQ(entries()[0]->password, "secret");
}

TEST_F(Credentials, SecondSaveChangesTheItem) {
    save(kAnn, kSecret);
    save(kAnn, QStringLiteral("n\u00e9w"));
    ASSERT_EQ(entries().size(), 1U);
    EXPECT_EQ(entries()[0]->attributes.account, "ann");
    EXPECT_EQ(entries()[0]->password, "n\xC3\xA9w");
    save(QStringLiteral("bob"), kSecret);
    EXPECT_EQ(entries().size(), 2U);
    EXPECT_TRUE(host.alerts().empty());
}

TEST_F(Credentials, NameBeyondASCIIIsCutShortAndThenADuplicate) {
    const QString rene = QStringLiteral("ren\u00e9 s"); // 6 characters, 7 bytes
    save(rene, kSecret);
    ASSERT_EQ(entries().size(), 1U);
    EXPECT_EQ(entries()[0]->attributes.account, "ren\xC3\xA9 ");
    EXPECT_TRUE(host.alerts().empty());
    EXPECT_EQ(plugIn->getPasswordfromKeyChain(rene), std::nullopt);
    for (int i = 1; i <= 2; ++i) {
        save(rene, QStringLiteral("another"));
        ASSERT_EQ(host.alerts().size(), static_cast<std::size_t>(i));
        const ShownAlert shown = host.alerts().back();
        EXPECT_EQ(shown.alert.message, kSavingFailed);
        EXPECT_EQ(shown.alert.informativeText, QStringLiteral("Informative Message: -25299, ") +
                                                   host.credentials.messageForStatus(-25299));
        EXPECT_EQ(shown.alert.style, AlertStyle::Critical);
        EXPECT_FALSE(shown.isSheet);
        EXPECT_EQ(entries().size(), 1U);
        EXPECT_EQ(entries()[0]->password, "secret");
    }
}

TEST_F(Credentials, FailuresOfSavingAreShownAndTheFlagStays) {
    host.credentials.failAdd = Keychain::kAuthFailed;
    save(kAnn, kSecret);
    host.credentials.failAdd = hostapi::kCredentialSuccess;
    host.remove(defaults_keys::kSavedKeyChain);
    save(kAnn, kSecret);
    host.credentials.failModify = Keychain::kInteractionNotAllowed;
    save(kAnn, QStringLiteral("other"));
    ASSERT_EQ(host.alerts().size(), 2U);
    EXPECT_TRUE(
        host.alerts()[0].alert.informativeText->startsWith(QStringLiteral("Informative Message: -25293, ")));
    EXPECT_TRUE(
        host.alerts()[1].alert.informativeText->startsWith(QStringLiteral("Informative Message: -25308, ")));
    EXPECT_EQ(entries()[0]->password, "secret");
    EXPECT_EQ(host.defaults().value(defaults_keys::kSavedKeyChain), true);
}

TEST_F(Credentials, AnyFailureOfTheLookupMeansANewItem) {
    save(kAnn, kSecret);
    host.credentials.failFind = Keychain::kAuthFailed;
    save(kAnn, QStringLiteral("other"));
    ASSERT_EQ(host.alerts().size(), 1U);
    EXPECT_TRUE(
        host.alerts()[0].alert.informativeText->startsWith(QStringLiteral("Informative Message: -25299, ")));
}

TEST_F(Credentials, PasswordIsReadByExactlyItsAttributes) {
    EXPECT_EQ(plugIn->getPasswordfromKeyChain(kAnn), std::nullopt);
    save(kAnn, kSecret);
    EXPECT_EQ(plugIn->getPasswordfromKeyChain(kAnn), kSecret);
    EXPECT_EQ(plugIn->getPasswordfromKeyChain(QStringLiteral("bob")), std::nullopt);
    host.credentials.failFind = Keychain::kInteractionNotAllowed;
    EXPECT_EQ(plugIn->getPasswordfromKeyChain(kAnn), std::nullopt);
    EXPECT_TRUE(host.alerts().empty());
    // Reading wipes nothing of the store's own.
    EXPECT_EQ(entries()[0]->password, "secret");
}

TEST_F(Credentials, SavingAndReadingLeaveNoPasswordInMemory) {
    const QString password = QStringLiteral("correct horse battery staple");
    const test_support::FreedMemory freed("correct horse battery staple");
    save(kAnn, kSecret);
    save(kAnn, password);
    auto read = plugIn->getPasswordfromKeyChain(kAnn);
    EXPECT_EQ(read, password);
    platform::wipe(*read);
    host.credentials.failAdd = Keychain::kAuthFailed;
    save(QStringLiteral("bob"), password);
    EXPECT_EQ(host.alerts().size(), 1U);
    EXPECT_EQ(freed.findings(), 0);
}

TEST_F(Credentials, PasswordBeyondASCIISurvivesInAUTF8LocaleAlone) {
    const QString password = QStringLiteral("p\u00e4ss");
    save(kAnn, password);
    {
        const CharacterLocale utf8("de_DE", "UTF-8");
        ASSERT_TRUE(utf8.isSet());
        EXPECT_EQ(plugIn->getPasswordfromKeyChain(kAnn), password);
    }
    const CharacterLocale latin1("de_DE", "ISO-8859-1");
    ASSERT_TRUE(latin1.isSet());
    EXPECT_EQ(plugIn->getPasswordfromKeyChain(kAnn), QStringLiteral("p\u00c3\u00a4ss"));
}

TEST_F(Credentials, NewApplicationReadsThePasswordInTheEncodingOfItsUsersLocale) {
    const auto shown = [] {
        QProcess application;
        application.start(QStringLiteral(QUILLMARK_BUILD_DIR "/tests/service/remembered_login"),
                          QStringList());
        EXPECT_TRUE(application.waitForFinished());
        EXPECT_EQ(application.exitCode(), 0) << application.readAllStandardError().constData();
        return application.readAllStandardOutput();
    };
    {
        const CharacterLocale utf8("de_DE", "UTF-8");
        ASSERT_TRUE(utf8.isSet());
        EXPECT_EQ(shown(), QByteArray("p\u00e4ss"));
    }
    const CharacterLocale latin1("de_DE", "ISO-8859-1");
    ASSERT_TRUE(latin1.isSet());
    EXPECT_EQ(shown(), QByteArray("p\u00c3\u00a4ss"));
}

TEST_F(Credentials, RememberedPasswordBeyondASCIIIsSentAsAnotherOne) {
    rememberLogin(kAnn, QStringLiteral("p\u00e4ss").toUtf8());
    const CharacterLocale latin1("de_DE", "ISO-8859-1");
    ASSERT_TRUE(latin1.isSet());
    plugIn->willBeActivated();
    EXPECT_EQ(plugIn->passwordField->text(), QStringLiteral("p\u00c3\u00a4ss"));
    // It is no URL either, so the login fails.
    EXPECT_TRUE(waitForStatus(kLoginFailed));
}

TEST_F(Credentials, RememberedLoginStartsByItself) {
    rememberLogin();
    plugIn->willBeActivated();
    EXPECT_TRUE(plugIn->rememberCheckBox->isChecked());
    EXPECT_EQ(plugIn->usernameField->text(), kAnn);
    EXPECT_EQ(plugIn->passwordField->text(), kSecret);
    EXPECT_TRUE(waitForStatus(kLoggedIn));
    EXPECT_EQ(targets(kLoginPage),
              (QStringList{QStringLiteral("/instantupload/login.php?user=ann&pwd=secret")}));
    EXPECT_TRUE(waitForLists());
}

TEST_F(Credentials, NothingRememberedStartsNothing) {
    plugIn->willBeActivated();
    EXPECT_TRUE(plugIn->usernameField->text().isEmpty());
    host.setValue(defaults_keys::kQuillmarkUsername, QString());
    host.setValue(defaults_keys::kSavedKeyChain, true);
    plugIn->willBeActivated();
    EXPECT_TRUE(plugIn->usernameField->text().isEmpty());
    expectNoLogin();
}

TEST_F(Credentials, RememberedNameWithoutAPasswordIsOnlyShown) {
    host.setValue(defaults_keys::kQuillmarkUsername, kAnn);
    host.credentials.addInternetPassword(plugIn->keychainAttributes(kAnn), "secret", nullptr);
    plugIn->authenticateWithSavedData();
    EXPECT_EQ(plugIn->usernameField->text(), kAnn);
    expectNoLogin();

    host.setValue(defaults_keys::kSavedKeyChain, true);
    host.credentials.entries.clear();
    plugIn->authenticateWithSavedData();
    EXPECT_EQ(plugIn->usernameField->text(), kAnn);
    expectNoLogin();

    host.credentials.addInternetPassword(plugIn->keychainAttributes(kAnn), "", nullptr);
    plugIn->authenticateWithSavedData();
    expectNoLogin();
    EXPECT_TRUE(host.alerts().empty());
}

TEST_F(Credentials, SuccessfulLoginWithTheBoxOnIsSaved) {
    plugIn->rememberCheckBox->setChecked(true);
    logInAndLoadLists();
    EXPECT_EQ(host.defaults().value(defaults_keys::kQuillmarkUsername), kAnn);
    EXPECT_EQ(host.defaults().value(defaults_keys::kSavedKeyChain), true);
    ASSERT_EQ(entries().size(), 1U);
    EXPECT_EQ(entries()[0]->password, "secret");
    EXPECT_EQ(detail(kPasswordKey), std::nullopt);
    EXPECT_EQ(detail(kUsernameKey), kAnn);
    // Nowhere else is the password kept.
    for (const QVariant& value : host.defaults())
        EXPECT_FALSE(value.toString().contains(kSecret));
}

TEST_F(Credentials, FailedLoginIsNotSaved) {
    answer(kLoginPage, loginAnswer("0"));
    plugIn->rememberCheckBox->setChecked(true);
    logIn();
    EXPECT_TRUE(entries().empty());
    EXPECT_FALSE(has(defaults_keys::kQuillmarkUsername));
    EXPECT_FALSE(has(defaults_keys::kSavedKeyChain));
}

TEST_F(Credentials, LoginSucceedsWhereThePasswordCannotBeSaved) {
    host.credentials.failAdd = Keychain::kNotAvailable;
    plugIn->rememberCheckBox->setChecked(true);
    logInAndLoadLists();
    EXPECT_TRUE(plugIn->isLoggedIn);
    ASSERT_EQ(host.alerts().size(), 1U);
    EXPECT_EQ(host.alerts()[0].alert.message, kSavingFailed);
    EXPECT_EQ(host.defaults().value(defaults_keys::kSavedKeyChain), true);
    EXPECT_EQ(host.defaults().value(defaults_keys::kQuillmarkUsername), kAnn);
}

TEST_F(Credentials, LoginWithTheBoxOffLeavesTheSavedPassword) {
    plugIn->rememberCheckBox->setChecked(true);
    logInAndLoadLists();
    makePlugIn();
    logIn(kAnn, QStringLiteral("changed"));
    ASSERT_TRUE(waitForLists());
    ASSERT_EQ(entries().size(), 1U);
    EXPECT_EQ(plugIn->getPasswordfromKeyChain(kAnn), kSecret);
    EXPECT_EQ(host.defaults().value(defaults_keys::kQuillmarkUsername), kAnn);
}

TEST_F(Credentials, TransferUsesTheSavedPasswordAlsoAfterALoginWithAnother) {
    const test_support::ScriptedFTPServer ftp;
    makePlugInThatReaches(ftp.connectTo());
    plugIn->rememberCheckBox->setChecked(true);
    logInAndLoadLists();
    makePlugIn();
    logIn(kAnn, QStringLiteral("changed"));
    ASSERT_TRUE(waitForLists());
    plugIn->createPath(QStringLiteral("77/"), &Quillmark::createdCategoryDirectory);
    EXPECT_TRUE(waitUntil([&] { return ftp.commands().contains("PASS secret"); }));
    EXPECT_TRUE(ftp.commands().contains("USER ann"));
    EXPECT_TRUE(host.alerts().empty());
}

TEST_F(Credentials, UserWhoNeverSavedAPasswordLogsInButTheTransferHasNone) {
    const test_support::ScriptedFTPServer ftp;
    makePlugInThatReaches(ftp.connectTo());
    logInAndLoadLists();
    EXPECT_TRUE(plugIn->isLoggedIn);
    EXPECT_EQ(plugIn->getPasswordfromKeyChain(kAnn), std::nullopt);
    plugIn->createPath(QStringLiteral("77/"), &Quillmark::createdCategoryDirectory);
    ASSERT_TRUE(waitUntil([this] { return !host.alerts().empty(); }));
    EXPECT_EQ(host.alerts()[0].alert.message, QStringLiteral("There was an error reading the password."));
    EXPECT_FALSE(ftp.commands().contains("PASS secret"));
}

TEST_F(Credentials, ClickingTheBoxStoresItsStateAlone) {
    plugIn->rememberCheckBox->setChecked(false);
    QTest::mouseClick(plugIn->rememberCheckBox, Qt::LeftButton, {},
                      QPoint(5, plugIn->rememberCheckBox->height() / 2));
    EXPECT_EQ(host.defaults().value(defaults_keys::kRememberDetails), true);
    EXPECT_EQ(host.defaults().size(), 1);
    rememberLogin();
    QTest::mouseClick(plugIn->rememberCheckBox, Qt::LeftButton, {},
                      QPoint(5, plugIn->rememberCheckBox->height() / 2));
    EXPECT_EQ(host.defaults().value(defaults_keys::kRememberDetails), false);
    EXPECT_EQ(host.defaults().value(defaults_keys::kQuillmarkUsername), kAnn);
    EXPECT_EQ(host.defaults().value(defaults_keys::kSavedKeyChain), true);
    EXPECT_EQ(entries().size(), 1U);
}

TEST_F(Credentials, MixedStateCountsAsOff) {
    QCheckBox box;
    box.setTristate(true);
    for (const auto& [state, expected] :
         {std::pair(Qt::Checked, true), std::pair(Qt::PartiallyChecked, false),
          std::pair(Qt::Unchecked, false)}) {
        box.setCheckState(state);
        plugIn->changeRememberState(&box);
        EXPECT_EQ(host.defaults().value(defaults_keys::kRememberDetails), expected);
    }
}

TEST_F(Credentials, LogoutWithTheBoxOffForgetsNameAndFlagButNotTheItem) {
    rememberLogin();
    plugIn->willBeActivated();
    ASSERT_TRUE(waitForStatus(kLoggedIn));
    ASSERT_TRUE(waitForLists());
    plugIn->rememberCheckBox->setChecked(false);
    host.setValue(defaults_keys::kRememberDetails, true);
    pressLoginButton();
    EXPECT_FALSE(has(defaults_keys::kQuillmarkUsername));
    EXPECT_FALSE(has(defaults_keys::kSavedKeyChain));
    EXPECT_EQ(host.defaults().value(defaults_keys::kRememberDetails), true);
    EXPECT_EQ(entries().size(), 1U);
    EXPECT_EQ(plugIn->getPasswordfromKeyChain(kAnn), kSecret);
}
