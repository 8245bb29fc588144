// Makes system calls of the process that it is preloaded into fail the way a sick machine makes them fail.
// Told by variables of the environment:
//   FAULT_BELOW           the folder that the faults of files are about
//   FAULT_ROOM            bytes that still can be written below it; then the disk is full
//   FAULT_READ_ONLY_WHEN  once this file exists, nothing below the folder can be made, changed or removed
//   FAULT_CLOCK_WHEN      once this file exists, the wall clock is an hour behind

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#define EXPORTED extern "C" __attribute__((visibility("default")))

namespace {

constexpr time_t kHour = 3600;

template <typename Function>
Function next(Function, const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}
#define NEXT(name) (next(&::name, #name))

/// Asked of the kernel itself: nothing here may come back to this library.
bool exists(const char* variable) {
    const char* const path = getenv(variable);
    return path && syscall(SYS_faccessat, AT_FDCWD, path, F_OK) == 0;
}

bool isBelow(const char* path) {
    const char* const folder = getenv("FAULT_BELOW");
    return folder && path && std::strncmp(path, folder, std::strlen(folder)) == 0;
}

bool isBelow(int descriptor) {
    std::array<char, 64> link{};
    std::array<char, PATH_MAX> path{};
    std::snprintf(link.data(), link.size(), "/proc/self/fd/%d", descriptor);
    return syscall(SYS_readlinkat, AT_FDCWD, link.data(), path.data(), path.size() - 1) > 0 &&
           isBelow(path.data());
}

bool isBelow(int folder, const char* path) {
    return path && path[0] != '/' && folder != AT_FDCWD ? isBelow(folder) : isBelow(path);
}

bool isReadOnly(bool concerned) {
    if (!concerned || !exists("FAULT_READ_ONLY_WHEN"))
        return false;
    errno = EROFS;
    return true;
}

bool changes(int flags) {
    return (flags & (O_WRONLY | O_RDWR | O_CREAT | O_TRUNC)) != 0;
}

/// How many of the bytes there is room for; -1 where there is none and the disk is full.
ssize_t roomFor(int descriptor, std::size_t count) {
    static std::atomic<ssize_t> room{getenv("FAULT_ROOM") ? std::atol(getenv("FAULT_ROOM")) : -1};
    if (!getenv("FAULT_ROOM") || count == 0 || !isBelow(descriptor))
        return static_cast<ssize_t>(count);
    const ssize_t left = std::max<ssize_t>(room.fetch_sub(static_cast<ssize_t>(count)), 0);
    if (left == 0)
        errno = ENOSPC;
    return left == 0 ? -1 : std::min(left, static_cast<ssize_t>(count));
}

time_t setBack() {
    return exists("FAULT_CLOCK_WHEN") ? kHour : 0;
}

} // namespace

EXPORTED ssize_t write(int descriptor, const void* bytes, std::size_t count) {
    const ssize_t room = roomFor(descriptor, count);
    return room < 0 ? -1 : NEXT(write)(descriptor, bytes, static_cast<std::size_t>(room));
}

#define PWRITE(name)                                                                                         \
    EXPORTED ssize_t name(int descriptor, const void* bytes, std::size_t count, off_t offset) {              \
        const ssize_t room = roomFor(descriptor, count);                                                     \
        return room < 0 ? -1 : NEXT(name)(descriptor, bytes, static_cast<std::size_t>(room), offset);        \
    }
PWRITE(pwrite)
PWRITE(pwrite64)

#define OPEN(name)                                                                                           \
    EXPORTED int name(const char* path, int flags, ...) {                                                    \
        va_list rest;                                                                                        \
        va_start(rest, flags);                                                                               \
        const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(rest, mode_t) : 0;                 \
        va_end(rest);                                                                                        \
        return isReadOnly(changes(flags) && isBelow(path)) ? -1 : NEXT(name)(path, flags, mode);             \
    }
OPEN(open)
OPEN(open64)

#define OPENAT(name)                                                                                         \
    EXPORTED int name(int folder, const char* path, int flags, ...) {                                        \
        va_list rest;                                                                                        \
        va_start(rest, flags);                                                                               \
        const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(rest, mode_t) : 0;                 \
        va_end(rest);                                                                                        \
        return isReadOnly(changes(flags) && isBelow(folder, path)) ? -1                                      \
                                                                   : NEXT(name)(folder, path, flags, mode);  \
    }
OPENAT(openat)
OPENAT(openat64)

EXPORTED int unlink(const char* path) noexcept {
    return isReadOnly(isBelow(path)) ? -1 : NEXT(unlink)(path);
}

EXPORTED int unlinkat(int folder, const char* path, int flags) noexcept {
    return isReadOnly(isBelow(folder, path)) ? -1 : NEXT(unlinkat)(folder, path, flags);
}

EXPORTED int remove(const char* path) noexcept {
    return isReadOnly(isBelow(path)) ? -1 : NEXT(remove)(path);
}

EXPORTED int mkdir(const char* path, mode_t mode) noexcept {
    return isReadOnly(isBelow(path)) ? -1 : NEXT(mkdir)(path, mode);
}

EXPORTED int clock_gettime(clockid_t clock, timespec* time) noexcept {
    const auto result = static_cast<int>(syscall(SYS_clock_gettime, clock, time));
    if (result == 0 && clock == CLOCK_REALTIME)
        time->tv_sec -= setBack();
    return result;
}

EXPORTED int gettimeofday(timeval* __restrict time, void* __restrict zone) noexcept {
    const auto result = static_cast<int>(syscall(SYS_gettimeofday, time, zone));
    if (result == 0)
        time->tv_sec -= setBack();
    return result;
}

EXPORTED time_t time(time_t* result) noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    if (result)
        *result = now.tv_sec;
    return now.tv_sec;
}
