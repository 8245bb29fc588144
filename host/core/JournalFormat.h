#pragma once

#include "host/core/ExportRecord.h"

#include <QtCore/QByteArray>

#include <optional>

/// The lines of a journal, each one JSON object and a line end.
namespace host::journal_format {

/// The lines that begin a journal: the service, the choices, all images, and what was sent before.
QByteArray beginning(const ExportRecord& record);

QByteArray attemptBegan(const ExportChoices& choices, const std::vector<std::size_t>& images,
                        const QString& folder, const QByteArray& boot);
QByteArray imagePrepared(std::size_t image, const QString& path);
QByteArray imageCaptured(std::size_t image, const QDateTime& time);
QByteArray imageLeftOut(std::size_t image, const QString& reason);
QByteArray imageFailed(std::size_t image, const QString& reason);
QByteArray imageUploaded(std::size_t image);
QByteArray processingConfirmed();
QByteArray attemptEnded(const QString& reason);

/// Changes the record as the line, which follows the beginning, says. False where it says nothing sensible.
bool apply(const QByteArray& line, ExportRecord& record);

/// What a journal's first line tells: all but images, what was sent before and tries. None where it is no
/// journal of this version.
std::optional<ExportRecord> readFirstLine(const QByteArray& contents);

/// Reads a whole journal. What a power cut or a crash has left of a last line is passed over: `length` is
/// that of all before it. Without a value, and with `error`, where it is no journal, is damaged,
/// or was kept by another version. One that does not say to which service it belongs must not be gone on
/// with: the images would reach whatever service the plug-in knows now.
std::optional<ExportRecord> read(const QByteArray& contents, qint64& length, QString& error);

} // namespace host::journal_format
