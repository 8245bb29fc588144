#pragma once

#include "platform/FTPWriteStream.h"

#include <QtCore/QString>

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>

class Quillmark;

/// The events that every FTP stream's client asks for.
inline constexpr unsigned kSampleFTPNetworkEvents =
    platform::kStreamEventOpenCompleted | platform::kStreamEventHasBytesAvailable |
    platform::kStreamEventCanAcceptBytes | platform::kStreamEventErrorOccurred |
    platform::kStreamEventEndEncountered;
static_assert(kSampleFTPNetworkEvents == 31);

/// Governs nothing: an upload offers the whole rest of its file at each write.
inline constexpr std::size_t kSampleFTPBufferSize = 32768;

/// The port's text in every FTP URL.
inline constexpr QLatin1String kFTPPort{"21"};

/// The program itself has failed. Raised inside a stage and caught where the stage was entered from a run
/// loop or the host: nothing is ever thrown across those.
class InternalAssertionFailure : public std::logic_error {
public:
    using std::logic_error::logic_error;
};

/// What an `InternalAssertionFailure` says where no memory was left for a stream's record.
inline constexpr char kRanOutOfMemory[] = "Ran Out of Memory";

/// A stream's record in raw memory: no owner but the stream that is handed it as its client's info.
template <typename Record>
Record* allocateStreamRecord() {
    void* const memory = std::malloc(sizeof(Record));
    if (!memory)
        throw InternalAssertionFailure(kRanOutOfMemory);
    return new (memory) Record{};
}

/// Gives back what `allocateStreamRecord` made, and all references that the record still holds.
template <typename Record>
void freeStreamRecord(Record* record) {
    std::destroy_at(record);
    std::free(record);
}

namespace ftp_streams {

/// A stream for a URL text that is not yet escaped; empty where there can be none.
std::shared_ptr<platform::FTPWriteStream> streamForURLText(const Quillmark& plugIn, const QString& urlText);

/// The FTP user's name; without a value where it is absent or empty.
std::optional<QString> userName(const Quillmark& plugIn);

/// Gives the stream the user's name and the password that the keychain keeps for it. False where it keeps
/// none, and then the user has been told.
bool setCredentials(Quillmark& plugIn, platform::FTPWriteStream& stream, const QString& userName);

enum class Start {
    Opened,
    ClientRefused, ///< Nothing was scheduled or opened.
    OpenFailed,    ///< The stream is scheduled and has its client.
};

/// Installs the client, schedules the stream on the current run loop and opens it.
Start start(platform::FTPWriteStream& stream, platform::StreamCallback callback, void* record);

/// Shows an application-modal critical alert with the button "OK" and waits for the answer. Any thread.
void runCriticalAlert(const Quillmark& plugIn, const QString& message, const QString& informativeText);

/// The informative text of an alert that has nothing to add.
inline QString noInformativeText() {
    return QStringLiteral("");
}

} // namespace ftp_streams
