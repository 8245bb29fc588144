// What becomes of the light table's work where the system has no thread left for it, and once it has one
// again.

#include "tests/support/ThreadShortage.h"
#include "host/core/Service.h"
#include "host/desktop/CaptureTimeReader.h"
#include "host/desktop/MainWindow.h"
#include "host/desktop/PhotographFiles.h"
#include "host/desktop/PictureLoader.h"
#include "tests/host/JournalFixture.h"
#include "tests/host/desktop/PhotographFolder.h"
#include "tests/support/Waiting.h"

#include <gtest/gtest.h>

using namespace host::desktop;
using test_support::ThreadShortage;
using test_support::waitUntil;

namespace {

/// Longer than the pause until a thread is asked for again.
constexpr std::chrono::milliseconds kSomeTries{1500};

class LightTableWithoutThreads : public testing::Test {
protected:
    PhotographFolder folder_;
};

} // namespace

TEST_F(LightTableWithoutThreads, LoadsPicturesOnceThereIsOne) {
    const QByteArray path = folder_.picture(QStringLiteral("a.png"));
    std::unique_ptr<PictureLoader> loader;
    {
        const ThreadShortage shortage;
        loader = std::make_unique<PictureLoader>(2, 1024 * 1024);
        loader->want({path}, 64);
        test_support::runLoopFor(kSomeTries);
        EXPECT_TRUE(loader->picture(path).isNull());
        EXPECT_FALSE(loader->isUnreadable(path));
    }
    EXPECT_TRUE(waitUntil([&] { return !loader->picture(path).isNull(); }));
}

TEST_F(LightTableWithoutThreads, FindsPhotographsOnceThereIsOne) {
    folder_.picture(QStringLiteral("a.png"));
    std::size_t count = 0;
    {
        const ThreadShortage shortage;
        findPhotographsInBackground({folder_.bytes()},
                                    [&](const FoundPhotographs& found) { count = found.photographs.size(); });
        test_support::runLoopFor(kSomeTries);
        EXPECT_EQ(count, 0U);
    }
    EXPECT_TRUE(waitUntil([&] { return count == 1; }));
}

TEST_F(LightTableWithoutThreads, ReadsCaptureTimesOnceThereIsOne) {
    const QByteArray path = folder_.picture(QStringLiteral("a.png"));
    CaptureTimeReader reader;
    int told = 0;
    QObject::connect(&reader, &CaptureTimeReader::done, &reader, [&told] { ++told; });
    {
        const ThreadShortage shortage;
        reader.read({path});
        // What was asked for last is what comes.
        reader.read({path, path});
        CaptureTimeReader gone;
        gone.read({path});
    }
    EXPECT_TRUE(waitUntil([&] { return told == 1; }));
    test_support::runLoopFor(kSomeTries);
    EXPECT_EQ(told, 1);
}

TEST_F(LightTableWithoutThreads, TellsOfUnfinishedExportsOnceThereIsOne) {
    const QString journals = folder_.filePath(QStringLiteral("journals"));
    const QString bundle = QStringLiteral(QUILLMARK_BUNDLE_DIR);
    QString error;
    const auto configuration = host::serviceConfiguration(bundle, error);
    ASSERT_TRUE(configuration) << error.toStdString();
    host::ExportJournal::create(journals, host::serviceIdentity(*configuration), host::someChoices(),
                                host::someImages(), {}, error);
    std::unique_ptr<MainWindow> window;
    {
        const ThreadShortage shortage;
        window = std::make_unique<MainWindow>(ExportSetting{bundle, journals, {}, {}});
        window->show();
    }
    auto* const notice = window->findChild<NoticeBar*>();
    EXPECT_FALSE(notice->isVisible());
    EXPECT_TRUE(waitUntil([notice] { return notice->isVisible(); }));
}
