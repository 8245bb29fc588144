// The loader against a real HTTP/2 server: nghttpd of the package nghttp2-server.

#include "platform/URLLoader.h"
#include "tests/support/ServerSocket.h"
#include "tests/support/TestCertificates.h"
#include "tests/support/Waiting.h"

#include <QtCore/QFile>
#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>

#include <gtest/gtest.h>

using platform::URLLoader;
using test_support::waitUntil;

namespace {

const QString kHost = QStringLiteral("www.quillmark.example");
constexpr int kAttempts = 5;

class HTTP2 : public testing::Test {
protected:
    void SetUp() override {
        QFile page(folder.filePath(QStringLiteral("answer.xml")));
        ASSERT_TRUE(page.open(QIODevice::WriteOnly));
        page.write("<Login/>");
        page.close();
        // nghttpd can't tell which port the system has chosen, so it gets one that was free a moment ago.
        for (int attempt = 0; attempt < kAttempts && !start(freePort()); ++attempt)
            server.waitForFinished();
        ASSERT_EQ(server.state(), QProcess::Running);
        transport.caFile = certificates.caFile();
    }

    void TearDown() override {
        server.terminate();
        server.waitForFinished();
    }

    static std::uint16_t freePort() { return test_support::ServerSocket::listenOnLoopback(false)->port(); }

    bool start(std::uint16_t port) {
        const auto certificate = certificates.issue({kHost});
        server.setProcessChannelMode(QProcess::MergedChannels);
        // Line by line, or what it says would come long afterwards.
        server.start(QStringLiteral("stdbuf"),
                     {QStringLiteral("--output=L"), QStringLiteral("nghttpd"), QStringLiteral("--verbose"),
                      QStringLiteral("--address=127.0.0.1"), QStringLiteral("--htdocs"), folder.path(),
                      QString::number(port), certificate.keyFile, certificate.certificateFile});
        transport.connectTo = QStringLiteral("%1:443:127.0.0.1:%2").arg(kHost).arg(port);
        // It says so when it listens, and ends where it can't.
        return waitUntil(
                   [this] { return log().contains("listen") || server.state() == QProcess::NotRunning; }) &&
               server.state() == QProcess::Running;
    }

    const QByteArray& log() {
        log_ += server.readAll();
        return log_;
    }

    test_support::TestCertificates certificates;
    QTemporaryDir folder;
    QProcess server;
    platform::Transport transport;

private:
    QByteArray log_;
};

} // namespace

TEST_F(HTTP2, RequestsShareOneConnection) {
    URLLoader loader(transport);
    for (int i = 0; i < 3; ++i) {
        const auto response =
            loader.get(QStringLiteral("https://www.quillmark.example/answer.xml?user=ann&pwd=a%20b"));
        EXPECT_EQ(response.statusCode, 200);
        EXPECT_EQ(response.body, "<Login/>");
    }
    EXPECT_EQ(loader.get(QStringLiteral("https://www.quillmark.example/none")).statusCode, 404);
    ASSERT_TRUE(waitUntil([this] { return log().count(":path: /") == 4; })) << log().constData();
    EXPECT_EQ(log().count("The negotiated protocol: h2"), 1) << log().constData();
    EXPECT_EQ(log().count(":path: /answer.xml?user=ann&pwd=a%20b"), 3);
    EXPECT_FALSE(log().contains("cookie:"));
    EXPECT_FALSE(log().contains("user-agent:"));
}
