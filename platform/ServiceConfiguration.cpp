#include "platform/ServiceConfiguration.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QRegularExpression>
#include <QtCore/QSettings>
#include <QtCore/QStandardPaths>
#include <QtCore/QStringList>

#include <algorithm>

#include <arpa/inet.h>

namespace platform {

namespace {

constexpr char kEnvironmentVariable[] = "QUILLMARK_SERVICE_CONFIG";
constexpr QLatin1String kFileName{"service.ini"};
constexpr QLatin1String kUserFile{"/Quillmark/service.ini"};

constexpr QLatin1String kWebHost{"service/webHost"};
constexpr QLatin1String kFTPHost{"service/ftpHost"};
constexpr QLatin1String kConnectTo{"transport/connectTo"};
constexpr QLatin1String kCAFile{"transport/caFile"};
constexpr QLatin1String kFTPSecurity{"transport/ftpSecurity"};
constexpr QLatin1String kIdleTimeout{"transport/idleTimeout"};
constexpr QLatin1String kKnownKeys[] = {kWebHost, kFTPHost, kConnectTo, kCAFile, kFTPSecurity, kIdleTimeout};

constexpr QLatin1String kPlain{"plain"};
constexpr QLatin1String kRequired{"required"};
constexpr int kLongestHostName = 253; // RFC 1035, 2.3.4, without the root's dot
constexpr int kLongestIdleTimeout = 3600;

/// What is wrong with a key, or with the whole file where `key` is empty.
struct Fault {
    QString key;
    QString reason;
};

/// Host names of RFC 1123, 2.1.
bool isHostName(const QString& text) {
    static const QRegularExpression pattern(QRegularExpression::anchoredPattern(
        QStringLiteral("%1(\\.%1)*").arg(QStringLiteral("[A-Za-z0-9]([A-Za-z0-9-]{0,61}[A-Za-z0-9])?"))));
    return text.size() <= kLongestHostName && pattern.match(text).hasMatch();
}

bool isIPv6Address(const QString& text) {
    in6_addr address{};
    // What follows a zero the system would not see.
    return !text.contains(QChar::Null) && inet_pton(AF_INET6, text.toLatin1().constData(), &address) == 1;
}

bool isPort(const QString& text) {
    bool isNumber = false;
    const uint port = text.toUInt(&isNumber);
    return isNumber && port >= 1 && port <= 65535;
}

/// HOST:PORT:CONNECT-HOST:PORT, where a host may be an IPv6 address in brackets.
bool isConnectToEntry(const QString& entry) {
    static const QRegularExpression pattern(QRegularExpression::anchoredPattern(
        QStringLiteral("(\\[(?<v6>[^\\]]*)\\]|(?<host>[^:\\[]*)):(?<port>\\d+):"
                       "(\\[(?<toV6>[^\\]]*)\\]|(?<toHost>[^:\\[]*)):(?<toPort>\\d+)")));
    const auto match = pattern.match(entry);
    const auto isHost = [&match](const QString& name, const QString& v6) {
        const QString address = match.captured(v6);
        return address.isEmpty() ? isHostName(match.captured(name)) : isIPv6Address(address);
    };
    return match.hasMatch() && isHost(QStringLiteral("host"), QStringLiteral("v6")) &&
           isPort(match.captured(QStringLiteral("port"))) &&
           isHost(QStringLiteral("toHost"), QStringLiteral("toV6")) &&
           isPort(match.captured(QStringLiteral("toPort")));
}

/// One configuration file, read key by key; a reader throws a Fault where the key's value is wrong.
class File {
public:
    explicit File(const QString& path)
        : info_(path)
        , settings_(path, QSettings::IniFormat) {}

    ServiceConfiguration read() const {
        checkFile();
        ServiceConfiguration configuration;
        configuration.webHost = hostName(kWebHost);
        configuration.ftpHost = hostName(kFTPHost);
        configuration.transport.connectTo = connectTo();
        configuration.transport.caFile = caFile();
        configuration.transport.ftpSecurity = ftpSecurity();
        configuration.transport.idleTimeout = idleTimeout(configuration.transport.idleTimeout);
        return configuration;
    }

private:
    void checkFile() const {
        if (!info_.exists())
            throw Fault{{}, QStringLiteral("the file does not exist")};
        if (!info_.isFile() || !info_.isReadable())
            throw Fault{{}, QStringLiteral("the file can't be read")};
        if (settings_.status() != QSettings::NoError)
            throw Fault{{}, QStringLiteral("the file is not a list of sections and KEY=VALUE lines")};
        // A mistyped key would otherwise silently leave the default in force.
        for (const QString& key : settings_.allKeys()) {
            if (std::find(std::begin(kKnownKeys), std::end(kKnownKeys), key) == std::end(kKnownKeys))
                throw Fault{key, QStringLiteral("there is no such key")};
        }
    }

    /// The entries of a value: QSettings makes a list of one with commas outside quotation marks.
    QStringList entries(QLatin1String key) const {
        QStringList entries;
        for (const QString& entry :
             settings_.value(key).toStringList().join(QLatin1Char(',')).split(QLatin1Char(','))) {
            if (!entry.trimmed().isEmpty())
                entries += entry.trimmed();
        }
        return entries;
    }

    QString text(QLatin1String key) const {
        return settings_.value(key).toStringList().join(QLatin1Char(','));
    }

    QString hostName(QLatin1String key) const {
        if (text(key).isEmpty())
            throw Fault{key, QStringLiteral("a host name is required")};
        if (!isHostName(text(key)))
            throw Fault{key, QStringLiteral("\"%1\" is not a host name").arg(text(key))};
        return text(key);
    }

    QString connectTo() const {
        const QStringList all = entries(kConnectTo);
        for (const QString& entry : all) {
            if (!isConnectToEntry(entry))
                throw Fault{kConnectTo,
                            QStringLiteral("\"%1\" is not HOST:PORT:CONNECT-HOST:PORT").arg(entry)};
        }
        return all.join(QLatin1Char(','));
    }

    QString caFile() const {
        if (text(kCAFile).isEmpty())
            return {};
        const QFileInfo file(info_.absoluteDir(), text(kCAFile));
        if (!file.isFile() || !file.isReadable())
            throw Fault{kCAFile,
                        QStringLiteral("the file \"%1\" can't be read").arg(file.absoluteFilePath())};
        return file.absoluteFilePath();
    }

    FTPSecurity ftpSecurity() const {
        const QString security = text(kFTPSecurity);
        if (security.isEmpty() || security == kPlain)
            return FTPSecurity::Plain;
        if (security == kRequired)
            return FTPSecurity::Required;
        throw Fault{kFTPSecurity,
                    QStringLiteral("\"%1\" is neither \"plain\" nor \"required\"").arg(security)};
    }

    std::chrono::seconds idleTimeout(std::chrono::seconds byDefault) const {
        if (text(kIdleTimeout).isEmpty())
            return byDefault;
        bool isNumber = false;
        const int seconds = text(kIdleTimeout).toInt(&isNumber);
        if (!isNumber || seconds < 1 || seconds > kLongestIdleTimeout)
            throw Fault{kIdleTimeout, QStringLiteral("\"%1\" is not a whole number of seconds from 1 to %2")
                                          .arg(text(kIdleTimeout), QString::number(kLongestIdleTimeout))};
        return std::chrono::seconds(seconds);
    }

    const QFileInfo info_;
    const QSettings settings_;
};

QString fileToRead(const QString& resourcesPath) {
    if (!qEnvironmentVariableIsEmpty(kEnvironmentVariable))
        return qEnvironmentVariable(kEnvironmentVariable);
    const QString user = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + kUserFile;
    return QFileInfo::exists(user) ? user : resourcesPath + QLatin1Char('/') + kFileName;
}

} // namespace

std::optional<ServiceConfiguration> ServiceConfiguration::load(const QString& resourcesPath, QString* error) {
    const QString path = fileToRead(resourcesPath);
    try {
        return File(path).read();
    } catch (const Fault& fault) {
        if (error) {
            *error = fault.key.isEmpty() ? QStringLiteral("%1: %2").arg(path, fault.reason)
                                         : QStringLiteral("%1: %2: %3").arg(path, fault.key, fault.reason);
        }
        return std::nullopt;
    }
}

} // namespace platform
