#pragma once

#include <mutex>
#include <utility>

/// A value that any thread may get and set as a whole: a getter never sees half of it.
template <typename Value>
class AtomicProperty {
public:
    AtomicProperty() = default;
    explicit AtomicProperty(Value value)
        : value_(std::move(value)) {}

    Value get() const {
        const std::lock_guard lock(mutex_);
        return value_;
    }

    void set(Value value) {
        {
            const std::lock_guard lock(mutex_);
            std::swap(value_, value);
        }
        // The old value ends here, outside of the lock: its destructor may take its time.
    }

private:
    mutable std::mutex mutex_;
    Value value_{};
};
