#include "platform/ServiceConfiguration.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>

#include <gtest/gtest.h>

namespace {

using platform::FTPSecurity;
using std::chrono::seconds;

constexpr char kVariable[] = "QUILLMARK_SERVICE_CONFIG";
constexpr char kHosts[] = "[service]\nwebHost=www.quillmark.example\nftpHost=ftp.quillmark.example\n";

class ServiceConfiguration : public testing::Test {
protected:
    void TearDown() override {
        qunsetenv(kVariable);
        QDir(userFolder()).removeRecursively();
    }

    static QString userFolder() {
        return qEnvironmentVariable("XDG_CONFIG_HOME") + QStringLiteral("/Quillmark");
    }

    QString path(const QString& name = QStringLiteral("service.ini")) const { return folder_.filePath(name); }

    static void write(const QString& path, const QByteArray& content) {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(content);
    }

    std::optional<platform::ServiceConfiguration> load() {
        error_.clear();
        return platform::ServiceConfiguration::load(folder_.path(), &error_);
    }

    /// The configuration of a file with this content.
    std::optional<platform::ServiceConfiguration> load(const QByteArray& content) {
        // A name of its own for each: QSettings keeps what it has read for a while.
        const QString file = path(QStringLiteral("%1.ini").arg(++files_));
        write(file, content);
        qputenv(kVariable, QFile::encodeName(file));
        return load();
    }

    std::optional<platform::Transport> transport(const QByteArray& lines) {
        const auto configuration = load(QByteArray(kHosts) + "[transport]\n" + lines + '\n');
        return configuration ? std::optional(configuration->transport) : std::nullopt;
    }

    /// That a file with this content is refused, for this key and value.
    void expectFault(const QByteArray& content, const QString& key, const QString& mentioned = {}) {
        EXPECT_FALSE(load(content)) << content.toStdString();
        EXPECT_TRUE(error_.startsWith(qEnvironmentVariable(kVariable) + QStringLiteral(": ") + key))
            << error_.toStdString();
        EXPECT_TRUE(error_.contains(mentioned)) << error_.toStdString();
    }
    void expectTransportFault(const QByteArray& line, const QString& key, const QString& mentioned = {}) {
        expectFault(QByteArray(kHosts) + "[transport]\n" + line + '\n', QStringLiteral("transport/") + key,
                    mentioned);
    }

    QString error_;

private:
    const QTemporaryDir folder_;
    int files_ = 0;
};

TEST_F(ServiceConfiguration, HostsAloneGiveThePlainService) {
    const auto configuration = load(kHosts);
    ASSERT_TRUE(configuration) << error_.toStdString();
    EXPECT_EQ(configuration->webHost, QStringLiteral("www.quillmark.example"));
    EXPECT_EQ(configuration->ftpHost, QStringLiteral("ftp.quillmark.example"));
    EXPECT_EQ(configuration->transport.connectTo, QString());
    EXPECT_EQ(configuration->transport.caFile, QString());
    EXPECT_EQ(configuration->transport.ftpSecurity, FTPSecurity::Plain);
    EXPECT_EQ(configuration->transport.idleTimeout, seconds(60));
}

TEST_F(ServiceConfiguration, EverythingIsRead) {
    write(path(QStringLiteral("ca.pem")), "certificate");
    const auto read = transport(
        "connectTo=\"www.quillmark.example:443:127.0.0.1:8443, ftp.quillmark.example:21:[::1]:2121\"\n"
        "caFile=" +
        QFile::encodeName(path(QStringLiteral("ca.pem"))) +
        "\n"
        "ftpSecurity=required\nidleTimeout=5");
    ASSERT_TRUE(read) << error_.toStdString();
    EXPECT_EQ(read->connectTo,
              QStringLiteral("www.quillmark.example:443:127.0.0.1:8443,ftp.quillmark.example:21:[::1]:2121"));
    EXPECT_EQ(read->caFile, path(QStringLiteral("ca.pem")));
    EXPECT_EQ(read->ftpSecurity, FTPSecurity::Required);
    EXPECT_EQ(read->idleTimeout, seconds(5));
}

TEST_F(ServiceConfiguration, EmptyValuesAreAsIfAbsent) {
    const auto read = transport("connectTo=\"\"\ncaFile=\nftpSecurity=\nidleTimeout=");
    ASSERT_TRUE(read) << error_.toStdString();
    EXPECT_EQ(read->connectTo, QString());
    EXPECT_EQ(read->caFile, QString());
    EXPECT_EQ(read->ftpSecurity, FTPSecurity::Plain);
    EXPECT_EQ(read->idleTimeout, seconds(60));
}

TEST_F(ServiceConfiguration, QuotationMarksAreOptional) {
    const auto read = transport("connectTo=a:1:b:2, c:3:d:4,\nftpSecurity=\"required\"");
    ASSERT_TRUE(read) << error_.toStdString();
    EXPECT_EQ(read->connectTo, QStringLiteral("a:1:b:2,c:3:d:4"));
    EXPECT_EQ(read->ftpSecurity, FTPSecurity::Required);
}

TEST_F(ServiceConfiguration, FileNamesMayHoldCommasAndSpaces) {
    write(path(QStringLiteral("my, ca  1.pem")), "certificate");
    const auto quoted =
        transport("caFile=\"" + QFile::encodeName(path(QStringLiteral("my, ca  1.pem"))) + '"');
    ASSERT_TRUE(quoted) << error_.toStdString();
    EXPECT_EQ(quoted->caFile, path(QStringLiteral("my, ca  1.pem")));
}

TEST_F(ServiceConfiguration, RelativeFileNamesStartAtTheConfiguration) {
    write(path(QStringLiteral("ca.pem")), "certificate");
    const auto read = transport("caFile=ca.pem");
    ASSERT_TRUE(read) << error_.toStdString();
    EXPECT_EQ(read->caFile, path(QStringLiteral("ca.pem")));
}

TEST_F(ServiceConfiguration, HostsAreRequired) {
    expectFault("", QStringLiteral("service/webHost"));
    expectFault("[service]\nftpHost=ftp.quillmark.example\n", QStringLiteral("service/webHost"));
    expectFault("[service]\nwebHost=www.quillmark.example\n", QStringLiteral("service/ftpHost"));
    expectFault("[service]\nwebHost=www.quillmark.example\nftpHost=\n", QStringLiteral("service/ftpHost"));
}

TEST_F(ServiceConfiguration, HostsAreNothingButHostNames) {
    for (const char* host :
         {"https://www.quillmark.example", "www.quillmark.example:443", "www.quillmark.example/", "user@host",
          "a..b", ".a", "a.", "-a", "a-", "a_b", "a b",
          "b\xC3\xBC"
          "cher.example",
          "a\\r\\nb", "[::1]", "%41", "a,b", "*.example",
          "a23456789012345678901234567890123456789012345678901234567890abcd"}) {
        expectFault(QByteArray("[service]\nwebHost=\"") + host + "\"\nftpHost=ftp.quillmark.example\n",
                    QStringLiteral("service/webHost"));
    }
    const QByteArray longest = QByteArray("a.").repeated(126) + 'a';
    EXPECT_TRUE(load("[service]\nwebHost=" + longest + "\nftpHost=localhost\n")) << error_.toStdString();
    expectFault("[service]\nwebHost=a" + longest + "\nftpHost=localhost\n",
                QStringLiteral("service/webHost"));
    EXPECT_TRUE(load("[service]\nwebHost=3Com.example-1\nftpHost=127.0.0.1\n")) << error_.toStdString();
}

TEST_F(ServiceConfiguration, ConnectToEntriesHaveTwoHostsAndTwoPorts) {
    for (const char* entry : {"a", "a:1", "a:1:b", "a:1:b:2:3", "a:1:b:", "a::b:2", ":1:b:2", "a:1::2",
                              "a:0:b:2", "a:1:b:65536", "a:1:b:+2", "a:1:b:-2", "a:1:b:2x", "a:1:::1:2",
                              "a:1:[::1:2", "a:1:[::g]:2", "a:1:[]:2", "a:1:b c:2", "a:1:b:99999999999"}) {
        expectTransportFault(QByteArray("connectTo=\"") + entry + '"', QStringLiteral("connectTo"),
                             QLatin1String(entry));
        expectTransportFault(QByteArray("connectTo=\"c:1:d:2, ") + entry + '"', QStringLiteral("connectTo"),
                             QLatin1String(entry));
    }
    expectTransportFault("connectTo=\"a:1:[::1\\0]:2\"", QStringLiteral("connectTo"));
    EXPECT_TRUE(transport("connectTo=\"a:1:[2001:db8::1]:65535\""));
}

TEST_F(ServiceConfiguration, CertificateFileMustBeReadable) {
    expectTransportFault("caFile=missing.pem", QStringLiteral("caFile"), path(QStringLiteral("missing.pem")));
    expectTransportFault("caFile=.", QStringLiteral("caFile"));
}

TEST_F(ServiceConfiguration, SecurityHasTwoLevels) {
    EXPECT_EQ(transport("ftpSecurity=plain")->ftpSecurity, FTPSecurity::Plain);
    for (const char* security : {"Required", "tls", "optional", "required, plain"})
        expectTransportFault(QByteArray("ftpSecurity=") + security, QStringLiteral("ftpSecurity"));
}

TEST_F(ServiceConfiguration, IdleTimeoutIsOneSecondToOneHour) {
    EXPECT_EQ(transport("idleTimeout=1")->idleTimeout, seconds(1));
    EXPECT_EQ(transport("idleTimeout=3600")->idleTimeout, seconds(3600));
    for (const char* timeout : {"0", "-1", "3601", "1.5", "60s", "1, 2", "99999999999", "0x10"})
        expectTransportFault(QByteArray("idleTimeout=") + timeout, QStringLiteral("idleTimeout"));
    EXPECT_FALSE(transport("idleTimeout=%2"));
    EXPECT_TRUE(error_.contains(QStringLiteral("\"%2\" is not a whole number"))) << error_.toStdString();
}

TEST_F(ServiceConfiguration, UnknownKeysAreNamed) {
    expectFault(QByteArray(kHosts) + "[transport]\nconectTo=a:1:b:2\n", QStringLiteral("transport/conectTo"));
    expectFault(QByteArray(kHosts) + "port=443\n", QStringLiteral("service/port"));
    expectFault("webHost=www.quillmark.example\n", QStringLiteral("webHost"));
    expectFault(QByteArray(kHosts) + "[transport]\nidletimeout=5\n", QStringLiteral("transport/idletimeout"));
}

TEST_F(ServiceConfiguration, FileThatIsNoConfigurationIsRefused) {
    EXPECT_FALSE(load("these are no settings\n"));
    EXPECT_TRUE(error_.startsWith(qEnvironmentVariable(kVariable))) << error_.toStdString();
    EXPECT_FALSE(load(QByteArray("\x89PNG\r\n\x1a\n\0\0\0\x0dIHDR", 16)));
    EXPECT_TRUE(error_.startsWith(qEnvironmentVariable(kVariable))) << error_.toStdString();
}

TEST_F(ServiceConfiguration, NamedFileMustExist) {
    write(path(), kHosts);
    qputenv(kVariable, QFile::encodeName(path(QStringLiteral("missing.ini"))));
    EXPECT_FALSE(load());
    EXPECT_TRUE(error_.contains(path(QStringLiteral("missing.ini")))) << error_.toStdString();
    qputenv(kVariable, QFile::encodeName(path(QString())));
    EXPECT_FALSE(load());
    qputenv(kVariable, "");
    EXPECT_TRUE(load()) << error_.toStdString();
}

TEST_F(ServiceConfiguration, NamedFileComesBeforeTheUsersBeforeTheBundles) {
    const auto hosts = [](const char* name) {
        return QByteArray("[service]\nwebHost=") + name + "\nftpHost=" + name + '\n';
    };
    EXPECT_FALSE(load());
    EXPECT_TRUE(error_.contains(path())) << error_.toStdString();
    write(path(), hosts("bundle.example"));
    ASSERT_TRUE(load()) << error_.toStdString();
    EXPECT_EQ(load()->webHost, QStringLiteral("bundle.example"));
    ASSERT_TRUE(QDir().mkpath(userFolder()));
    write(userFolder() + QStringLiteral("/service.ini"), hosts("user.example"));
    ASSERT_TRUE(load()) << error_.toStdString();
    EXPECT_EQ(load()->webHost, QStringLiteral("user.example"));
    ASSERT_TRUE(load(hosts("named.example"))) << error_.toStdString();
    EXPECT_EQ(load()->webHost, QStringLiteral("named.example"));
}

TEST_F(ServiceConfiguration, WrongFileIsNotMadeUpForByTheNext) {
    write(path(), kHosts);
    ASSERT_TRUE(QDir().mkpath(userFolder()));
    write(userFolder() + QStringLiteral("/service.ini"), "[service]\nwebHost=user.example\n");
    EXPECT_FALSE(load());
    EXPECT_TRUE(error_.startsWith(userFolder() + QStringLiteral("/service.ini: service/ftpHost")))
        << error_.toStdString();
}

TEST_F(ServiceConfiguration, ErrorNeedNotBeAskedFor) {
    EXPECT_FALSE(platform::ServiceConfiguration::load(path(QStringLiteral("missing")), nullptr));
}

} // namespace
