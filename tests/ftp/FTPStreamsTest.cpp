#include "ftp/FTPStreams.h"

#include "platform/FTPWriteStream.h"
#include "tests/ftp/FTPStage.h"

#include <thread>

using namespace test_support;

namespace ftp_tests {

namespace {

const QString kHost = QStringLiteral("ftp.quillmark.example");
const QString kPort = QStringLiteral("21");

class FTPStreams : public testing::Test {
protected:
    FTPStreams()
        : plugIn(host.makePlugIn()) {
        Quillmark::setShouldCancelFTPActivity(false);
    }
    ~FTPStreams() override { Quillmark::setShouldCancelFTPActivity(false); }

    std::string url(const std::optional<QString>& path, const std::optional<QString>& port = kPort) const {
        return plugIn->_URLStringForServer(kHost, path, port).value_or(QStringLiteral("none")).toStdString();
    }

    RecordingHost host;
    std::shared_ptr<Quillmark> plugIn;
};

TEST_F(FTPStreams, PathWithoutLeadingSlashGetsOne) {
    EXPECT_EQ(url(QStringLiteral("77/Ceremony/")), "ftp://ftp.quillmark.example:21/77/Ceremony/");
}

TEST_F(FTPStreams, LeadingSlashIsNotDoubled) {
    EXPECT_EQ(url(QStringLiteral("/77/Ceremony/")), "ftp://ftp.quillmark.example:21/77/Ceremony/");
}

TEST_F(FTPStreams, URLTextAlwaysEndsWithASlash) {
    EXPECT_EQ(url(QStringLiteral("77/Ceremony")), "ftp://ftp.quillmark.example:21/77/Ceremony/");
    EXPECT_EQ(url(QStringLiteral("/")), "ftp://ftp.quillmark.example:21/");
    EXPECT_EQ(url(QStringLiteral("")), "ftp://ftp.quillmark.example:21/");
    EXPECT_EQ(url(std::nullopt), "ftp://ftp.quillmark.example:21/");
}

TEST_F(FTPStreams, WithoutAHostThereIsNoURL) {
    EXPECT_FALSE(plugIn->_URLStringForServer(std::nullopt, QStringLiteral("77/"), kPort));
}

TEST_F(FTPStreams, EmptyOrAbsentPortWritesNoColon) {
    EXPECT_EQ(url(QStringLiteral("77/"), QStringLiteral("")), "ftp://ftp.quillmark.example/77/");
    EXPECT_EQ(url(QStringLiteral("77/"), std::nullopt), "ftp://ftp.quillmark.example/77/");
}

TEST_F(FTPStreams, URLTextIsNotEscapedAndNoPartOfItIsAFormat) {
    EXPECT_EQ(url(QStringLiteral("77/Erna & %@ #1/")), "ftp://ftp.quillmark.example:21/77/Erna & %@ #1/");
}

TEST_F(FTPStreams, ErrorOfTheFTPDomainNamesTheServersCode) {
    EXPECT_EQ(plugIn->_errorTextForDomain(platform::kStreamErrorDomainFTP, 530).toStdString(),
              "There was an unrecognized error (530) attempting to communicate with the FTP server. "
              "Please try again.");
}

TEST_F(FTPStreams, ErrorOfAnyOtherDomainNamesNoCode) {
    for (const std::int64_t domain :
         {platform::kStreamErrorDomainNone, platform::kStreamErrorDomainPOSIX,
          platform::kStreamErrorDomainNetDB, platform::kStreamErrorDomainTransport,
          platform::StreamErrorDomain{-1}, platform::StreamErrorDomain{1} << 40})
        EXPECT_EQ(plugIn->_errorTextForDomain(domain, 530).toStdString(),
                  "There was an error communicating with your FTP server.");
}

TEST_F(FTPStreams, CancelFlagIsOneForAllPlugIns) {
    const auto other = host.makePlugIn();
    EXPECT_FALSE(plugIn->shouldCancelFTPActivity());
    plugIn->setShouldCancelFTPActivity(true);
    EXPECT_TRUE(other->shouldCancelFTPActivity());
    other->setShouldCancelFTPActivity(false);
    EXPECT_FALSE(plugIn->shouldCancelFTPActivity());
}

TEST_F(FTPStreams, CancelOfTheExportSetsTheFlag) {
    plugIn->exportManagerShouldCancelExport();
    EXPECT_TRUE(Quillmark::shouldCancelFTPActivity());
}

TEST_F(FTPStreams, CancelFlagMayBeSetAndReadOnAnyThread) {
    std::thread other([] { Quillmark::setShouldCancelFTPActivity(true); });
    EXPECT_TRUE(waitUntil([] { return Quillmark::shouldCancelFTPActivity(); }));
    other.join();
}

TEST(FTPStreamSettings, AskForAllFiveEvents) {
    EXPECT_EQ(kSampleFTPNetworkEvents, 31U);
    EXPECT_EQ(kSampleFTPBufferSize, 32768U);
}

} // namespace

} // namespace ftp_tests
