#include "tests/support/FreedMemory.h"

#include <malloc.h>

#include <array>
#include <atomic>
#include <cstring>

#if defined(__has_feature)
#define QUILLMARK_HAS_FEATURE(feature) __has_feature(feature)
#else
#define QUILLMARK_HAS_FEATURE(feature) 0
#endif

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) ||                                         \
    QUILLMARK_HAS_FEATURE(address_sanitizer) || QUILLMARK_HAS_FEATURE(thread_sanitizer)
#define QUILLMARK_HAS_FREE_HOOKS 1
// The sanitizers' interface, for which g++ has no header.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*)(const volatile void*, std::size_t),
                                                         void (*)(const volatile void*));
extern "C" std::size_t __sanitizer_get_allocated_size(const volatile void* block);
#endif

namespace test_support {

namespace {

constexpr std::size_t kLongest = 64;

// No allocation here: this is told of each.
std::array<char, kLongest> g_bytes;
std::array<char16_t, kLongest> g_units;
std::size_t g_length = 0;
std::atomic<bool> g_isLooking{false};
std::atomic<int> g_findings{0};

/// What `memmem` does; but that is checked by the sanitizers, who keep notes of their own at the start of
/// arrays.
__attribute__((no_sanitize("address", "thread"))) bool holds(const void* block, std::size_t size,
                                                             const void* wanted, std::size_t length) {
    const auto* const bytes = static_cast<const char*>(block);
    const auto* const wantedBytes = static_cast<const char*>(wanted);
    for (std::size_t start = 0; start + length <= size; ++start) {
        std::size_t equal = 0;
        while (equal < length && bytes[start + equal] == wantedBytes[equal])
            ++equal;
        if (equal == length)
            return true;
    }
    return false;
}

void look(const void* block, std::size_t size) {
    if (holds(block, size, g_bytes.data(), g_length) ||
        holds(block, size, g_units.data(), g_length * sizeof(char16_t)))
        ++g_findings;
}

} // namespace

} // namespace test_support

#ifdef QUILLMARK_HAS_FREE_HOOKS

namespace {

void onAllocated(const volatile void*, std::size_t) {}

void onFree(const volatile void* block) {
    if (block && test_support::g_isLooking)
        test_support::look(const_cast<const void*>(block), __sanitizer_get_allocated_size(block));
}

void installHooks() {
    [[maybe_unused]] static const int installed =
        __sanitizer_install_malloc_and_free_hooks(&onAllocated, &onFree);
}

} // namespace

#else

extern "C" void __libc_free(void* block);

/// Stands before the C library's own in the whole program.
extern "C" __attribute__((visibility("default"))) void free(void* block) noexcept {
    if (block && test_support::g_isLooking)
        test_support::look(block, malloc_usable_size(block));
    __libc_free(block);
}

namespace {
void installHooks() {}
} // namespace

#endif

namespace test_support {

FreedMemory::FreedMemory(const char* secret) {
    g_length = std::strlen(secret);
    for (std::size_t i = 0; i < g_length; ++i) {
        g_bytes.at(i) = secret[i];
        g_units.at(i) = static_cast<char16_t>(secret[i]);
    }
    g_findings = 0;
    installHooks();
    g_isLooking = true;
}

FreedMemory::~FreedMemory() {
    g_isLooking = false;
}

int FreedMemory::findings() const {
    return g_findings;
}

} // namespace test_support
