#include "tests/ftp/StreamSpy.h"

#include "platform/FTPWriteStream.h"

#include <atomic>
#include <mutex>

// The wrapped functions by their names in the object files; a member function takes its object first.
#define QUILLMARK_SET_CLIENT(prefix)                                                                         \
    prefix##_ZN8platform14FTPWriteStream9setClientEjPFvPS0_NS_11StreamEventEPvEPKNS_19StreamClientContextE
#define QUILLMARK_SCHEDULE(prefix)                                                                           \
    prefix##_ZN8platform14FTPWriteStream8scheduleERKSt10shared_ptrINS_7RunLoopEE
#define QUILLMARK_UNSCHEDULE(prefix)                                                                         \
    prefix##_ZN8platform14FTPWriteStream10unscheduleERKSt10shared_ptrINS_7RunLoopEE
#define QUILLMARK_OPEN(prefix) prefix##_ZN8platform14FTPWriteStream4openEv
#define QUILLMARK_CLOSE(prefix) prefix##_ZN8platform14FTPWriteStream5closeEv

using platform::FTPWriteStream;

namespace {

std::mutex mutex;
QStringList noted;
std::atomic<bool> refusesClients{false};
std::atomic<std::size_t> failingSize{0};
std::atomic<bool> hasFailed{false};

void addNote(const QString& what) {
    const std::lock_guard lock(mutex);
    noted.append(what);
}

} // namespace

extern "C" {

void* __real_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size) {
    std::size_t expected = size;
    if (size != 0 && failingSize.compare_exchange_strong(expected, 0)) {
        hasFailed = true;
        return nullptr;
    }
    return __real_malloc(size);
}

bool QUILLMARK_SET_CLIENT(__real_)(FTPWriteStream* stream, unsigned mask, platform::StreamCallback callback,
                                   const platform::StreamClientContext* context);
bool QUILLMARK_SET_CLIENT(__wrap_)(FTPWriteStream* stream, unsigned mask, platform::StreamCallback callback,
                                   const platform::StreamClientContext* context) {
    addNote(callback ? QStringLiteral("setClient") : QStringLiteral("removeClient"));
    if (callback && refusesClients)
        return false;
    return QUILLMARK_SET_CLIENT(__real_)(stream, mask, callback, context);
}

void QUILLMARK_SCHEDULE(__real_)(FTPWriteStream* stream, const std::shared_ptr<platform::RunLoop>& loop);
void QUILLMARK_SCHEDULE(__wrap_)(FTPWriteStream* stream, const std::shared_ptr<platform::RunLoop>& loop) {
    addNote(QStringLiteral("schedule"));
    QUILLMARK_SCHEDULE(__real_)(stream, loop);
}

void QUILLMARK_UNSCHEDULE(__real_)(FTPWriteStream* stream, const std::shared_ptr<platform::RunLoop>& loop);
void QUILLMARK_UNSCHEDULE(__wrap_)(FTPWriteStream* stream, const std::shared_ptr<platform::RunLoop>& loop) {
    addNote(QStringLiteral("unschedule"));
    QUILLMARK_UNSCHEDULE(__real_)(stream, loop);
}

bool QUILLMARK_OPEN(__real_)(FTPWriteStream* stream);
bool QUILLMARK_OPEN(__wrap_)(FTPWriteStream* stream) {
    addNote(QStringLiteral("open"));
    return QUILLMARK_OPEN(__real_)(stream);
}

void QUILLMARK_CLOSE(__real_)(FTPWriteStream* stream);
void QUILLMARK_CLOSE(__wrap_)(FTPWriteStream* stream) {
    addNote(QStringLiteral("close"));
    QUILLMARK_CLOSE(__real_)(stream);
}

} // extern "C"

namespace ftp_tests {

StreamSpy::StreamSpy() {
    clear();
}

StreamSpy::~StreamSpy() {
    refusesClients = false;
    failingSize = 0;
}

QStringList StreamSpy::calls() const {
    const std::lock_guard lock(mutex);
    return noted;
}

void StreamSpy::note(const QString& what) {
    addNote(what);
}

void StreamSpy::clear() {
    const std::lock_guard lock(mutex);
    noted.clear();
}

void StreamSpy::refuseClients() {
    refusesClients = true;
}

void StreamSpy::failNextAllocation(std::size_t size) {
    hasFailed = false;
    failingSize = size;
}

bool StreamSpy::hasFailedAnAllocation() const {
    return hasFailed;
}

} // namespace ftp_tests
