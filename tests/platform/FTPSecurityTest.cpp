#include "tests/platform/StreamRun.h"

#include <curl/curl.h>

using namespace ftp_stream_tests;
using namespace platform;
using test_support::Cut;
using test_support::FTPDataFault;
using test_support::FTPFault;
using test_support::kFTPClosingReply;
using test_support::kFTPGreeting;
using test_support::ScriptedFTPServer;
using test_support::ServerCertificate;
using test_support::TestCertificates;
using test_support::waitUntil;
using Lines = QList<QByteArray>;

namespace {

const QString kHost = QStringLiteral("ftp.quillmark.example");
const QByteArray kMarkedContents = QByteArray("NOBODY-MAY-READ-THIS").repeated(5000);

/// A server with a certificate of the tests' authority, and streams that demand TLS.
class FTPSecurityTest : public FTPStreamTest {
protected:
    FTPSecurityTest() {
        transport.ftpSecurity = FTPSecurity::Required;
        transport.caFile = certificates.caFile();
        useCertificate(certificates.issue({kHost}));
    }

    void useCertificate(const std::optional<ServerCertificate>& certificate,
                        bool requireSessionReuse = true) {
        useServer({.certificate = certificate,
                   .requireSessionReuse = requireSessionReuse,
                   .userName = "ann",
                   .password = "secret"});
    }

    void expectNothingInClear() const {
        const QByteArray wire = server->wireBytes();
        EXPECT_FALSE(wire.contains("USER"));
        EXPECT_FALSE(wire.contains("PASS"));
        EXPECT_FALSE(wire.contains("ann"));
        EXPECT_FALSE(wire.contains("secret"));
        EXPECT_FALSE(wire.contains("MKD"));
        EXPECT_FALSE(wire.contains("STOR"));
        EXPECT_FALSE(wire.contains("NOBODY-MAY-READ-THIS"));
    }

    TestCertificates certificates;
};

TEST_F(FTPSecurityTest, WholeConversationAndAllDataAreEncrypted) {
    ASSERT_TRUE(makeFolder(QStringLiteral("77/")));
    ASSERT_TRUE(upload(QStringLiteral("77/a.jpg"), kMarkedContents));
    ASSERT_TRUE(upload(QStringLiteral("77/b.jpg"), kMarkedContents));
    EXPECT_EQ(server->commands(),
              (Lines{"AUTH TLS", "USER ann", "PASS secret", "PBSZ 0", "PROT P", "PWD", "MKD 77", "EPSV",
                     "TYPE I", "STOR 77/a.jpg", "EPSV", "STOR 77/b.jpg"}));
    EXPECT_EQ(server->files().at("77/b.jpg"), kMarkedContents);
    EXPECT_TRUE(server->wireBytes().contains("AUTH TLS"));
    expectNothingInClear();
}

TEST_F(FTPSecurityTest, ManyFilesReuseTheSessionOnAKeptConnection) {
    for (int file = 0; file < 30; ++file)
        ASSERT_TRUE(upload(QStringLiteral("%1.jpg").arg(file), sampleBytes(1000 * file))) << file;
    EXPECT_EQ(server->connectionCount(), 1);
    EXPECT_EQ(server->files().size(), 30U);
}

TEST_F(FTPSecurityTest, LongFileArrivesWhole) {
    const QByteArray contents = sampleBytes(5'000'000);
    ASSERT_TRUE(upload(QStringLiteral("a.jpg"), contents));
    EXPECT_TRUE(server->files().at("a.jpg") == contents);
}

TEST_F(FTPSecurityTest, CertificateOfAnotherHostIsRefused) {
    useCertificate(certificates.issue({QStringLiteral("other.example")}));
    EXPECT_EQ(folderError(), (StreamError{kStreamErrorDomainTransport, CURLE_PEER_FAILED_VERIFICATION}));
    expectNothingInClear();
}

TEST_F(FTPSecurityTest, CertificateOutOfItsTimeIsRefused) {
    for (const auto validity :
         {TestCertificates::Validity::Expired, TestCertificates::Validity::NotYetValid}) {
        useCertificate(certificates.issue({kHost}, validity));
        EXPECT_EQ(folderError(), (StreamError{kStreamErrorDomainTransport, CURLE_PEER_FAILED_VERIFICATION}));
        expectNothingInClear();
    }
}

TEST_F(FTPSecurityTest, UnknownAuthorityIsRefused) {
    TestCertificates others;
    useCertificate(others.issue({kHost}));
    EXPECT_EQ(folderError(), (StreamError{kStreamErrorDomainTransport, CURLE_PEER_FAILED_VERIFICATION}));
    expectNothingInClear();
}

TEST_F(FTPSecurityTest, MissingAuthorityFileIsAnErrorAndNoLicence) {
    transport.caFile = QStringLiteral("/nonexistent/ca.pem");
    EXPECT_EQ(folderError().domain, kStreamErrorDomainTransport);
    expectNothingInClear();
}

TEST_F(FTPSecurityTest, ServerWithoutEncryptionGetsNothing) {
    useCertificate(std::nullopt);
    EXPECT_EQ(folderError().domain, kStreamErrorDomainFTP);
    for (const QByteArray& line : server->commands())
        EXPECT_TRUE(line.startsWith("AUTH ") || line == "QUIT") << line.constData();
    expectNothingInClear();
}

TEST_F(FTPSecurityTest, GreetingThatSkipsTheLoginDoesNotSkipEncryption) {
    server->on(kFTPGreeting, "230 Come in");
    StreamRun run(QStringLiteral("77/"), transport);
    ASSERT_TRUE(run.openAndWait());
    expectNothingInClear();
}

TEST_F(FTPSecurityTest, RefusedProtectionOfDataIsAnError) {
    server->on("PROT", "536 No");
    EXPECT_EQ(uploadError(kMarkedContents), ftpError(536));
    EXPECT_EQ(server->count("STOR"), 0);
    expectNothingInClear();
}

TEST_F(FTPSecurityTest, PromisedEncryptionThatDoesNotFollowIsAnError) {
    useCertificate(std::nullopt);
    server->on("AUTH", "234 Go on");
    EXPECT_EQ(uploadError(kMarkedContents),
              (StreamError{kStreamErrorDomainTransport, CURLE_SSL_CONNECT_ERROR}));
    expectNothingInClear();
}

TEST_F(FTPSecurityTest, RefusalsKeepTheirCodes) {
    EXPECT_TRUE(makeFolder(QStringLiteral("77/")));
    EXPECT_EQ(folderError(), ftpError(550));
    server->on("STOR", "553 Not this name", 1);
    EXPECT_EQ(uploadError(), ftpError(553));
    for (const char* reply : {"426 Lost", "451 Broken", "452 Full", "552 Full"}) {
        server->on(kFTPClosingReply, reply, 1);
        EXPECT_EQ(uploadError(), ftpError(QByteArray(reply).left(3).toInt()));
    }
    server->onData(
        {.afterBytes = 200'000, .then = FTPDataFault::Then::DiscardThenAnswer, .answer = "552 Full"}, 1);
    EXPECT_EQ(uploadError(sampleBytes(3'000'000)), ftpError(552));
}

TEST_F(FTPSecurityTest, RefusalThatDropsTheDataConnectionLeavesNoAnswerForTheNextFile) {
    ASSERT_TRUE(makeFolder(QStringLiteral("77/")));
    // libcurl takes the dropped connection for a fault of the passive mode and asks for another one.
    server->on("STOR",
               FTPFault{.delay = std::chrono::milliseconds{50}, .answer = "553 No", .dropsData = true}, 1);
    EXPECT_EQ(uploadError(), ftpError(553));
    EXPECT_TRUE(upload(QStringLiteral("77/b.jpg"), kMarkedContents));
    EXPECT_EQ(server->files().at("77/b.jpg"), kMarkedContents);
}

TEST_F(FTPSecurityTest, SessionOfAConnectionThatWasCutIsNotResumed) {
    // A server forgets it as soon as it meets the end without a goodbye, and then refuses data that rely on
    // it.
    server->on("STOR", FTPFault{.delay = std::chrono::milliseconds{200}}, 1);
    StreamRun cut(QStringLiteral("a.jpg"), transport, kMarkedContents);
    ASSERT_TRUE(cut.open());
    ASSERT_TRUE(waitUntil([&] { return server->count("STOR") == 1; }));
    server->on("PWD", FTPFault{.delay = std::chrono::milliseconds{500}}, 1);
    cut.stream->close();
    EXPECT_TRUE(upload(QStringLiteral("b.jpg"), kMarkedContents));
}

TEST_F(FTPSecurityTest, ConnectionThatReplacesALostOneServesTheNextFileToo) {
    ASSERT_TRUE(upload(QStringLiteral("a.jpg"), kMarkedContents));
    server->on("EPSV", FTPFault{.answer = QByteArray(), .cut = Cut::Reset}, 1);
    EXPECT_TRUE(upload(QStringLiteral("b.jpg"), kMarkedContents));
    EXPECT_TRUE(upload(QStringLiteral("c.jpg"), kMarkedContents));
    EXPECT_EQ(server->connectionCount(), 2);
}

TEST_F(FTPSecurityTest, RefusalDuringTheDataEndsTheUpload) {
    using Then = FTPDataFault::Then;
    for (const Then then : {Then::AnswerThenCutData, Then::CutData, Then::AnswerThenStall}) {
        server->onData({.afterBytes = 200'000,
                        .then = then,
                        .answer = "552 Full",
                        .pause = std::chrono::milliseconds{100}},
                       1);
        EXPECT_FALSE(uploadError(sampleBytes(6'000'000)) == kNoError);
    }
    EXPECT_TRUE(upload(QStringLiteral("77/b.jpg"), kMarkedContents));
}

TEST_F(FTPSecurityTest, WrongPasswordIsReportedWithItsCode) {
    StreamRun run(QStringLiteral("77/"), transport);
    run.stream->setPassword(QStringLiteral("guess"));
    ASSERT_TRUE(run.openAndWait());
    EXPECT_EQ(run.error, ftpError(530));
}

TEST_F(FTPSecurityTest, CloseCutsAConnectionAtOnceThatLibcurlWaitsFor) {
    server->on(kFTPClosingReply, FTPFault{.silent = true}, 1);
    StreamRun run(QStringLiteral("a.jpg"), transport, kMarkedContents);
    ASSERT_TRUE(run.open());
    ASSERT_TRUE(waitUntil(
        [&] { return server->receivedBytes() == static_cast<std::uint64_t>(kMarkedContents.size()); }));
    run.stream->close();
    EXPECT_TRUE(waitUntil([&] { return server->openConnectionCount() == 0; }));
    EXPECT_TRUE(upload(QStringLiteral("b.jpg"), kMarkedContents));
}

TEST_F(FTPSecurityTest, FileOfAClosedStreamLooksCutOffToTheServer) {
    server->setDataPace(std::chrono::milliseconds{2});
    for (int file = 0; file < 10; ++file) {
        StreamRun run(QStringLiteral("a.jpg"), transport, sampleBytes(3'000'000));
        ASSERT_TRUE(run.open());
        ASSERT_TRUE(waitUntil([&] { return run.written > 0; }));
        run.stream->close();
        ASSERT_TRUE(waitUntil([&] { return server->openConnectionCount() == 0; }));
    }
    EXPECT_TRUE(server->files().empty());
}

TEST_F(FTPSecurityTest, ConnectionInClearIsNotReusedWhereEncryptionIsDemanded) {
    useServer({});
    transport.ftpSecurity = FTPSecurity::Plain;
    ASSERT_TRUE(makeFolder(QStringLiteral("77/")));
    transport.ftpSecurity = FTPSecurity::Required;
    StreamRun run(QStringLiteral("78/"), transport);
    ASSERT_TRUE(run.openAndWait());
    EXPECT_FALSE(run.succeeded());
    EXPECT_EQ(server->count("MKD"), 1);
}

} // namespace
