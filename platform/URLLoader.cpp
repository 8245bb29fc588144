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
#include <utility>

namespace platform {

namespace {

constexpr QLatin1String kScheme{"https://"};
constexpr std::chrono::minutes kWholeRequestTimeout{5};
/// As many as a desktop's loader follows before it gives up.
constexpr long kMaximumRedirects = 16;
/// libcurl lets us look around at least once a second.
constexpr std::chrono::seconds kLongestPauseOfLooks{2};

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
        start_ = lastLook_ = Clock::now();
        headersAreComplete_ = false;
        QByteArray text = url.toLatin1();
        set(CURLOPT_URL, text.constData());
        wipe(text);
        const CURLcode result = curl_easy_perform(handle_);
        set(CURLOPT_URL, static_cast<const char*>(nullptr));
        QByteArray body;
        body.swap(body_);
        // libcurl takes headers that break off for an answer without a body.
        if (result != CURLE_OK || !headersAreComplete_) {
            wipe(body);
            return {};
        }
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
        // Signals would hit the host's threads; libcurl's own writes raise no SIGPIPE.
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

    /// Any other count than the one given ends the request. libcurl's size is always 1.
    static std::size_t onBody(char* bytes, std::size_t, std::size_t count, void* connection) {
        QByteArray& body = static_cast<Connection*>(connection)->body_;
        const auto length = static_cast<qsizetype>(count);
        if (length > kMaximumBodySize - body.size())
            return 0;
        appendSecret(body, QByteArrayView(bytes, length));
        return count;
    }

    /// Told each line of the headers, interim answers', redirects' and trailers included.
    static std::size_t onHeader(char* bytes, std::size_t, std::size_t count, void* connection) {
        const QByteArrayView line(bytes, static_cast<qsizetype>(count));
        bool& areComplete = static_cast<Connection*>(connection)->headersAreComplete_;
        if (line.startsWith("HTTP/"))
            areComplete = false;
        else if (line == "\r\n" || line == "\n")
            areComplete = true;
        return count;
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
    bool isIdle() {
        const auto now = Clock::now();
        // A process that was suspended counts anew: it has not seen yet what has come meanwhile.
        if (now - std::exchange(lastLook_, now) > kLongestPauseOfLooks)
            start_ = now;
        const auto sinceStart = std::chrono::duration_cast<std::chrono::milliseconds>(now - start_);
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
    Clock::time_point start_; ///< From when on silence counts.
    Clock::time_point lastLook_;
    bool headersAreComplete_ = false;
    QByteArray body_;
};

URLLoader::URLLoader(const Transport& transport)
    : connection_(std::make_unique<Connection>(transport)) {}

URLLoader::~URLLoader() = default;

URLResponse URLLoader::get(const QString& url) {
    if (!isValidURL(url) || !url.startsWith(kScheme, Qt::CaseInsensitive))
        return {};
    return connection_->get(url);
}

} // namespace platform
