#include "tests/platform/FTPServerProcess.h"
#include "tests/platform/StreamRun.h"

#include <QtCore/QCryptographicHash>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QRegularExpression>
#include <QtCore/QTemporaryDir>

#include <optional>

using namespace ftp_stream_tests;
using namespace platform;
using test_support::ServerCertificate;
using test_support::TestCertificates;

namespace {

const QString kPython = QStringLiteral("/usr/bin/python3");
const QString kProgram = QStringLiteral(QUILLMARK_SOURCE_DIR "/tests/platform/serve_ftp.py");
const QString kHost = QStringLiteral("ftp.quillmark.example");
constexpr int kFilesInAFolder = 10;

// Names as photographers give them, and as nobody should.
const QStringList kFolders{QStringLiteral("77"), QStringLiteral("77/Feier & Fête"),
                           QStringLiteral("77/結婚式 #1"), QStringLiteral("77/100% \"best\""),
                           QStringLiteral("77/Why? 'cause")};

QByteArray checksum(const QByteArray& bytes) {
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256);
}

struct RealServer {
    const char* program;
    FTPSecurity security;
};

std::string nameOf(const testing::TestParamInfo<RealServer>& info) {
    std::string name(info.param.program);
    std::erase(name, '-');
    return name + (info.param.security == FTPSecurity::Plain ? "InClear" : "WithTLS");
}

/// One of the servers that Debian brings, in a process of its own.
class FTPServersTest : public testing::TestWithParam<RealServer> {
protected:
    FTPServersTest() {
        QStringList arguments{kPython, kProgram, QString::fromLatin1(GetParam().program), folder.path()};
        transport.ftpSecurity = GetParam().security;
        if (transport.ftpSecurity == FTPSecurity::Required) {
            const ServerCertificate certificate = certificates.issue({kHost});
            arguments << certificate.certificateFile << certificate.keyFile;
            transport.caFile = certificates.caFile();
        }
        process.emplace(arguments);
        transport.connectTo = QStringLiteral("%1:21:127.0.0.1:%2").arg(kHost).arg(process->port());
    }

    bool run(StreamRun& stream) const {
        if (qstrcmp(GetParam().program, "vsftpd") == 0)
            stream.stream->setUserName(QString());
        return stream.openAndWait() && stream.succeeded();
    }
    bool makeFolder(const QString& path) const {
        StreamRun stream(path + QLatin1Char('/'), transport);
        return run(stream);
    }
    bool upload(const QString& path, const QByteArray& contents) const {
        StreamRun stream(path, transport, contents);
        return run(stream);
    }
    StreamError errorOf(const QString& path) const {
        StreamRun stream(path, transport, sampleBytes(10));
        EXPECT_FALSE(run(stream));
        return stream.error;
    }

    QByteArray stored(const QString& path) const {
        QFile file(folder.filePath(QStringLiteral("root/") + path));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    int connectionCount() const { return static_cast<int>(linesOf(QStringLiteral("connections")).size()); }

    QStringList linesOf(const QString& fileName) const {
        QFile file(folder.filePath(fileName));
        if (!file.open(QIODevice::ReadOnly))
            return {};
        return QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }

    TestCertificates certificates;
    QTemporaryDir folder;
    std::optional<FTPServerProcess> process;
    Transport transport;
};

TEST_P(FTPServersTest, FilesOfAllNamesArriveWholeOverOneConnection) {
    std::map<QString, QByteArray> checksums;
    for (const QString& path : kFolders)
        ASSERT_TRUE(makeFolder(path)) << path.toStdString();
    for (const QString& path : kFolders) {
        for (int file = 0; file < kFilesInAFolder; ++file) {
            const QString name =
                QStringLiteral("%1/Bild Nr. %2 für 'Käthe' #%? & 花嫁 \"x\".jpg").arg(path).arg(file);
            const QByteArray contents =
                sampleBytes(file * file * 5000, static_cast<unsigned>(checksums.size()));
            checksums[name] = checksum(contents);
            ASSERT_TRUE(upload(name, contents)) << name.toStdString();
        }
    }
    for (const auto& [name, expected] : checksums)
        EXPECT_EQ(checksum(stored(name)), expected) << name.toStdString();
    EXPECT_EQ(connectionCount(), 1);
}

TEST_P(FTPServersTest, FolderThatExistsIsReply550AndMissingOneARefusal) {
    ASSERT_TRUE(makeFolder(QStringLiteral("77")));
    EXPECT_EQ(errorOf(QStringLiteral("77/")), ftpError(550));
    EXPECT_EQ(errorOf(QStringLiteral("missing/a.jpg")).domain, kStreamErrorDomainFTP);
    EXPECT_TRUE(upload(QStringLiteral("77/a.jpg"), sampleBytes(100)));
}

TEST_P(FTPServersTest, LongFileArrivesWhole) {
    const QByteArray contents = sampleBytes(20'000'000);
    ASSERT_TRUE(upload(QStringLiteral("long.jpg"), contents));
    EXPECT_TRUE(stored(QStringLiteral("long.jpg")) == contents);
}

/// Those of them that keep a record of commands.
class FTPServersCommandsTest : public FTPServersTest {
protected:
    /// The names of the commands that came, in their order.
    QStringList commands() const {
        static const QRegularExpression vsftpdCommand(
            QStringLiteral("FTP command: Client \"[^\"]*\", \"(\\w+)"));
        static const QRegularExpression plainCommand(QStringLiteral("^(\\w+)"));
        const auto& command = qstrcmp(GetParam().program, "vsftpd") == 0 ? vsftpdCommand : plainCommand;
        QStringList names;
        for (const QString& line : linesOf(QStringLiteral("log"))) {
            if (const auto match = command.match(line); match.hasMatch())
                names << match.captured(1);
        }
        return names;
    }
};

TEST_P(FTPServersCommandsTest, AreTwoForAFileAndOneForAFolder) {
    constexpr int kFiles = 10;
    ASSERT_TRUE(makeFolder(QStringLiteral("77")));
    ASSERT_TRUE(makeFolder(QStringLiteral("77/Ceremony")));
    for (int file = 0; file < kFiles; ++file)
        ASSERT_TRUE(upload(QStringLiteral("77/Ceremony/%1.jpg").arg(file), sampleBytes(1000)));
    const auto count = [this](const char* name) { return commands().count(QString::fromLatin1(name)); };
    // A server may note a command only after it has answered it.
    ASSERT_TRUE(test_support::waitUntil([&] { return count("STOR") == kFiles; }));
    EXPECT_EQ(count("EPSV"), kFiles);
    EXPECT_EQ(count("MKD"), 2);
    EXPECT_EQ(count("USER"), 1);
    // The rest is the login, TLS with it, and one TYPE.
    const auto once = commands().size() - 2 * kFiles - 2;
    EXPECT_LE(once, GetParam().security == FTPSecurity::Required ? 7 : 4);
}

const RealServer kServersWithCommands[] = {
    {"pyftpdlib", FTPSecurity::Plain}, {"vsftpd", FTPSecurity::Plain},
    {"proftpd", FTPSecurity::Plain},   {"pyftpdlib", FTPSecurity::Required},
    {"vsftpd", FTPSecurity::Required}, {"proftpd", FTPSecurity::Required},
};
INSTANTIATE_TEST_SUITE_P(All, FTPServersTest, testing::ValuesIn(kServersWithCommands), nameOf);
INSTANTIATE_TEST_SUITE_P(WithoutRecord, FTPServersTest,
                         testing::Values(RealServer{"pure-ftpd", FTPSecurity::Plain},
                                         RealServer{"pure-ftpd", FTPSecurity::Required}),
                         nameOf);
INSTANTIATE_TEST_SUITE_P(All, FTPServersCommandsTest, testing::ValuesIn(kServersWithCommands), nameOf);

} // namespace
