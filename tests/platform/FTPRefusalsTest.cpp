#include "tests/platform/StreamRun.h"

#include <QtCore/QElapsedTimer>

#include <netdb.h>

using namespace ftp_stream_tests;
using namespace platform;
using test_support::Cut;
using test_support::FTPDataFault;
using test_support::FTPFault;
using test_support::kFTPClosingReply;
using test_support::kFTPGreeting;
using test_support::ScriptedFTPServer;
using test_support::waitUntil;
using Then = FTPDataFault::Then;

namespace {

constexpr int kRefusals[] = {421, 425, 426, 450, 451, 452, 500, 501, 530, 550, 551, 552, 553};
constexpr std::chrono::milliseconds kLater{200};
constexpr std::uint64_t kSomeBytes = 200'000;

QByteArray refusal(int code) {
    return QByteArray::number(code) + " No";
}

/// More bytes than all buffers on the way hold.
QByteArray longFile() {
    static const QByteArray bytes = sampleBytes(6'000'000);
    return bytes;
}

/// Steps of the conversation at which any server may refuse.
struct Step {
    const char* name;
    bool isOfUploads;
};
constexpr Step kSteps[] = {{kFTPGreeting, false}, {"USER", false}, {"PASS", false},         {"MKD", false},
                           {"TYPE", true},        {"STOR", true},  {kFTPClosingReply, true}};

using FTPRefusalsTest = FTPStreamTest;

TEST_F(FTPRefusalsTest, EveryRefusalIsReportedWithTheServersCode) {
    for (const Step& step : kSteps) {
        for (const int code : kRefusals) {
            useServer({});
            server->on(step.name, refusal(code));
            EXPECT_EQ(step.isOfUploads ? uploadError() : folderError(), ftpError(code)) << step.name;
        }
    }
}

TEST_F(FTPRefusalsTest, RefusalThatEndsTheConnectionIsReportedWithItsCode) {
    for (const Step& step : kSteps) {
        for (const Cut cut : {Cut::Finish, Cut::Reset}) {
            useServer({});
            server->on(step.name, FTPFault{.answer = "421-Too many of you\n421 Bye", .cut = cut});
            EXPECT_EQ(step.isOfUploads ? uploadError() : folderError(), ftpError(421)) << step.name;
        }
    }
}

TEST_F(FTPRefusalsTest, RefusalInsteadOfPassiveModeIsReportedWithItsCode) {
    server->on("EPSV", "500 What?");
    server->on("PASV", "425 No more ports");
    EXPECT_EQ(uploadError(), ftpError(425));
}

/// What goes wrong while the bytes come, and whether the server's reason can be told.
struct DataRefusal {
    const char* name;
    FTPDataFault fault;
};

class FTPDataRefusalsTest : public FTPStreamTest, public testing::WithParamInterface<DataRefusal> {};

TEST_P(FTPDataRefusalsTest, RefusalDuringTheDataIsReportedWithTheServersCode) {
    for (const int code : {426, 451, 452, 552}) {
        FTPDataFault fault = GetParam().fault;
        fault.afterBytes = kSomeBytes;
        fault.answer = refusal(code);
        server->onData(fault, 1);
        EXPECT_EQ(uploadError(longFile()), ftpError(code));
        EXPECT_TRUE(upload(QStringLiteral("77/b.jpg"), sampleBytes(1000)));
    }
}

INSTANTIATE_TEST_SUITE_P(
    All, FTPDataRefusalsTest,
    testing::Values(
        DataRefusal{"ResetThenReply", {.then = Then::CutData, .cut = Cut::Reset}},
        DataRefusal{"ResetThenLateReply", {.then = Then::CutData, .cut = Cut::Reset, .pause = kLater}},
        DataRefusal{"FinishThenReply", {.then = Then::CutData, .cut = Cut::Finish}},
        DataRefusal{"FinishThenLateReply", {.then = Then::CutData, .cut = Cut::Finish, .pause = kLater}},
        DataRefusal{"ReplyThenReset", {.then = Then::AnswerThenCutData, .cut = Cut::Reset}},
        DataRefusal{"ReplyThenLateReset",
                    {.then = Then::AnswerThenCutData, .cut = Cut::Reset, .pause = kLater}},
        DataRefusal{"ReplyThenFinish",
                    {.then = Then::AnswerThenCutData, .cut = Cut::Finish, .pause = kLater}},
        DataRefusal{"ReplyAfterTheRest", {.then = Then::DiscardThenAnswer}},
        DataRefusal{"ReplyThenNothing", {.then = Then::AnswerThenStall}},
        DataRefusal{"ReplyThenControlCut",
                    {.then = Then::AnswerThenCutData, .cut = Cut::Reset, .controlCut = Cut::Finish}},
        DataRefusal{"ResetThenReplyThenControlReset",
                    {.then = Then::CutData, .cut = Cut::Reset, .pause = kLater, .controlCut = Cut::Reset}}),
    [](const auto& parameter) { return parameter.param.name; });

TEST_F(FTPRefusalsTest, RefusalWhileTheClientHasNothingToWriteIsReported) {
    server->onData({.afterBytes = 1, .then = Then::AnswerThenStall, .answer = "552 Full"});
    StreamRun run(QStringLiteral("a.jpg"), transport, longFile());
    run.onEvent = [&](StreamEvent event) {
        if (event == kStreamEventCanAcceptBytes && run.written == 0)
            run.written =
                run.stream->write(reinterpret_cast<const std::uint8_t*>(run.contents.constData()), 1);
        return event == kStreamEventCanAcceptBytes;
    };
    ASSERT_TRUE(run.openAndWait());
    EXPECT_EQ(run.error, ftpError(552));
}

TEST_F(FTPRefusalsTest, ConfirmationOfHalfAFileIsNoSuccess) {
    for (const char* reply : {"226 Got it", "250 Got it"}) {
        for (const Then then : {Then::AnswerThenCutData, Then::CutData}) {
            server->onData({.afterBytes = kSomeBytes, .then = then, .answer = reply, .pause = kLater}, 1);
            EXPECT_EQ(uploadError(longFile()).domain, kStreamErrorDomainTransport);
        }
    }
}

TEST_F(FTPRefusalsTest, OnlyACompletionReplyConfirms) {
    for (const char* reply : {"200 Got it", "225 Got it", "226 Got it", "250 Got it", "299 Got it"}) {
        server->on(kFTPClosingReply, reply, 1);
        EXPECT_TRUE(upload(QStringLiteral("a.jpg"), sampleBytes(1000))) << reply;
    }
    for (const char* reply : {"331 And now?", "150 Wait", "999 What"}) {
        useServer({});
        server->on(kFTPClosingReply, reply);
        transport.idleTimeout = std::chrono::seconds{1};
        EXPECT_FALSE(upload(QStringLiteral("a.jpg"), sampleBytes(1000))) << reply;
    }
    server->on("MKD", "350 And now?");
    EXPECT_EQ(folderError().domain, kStreamErrorDomainTransport);
}

TEST_F(FTPRefusalsTest, LostConnectionIsNoRefusalOfTheServers) {
    for (const Step& step : kSteps) {
        for (const Cut cut : {Cut::Finish, Cut::Reset}) {
            useServer({});
            server->on(step.name, FTPFault{.cut = cut});
            EXPECT_EQ((step.isOfUploads ? uploadError() : folderError()).domain, kStreamErrorDomainTransport)
                << step.name;
        }
    }
    for (const Cut cut : {Cut::Finish, Cut::Reset}) {
        useServer({});
        server->onData({.afterBytes = kSomeBytes, .cut = cut, .controlCut = cut});
        EXPECT_EQ(uploadError(longFile()).domain, kStreamErrorDomainTransport);
    }
}

TEST_F(FTPRefusalsTest, DataResetWithoutAnyReasonEndsSoon) {
    QElapsedTimer timer;
    timer.start();
    server->onData({.afterBytes = kSomeBytes, .cut = Cut::Reset, .answer = ""});
    const StreamError error = uploadError(longFile());
    EXPECT_NE(error.domain, kStreamErrorDomainFTP);
    EXPECT_LT(timer.elapsed(), 10'000);
}

TEST_F(FTPRefusalsTest, EarlierRefusalsThatDidNotMatterAreNotTheReason) {
    server->on("PWD", "550 No");
    server->on("EPSV", "500 What?");
    server->on("TYPE", FTPFault{.cut = Cut::Finish});
    EXPECT_EQ(uploadError().domain, kStreamErrorDomainTransport);
}

TEST_F(FTPRefusalsTest, RefusedLoginEndsWithoutWaitingForAnAnswerToTheGoodbye) {
    QElapsedTimer timer;
    timer.start();
    server->on("PASS", "530 Wrong");
    server->on("QUIT", FTPFault{.silent = true});
    EXPECT_EQ(folderError(), ftpError(530));
    EXPECT_LT(timer.elapsed(), 5'000);
}

TEST_F(FTPRefusalsTest, RefusedConnectionIsThePlatformsError) {
    const auto nobody = test_support::ServerSocket::listenOnLoopback(false);
    const auto port = nobody->port();
    nobody->cut(Cut::Reset);
    transport.connectTo = QStringLiteral("ftp.quillmark.example:21:127.0.0.1:%1").arg(port);
    EXPECT_EQ(folderError(), posixError(ECONNREFUSED));
}

TEST_F(FTPRefusalsTest, UnreachableHostIsThePlatformsError) {
    // All hosts at once: the system says so itself, and nothing leaves the machine.
    transport.connectTo = QStringLiteral("ftp.quillmark.example:21:255.255.255.255:21");
    EXPECT_EQ(folderError(), posixError(ENETUNREACH));
}

TEST_F(FTPRefusalsTest, RefusedDataConnectionIsThePlatformsError) {
    server->on("EPSV", "229 Extended passive (|||1|)");
    server->on("PASV", "227 Passive (127,0,0,1,0,1)");
    EXPECT_EQ(uploadError(), posixError(ECONNREFUSED));
}

TEST_F(FTPRefusalsTest, UnknownHostIsAnErrorOfItsOwnDomain) {
    transport.connectTo = QStringLiteral("ftp.quillmark.example:21:nowhere.invalid:21");
    EXPECT_EQ(folderError(), (StreamError{kStreamErrorDomainNetDB, HOST_NOT_FOUND}));
}

TEST_F(FTPRefusalsTest, NonsenseInsteadOfRepliesIsAnError) {
    transport.idleTimeout = std::chrono::seconds{1};
    const QByteArray endless(100'000, 'x');
    for (const char* step : {kFTPGreeting, "STOR", kFTPClosingReply}) {
        for (const QByteArray& nonsense : {QByteArray("hello"), endless}) {
            useServer({});
            server->on(step, nonsense);
            EXPECT_NE(uploadError(), kNoError) << step << ' ' << nonsense.left(20).constData();
        }
    }
    for (const char* nonsense : {"229 (|||99999999999|)", "229 (|||", "229", "229 (|||0|)", "229 (%s%n)"}) {
        useServer({});
        server->on("EPSV", nonsense);
        server->on("PASV", "227 (999,999,999,999,999,999)");
        EXPECT_NE(uploadError(), kNoError) << nonsense;
    }
}

} // namespace
