#pragma once

#include <QtCore/QString>

namespace test_support {

/// Looks, as long as it lives, at each block of memory that any thread gives back, for a secret that should
/// have been wiped by then: in UTF-16 and in UTF-8. One at a time.
class FreedMemory {
public:
    /// `secret` has at most 64 characters, all of ASCII.
    explicit FreedMemory(const char* secret);
    ~FreedMemory();
    FreedMemory(const FreedMemory&) = delete;
    FreedMemory& operator=(const FreedMemory&) = delete;

    /// How many blocks held the secret when they were given back.
    int findings() const;
};

} // namespace test_support
