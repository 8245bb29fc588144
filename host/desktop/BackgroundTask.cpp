#include "host/desktop/BackgroundTask.h"

#include "platform/RunLoop.h"
#include "platform/Thread.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QTimer>

namespace host::desktop {

using namespace std::chrono_literals;

void runInBackground(const std::string& name, const std::function<void()>& body) {
    constexpr auto kPause = 1s;
    if (!platform::Thread::start(name, body))
        QTimer::singleShot(kPause, QCoreApplication::instance(),
                           [name, body] { runInBackground(name, body); });
}

void runBeside(const std::string& name, std::function<void()> work, std::function<void()> then) {
    const auto body = [work = std::move(work), then = std::move(then)] {
        work();
        platform::RunLoop::main()->post(then);
    };
    if (!platform::Thread::start(name, body))
        body();
}

} // namespace host::desktop
