// A pass over many events: its connection, its time, and the panel meanwhile.

#include "tests/service/ServiceTest.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QEventLoop>
#include <QtCore/QTimer>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <numeric>
#include <thread>

using namespace service_tests;
using test_support::WebAnswer;
using test_support::WebRequest;
using namespace std::chrono_literals;

namespace {

constexpr int kEvents = 200;
constexpr auto kServiceDelay = 50ms;
constexpr auto kHeartbeat = 5ms;
constexpr qint64 kLongestPass = 60'000;
/// What a person takes for at once.
constexpr qint64 kLongestSilence = 50;

class Pass : public ServiceTest {
protected:
    /// Answers after the service's delay, and adds up how long that really was.
    void answerLate(const QByteArray& page, const QByteArray& body) {
        answer(page, [this, body](const WebRequest&) {
            const auto start = std::chrono::steady_clock::now();
            std::this_thread::sleep_for(kServiceDelay);
            serviceTime_ += std::chrono::nanoseconds(std::chrono::steady_clock::now() - start).count();
            return WebAnswer::ok(body);
        });
    }

    /// Loads the lists; the milliseconds from each beat of the main thread's loop to the next.
    std::vector<qint64> beatsOfAPass() {
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
        passTime_ = std::chrono::milliseconds(pass.elapsed());
        return beats;
    }

    std::atomic<std::int64_t> serviceTime_{0}; ///< In nanoseconds.
    std::chrono::milliseconds passTime_{};
};

} // namespace

TEST_F(Pass, TwoHundredEventsTakeHardlyMoreThanTheServicesOwnTime) {
    answerLate(kEventListPage, eventListAnswer(kEvents));
    answerLate(kCategoryListPage, "<x><Category id='1'><Name>Ceremony</Name></Category></x>");
    logIn();
    std::vector<qint64> beats = beatsOfAPass();

    EXPECT_EQ(server.requestLines().size(), 1 + 1 + kEvents);
    EXPECT_EQ(server.connectionCount(), 2);
    EXPECT_EQ(server.largestConcurrency(), 1);
    EXPECT_LT(passTime_, std::chrono::nanoseconds(serviceTime_ * 115 / 100));
    // A main thread that waited for the service would be silent all the time.
    const auto silence = std::accumulate(beats.begin(), beats.end(), qint64{0}, [](qint64 sum, qint64 beat) {
        return beat < kLongestSilence ? sum : sum + beat;
    });
    EXPECT_LT(silence, passTime_.count() / 5) << "milliseconds without a beat in time";
#ifdef NDEBUG
    // Builds for finding faults, and machines that have something else to do, are slower than people's.
    EXPECT_LT(passTime_, kServiceDelay * (kEvents + 1) * 115 / 100);
    ASSERT_GT(beats.size(), 1000U);
    std::sort(beats.begin(), beats.end());
    EXPECT_LT(beats[beats.size() * 999 / 1000], kLongestSilence)
        << "milliseconds between two beats, 99.9th percentile";
#endif
}
