#pragma once

#include <QtCore/QString>

#include <chrono>
#include <optional>

namespace platform {

enum class FTPSecurity {
    Plain,    ///< FTP as the service defines it.
    Required, ///< Explicit TLS on control and data connections, verified, never falling back.
};

/// How the bytes get to the service: shared by FTP streams and HTTPS requests.
struct Transport {
    QString connectTo; ///< Entries of libcurl's CURLOPT_CONNECT_TO, separated by commas; may be empty.
    QString caFile;    ///< A further certificate authority's PEM file; may be empty.
    FTPSecurity ftpSecurity = FTPSecurity::Plain;
    std::chrono::seconds idleTimeout{60}; ///< How long a connection may stay without traffic.
};

/// Where the proofing service is. Host names only, never ports: URLs are made of the host names and
/// the protocols' default ports, `Transport::connectTo` says where the bytes go.
struct ServiceConfiguration {
    QString webHost;
    QString ftpHost;
    Transport transport;

    /// Reads the first that exists of the file named by $QUILLMARK_SERVICE_CONFIG (which must exist),
    /// the user's `Quillmark/service.ini` and `resourcesPath`/service.ini. Without a value where that
    /// file is missing or wrong; `error` then tells why, naming the file.
    static std::optional<ServiceConfiguration> load(const QString& resourcesPath, QString* error);
};

} // namespace platform
