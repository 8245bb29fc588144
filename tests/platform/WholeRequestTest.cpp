// A request that is busy for too long ends, on a clock that runs six hundred times as fast: five minutes take
// half a second.

#include "platform/URLLoader.h"
#include "tests/support/ScriptedWebServer.h"

#include <gtest/gtest.h>

#include <curl/curl.h>

#include <chrono>
#include <cstdarg>

using platform::URLLoader;
using test_support::WebAnswer;
using test_support::WebRequest;
using namespace std::chrono_literals;

namespace {

constexpr long kSpeed = 600;
constexpr auto kLimit = 500ms;
/// libcurl counts in whole milliseconds, from the one in which it begins.
constexpr auto kRounding = 2ms;

} // namespace

extern "C" CURLcode __real_curl_easy_setopt(CURL* handle, CURLoption option, ...);

/// The linker puts this in the place of the library's. All that is ever set has a pointer's size.
extern "C" CURLcode __wrap_curl_easy_setopt(CURL* handle, int optionNumber, ...) {
    const auto option = static_cast<CURLoption>(optionNumber);
    va_list arguments;
    va_start(arguments, optionNumber);
    void* const value = va_arg(arguments, void*);
    va_end(arguments);
    if (option == CURLOPT_TIMEOUT_MS)
        return __real_curl_easy_setopt(handle, option, reinterpret_cast<long>(value) / kSpeed);
    return __real_curl_easy_setopt(handle, option, value);
}

TEST(WholeRequest, EndsAfterFiveMinutesHoweverBusyItIs) {
    const QString host = QStringLiteral("www.quillmark.example");
    test_support::TestCertificates authority;
    test_support::ScriptedWebServer server(authority.issue({host}));
    platform::Transport transport;
    transport.connectTo = server.connectTo(host);
    transport.caFile = authority.caFile();
    URLLoader loader(transport);
    const auto answerTo = [&](const WebAnswer& answer) {
        server.setScript([answer](const WebRequest&) { return answer; });
        return loader.get(QStringLiteral("https://www.quillmark.example/"));
    };
    EXPECT_EQ(answerTo(WebAnswer::ok("quick")).body, "quick");

    WebAnswer busy = WebAnswer::ok(QByteArray(1000, 'x'));
    busy.bytePause = 20ms;
    const auto start = std::chrono::steady_clock::now();
    const auto response = answerTo(busy);
    const auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(response.statusCode, 0);
    EXPECT_TRUE(response.body.isEmpty());
    EXPECT_GE(elapsed, kLimit - kRounding);
    EXPECT_LT(elapsed, 20 * kLimit) << "the whole answer takes longer still";
}
