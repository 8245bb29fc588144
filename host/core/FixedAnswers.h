#pragma once

#include "hostapi/ApertureExportPlugIn.h"

#include <QtCore/QString>

#include <optional>

namespace host {

/// A plug-in's answers to the questions that every host asks while the export dialog is open.
struct FixedAnswers {
    bool allowsOnlyPlugInPresets = false;
    bool allowsMasterExport = false;
    bool allowsVersionExport = false;
    bool wantsFileNamingControls = false;
    bool wantsDestinationPathPrompt = false;
    QString destinationPath;
    std::optional<QString> defaultDirectory;
};

/// Asks all of them, each once, in the order in which the protocol names them. Main thread.
FixedAnswers askFixedQuestions(hostapi::ApertureExportPlugIn& plugIn);

/// Why a host can't serve that plug-in which offers neither original files, nor file names, nor folders to
/// choose from; none where the plug-in wants nothing of that. (Such a host has no presets of its own either,
/// and no prompt that could start anywhere.)
std::optional<QString> unmetWish(const FixedAnswers& answers);

} // namespace host
