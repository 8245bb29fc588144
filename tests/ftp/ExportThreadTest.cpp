#include "platform/RunLoop.h"
#include "tests/ftp/FTPStage.h"

#include <QtCore/QThread>

#include <functional>
#include <future>
#include <mutex>
#include <set>

using namespace test_support;

namespace ftp_tests {

namespace {

/// An export thread of the host, with a run loop.
class ExportThread final : public QThread {
public:
    ExportThread() {
        start();
        loop_ = made_.get_future().get();
    }
    ~ExportThread() override {
        quit();
        wait();
    }

    /// Without waiting.
    void run(std::function<void()> work) { loop_->post(std::move(work)); }

private:
    void run() override {
        made_.set_value(platform::RunLoop::current());
        exec();
    }

    std::promise<std::shared_ptr<platform::RunLoop>> made_;
    std::shared_ptr<platform::RunLoop> loop_;
};

/// What an export has come to.
struct Outcome {
    QStringList calls;
    QList<QByteArray> commands;
    std::map<QByteArray, QByteArray> files;
    std::size_t sent = 0;

    bool operator==(const Outcome&) const = default;
};

/// Hands over on the main thread, or on an export thread.
class HandOver : public FTPStage, public testing::WithParamInterface<bool> {
protected:
    void handOver() {
        if (GetParam())
            thread.run([this] { finishHandOver(); });
        else
            finishHandOver();
    }

    ExportThread thread;
    std::mutex mutex;
    std::set<QThread*> threads; ///< On which the host was told something.
};

class ExportThreadOutcome : public FTPStage {
protected:
    Outcome outcomeOfExport(ExportThread* thread, bool foldersExist) {
        server = std::make_unique<ScriptedFTPServer>();
        useServer(*server);
        const int endsBefore = host.count(kUnanswered);
        const auto callsBefore = host.calls().size();
        if (foldersExist) {
            server->addFolder("77");
            server->addFolder("77/Ceremony");
        }
        addImage(QStringLiteral("a.jpg"), QByteArray(300'000, 'a'));
        addImage(QStringLiteral("b.jpg"), "b", QStringLiteral("77/Party/"));
        if (thread)
            thread->run([this] { finishHandOver(); });
        else
            finishHandOver();
        EXPECT_TRUE(waitUntil([&] { return host.count(kUnanswered) > endsBefore; }));
        return {host.calls().mid(callsBefore), withoutPorts(server->commands()), server->files(),
                progress().currentValue};
    }

    static QList<QByteArray> withoutPorts(QList<QByteArray> commands) {
        for (auto& command : commands) {
            if (command.startsWith("EPSV") || command.startsWith("PASV"))
                command.truncate(4);
        }
        return commands;
    }
};

TEST_F(ExportThreadOutcome, IsThatOfTheMainThread) {
    ExportThread thread;
    for (const bool foldersExist : {false, true}) {
        const Outcome onMain = outcomeOfExport(nullptr, foldersExist);
        EXPECT_EQ(onMain.files.size(), 2U);
        EXPECT_EQ(outcomeOfExport(&thread, foldersExist), onMain);
    }
    expectNoAlert();
}

TEST_P(HandOver, FoldersAfterTheFirstAndTheUploadsAreOnTheMainThread) {
    host.onCall = [&](const QString&) {
        const std::lock_guard lock(mutex);
        threads.insert(QThread::currentThread());
    };
    addImage(QStringLiteral("a.jpg"), "x");
    handOver();
    EXPECT_TRUE(waitForCall(kUploadEnded));
    EXPECT_EQ(threads, std::set<QThread*>({QThread::currentThread()}));
}

TEST_P(HandOver, WithoutFoldersTheWholeQueueStaysOnTheCallingThread) {
    std::atomic<QThread*> uploading = nullptr;
    host.onCall = [&](const QString& call) {
        if (call.startsWith(QStringLiteral("imageUploaded")))
            uploading = QThread::currentThread();
    };
    server->addFolder("77");
    server->addFolder("77/Ceremony");
    addImage(QStringLiteral("a.jpg"), "x");
    plugIn->ftpPaths->clear();
    handOver();
    EXPECT_TRUE(waitForCall(kUnanswered)) << "its timer fires there too";
    EXPECT_EQ(uploading == QThread::currentThread(), !GetParam());
}

TEST_P(HandOver, RefusalIsToldOnce) {
    server->on("MKD", "521 No");
    addImage(QStringLiteral("a.jpg"), "x");
    handOver();
    EXPECT_TRUE(waitForCall(kChainBroken));
    expectAlerts({{kCouldNotConnect, serverError(521)}});
    EXPECT_EQ(host.calls().size(), 2);
}

TEST_P(HandOver, CancelOfASilentFolderEndsItSilently) {
    server->on("MKD", {.silent = true});
    addImage(QStringLiteral("a.jpg"), "x");
    plugIn->showProgressBar();
    handOver();
    EXPECT_TRUE(waitUntil([&] { return server->count("MKD") == 1; }));
    plugIn->exportManagerShouldCancelExport();
    EXPECT_EQ(host.count(kCancelled), 1) << "at once";
    EXPECT_TRUE(waitForCall(kChainBroken));
    expectNoAlert();
}

TEST_P(HandOver, CancelMayComeFromAThreadOfItsOwn) {
    server->on("MKD", {.silent = true});
    addImage(QStringLiteral("a.jpg"), "x");
    plugIn->showProgressBar();
    handOver();
    EXPECT_TRUE(waitUntil([&] { return server->count("MKD") == 1; }));
    ExportThread other;
    other.run([this] { plugIn->exportManagerShouldCancelExport(); });
    EXPECT_TRUE(waitForCall(kChainBroken));
    EXPECT_TRUE(waitForCall(kCancelled));
    EXPECT_TRUE(waitUntil([&] { return !plugIn->progressWindow; }));
    expectNoAlert();
}

INSTANTIATE_TEST_SUITE_P(Thread, HandOver, testing::Bool(),
                         [](const auto& tested) { return tested.param ? "ExportThread" : "MainThread"; });

} // namespace

} // namespace ftp_tests
