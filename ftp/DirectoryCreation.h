#pragma once

#include "platform/FTPWriteStream.h"
#include "plugin/Quillmark.h"

#include <cstdint>
#include <memory>

/// The record of a stream that makes one remote folder; the stream's client info.
struct DirectoryCreationInfo {
    std::shared_ptr<platform::FTPWriteStream> writeStream;
    std::shared_ptr<Quillmark> owner; ///< Keeps the plug-in object as long as the record lives.
    Quillmark::CompletionMethod completionMethod =
        nullptr; ///< Runs on the main thread when the folder exists.
    std::uint64_t reserved = 0;
    void* context = nullptr;
};

/// The client callback of such a stream, on the run loop that it is scheduled on.
void DirectoryCreationCallback(platform::FTPWriteStream* stream, platform::StreamEvent event, void* info);
