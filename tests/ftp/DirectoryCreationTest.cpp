#include "ftp/DirectoryCreation.h"

#include "tests/ftp/FTPStage.h"

#include <QtCore/QBuffer>
#include <QtCore/QFile>
#include <QtGui/QImage>

using namespace test_support;

namespace ftp_tests {

namespace {

const QString kNoPaths = QStringLiteral("No FTP Paths defined");
const QString kInternalError =
    QStringLiteral("An internal error has occurred. Please report this to Quillmark.");

class DirectoryCreation : public FTPStage {
protected:
    void setFolders(std::initializer_list<QString> folders) {
        plugIn->ftpPaths->assign(folders.begin(), folders.end());
    }

    /// Hands over an image as a host does, of that project.
    void prepareImage(const QString& name, const QString& project) {
        QImage picture(8, 8, QImage::Format_RGB32);
        picture.fill(Qt::darkCyan);
        QByteArray data;
        QBuffer buffer(&data);
        ASSERT_TRUE(picture.save(&buffer, "PNG"));
        host.properties.push_back({{QString(hostapi::kExportKeyProjectName), project}});
        plugIn->exportManagerWillBeginExportToPath(plugIn->destinationPath());
        plugIn->exportManagerShouldWriteImageData(data, name,
                                                  static_cast<std::uint32_t>(host.properties.size() - 1));
    }

    void prepareAnew() {
        plugIn->ftpPaths = nullptr;
        plugIn->exportedImagePaths = nullptr;
        plugIn->exportFTPFolders = nullptr;
        plugIn->setChosenEventId(QStringLiteral("77"));
    }
};

TEST_F(DirectoryCreation, EmptyFolderListGoesStraightToTheUploads) {
    addImage(QStringLiteral("a.jpg"), "0123456789");
    server->addFolder("77");
    server->addFolder("77/Ceremony");
    setFolders({});
    finishHandOver();
    EXPECT_EQ(progress().currentValue, 0U);
    EXPECT_EQ(progress().totalValue, 10U);
    EXPECT_EQ(progress().message, QStringLiteral("Step 3 of 3: Uploading Images..."));
    EXPECT_FALSE(progress().indeterminateProgress);
    EXPECT_TRUE(plugIn->uploadStartTime);
    EXPECT_TRUE(waitForCall(kUploadEnded));
    EXPECT_EQ(server->count("MKD"), 0);
    EXPECT_EQ(host.calls(), QStringList({kChainEnded, QStringLiteral("imageUploaded a.jpg"), kUploadEnded}));
}

TEST_F(DirectoryCreation, AbsentFolderListIsAnEmptyOne) {
    plugIn->ftpPaths = nullptr;
    finishHandOver();
    EXPECT_EQ(host.calls(), QStringList({kChainEnded, kUploadEnded}));
    EXPECT_EQ(server->connectionCount(), 0);
}

TEST_F(DirectoryCreation, FoldersAreMadeOneAfterAnotherInTheirOrder) {
    setFolders({QStringLiteral("77/"), QStringLiteral("77/Ceremony/"), QStringLiteral("77/Party/")});
    runWholeExport();
    EXPECT_EQ(server->folders(), QList<QByteArray>({"77", "77/Ceremony", "77/Party"}));
    EXPECT_EQ(server->connectionCount(), 1);
    EXPECT_TRUE(plugIn->ftpPaths->empty());
    expectNoAlert();
}

TEST_F(DirectoryCreation, ProgressCountsTheFoldersFromOne) {
    setFolders({QStringLiteral("77/"), QStringLiteral("77/Ceremony/")});
    server->on("MKD", {.silent = true}, 2);
    finishHandOver();
    EXPECT_EQ(progress().currentValue, 1U);
    EXPECT_EQ(progress().totalValue, 2U);
    EXPECT_EQ(progress().message, QStringLiteral("Step 2 of 3: Preparing remote directories..."));
    EXPECT_TRUE(waitUntil([&] { return server->count("MKD") == 2; }));
    EXPECT_EQ(progress().currentValue, 2U);
    EXPECT_EQ(progress().totalValue, 2U);
    EXPECT_EQ(progress().message, QStringLiteral("Step 2 of 3: Preparing remote directories..."));
}

TEST_F(DirectoryCreation, FolderThatExistsCountsAsMade) {
    server->addFolder("77");
    setFolders({QStringLiteral("77/"), QStringLiteral("77/Ceremony/")});
    runWholeExport();
    EXPECT_EQ(server->folders(), QList<QByteArray>({"77", "77/Ceremony"}));
    EXPECT_EQ(server->connectionCount(), 1);
    expectNoAlert();
    EXPECT_EQ(host.count(kChainEnded), 1);
}

TEST_F(DirectoryCreation, ImagesOfOneCategoryShareOneFolderAndTheEventFolderComesFirst) {
    prepareAnew();
    plugIn->setChosenCategory(QStringLiteral("Ceremony"));
    prepareImage(QStringLiteral("a.png"), QStringLiteral("Shoot 1"));
    prepareImage(QStringLiteral("b.png"), QStringLiteral("Shoot 2"));
    runWholeExport();
    EXPECT_EQ(server->folders(), QList<QByteArray>({"77", "77/Ceremony"}));
    EXPECT_EQ(server->files().size(), 2U);
    EXPECT_FALSE(uploaded("b.jpg").isEmpty());
    EXPECT_EQ(progress().currentValue, progress().totalValue);
}

TEST_F(DirectoryCreation, AutomaticCategoriesMakeOneFolderForEachProject) {
    prepareAnew();
    plugIn->setAutoCreateCategories(true);
    prepareImage(QStringLiteral("a.png"), QStringLiteral("Abbey"));
    prepareImage(QStringLiteral("b.png"), QStringLiteral("Garden"));
    prepareImage(QStringLiteral("c.png"), QStringLiteral("Abbey"));
    runWholeExport();
    EXPECT_EQ(server->folders(), QList<QByteArray>({"77", "77/Abbey", "77/Garden"}));
    EXPECT_FALSE(uploaded("a.jpg", "77/Abbey").isEmpty());
    EXPECT_FALSE(uploaded("b.jpg", "77/Garden").isEmpty());
    EXPECT_FALSE(uploaded("c.jpg", "77/Abbey").isEmpty());
}

TEST_F(DirectoryCreation, CancelWhileAFolderIsMadeIsSilentAndStopsTheChain) {
    setFolders({QStringLiteral("77/"), QStringLiteral("77/Ceremony/")});
    server->on("MKD", {.silent = true});
    finishHandOver();
    EXPECT_TRUE(waitUntil([&] { return server->count("MKD") == 1; }));
    Quillmark::setShouldCancelFTPActivity(true);
    EXPECT_TRUE(waitForCall(kChainBroken));
    runLoopFor(std::chrono::milliseconds(100));
    EXPECT_EQ(server->count("MKD"), 1);
    EXPECT_EQ(host.calls(), QStringList(kChainBroken))
        << "the host itself is told by the cancel, not by the stream";
    EXPECT_EQ(plugIn->ftpPaths->size(), 2U);
}

TEST_F(DirectoryCreation, RefusedConnectionIsToldOnceAndLeavesTheRemainingFolders) {
    useServer(QStringLiteral("ftp.quillmark.example:21:127.0.0.1:1"));
    setFolders({QStringLiteral("77/"), QStringLiteral("77/Ceremony/")});
    plugIn->showProgressBar();
    finishHandOver();
    EXPECT_TRUE(waitForCall(kChainBroken));
    runLoopFor(std::chrono::milliseconds(100));
    expectAlerts({{kCouldNotConnect, kCommunicationError}});
    EXPECT_EQ(plugIn->ftpPaths->size(), 2U);
    EXPECT_EQ(host.count(kCancelled), 0) << "the chain just ends";
    ASSERT_TRUE(plugIn->progressWindow);
    EXPECT_TRUE(plugIn->progressWindow->isVisible()) << "until the user cancels";
}

TEST_F(DirectoryCreation, CancelFlagDoesNotSurviveTheStartOfAFolder) {
    Quillmark::setShouldCancelFTPActivity(true);
    setFolders({QStringLiteral("77/")});
    finishHandOver();
    EXPECT_FALSE(Quillmark::shouldCancelFTPActivity());
    EXPECT_TRUE(waitForCall(kChainEnded));
    EXPECT_EQ(server->folders(), QList<QByteArray>({"77"}));
}

TEST_F(DirectoryCreation, AbsentFolderIsAnInternalErrorThatCancels) {
    plugIn->ftpPaths->push_back(std::nullopt);
    finishHandOver();
    expectAlerts({{kNoPaths, kInternalError}});
    EXPECT_EQ(host.calls(), QStringList({QStringLiteral("alert ") + kNoPaths, kCancelled, kChainBroken}));
    EXPECT_FALSE(Quillmark::shouldCancelFTPActivity()) << "the host is asked, nothing else is cancelled";
}

TEST_F(DirectoryCreation, FolderThatYieldsNoStreamIsToldAndStopsTheStage) {
    for (const char* folder : {"77/../", "./", "77/a\rDELE b/"}) {
        setFolders({QString::fromLatin1(folder)});
        finishHandOver();
    }
    expectAlerts({{kCouldNotConnect, kCommunicationError},
                  {kCouldNotConnect, kCommunicationError},
                  {kCouldNotConnect, kCommunicationError}});
    EXPECT_EQ(host.count(kChainBroken), 3);
    EXPECT_EQ(host.count(kCancelled), 0);
    EXPECT_EQ(server->connectionCount(), 0);
}

TEST_F(DirectoryCreation, CredentialsAreTheUsersAndTheKeychains) {
    setFolders({QStringLiteral("77/")});
    runWholeExport();
    const auto commands = server->commands();
    EXPECT_TRUE(commands.contains("USER ann"));
    EXPECT_TRUE(commands.contains("PASS secret"));
}

TEST_F(DirectoryCreation, MissingPasswordIsToldTwiceAndTheFolderIsTriedAllTheSame) {
    forgetPassword();
    setFolders({QStringLiteral("77/")});
    runWholeExport();
    expectAlerts({{kPasswordError, QString()}, {kCouldNotConnect, kCommunicationError}});
    EXPECT_EQ(server->folders(), QList<QByteArray>({"77"}));
    EXPECT_FALSE(server->commands().contains("PASS secret"));
    EXPECT_EQ(host.count(kCancelled), 0);
    EXPECT_EQ(host.count(kChainEnded) + host.count(kChainBroken), 1);
}

TEST_F(DirectoryCreation, CancelInThePasswordAlertSilencesTheSecondAlertAndTheFolder) {
    forgetPassword();
    setFolders({QStringLiteral("77/")});
    host.onAlert = [&](const ShownAlert&) { plugIn->exportManagerShouldCancelExport(); };
    finishHandOver();
    EXPECT_TRUE(waitForCall(kChainBroken));
    expectAlerts({{kPasswordError, QString()}});
    EXPECT_TRUE(server->folders().isEmpty());
}

TEST_F(DirectoryCreation, WithoutAUserNameTheFolderIsTriedWithoutCredentialsAndWithoutAWord) {
    for (const auto& name : {std::optional<QString>(), std::optional<QString>(QString())}) {
        logIn(name);
        setFolders({QStringLiteral("77/")});
        const int made = host.count(kChainEnded);
        finishHandOver();
        EXPECT_TRUE(waitUntil([&] { return host.count(kChainEnded) > made; }));
    }
    expectNoAlert();
    EXPECT_TRUE(server->commands().contains("USER anonymous"));
    EXPECT_FALSE(server->commands().contains("PASS secret"));
}

TEST_F(DirectoryCreation, CredentialsThatCantBeSentAreAFailedOpen) {
    logIn(QStringLiteral("ann\r\nDELE x"));
    host.credentials.addInternetPassword(plugIn->keychainAttributes(QStringLiteral("ann\r\nDELE x")),
                                         kPassword, nullptr);
    setFolders({QStringLiteral("77/")});
    finishHandOver();
    EXPECT_TRUE(waitForCall(kChainBroken));
    expectAlerts({{kCouldNotConnect, kCommunicationError}});
    EXPECT_EQ(server->count("USER"), 0);
    EXPECT_EQ(host.count(kCancelled), 0);
}

TEST_F(DirectoryCreation, ServersRefusalIsToldWithItsCode) {
    server->on("PASS", "530 Login incorrect");
    setFolders({QStringLiteral("77/")});
    finishHandOver();
    EXPECT_TRUE(waitForCall(kChainBroken));
    expectAlerts({{kCouldNotConnect, serverError(530)}});
    EXPECT_EQ(host.count(kCancelled), 0);
    EXPECT_EQ(plugIn->ftpPaths->size(), 1U);
}

TEST_F(DirectoryCreation, CancelInTheFailuresAlertIsSafe) {
    server->on("MKD", "521 No");
    setFolders({QStringLiteral("77/")});
    host.onAlert = [&](const ShownAlert&) { plugIn->exportManagerShouldCancelExport(); };
    finishHandOver();
    EXPECT_TRUE(waitForCall(kChainBroken));
    expectAlerts({{kCouldNotConnect, serverError(521)}});
}

TEST_F(DirectoryCreation, FailureRoutineWithoutARecordTellsTheUserAndEndsNothing) {
    plugIn->_endDirectoryCreationWithFailure(nullptr);
    expectAlerts({{kCouldNotConnect, kCommunicationError}});
    EXPECT_EQ(host.count(kChainBroken), 0);
    Quillmark::setShouldCancelFTPActivity(true);
    plugIn->_endDirectoryCreationWithFailure(nullptr);
    EXPECT_EQ(host.alerts().size(), 1U);
}

} // namespace

} // namespace ftp_tests
