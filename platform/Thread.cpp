#include "platform/Thread.h"

#include <pthread.h>

#include <atomic>
#include <system_error>
#include <thread>

namespace platform {

struct Thread::State {
    std::atomic<bool> running{true};
};

Thread::Thread(std::shared_ptr<State> state)
    : state_(std::move(state)) {}

std::shared_ptr<Thread> Thread::start(const std::string& name, std::function<void()> body) {
    auto state = std::make_shared<State>();
    auto run = [state, name, body = std::move(body)]() mutable {
        pthread_setname_np(pthread_self(), name.substr(0, 15).c_str());
        body();
        body = nullptr;
        state->running = false;
    };
    try {
        std::thread(std::move(run)).detach();
    } catch (const std::system_error&) {
        return nullptr;
    }
    return std::shared_ptr<Thread>(new Thread(std::move(state)));
}

bool Thread::isRunning() const {
    return state_->running;
}

} // namespace platform
