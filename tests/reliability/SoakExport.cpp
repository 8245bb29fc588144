#include "tests/reliability/SoakExport.h"

#include "host/core/ExportThread.h"
#include "host/core/PanelDriver.h"
#include "tests/support/Pictures.h"
#include "tests/support/RecordingHost.h"
#include "tests/support/ScriptedFTPServer.h"
#include "tests/support/ScriptedWebServer.h"
#include "tests/support/Waiting.h"

#include <QtCore/QCryptographicHash>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtWidgets/QApplication>
#include <QtWidgets/QVBoxLayout>

#include <gtest/gtest.h>

#include <array>
#include <map>
#include <mutex>
#include <ostream>

namespace soak {

using namespace test_support;

namespace {

const QString kWebHost = QStringLiteral("www.quillmark.example");
const QByteArray kRemoteFolder = "77/Ceremony/";
constexpr int kPictures = 4; ///< Different ones.

constexpr std::array kNames{"None",
                            "CancelWhilePreparing",
                            "CancelWhileUploading",
                            "CancelBeforeFinishing",
                            "LogoutWhileUploading",
                            "RefusedLogin",
                            "DamagedImage",
                            "RefusedFolder",
                            "RefusedFile",
                            "UnconfirmedFile",
                            "LostData",
                            "LostConnection",
                            "FinishingUnanswered"};
static_assert(kNames.size() == static_cast<std::size_t>(Mishap::Count));

QByteArray loginAnswer(bool success) {
    return success ? "<Login><Success>1</Success><UserId>7</UserId><Password>t0ken</Password>"
                     "<LoggedInName>Ann</LoggedInName><AllowHighResUploads>1</AllowHighResUploads></Login>"
                   : "<Login><Success>0</Success></Login>";
}

QByteArray checksum(const QByteArray& contents) {
    return QCryptographicHash::hash(contents, QCryptographicHash::Sha256);
}

QByteArray contentsOf(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

TestCertificates& certificates() {
    static TestCertificates authority;
    return authority;
}

const ServerCertificate& webCertificate() {
    static const ServerCertificate certificate = certificates().issue({kWebHost});
    return certificate;
}

/// One export, from the plug-in's making to its end.
class Run final : public host::ExportThreadClient, public std::enable_shared_from_this<Run> {
public:
    Run(const Plan& plan, const Photographs& photographs)
        : plan_(plan)
        , photographs_(photographs)
        , web_(webCertificate()) {}

    Outcome run() {
        prepareServers();
        host_.onCall = [this](const QString& call) { hostWasCalled(call); };
        host_.imageCount = static_cast<std::uint32_t>(photographs_.count());
        plugIn_ = host_.makePlugIn();
        EXPECT_TRUE(plugIn_);
        openPanel();
        if (logIn()) {
            exportImages();
            EXPECT_TRUE(waitUntil([this] { return hasEnded(); }, kEndDeadline))
                << host_.calls().join(' ').toStdString();
        }
        closeDialog();
        checkPhotographs();
        return {host_.count(QStringLiteral("shouldFinishExport")) > 0, static_cast<int>(confirmed().size())};
    }

    // host::ExportThreadClient
    void imageCaptured(std::uint32_t, const QDateTime&) override {}
    void imageNotOffered(std::uint32_t, const QString& reason) override {
        ADD_FAILURE() << "not offered: " << reason.toStdString();
    }
    void imageWritten(std::uint32_t, const QString&) override {
        ADD_FAILURE() << "the plug-in writes by itself";
    }
    void imagesEnded(bool all) override {
        imagesEnded_ = true;
        if (all && !isCancelled_)
            plugIn_->exportManagerDidFinishExport();
    }

private:
    static constexpr std::chrono::minutes kEndDeadline{3};

    bool is(Mishap mishap) const { return plan_.mishap == mishap; }

    void prepareServers() {
        web_.setScript([this, logins = std::make_shared<std::atomic<int>>(0)](const WebRequest& request) {
            const QByteArray target = request.target();
            if (target.contains("login.php"))
                return WebAnswer::ok(loginAnswer(!is(Mishap::RefusedLogin) || (*logins)++ > 0));
            if (target.contains("eventlist.php"))
                return WebAnswer::ok("<List><Event id=\"77\"><Name>Smith</Name></Event></List>");
            if (target.contains("categorylist.php"))
                return WebAnswer::ok("<List><Category id=\"1\"><Name>Ceremony</Name></Category></List>");
            ++finishingRequests_;
            return is(Mishap::FinishingUnanswered)
                       ? WebAnswer::of(503, "busy")
                       : WebAnswer::ok("<Information><Result>Done.</Result></Information>");
        });
        if (is(Mishap::RefusedFolder))
            ftp_.on("MKD", "452 No room", 1 + plan_.at % 2);
        if (is(Mishap::RefusedFile))
            ftp_.on("STOR", "552 No room", plan_.at);
        if (is(Mishap::UnconfirmedFile))
            ftp_.on(kFTPClosingReply, "451 Lost it", plan_.at);
        if (is(Mishap::LostData))
            ftp_.onData({.afterBytes = 100, .then = FTPDataFault::Then::CutData, .answer = "426 Cut"},
                        plan_.at);
        if (is(Mishap::LostConnection))
            ftp_.on("STOR", {.cut = Cut::Reset}, plan_.at);
        host_.useService(web_.connectTo(kWebHost) + QStringLiteral(", ") + ftp_.connectTo(),
                         certificates().caFile());
    }

    void openPanel() {
        dialog_ = std::make_unique<QWidget>();
        (new QVBoxLayout(dialog_.get()))->addWidget(plugIn_->settingsView());
        QString error;
        panel_ = host::PanelDriver::make(*dialog_, error);
        EXPECT_TRUE(panel_) << error.toStdString();
        plugIn_->willBeActivated();
        panel_->tickRemember();
    }

    bool logIn() {
        const int attempts = is(Mishap::RefusedLogin) || plan_.logsOutFirst ? 2 : 1;
        for (int attempt = 1; attempt <= attempts; ++attempt) {
            panel_->logIn(QStringLiteral("ann"), QStringLiteral("secret"));
            EXPECT_TRUE(waitUntil([this] { return !panel_->isBusy() && !plugIn_->threadLaunched(); }));
            if (attempt < attempts && panel_->isLoggedIn())
                plugIn_->loginButton->click();
        }
        EXPECT_TRUE(panel_->isLoggedIn());
        host::WishedChoices wishes;
        wishes.event = QStringLiteral("77");
        wishes.category = QStringLiteral("Ceremony");
        const auto refusal = panel_->choose(wishes);
        EXPECT_FALSE(refusal) << refusal.value_or(QString()).toStdString();
        return !refusal;
    }

    void exportImages() {
        plugIn_->exportManagerShouldBeginExport();
        ASSERT_EQ(host_.count(QStringLiteral("shouldBeginExport")), 1);
        const QString folder = plugIn_->destinationPath();
        plugIn_->exportManagerWillBeginExportToPath(folder);
        std::vector<host::ExportedImage> images;
        for (int index = 0; index < photographs_.count(); ++index) {
            const bool isDamaged = is(Mishap::DamagedImage) && index == plan_.at - 1;
            const QByteArray& path = isDamaged ? photographs_.damaged() : photographs_.path(index);
            images.push_back({path, QStringLiteral("%1.jpg").arg(index), {}});
        }
        exportThread_ =
            std::make_unique<host::ExportThread>(plugIn_, std::move(images), folder, weak_from_this(), [] {});
    }

    /// On the thread where it happens.
    void hostWasCalled(const QString& call) {
        const auto number = [&](const QString& prefix) {
            return call.startsWith(prefix) ? QFileInfo(call.mid(prefix.size())).completeBaseName().toInt() + 1
                                           : 0;
        };
        const int prepared = number(QStringLiteral("imagePrepared "));
        const int uploaded = number(QStringLiteral("imageUploaded "));
        if (prepared > 0)
            remember(prepared - 1);
        if (is(Mishap::CancelWhilePreparing) && prepared == plan_.at)
            later(&Run::cancel);
        if (is(Mishap::CancelWhileUploading) && uploaded == plan_.at)
            later(&Run::cancel);
        if (is(Mishap::LogoutWhileUploading) && uploaded == plan_.at)
            later(&Run::logOut);
        if (is(Mishap::CancelBeforeFinishing) && call == QStringLiteral("uploadEnded 1"))
            later(&Run::cancel);
        // A host that sees an export break off cancels it.
        if (call == QStringLiteral("uploadEnded 0") || call == QStringLiteral("folderChainEnded 0"))
            later(&Run::cancel);
    }

    void later(void (Run::*what)()) {
        QMetaObject::invokeMethod(
            qApp, [self = shared_from_this(), what] { ((*self).*what)(); }, Qt::QueuedConnection);
    }

    void cancel() {
        if (std::exchange(isCancelled_, true) || !plugIn_)
            return;
        exportThread_->stop();
        plugIn_->exportManagerShouldCancelExport();
    }

    void logOut() { plugIn_->loginButton->click(); }

    bool hasEnded() const {
        const bool hasAnswer = host_.count(QStringLiteral("shouldFinishExport")) > 0 ||
                               host_.count(QStringLiteral("finishingRequestUnanswered")) > 0;
        // Once all is uploaded the finishing request goes out, whether cancelled or not.
        const bool awaitsAnswer = host_.count(QStringLiteral("uploadEnded 1")) > 0;
        return imagesEnded_ && !exportThread_->isRunning() && (hasAnswer || (isCancelled_ && !awaitsAnswer));
    }

    void closeDialog() {
        exportThread_.reset();
        panel_.reset();
        const std::weak_ptr<Quillmark> remaining = std::exchange(plugIn_, nullptr);
        dialog_.reset();
        EXPECT_TRUE(waitUntil([&] { return remaining.expired(); }))
            << "something still refers to the plug-in";
        host_.onCall = nullptr;
    }

    void remember(int index) {
        const QString path = QDir(plugIn_->destinationPath()).filePath(QStringLiteral("%1.jpg").arg(index));
        const QByteArray sum = checksum(contentsOf(path));
        const std::lock_guard lock(mutex_);
        prepared_[QByteArray::number(index) + ".jpg"] = sum;
        folder_ = plugIn_->destinationPath();
    }

    QStringList confirmed() const {
        static const QString kPrefix = QStringLiteral("imageUploaded ");
        QStringList names;
        for (const QString& call : host_.calls()) {
            if (call.startsWith(kPrefix))
                names.append(call.mid(kPrefix.size()));
        }
        return names;
    }

    /// What was prepared is either confirmed, and the server has it as it was prepared, or lies on the disk.
    void checkPhotographs() {
        const auto files = ftp_.files();
        const QStringList names = confirmed();
        EXPECT_EQ(QSet<QString>(names.begin(), names.end()).size(), names.size()) << "confirmed twice";
        const QByteArrayList stored = storedPaths();
        EXPECT_EQ(QSet<QByteArray>(stored.begin(), stored.end()).size(), stored.size()) << "sent twice";
        for (const auto& [name, sum] : prepared_) {
            const auto arrived = files.find(kRemoteFolder + name);
            if (names.contains(QString::fromLatin1(name)))
                EXPECT_TRUE(arrived != files.end() && checksum(arrived->second) == sum) << name.constData();
            else
                EXPECT_EQ(checksum(contentsOf(folder_ + QString::fromLatin1(name))), sum) << name.constData();
        }
        const bool isFinished = host_.count(QStringLiteral("shouldFinishExport")) > 0;
        const int good = photographs_.count() - (is(Mishap::DamagedImage) ? 1 : 0);
        if (isFinished) {
            EXPECT_EQ(names.size(), good);
        }
        EXPECT_EQ(finishingRequests_, names.size() == good ? 1 : 0);
    }

    QByteArrayList storedPaths() const {
        QByteArrayList paths;
        for (const QByteArray& command : ftp_.commands()) {
            if (command.startsWith("STOR "))
                paths.append(command.mid(5));
        }
        return paths;
    }

    const Plan plan_;
    const Photographs& photographs_;
    RecordingHost host_;
    ScriptedFTPServer ftp_;
    ScriptedWebServer web_;
    std::atomic<int> finishingRequests_{0};
    std::shared_ptr<Quillmark> plugIn_;
    std::unique_ptr<QWidget> dialog_;
    std::unique_ptr<host::PanelDriver> panel_;
    std::unique_ptr<host::ExportThread> exportThread_;
    bool imagesEnded_ = false;
    bool isCancelled_ = false;
    std::mutex mutex_;
    std::map<QByteArray, QByteArray> prepared_; ///< Checksums by name.
    QString folder_;
};

} // namespace

Plan Plan::next(std::mt19937& generator, int images) {
    // Plain remainders: what the library's distributions make of the numbers differs between libraries.
    Plan plan;
    if (generator() % 3 != 0)
        plan.mishap = static_cast<Mishap>(generator() % static_cast<unsigned>(Mishap::Count));
    plan.at = 1 + static_cast<int>(generator() % static_cast<unsigned>(images));
    plan.logsOutFirst = generator() % 4 == 0;
    return plan;
}

std::ostream& operator<<(std::ostream& stream, const Plan& plan) {
    return stream << kNames.at(static_cast<std::size_t>(plan.mishap)) << " at image " << plan.at
                  << (plan.logsOutFirst ? ", after a logout" : "");
}

std::ostream& operator<<(std::ostream& stream, const Outcome& outcome) {
    return stream << outcome.confirmed << " confirmed, "
                  << (outcome.isFinished ? "finished" : "not finished");
}

Photographs::Photographs(int count) {
    const QDir folder(QDir::tempPath());
    std::vector<QByteArray> pictures;
    for (int side = 1; side <= kPictures; ++side)
        pictures.push_back(file(gradient(200 * side, 150 * side), ".jpg"));
    for (int index = 0; index <= count; ++index) {
        const QByteArray& picture = pictures.at(static_cast<std::size_t>(index % kPictures));
        QFile written(folder.filePath(QStringLiteral("original-%1.jpg").arg(index)));
        EXPECT_TRUE(written.open(QIODevice::WriteOnly));
        written.write(index < count ? picture : picture.left(picture.size() / 2));
        paths_.append(QFile::encodeName(written.fileName()));
    }
}

Outcome runExport(const Plan& plan, const Photographs& photographs) {
    auto run = std::make_shared<Run>(plan, photographs);
    const Outcome outcome = run->run();
    const std::weak_ptr<Run> remaining = std::exchange(run, nullptr);
    EXPECT_TRUE(waitUntil([&] { return remaining.expired(); })) << "what was put off must still be done";
    return outcome;
}

} // namespace soak
