#include "host/core/Service.h"

#include "hostapi/PlugInModule.h"

#include <QtCore/QDir>
#include <QtCore/QStringList>

namespace host {

namespace {

// The ports of the URLs that the plug-in makes of the host names.
constexpr QLatin1String kWebPort{"443"};
constexpr QLatin1String kFTPPort{"21"};

/// The host's name, with "=" and what stands in for it. Case and order of entries make no other server.
QString server(const QString& host, QLatin1String port, const QString& connectTo) {
    const QString name = host.toLower();
    const QString key = name + QLatin1Char(':') + port + QLatin1Char(':');
    for (const QString& entry : connectTo.toLower().split(QLatin1Char(','))) {
        if (entry.startsWith(key))
            return name + QLatin1Char('=') + entry.mid(key.size());
    }
    return name;
}

} // namespace

std::optional<platform::ServiceConfiguration> serviceConfiguration(const QString& bundlePath,
                                                                   QString& error) {
    return platform::ServiceConfiguration::load(
        QDir(bundlePath).absoluteFilePath(hostapi::kResourcesFolderName), &error);
}

QString serviceIdentity(const platform::ServiceConfiguration& configuration) {
    const QString& connectTo = configuration.transport.connectTo;
    return server(configuration.webHost, kWebPort, connectTo) + QLatin1Char(' ') +
           server(configuration.ftpHost, kFTPPort, connectTo);
}

} // namespace host
