// A pass over many events: its connection, its time, and the panel meanwhile.

#include "tests/service/ServiceTest.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QEventLoop>
#include <QtCore/QTimer>

#include <algorithm>

using namespace service_tests;
using test_support::WebAnswer;
using test_support::WebRequest;
using namespace std::chrono_literals;

namespace {

constexpr int kEvents = 200;
constexpr auto kServiceDelay = 50ms;
constexpr auto kHeartbeat = 5ms;
constexpr qint64 kLongestPass = 60'000;
// What a person takes for at once, on a machine that has nothing else to do. Builds for finding faults run
// everything several times slower.
#ifdef NDEBUG
constexpr qint64 kLongestSilence = 50;
#else
constexpr qint64 kLongestSilence = 250;
#endif

class Pass : public ServiceTest {};

} // namespace

TEST_F(Pass, TwoHundredEventsTakeHardlyMoreThanTheServicesOwnTime) {
    const auto delayed = [](const QByteArray& body) {
        WebAnswer answer = WebAnswer::ok(body);
        answer.delay = kServiceDelay;
        return answer;
    };
    answer(kEventListPage, delayed(eventListAnswer(kEvents)));
    answer(kCategoryListPage, delayed("<x><Category id='1'><Name>Ceremony</Name></Category></x>"));

    logIn();
    std::vector<qint64> beats;
    QEventLoop loop;
    QTimer heartbeat;
    QElapsedTimer pass;
    QElapsedTimer sinceBeat;
    QObject::connect(&heartbeat, &QTimer::timeout, [&] {
        beats.push_back(sinceBeat.restart());
        if (!plugIn->threadLaunched() || pass.hasExpired(kLongestPass))
            loop.quit();
    });
    pass.start();
    sinceBeat.start();
    heartbeat.start(kHeartbeat);
    loop.exec();
    const auto elapsed = std::chrono::milliseconds(pass.elapsed());

    EXPECT_EQ(server.requestLines().size(), 1 + 1 + kEvents);
    EXPECT_EQ(server.connectionCount(), 2);
    EXPECT_EQ(server.largestConcurrency(), 1);
    EXPECT_LT(elapsed, kServiceDelay * (kEvents + 1) * 115 / 100);
    ASSERT_GT(beats.size(), 1000U);
    std::sort(beats.begin(), beats.end());
    EXPECT_LT(beats[beats.size() * 999 / 1000], kLongestSilence)
        << "milliseconds between two beats, 99.9th percentile";
}
