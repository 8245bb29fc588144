#pragma once

#include <pthread.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>

namespace test_support {

/// While it lives, no thread can be started that doesn't name its stack's size: the system has no room for
/// what it would get without.
class ThreadShortage {
public:
    ThreadShortage() {
        pthread_getattr_default_np(&usual_);
        pthread_attr_t excessive;
        pthread_getattr_default_np(&excessive);
        pthread_attr_setstacksize(&excessive, kMoreThanThereIs);
        const int failure = pthread_setattr_default_np(&excessive);
        pthread_attr_destroy(&excessive);
        if (failure != 0)
            throw std::runtime_error("threads can't be made scarce");
    }
    ~ThreadShortage() {
        pthread_setattr_default_np(&usual_);
        pthread_attr_destroy(&usual_);
    }
    ThreadShortage(const ThreadShortage&) = delete;
    ThreadShortage& operator=(const ThreadShortage&) = delete;

private:
    /// A process has at most so many addresses.
    static constexpr std::size_t kMoreThanThereIs = std::size_t{1} << 47;
    static_assert(sizeof(std::size_t) == sizeof(std::uint64_t));
    pthread_attr_t usual_{};
};

} // namespace test_support
