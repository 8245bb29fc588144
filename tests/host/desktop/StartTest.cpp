#include <QtCore/QProcess>

#include <gtest/gtest.h>

namespace {

struct Answer {
    int status;
    std::string errors;
};

/// Of the application, which has only wrong usage to answer.
Answer answerTo(const QStringList& arguments) {
    QProcess process;
    process.start(QStringLiteral(QUILLMARK_BUILD_DIR "/host/desktop/quillmark"), arguments);
    EXPECT_TRUE(process.waitForFinished()) << "it goes on";
    return {process.exitCode(), process.readAllStandardError().toStdString()};
}

const std::string kUsage = "Usage: quillmark [--files0-from FILE] [FILE|FOLDER]...\n";

} // namespace

TEST(DesktopStart, RefusesWhatIsNoOption) {
    const Answer answer = answerTo({QStringLiteral("--bogus"), QStringLiteral("a.jpg")});
    EXPECT_EQ(answer.status, 2);
    EXPECT_EQ(answer.errors, "quillmark: there is no option \"--bogus\"\n" + kUsage);
}

TEST(DesktopStart, RefusesAListThatCannotBeRead) {
    const Answer answer = answerTo({QStringLiteral("--files0-from"), QStringLiteral("/no/such")});
    EXPECT_EQ(answer.status, 2);
    EXPECT_EQ(answer.errors,
              "quillmark: the files of \"/no/such\" can't be read: No such file or directory\n" + kUsage);
}
