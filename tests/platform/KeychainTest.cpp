#include "platform/Keychain.h"
#include "tests/support/KeyringSession.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QSet>
#include <QtCore/QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

using platform::Keychain;
using test_support::KeyringSession;

constexpr qint64 kQuickly = 5000;

const QString kUnlocked = QStringLiteral("unlocked");
const QString kLocked = QStringLiteral("locked");
const QString kAbsent = QStringLiteral("absent");

Keychain::Attributes attributes(const QByteArray& account = "ann") {
    return {"www.quillmark.example",
            account,
            "instantupload",
            0,
            Keychain::kProtocolTypeHTTP,
            Keychain::kAuthenticationTypeDefault};
}

/// The same attributes as another program writes them.
QStringList attributeArguments(const QString& account = QStringLiteral("ann")) {
    return QStringLiteral(
               "server www.quillmark.example object instantupload protocol http authtype dflt port 0 user")
               .split(QLatin1Char(' ')) +
           QStringList{account};
}

std::int32_t add(const Keychain::Attributes& attributes, const QByteArray& password) {
    return Keychain::addInternetPassword(attributes, password, nullptr);
}

std::int32_t find(const Keychain::Attributes& attributes, QByteArray* password = nullptr) {
    return Keychain::findInternetPassword(attributes, password, nullptr);
}

/// The password found, or the status in words.
QByteArray passwordOf(const Keychain::Attributes& attributes) {
    QByteArray password;
    const std::int32_t status = find(attributes, &password);
    return status == Keychain::kSuccess ? password : "status " + QByteArray::number(status);
}

TEST(Keychain, AddedItemIsFoundWithItsPassword) {
    const KeyringSession session(kUnlocked);
    EXPECT_EQ(find(attributes()), Keychain::kItemNotFound);
    std::shared_ptr<Keychain::Item> added;
    EXPECT_EQ(Keychain::addInternetPassword(attributes(), "secret", &added), Keychain::kSuccess);
    EXPECT_TRUE(added);
    EXPECT_EQ(passwordOf(attributes()), "secret");
}

TEST(Keychain, LookupFillsOnlyWhatIsAskedFor) {
    const KeyringSession session(kUnlocked);
    ASSERT_EQ(add(attributes(), "secret"), Keychain::kSuccess);
    std::shared_ptr<Keychain::Item> item;
    EXPECT_EQ(Keychain::findInternetPassword(attributes(), nullptr, &item), Keychain::kSuccess);
    EXPECT_TRUE(item);
}

TEST(Keychain, OtherProgramsFindOurItem) {
    const KeyringSession session(kUnlocked);
    ASSERT_EQ(add(attributes(), "secret"), Keychain::kSuccess);
    EXPECT_EQ(KeyringSession::secretTool(QStringList{QStringLiteral("lookup")} + attributeArguments()),
              "secret");
    const QByteArray shown =
        KeyringSession::secretTool(QStringList{QStringLiteral("search")} + attributeArguments());
    EXPECT_TRUE(shown.contains("label = quillmark: www.quillmark.example (ann)")) << shown.toStdString();
    EXPECT_TRUE(shown.contains("schema = org.gnome.keyring.NetworkPassword")) << shown.toStdString();
}

TEST(Keychain, ItemsOfOtherProgramsAreFoundAndModified) {
    const KeyringSession session(kUnlocked);
    KeyringSession::secretTool(QStringList{QStringLiteral("store"), QStringLiteral("--label=by hand")} +
                                   attributeArguments(),
                               "theirs");
    std::shared_ptr<Keychain::Item> item;
    QByteArray password;
    ASSERT_EQ(Keychain::findInternetPassword(attributes(), &password, &item), Keychain::kSuccess);
    EXPECT_EQ(password, "theirs");
    EXPECT_EQ(add(attributes(), "ours"), Keychain::kDuplicateItem);
    EXPECT_EQ(Keychain::modifyItem(*item, "ann", "ours"), Keychain::kSuccess);
    EXPECT_EQ(KeyringSession::secretTool(QStringList{QStringLiteral("lookup")} + attributeArguments()),
              "ours");
}

TEST(Keychain, EveryAttributeDistinguishesItems) {
    const KeyringSession session(kUnlocked);
    ASSERT_EQ(add(attributes(), "secret"), Keychain::kSuccess);
    auto other = attributes();
    other.server = "ftp.quillmark.example";
    EXPECT_EQ(find(other), Keychain::kItemNotFound);
    other = attributes("Ann");
    EXPECT_EQ(find(other), Keychain::kItemNotFound);
    other = attributes("");
    EXPECT_EQ(find(other), Keychain::kItemNotFound);
    other = attributes();
    other.path = "instantuploads";
    EXPECT_EQ(find(other), Keychain::kItemNotFound);
    other = attributes();
    other.port = 80;
    EXPECT_EQ(find(other), Keychain::kItemNotFound);
    other = attributes();
    other.protocol = 0x68747073; // 'https'
    EXPECT_EQ(find(other), Keychain::kItemNotFound);
    other = attributes();
    other.authenticationType = 0x68747470;
    EXPECT_EQ(find(other), Keychain::kItemNotFound);
    EXPECT_EQ(add(other, "another"), Keychain::kSuccess);
    EXPECT_EQ(passwordOf(attributes()), "secret");
}

TEST(Keychain, ItemOfASecurityDomainIsAnotherItem) {
    const KeyringSession session(kUnlocked);
    KeyringSession::secretTool(QStringList{QStringLiteral("store"), QStringLiteral("--label=x"),
                                           QStringLiteral("domain"), QStringLiteral("STUDIO")} +
                                   attributeArguments(),
                               "theirs");
    EXPECT_EQ(find(attributes()), Keychain::kItemNotFound);
    EXPECT_EQ(add(attributes(), "ours"), Keychain::kSuccess);
    EXPECT_EQ(passwordOf(attributes()), "ours");
}

TEST(Keychain, SecondItemOfTheSameAttributesIsRefused) {
    const KeyringSession session(kUnlocked);
    ASSERT_EQ(add(attributes(), "first"), Keychain::kSuccess);
    EXPECT_EQ(add(attributes(), "second"), -25299);
    EXPECT_EQ(passwordOf(attributes()), "first");
}

TEST(Keychain, ModifyingReplacesThePasswordInPlace) {
    const KeyringSession session(kUnlocked);
    ASSERT_EQ(add(attributes(), "old"), Keychain::kSuccess);
    std::shared_ptr<Keychain::Item> item;
    ASSERT_EQ(Keychain::findInternetPassword(attributes(), nullptr, &item), Keychain::kSuccess);
    EXPECT_EQ(Keychain::modifyItem(*item, "ann", "new"), Keychain::kSuccess);
    EXPECT_EQ(passwordOf(attributes()), "new");
    const QByteArray shown = KeyringSession::secretTool(
        QStringList{QStringLiteral("search"), QStringLiteral("--all")} + attributeArguments());
    EXPECT_EQ(shown.count("secret = "), 1) << shown.toStdString();
}

TEST(Keychain, AddedItemCanBeModifiedToAnotherAccount) {
    const KeyringSession session(kUnlocked);
    std::shared_ptr<Keychain::Item> item;
    ASSERT_EQ(Keychain::addInternetPassword(attributes("ann"), "old", &item), Keychain::kSuccess);
    EXPECT_EQ(Keychain::modifyItem(*item, "beth", "new"), Keychain::kSuccess);
    EXPECT_EQ(find(attributes("ann")), Keychain::kItemNotFound);
    EXPECT_EQ(passwordOf(attributes("beth")), "new");
}

TEST(Keychain, ItemDeletedInTheMeantimeCannotBeModified) {
    const KeyringSession session(kUnlocked);
    std::shared_ptr<Keychain::Item> item;
    ASSERT_EQ(Keychain::addInternetPassword(attributes(), "old", &item), Keychain::kSuccess);
    KeyringSession::secretTool(QStringList{QStringLiteral("clear")} + attributeArguments());
    EXPECT_NE(Keychain::modifyItem(*item, "ann", "new"), Keychain::kSuccess);
}

TEST(Keychain, AccountCutInsideACharacterIsKeptAndRecognised) {
    const KeyringSession session(kUnlocked);
    const QByteArray whole = "J\xC3\xBC"; // two characters, three bytes
    const QByteArray cut = whole.left(2);
    EXPECT_EQ(add(attributes(cut), "first"), Keychain::kSuccess);
    EXPECT_EQ(find(attributes(whole)), Keychain::kItemNotFound);
    EXPECT_EQ(add(attributes(cut), "second"), Keychain::kDuplicateItem);
    EXPECT_EQ(passwordOf(attributes(cut)), "first");
}

TEST(Keychain, DifferentAccountBytesNeverMeet) {
    const KeyringSession session(kUnlocked);
    // Cut characters, a stray byte, NUL, the replacement character, and the characters that escape such
    // bytes.
    const QList<QByteArray> accounts = {"J",
                                        "J\xC3",
                                        "J\xC4",
                                        QByteArray("J\0", 2),
                                        "J\xEF\xBF\xBD",
                                        "J\xEE\xBF\x83",
                                        "J\xEE\xBF\x84",
                                        "J\xEE\xBC\x80",
                                        "J\xE2\x82",
                                        "J\xC3\xC3"};
    for (const QByteArray& account : accounts)
        EXPECT_EQ(add(attributes(account), "of " + account), Keychain::kSuccess) << account.toStdString();
    for (const QByteArray& account : accounts)
        EXPECT_EQ(passwordOf(attributes(account)), "of " + account) << account.toStdString();
}

TEST(Keychain, NonASCIIAccountsAreFoundByOtherPrograms) {
    const KeyringSession session(kUnlocked);
    const QString account = QStringLiteral("Zoë \\ 山田");
    ASSERT_EQ(add(attributes(account.toUtf8()), "secret"), Keychain::kSuccess);
    EXPECT_EQ(KeyringSession::secretTool(QStringList{QStringLiteral("lookup")} + attributeArguments(account)),
              "secret");
}

TEST(Keychain, PasswordsMayHoldAnyBytes) {
    const KeyringSession session(kUnlocked);
    const QList<QByteArray> passwords = {"", "p\xC3\xA4ss", QByteArray("a\0b", 3), "\xff\xfe",
                                         QByteArray(5000, 'x')};
    for (const QByteArray& password : passwords) {
        const auto account = attributes("user " + QByteArray::number(password.size()));
        EXPECT_EQ(add(account, password), Keychain::kSuccess);
        EXPECT_EQ(passwordOf(account), password);
    }
}

TEST(Keychain, SimultaneousAdditionsMakeOneItem) {
    const KeyringSession session(kUnlocked);
    std::atomic<int> added = 0;
    std::atomic<int> refused = 0;
    std::vector<std::jthread> threads;
    for (int number = 0; number < 6; ++number) {
        threads.emplace_back([&] {
            const std::int32_t status = add(attributes(), "secret");
            added += status == Keychain::kSuccess;
            refused += status == Keychain::kDuplicateItem;
        });
    }
    threads.clear();
    EXPECT_EQ(added, 1);
    EXPECT_EQ(refused, 5);
}

TEST(Keychain, ThreadsWorkSideBySide) {
    const KeyringSession session(kUnlocked);
    std::atomic<int> correct = 0;
    std::vector<std::jthread> threads;
    for (int number = 0; number < 6; ++number) {
        threads.emplace_back([&correct, number] {
            const QByteArray name = "user " + QByteArray::number(number);
            std::shared_ptr<Keychain::Item> item;
            Keychain::addInternetPassword(attributes(name), "old", &item);
            if (item)
                Keychain::modifyItem(*item, name, "of " + name);
            correct += passwordOf(attributes(name)) == "of " + name;
        });
    }
    threads.clear();
    EXPECT_EQ(correct, 6);
}

TEST(Keychain, LockedKeyringWithoutAPrompterSaysThatItMayNotAsk) {
    KeyringSession session(kUnlocked);
    ASSERT_EQ(add(attributes(), "secret"), Keychain::kSuccess);
    session.lock();
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(find(attributes()), Keychain::kInteractionNotAllowed);
    EXPECT_EQ(add(attributes("beth"), "secret"), Keychain::kInteractionNotAllowed);
    EXPECT_LT(timer.elapsed(), kQuickly);
}

TEST(Keychain, LockedKeyringIsNoMissingItem) {
    const KeyringSession session(kLocked);
    EXPECT_EQ(find(attributes()), Keychain::kInteractionNotAllowed);
}

TEST(Keychain, LockedKeyringIsUnlockedByItsUser) {
    KeyringSession session(kUnlocked);
    ASSERT_EQ(add(attributes(), "secret"), Keychain::kSuccess);
    session.lock();
    session.answerPrompts(QLatin1String(KeyringSession::kPassword));
    EXPECT_EQ(passwordOf(attributes()), "secret");
}

TEST(Keychain, LockedKeyringIsUnlockedForAnAddition) {
    KeyringSession session(kLocked);
    session.answerPrompts(QLatin1String(KeyringSession::kPassword));
    EXPECT_EQ(add(attributes(), "secret"), Keychain::kSuccess);
    EXPECT_EQ(passwordOf(attributes()), "secret");
}

TEST(Keychain, UserWhoRefusesToUnlockIsNotTakenForAMissingItem) {
    KeyringSession session(kLocked);
    session.answerPrompts(QString());
    EXPECT_EQ(find(attributes()), Keychain::kAuthFailed);
    EXPECT_EQ(add(attributes(), "secret"), Keychain::kAuthFailed);
}

TEST(Keychain, ItemLockedInTheMeantimeCannotBeModified) {
    KeyringSession session(kUnlocked);
    std::shared_ptr<Keychain::Item> item;
    ASSERT_EQ(Keychain::addInternetPassword(attributes(), "old", &item), Keychain::kSuccess);
    session.lock();
    EXPECT_EQ(Keychain::modifyItem(*item, "ann", "new"), Keychain::kInteractionNotAllowed);
}

TEST(Keychain, UserWithoutAKeyringGetsOne) {
    KeyringSession session(kUnlocked);
    session.deleteKeyring();
    EXPECT_EQ(find(attributes()), Keychain::kItemNotFound);
    session.answerPrompts(QStringLiteral("a new password"));
    EXPECT_EQ(add(attributes(), "secret"), Keychain::kSuccess);
    EXPECT_EQ(passwordOf(attributes()), "secret");
}

TEST(Keychain, UserWithoutAKeyringWhoWantsNoneIsTold) {
    KeyringSession session(kUnlocked);
    session.deleteKeyring();
    session.answerPrompts(QString());
    EXPECT_EQ(add(attributes(), "secret"), Keychain::kAuthFailed);
}

TEST(Keychain, BusWithoutAKeyringIsNoticedQuickly) {
    const KeyringSession session(kAbsent);
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(find(attributes()), Keychain::kNotAvailable);
    EXPECT_EQ(add(attributes(), "secret"), Keychain::kNotAvailable);
    EXPECT_LT(timer.elapsed(), kQuickly);
}

TEST(Keychain, EndOfTheSessionBusEndsNothingElse) {
    KeyringSession session(kUnlocked);
    std::shared_ptr<Keychain::Item> item;
    ASSERT_EQ(Keychain::addInternetPassword(attributes(), "old", &item), Keychain::kSuccess);
    session.end();
    EXPECT_EQ(Keychain::modifyItem(*item, "ann", "new"), Keychain::kNotAvailable);
    item.reset();
    EXPECT_EQ(find(attributes()), Keychain::kNotAvailable);
    const KeyringSession next(kUnlocked);
    EXPECT_EQ(add(attributes(), "secret"), Keychain::kSuccess);
}

TEST(Keychain, RestartedKeyringIsFoundAgain) {
    KeyringSession session(kUnlocked);
    ASSERT_EQ(add(attributes(), "secret"), Keychain::kSuccess);
    session.restartKeyring();
    EXPECT_EQ(passwordOf(attributes()), "secret");
}

TEST(Keychain, BusThatNeverAnswersIsGivenUp) {
    const QTemporaryDir folder(QStringLiteral("/tmp/keychain-XXXXXX"));
    const QByteArray path = folder.filePath(QStringLiteral("bus")).toLocal8Bit();
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(std::size_t(path.size()), sizeof(address.sun_path));
    std::copy(path.begin(), path.end(), address.sun_path);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    ASSERT_EQ(listen(listener, 1), 0);

    qputenv(KeyringSession::kBusVariable, "unix:path=" + path);
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(find(attributes()), Keychain::kNotAvailable);
    EXPECT_LT(timer.elapsed(), 30000);
    close(listener);
}

TEST(Keychain, EveryStatusHasASentenceOfItsOwn) {
    QSet<QString> sentences;
    const QList<std::int32_t> statuses = {Keychain::kSuccess,
                                          Keychain::kNotAvailable,
                                          Keychain::kAuthFailed,
                                          Keychain::kDuplicateItem,
                                          Keychain::kItemNotFound,
                                          Keychain::kInteractionNotAllowed,
                                          -1};
    for (const std::int32_t status : statuses) {
        const QString sentence = Keychain::messageForStatus(status);
        EXPECT_TRUE(sentence.endsWith(QLatin1Char('.'))) << sentence.toStdString();
        sentences.insert(sentence);
    }
    EXPECT_EQ(sentences.size(), statuses.size());
    EXPECT_TRUE(Keychain::messageForStatus(-1).contains(QStringLiteral("-1")));
}

} // namespace
