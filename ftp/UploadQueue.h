#pragma once

#include "platform/FTPWriteStream.h"
#include "plugin/Quillmark.h"

#include <QtCore/QByteArray>

#include <cstdint>
#include <memory>

/// The record of a stream that uploads one file; the stream's client info.
struct FileUploadInfo {
    std::shared_ptr<platform::FTPWriteStream> writeStream;
    std::shared_ptr<Quillmark> owner; ///< Keeps the plug-in object as long as the record lives.
    std::uint64_t bytesWritten = 0;   ///< Bytes of the file that the stream has taken.
    QByteArray fileData;              ///< The whole file.
};

/// The client callback of such a stream, on the run loop that it is scheduled on.
void UploadCallback(platform::FTPWriteStream* stream, platform::StreamEvent event, void* info);
