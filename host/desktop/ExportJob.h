#pragma once

#include "host/core/APIManager.h"
#include "host/core/ExportJournal.h"

#include <memory>
#include <vector>

namespace host::desktop {

/// Where the application finds what an export needs.
struct ExportSetting {
    QString bundlePath;
    QString journalFolder;
    /// In place of the desktop's; alerts and observer are the application's own.
    std::shared_ptr<hostapi::CredentialStore> credentialStore;
    std::shared_ptr<hostapi::DefaultsStore> defaultsStore;
};

/// What the user wants exported.
struct ExportJob {
    std::vector<RecordedImage> images; ///< Of a new export; source, name and project.
    /// Of the export that is to be gone on with: its remaining images, or none, to have the uploaded ones
    /// processed.
    std::unique_ptr<ExportJournal> journal;
    bool confirmationOnly = false;

    /// How many images the plug-in gets.
    std::size_t imageCount() const {
        if (!journal)
            return images.size();
        return confirmationOnly ? 0 : journal->record().remaining().size();
    }
};

} // namespace host::desktop
