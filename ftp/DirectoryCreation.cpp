#include "ftp/DirectoryCreation.h"

#include "ftp/FTPStreams.h"
#include "platform/RunLoop.h"

namespace {

const QString kUploadingMessage = QStringLiteral("Step 3 of 3: Uploading Images...");

const QString kNoPaths = QStringLiteral("No FTP Paths defined");
const QString kInternalError =
    QStringLiteral("An internal error has occurred. Please report this to Quillmark.");
const QString kCouldNotConnect = QStringLiteral("Could Not Connect to Your FTP Server.");

/// The FTP reply for a path that exists already, or can't be used (RFC 959, 4.2.2).
constexpr std::int32_t kReplyPathUnavailable = 550;

/// Whether a folder's stream waits until its completion method has ended.
enum class Completion { Waiting, NotWaiting };

void tearDown(DirectoryCreationInfo* info) {
    info->writeStream->unschedule(platform::RunLoop::current());
    info->writeStream->setClient(0, nullptr, nullptr);
    info->writeStream->close();
    info->writeStream.reset();
    freeStreamRecord(info);
}

void folderMade(DirectoryCreationInfo* info, Completion completion) {
    auto complete = [owner = info->owner, method = info->completionMethod] { (owner.get()->*method)(); };
    if (completion == Completion::Waiting)
        platform::RunLoop::main()->call(std::move(complete));
    else
        platform::RunLoop::main()->post(std::move(complete));
    tearDown(info);
}

void createHeadFolder(Quillmark& plugIn) {
    const std::optional<QString> folder = plugIn.ftpPaths->front();
    if (!folder) {
        ftp_streams::runCriticalAlert(plugIn, kNoPaths, kInternalError);
        plugIn._exportManager->shouldCancelExport();
        plugIn.environment->observer.folderChainEnded(false);
        return;
    }
    try {
        plugIn.createPath(*folder, &Quillmark::createdFTPDirectory);
    } catch (const InternalAssertionFailure&) {
        // The host or a run loop called: nothing is thrown across either.
        plugIn.environment->observer.folderChainEnded(false);
    }
}

} // namespace

void Quillmark::_createFTPPathsIfNeeded() {
    if (ftpPaths && !ftpPaths->empty()) {
        createHeadFolder(*this);
        return;
    }
    changeProgress([this](hostapi::ExportProgress& progress) {
        progress.currentValue = 0;
        progress.indeterminateProgress = false;
        progress.totalValue = static_cast<std::size_t>(totalBytes);
        progress.message = kUploadingMessage;
    });
    uploadStartTime = std::chrono::steady_clock::now();
    environment->observer.folderChainEnded(true);
    _uploadNextImage();
}

void Quillmark::createPath(const QString& path, CompletionMethod callback) {
    const std::optional<QString> url =
        _URLStringForServer(environment->configuration.ftpHost, path, QString(kFTPPort));
    // Each folder starts uncancelled: only a cancel made while a stream is open stops the chain.
    setShouldCancelFTPActivity(false);

    const auto stream = url ? ftp_streams::streamForURLText(*this, *url) : nullptr;
    if (!stream) {
        _endDirectoryCreationWithFailure(nullptr);
        environment->observer.folderChainEnded(false);
        return;
    }
    // Without a name the server may still let anybody in; without a password it may still know the name.
    const std::optional<QString> user = ftp_streams::userName(*this);
    if (user && !ftp_streams::setCredentials(*this, *stream, *user))
        _endDirectoryCreationWithFailure(nullptr);

    auto* const info = allocateStreamRecord<DirectoryCreationInfo>();
    info->writeStream = stream;
    info->owner = shared_from_this();
    info->completionMethod = callback;

    switch (ftp_streams::start(*stream, DirectoryCreationCallback, info)) {
    case ftp_streams::Start::Opened:
        break;
    case ftp_streams::Start::ClientRefused:
        freeStreamRecord(info);
        environment->observer.folderChainEnded(false);
        break;
    case ftp_streams::Start::OpenFailed:
        _endDirectoryCreationWithFailure(info);
        break;
    }
}

void DirectoryCreationCallback(platform::FTPWriteStream* stream, platform::StreamEvent event, void* info) {
    auto* const record = static_cast<DirectoryCreationInfo*>(info);
    const std::shared_ptr<Quillmark> owner = record->owner;
    if (Quillmark::shouldCancelFTPActivity()) {
        owner->_endDirectoryCreationWithFailure(record);
        return;
    }
    switch (event) {
    case platform::kStreamEventErrorOccurred:
        if (stream->error().error == kReplyPathUnavailable)
            folderMade(record, Completion::Waiting);
        else
            owner->_endDirectoryCreationWithFailure(record);
        break;
    case platform::kStreamEventEndEncountered:
        folderMade(record, Completion::NotWaiting);
        break;
    case platform::kStreamEventOpenCompleted:
    case platform::kStreamEventHasBytesAvailable:
    case platform::kStreamEventCanAcceptBytes:
        break;
    }
}

void Quillmark::_endDirectoryCreationWithFailure(DirectoryCreationInfo* info) {
    const std::shared_ptr<Quillmark> self = shared_from_this();
    if (!shouldCancelFTPActivity()) {
        // Without a record there is no error to read: it is none of the server's.
        const auto error = info ? info->writeStream->error() : platform::StreamError{};
        ftp_streams::runCriticalAlert(*this, kCouldNotConnect,
                                      _errorTextForDomain(error.domain, error.error));
    }
    if (!info)
        return;
    tearDown(info);
    environment->observer.folderChainEnded(false);
}

void Quillmark::createdFTPDirectory() {
    changeProgress([](hostapi::ExportProgress& progress) { progress.currentValue += 1; });
    ftpPaths->pop_front();
    _createFTPPathsIfNeeded();
}
