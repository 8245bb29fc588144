#include "ftp/UploadQueue.h"

#include "ftp/FTPStreams.h"
#include "ftp/UploadEstimate.h"
#include "platform/RunLoop.h"
#include "plugin/TextFormat.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <limits>

namespace {

const QString kFileURLFormat = QStringLiteral("%@%@");
const QString kReadingErrorFormat = QStringLiteral("There was an error reading %@.");
const QString kUploadingErrorFormat = QStringLiteral("There was an error uploading %@.");
const QString kUsernameError = QStringLiteral("There was an error with your username.");

/// Between the last file and the finishing request.
constexpr std::chrono::milliseconds kFinishingDelay{3000};

QString lastPathComponent(const QString& path) {
    return QFileInfo(path).fileName();
}

/// The file's contents; without a value where it can't be read whole or is empty. A transfer counts its bytes
/// in 32 bits: a longer file would be taken for complete too early, so it can't be read here.
std::optional<QByteArray> wholeFile(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.size() > std::numeric_limits<std::uint32_t>::max())
        return std::nullopt;
    try {
        QByteArray contents = file.readAll();
        if (contents.isEmpty() || file.error() != QFileDevice::NoError)
            return std::nullopt;
        return contents;
    } catch (const std::bad_alloc&) {
        return std::nullopt;
    }
}

/// The stream for the head file into its remote folder; empty where there can be none.
std::shared_ptr<platform::FTPWriteStream> streamForHeadFile(const Quillmark& plugIn) {
    const auto folderURL = plugIn._URLStringForServer(plugIn.environment->configuration.ftpHost,
                                                      plugIn.exportFTPFolders->first(), QString(kFTPPort));
    if (!folderURL)
        return nullptr;
    const QString fileName = lastPathComponent(plugIn.exportedImagePaths->first());
    return ftp_streams::streamForURLText(plugIn, formattedText(kFileURLFormat, {folderURL, fileName}));
}

void endQueueWithReadingError(Quillmark& plugIn) {
    const QString fileName = lastPathComponent(plugIn.exportedImagePaths->first());
    ftp_streams::runCriticalAlert(plugIn, formattedText(kReadingErrorFormat, {fileName}),
                                  ftp_streams::noInformativeText());
    plugIn._exportManager->shouldCancelExport();
    plugIn.environment->observer.uploadEnded(false);
}

/// Tells the user what is missing, and the host to cancel; the upload is attempted all the same.
void prepareLogin(Quillmark& plugIn, platform::FTPWriteStream& stream) {
    if (const auto user = ftp_streams::userName(plugIn)) {
        if (ftp_streams::setCredentials(plugIn, stream, *user))
            return;
    } else {
        ftp_streams::runCriticalAlert(plugIn, kUsernameError, ftp_streams::noInformativeText());
    }
    plugIn._exportManager->shouldCancelExport();
}

void tearDownUploaded(FileUploadInfo* info) {
    info->writeStream->setClient(0, nullptr, nullptr);
    info->writeStream->close();
    info->writeStream->unschedule(platform::RunLoop::current());
    info->writeStream.reset();
    info->fileData.clear();
    info->owner.reset();
    freeStreamRecord(info);
}

void tearDownFailed(FileUploadInfo* info) {
    info->writeStream->unschedule(platform::RunLoop::current());
    info->writeStream->setClient(0, nullptr, nullptr);
    info->writeStream->close();
    info->writeStream.reset();
    info->owner.reset();
    info->fileData.clear();
    freeStreamRecord(info);
}

void startUploadOfHeadFile(Quillmark& plugIn) {
    std::optional<QByteArray> contents = wholeFile(plugIn.exportedImagePaths->first());
    const auto stream = contents ? streamForHeadFile(plugIn) : nullptr;
    if (!stream) {
        endQueueWithReadingError(plugIn);
        return;
    }
    prepareLogin(plugIn, *stream);

    auto* const info = allocateStreamRecord<FileUploadInfo>();
    info->writeStream = stream;
    info->owner = plugIn.shared_from_this();
    info->fileData = *std::move(contents);
    stream->setExpectedLength(static_cast<std::uint64_t>(info->fileData.size()));

    switch (ftp_streams::start(*stream, UploadCallback, info)) {
    case ftp_streams::Start::Opened:
        break;
    case ftp_streams::Start::ClientRefused:
        freeStreamRecord(info);
        plugIn.environment->observer.uploadEnded(false);
        break;
    case ftp_streams::Start::OpenFailed:
        tearDownFailed(info);
        endQueueWithReadingError(plugIn);
        break;
    }
}

/// Offers the rest of the file, or ends the transfer where there is none.
void offerRest(FileUploadInfo* info) {
    Quillmark& owner = *info->owner;
    const auto length = static_cast<std::uint32_t>(info->fileData.size());
    if (length == info->bytesWritten) {
        owner._finishCurrentUploadWithSuccess(true, info);
        return;
    }
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(info->fileData.constData());
    const std::int64_t taken =
        info->writeStream->write(bytes + info->bytesWritten, length - info->bytesWritten);
    if (taken <= 0) {
        owner._finishCurrentUploadWithSuccess(false, info);
        return;
    }
    info->bytesWritten += static_cast<std::uint64_t>(taken);
    owner._incrementUploadProgress(static_cast<std::int32_t>(taken));
}

} // namespace

void Quillmark::_uploadNextImage() {
    if (!exportedImagePaths || exportedImagePaths->isEmpty()) {
        environment->observer.uploadEnded(true);
        // Fires on this thread's run loop and keeps the object until then.
        QTimer::singleShot(kFinishingDelay, Qt::PreciseTimer,
                           [self = shared_from_this()] { self->_startFinishThread(); });
        return;
    }
    if (shouldCancelFTPActivity()) {
        _exportManager->shouldCancelExport();
        environment->observer.uploadEnded(false);
        return;
    }
    try {
        startUploadOfHeadFile(*this);
    } catch (const InternalAssertionFailure&) {
        // A run loop or the host called: nothing is thrown across either.
        environment->observer.uploadEnded(false);
    }
}

void UploadCallback(platform::FTPWriteStream*, platform::StreamEvent event, void* info) {
    auto* const record = static_cast<FileUploadInfo*>(info);
    const std::shared_ptr<Quillmark> owner = record->owner;
    if (Quillmark::shouldCancelFTPActivity()) {
        owner->_finishCurrentUploadWithSuccess(false, record);
        return;
    }
    switch (event) {
    case platform::kStreamEventOpenCompleted:
        record->bytesWritten = 0;
        break;
    case platform::kStreamEventCanAcceptBytes:
        offerRest(record);
        break;
    case platform::kStreamEventErrorOccurred:
    case platform::kStreamEventEndEncountered:
        owner->_finishCurrentUploadWithSuccess(false, record);
        break;
    case platform::kStreamEventHasBytesAvailable:
        break;
    }
}

void Quillmark::_finishCurrentUploadWithSuccess(bool success, FileUploadInfo* fileUploadInfo) {
    const std::shared_ptr<Quillmark> self = shared_from_this();
    if (success) {
        tearDownUploaded(fileUploadInfo);
        numUploaded = upload_estimate::wrappedSum(numUploaded, 1);
        const QString uploaded = exportedImagePaths->first();
        QFile::remove(uploaded);
        exportedImagePaths->removeFirst();
        exportFTPFolders->removeFirst();
        environment->observer.imageUploaded(uploaded);
        _uploadNextImage();
        return;
    }
    if (!shouldCancelFTPActivity()) {
        const platform::StreamError error = fileUploadInfo->writeStream->error();
        const QString fileName = lastPathComponent(exportedImagePaths->first());
        ftp_streams::runCriticalAlert(*this, formattedText(kUploadingErrorFormat, {fileName}),
                                      _errorTextForDomain(error.domain, error.error));
        exportManagerShouldCancelExport();
    }
    tearDownFailed(fileUploadInfo);
    environment->observer.uploadEnded(false);
}
