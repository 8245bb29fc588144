#include "platform/URLLoader.h"

#include "platform/Secret.h"

#include <QtCore/QStringList>

#include <curl/curl.h>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <set>

namespace platform {

namespace {

constexpr QLatin1String kScheme{"https://"};
constexpr std::chrono::minutes kWholeRequestTimeout{5};
/// As many as a desktop's loader follows before it gives up.
constexpr long kMaximumRedirects = 16;

// The characters of RFC 3986's rules; "%" is looked at apart.
constexpr QStringView kUnreserved = u"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
constexpr QStringView kSubDelimiters = u"!$&'()*+,;=";
constexpr QStringView kDigits = u"0123456789";
constexpr QStringView kHexDigits = u"0123456789ABCDEFabcdef";

bool isHexDigit(QChar character) {
    return kHexDigits.contains(character);
}

/// Whether `part` holds nothing but unreserved characters, sub-delimiters, `further` ones and escapes.
bool holdsOnly(QStringView part, QStringView further) {
    for (qsizetype i = 0; i < part.size(); ++i) {
        const QChar character = part[i];
        if (character == u'%') {
            if (i + 2 >= part.size() || !isHexDigit(part[i + 1]) || !isHexDigit(part[i + 2]))
                return false;
            i += 2;
        } else if (!kUnreserved.contains(character) && !kSubDelimiters.contains(character) &&
                   !further.contains(character)) {
            return false;
        }
    }
    return true;
}

bool isScheme(QStringView scheme) {
    return !scheme.isEmpty() &&
           ((scheme[0] >= u'a' && scheme[0] <= u'z') || (scheme[0] >= u'A' && scheme[0] <= u'Z')) &&
           std::all_of(scheme.begin(), scheme.end(), [](QChar character) {
               return character != u'_' && character != u'~' &&
                      (kUnreserved.contains(character) || character == u'+');
           });
}

bool isPort(QStringView port) {
    return std::all_of(port.begin(), port.end(), [](QChar character) { return kDigits.contains(character); });
}

/// authority = [ userinfo "@" ] host [ ":" port ]
bool isAuthority(QStringView authority) {
    const qsizetype at = authority.indexOf(u'@');
    if (at >= 0 && !holdsOnly(authority.first(at), u":"))
        return false;
    QStringView host = authority.sliced(at + 1);
    if (host.startsWith(u'[')) {
        const qsizetype end = host.indexOf(u']');
        if (end < 0 || !holdsOnly(host.sliced(1, end - 1), u":") || host.sliced(1, end - 1).contains(u'%'))
            return false;
        const QStringView rest = host.sliced(end + 1);
        return end > 1 && (rest.isEmpty() || (rest.startsWith(u':') && isPort(rest.sliced(1))));
    }
    if (const qsizetype colon = host.indexOf(u':'); colon >= 0) {
        if (!isPort(host.sliced(colon + 1)))
            return false;
        host = host.first(colon);
    }
    return !host.isEmpty() && holdsOnly(host, u"");
}

/// Splits off what follows the first `separator`; absent where there is none.
std::optional<QStringView> splitOff(QStringView& text, QChar separator) {
    const qsizetype found = text.indexOf(separator);
    if (found < 0)
        return std::nullopt;
    const QStringView rest = text.sliced(found + 1);
    text = text.first(found);
    return rest;
}

struct SListDeleter {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using SList = std::unique_ptr<curl_slist, SListDeleter>;

SList slistOf(const QString& commaSeparated) {
    curl_slist* list = nullptr;
    for (const QString& entry : commaSeparated.split(u',', Qt::SkipEmptyParts))
        list = curl_slist_append(list, entry.trimmed().toUtf8().constData());
    return SList(list);
}

void startTransferLibrary() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

} // namespace

/// One easy handle: it keeps its connection from one request to the next.
class URLLoader::Connection {
public:
    explicit Connection(const Transport& transport)
        : connectTo_(slistOf(transport.connectTo))
        , idleTimeout_(transport.idleTimeout) {
        startTransferLibrary();
        handle_ = curl_easy_init();
        if (!handle_)
            return;
        restrictToHTTPS();
        setTimeouts();
        setCallbacks();
        set(CURLOPT_CONNECT_TO, connectTo_.get());
        if (!transport.caFile.isEmpty()) {
            // The system's own authorities stay known through their folder, which is libcurl's default.
            set(CURLOPT_CAINFO, transport.caFile.toLocal8Bit().constData());
        }
    }

    ~Connection() {
        if (handle_)
            curl_easy_cleanup(handle_);
    }

    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    URLResponse get(const QString& url) {
        if (!handle_)
            return {};
        start_ = Clock::now();
        headersAreComplete_ = false;
        QByteArray text = url.toLatin1();
        set(CURLOPT_URL, text.constData());
        wipe(text);
        const CURLcode result = curl_easy_perform(handle_);
        set(CURLOPT_URL, static_cast<const char*>(nullptr));
        QByteArray body;
        body.swap(body_);
        // libcurl takes headers that break off for an answer without a body.
        if (result != CURLE_OK || !headersAreComplete_)
            return {};
        long status = 0;
        curl_easy_getinfo(handle_, CURLINFO_RESPONSE_CODE, &status);
        return {static_cast<int>(status), body};
    }

private:
    using Clock = std::chrono::steady_clock;

    template <typename Value>
    void set(CURLoption option, Value value) {
        curl_easy_setopt(handle_, option, value);
    }

    void restrictToHTTPS() {
        set(CURLOPT_PROTOCOLS_STR, "https");
        set(CURLOPT_REDIR_PROTOCOLS_STR, "https");
        set(CURLOPT_FOLLOWLOCATION, 1L);
        set(CURLOPT_MAXREDIRS, kMaximumRedirects);
        set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
        // The path goes out as it stands, "." and ".." included, and nothing in a redirect logs in.
        set(CURLOPT_PATH_AS_IS, 1L);
        set(CURLOPT_DISALLOW_USERNAME_IN_URL, 1L);
    }

    void setTimeouts() {
        // Signals would hit the host's threads.
        set(CURLOPT_NOSIGNAL, 1L);
        set(CURLOPT_TIMEOUT_MS, static_cast<long>(std::chrono::milliseconds(kWholeRequestTimeout).count()));
        set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(std::chrono::milliseconds(idleTimeout_).count()));
    }

    void setCallbacks() {
        set(CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(kMaximumBodySize));
        set(CURLOPT_WRITEFUNCTION, &Connection::onBody);
        set(CURLOPT_WRITEDATA, this);
        set(CURLOPT_HEADERFUNCTION, &Connection::onHeader);
        set(CURLOPT_HEADERDATA, this);
        set(CURLOPT_SOCKOPTFUNCTION, &Connection::onSocketOpened);
        set(CURLOPT_SOCKOPTDATA, this);
        set(CURLOPT_CLOSESOCKETFUNCTION, &Connection::onSocketToClose);
        set(CURLOPT_CLOSESOCKETDATA, this);
        set(CURLOPT_NOPROGRESS, 0L);
        set(CURLOPT_XFERINFOFUNCTION, &Connection::onProgress);
        set(CURLOPT_XFERINFODATA, this);
    }

    /// Any other count than the one given ends the request.
    static std::size_t onBody(char* bytes, std::size_t size, std::size_t count, void* connection) {
        QByteArray& body = static_cast<Connection*>(connection)->body_;
        const auto length = static_cast<qsizetype>(size * count);
        if (length > kMaximumBodySize - body.size())
            return 0;
        body.append(bytes, length);
        return size * count;
    }

    /// Told each line of the headers, interim answers', redirects' and trailers included.
    static std::size_t onHeader(char* bytes, std::size_t size, std::size_t count, void* connection) {
        const QByteArrayView line(bytes, static_cast<qsizetype>(size * count));
        bool& areComplete = static_cast<Connection*>(connection)->headersAreComplete_;
        if (line.startsWith("HTTP/"))
            areComplete = false;
        else if (line == "\r\n" || line == "\n")
            areComplete = true;
        return size * count;
    }

    static int onSocketOpened(void* connection, curl_socket_t socket, curlsocktype) {
        static_cast<Connection*>(connection)->sockets_.insert(socket);
        return CURL_SOCKOPT_OK;
    }

    static int onSocketToClose(void* connection, curl_socket_t socket) {
        static_cast<Connection*>(connection)->sockets_.erase(socket);
        return ::close(socket);
    }

    /// Called at least once a second; anything but 0 ends the request.
    static int onProgress(void* connection, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
        return static_cast<Connection*>(connection)->isIdle() ? 1 : 0;
    }

    /// The system's own account of the sockets: libcurl's low-speed limits see no header, and take a slow
    /// answer for a silent one.
    bool isIdle() const {
        const auto sinceStart = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start_);
        return !sockets_.empty() && sinceStart >= idleTimeout_ &&
               std::all_of(sockets_.begin(), sockets_.end(),
                           [this](curl_socket_t socket) { return silence(socket) >= idleTimeout_; });
    }

    /// How long nothing has been sent or received; nothing for a socket that is not connected yet, which has
    /// a time-out of its own.
    static std::chrono::milliseconds silence(curl_socket_t socket) {
        tcp_info info{};
        socklen_t size = sizeof info;
        if (getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size) != 0 ||
            info.tcpi_state != TCP_ESTABLISHED)
            return {};
        return std::chrono::milliseconds(std::min(info.tcpi_last_data_recv, info.tcpi_last_data_sent));
    }

    CURL* handle_ = nullptr;
    const SList connectTo_;
    const std::chrono::seconds idleTimeout_;
    std::set<curl_socket_t> sockets_;
    Clock::time_point start_;
    bool headersAreComplete_ = false;
    QByteArray body_;
};

URLLoader::URLLoader(const Transport& transport)
    : connection_(std::make_unique<Connection>(transport)) {}

URLLoader::~URLLoader() = default;

bool URLLoader::isValidURL(const QString& text) {
    QStringView rest = text;
    if (const auto fragment = splitOff(rest, u'#'); fragment && !holdsOnly(*fragment, u":@/?"))
        return false;
    if (const auto query = splitOff(rest, u'?'); query && !holdsOnly(*query, u":@/?"))
        return false;
    const qsizetype colon = rest.indexOf(u':');
    if (colon < 0 || !isScheme(rest.first(colon)) ||
        rest.sliced(colon, std::min<qsizetype>(3, rest.size() - colon)) != u"://")
        return false;
    const QStringView hierarchy = rest.sliced(colon + 3);
    const qsizetype slash = hierarchy.indexOf(u'/');
    const QStringView authority = slash < 0 ? hierarchy : hierarchy.first(slash);
    const QStringView path = slash < 0 ? QStringView() : hierarchy.sliced(slash);
    return isAuthority(authority) && holdsOnly(path, u":@/");
}

URLResponse URLLoader::get(const QString& url) {
    if (!isValidURL(url) || !url.startsWith(kScheme, Qt::CaseInsensitive))
        return {};
    return connection_->get(url);
}

} // namespace platform
