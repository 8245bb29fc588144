#pragma once

#include "platform/ServiceConfiguration.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <memory>

namespace platform {

struct URLResponse {
    int statusCode = 0; ///< The HTTP status; 0 where there was no response.
    QByteArray body;
};

/// Blocking HTTPS GETs over libcurl, one after the other on one kept connection.
///
/// Follows redirects to HTTPS alone, sends no cookies, and ends a request that stays without traffic for
/// the idle time-out, lasts 5 minutes, or brings more than `kMaximumBodySize` bytes. For worker threads;
/// one thread at a time.
class URLLoader {
public:
    static constexpr qsizetype kMaximumBodySize = qsizetype{16} * 1024 * 1024;

    explicit URLLoader(const Transport& transport);
    ~URLLoader();
    URLLoader(const URLLoader&) = delete;
    URLLoader& operator=(const URLLoader&) = delete;

    /// Whether a text is a valid URL by RFC 3986 as it stands: no spaces, controls or letters beyond
    /// ASCII, "%" only before two hexadecimal digits.
    static bool isValidURL(const QString& text);

    /// Gets `url`. Status 0 for a text that is no valid HTTPS URL and for every failure of the transport,
    /// a body that is too long or an answer that broke off included.
    URLResponse get(const QString& url);

private:
    class Connection;
    std::unique_ptr<Connection> connection_;
};

} // namespace platform
