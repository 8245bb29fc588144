#include "tests/support/Waiting.h"

#include <QtTest/QTest>

namespace test_support {

bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds deadline) {
    return QTest::qWaitFor(condition, static_cast<int>(deadline.count()));
}

void runLoopFor(std::chrono::milliseconds duration) {
    QTest::qWait(static_cast<int>(duration.count()));
}

} // namespace test_support
