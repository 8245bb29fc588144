#pragma once

#include "hostapi/ApertureExportManager.h"
#include "hostapi/HostServices.h"
#include "plugin/Quillmark.h"

#include <QtCore/QStringList>

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace test_support {

/// An alert that the plug-in showed.
struct ShownAlert {
    hostapi::Alert alert;
    bool isSheet = false;
    QWidget* window = nullptr; ///< What a sheet was attached to; never looked into.
};

/// Credentials in memory, with a status to answer at will.
class MemoryCredentials : public hostapi::CredentialStore {
public:
    hostapi::CredentialStatus findInternetPassword(const hostapi::InternetPassword& attributes,
                                                   QByteArray* password,
                                                   std::shared_ptr<hostapi::CredentialItem>* item) override;
    hostapi::CredentialStatus addInternetPassword(const hostapi::InternetPassword& attributes,
                                                  const QByteArray& password,
                                                  std::shared_ptr<hostapi::CredentialItem>* item) override;
    hostapi::CredentialStatus modifyItem(hostapi::CredentialItem& item, const QByteArray& account,
                                         const QByteArray& password) override;
    QString messageForStatus(hostapi::CredentialStatus status) override;

    struct Entry {
        hostapi::InternetPassword attributes;
        QByteArray password;
    };
    std::vector<std::shared_ptr<Entry>> entries;
    hostapi::CredentialStatus failAdd =
        hostapi::kCredentialSuccess; ///< Unless success: what additions answer.
    hostapi::CredentialStatus failModify = hostapi::kCredentialSuccess; ///< Likewise for modifications.
    hostapi::CredentialStatus failFind = hostapi::kCredentialSuccess;   ///< Likewise for lookups.
    std::recursive_mutex mutex;
};

/// The plug-in's host: answers from what a test puts in, and records everything that it is told, in order.
class RecordingHost final : public hostapi::HostServices,
                            public hostapi::AlertPresenter,
                            public hostapi::DefaultsStore,
                            public hostapi::ExportObserver {
public:
    RecordingHost();
    ~RecordingHost() override;

    /// A plug-in of the built bundle (or of `bundlePath`) with the service that `useService` set.
    std::shared_ptr<Quillmark> makePlugIn(const QString& bundlePath = defaultBundlePath(),
                                          QString* error = nullptr);
    static QString defaultBundlePath();
    /// Writes the configuration that plug-ins made from now on read, and returns the file's path.
    QString useService(const QString& connectTo, const QString& caFile = {}, const QString& ftpSecurity = {},
                       int idleTimeout = 60);

    // What a test sets.
    std::uint32_t imageCount = 1;
    std::vector<QVariantMap> properties; ///< By image index.
    bool offersExportManager = true;
    bool usesDesktopAlerts = false;                 ///< Real alerts of the desktop in place of recorded ones.
    bool usesDesktopCredentials = false;            ///< The desktop's keyring in place of `credentials`.
    bool offersHostServices = true;                 ///< False: everything is the desktop's.
    std::function<void(const ShownAlert&)> onAlert; ///< Called inside each recorded alert, on its thread.
    std::function<void(const QString&)> onCall;     ///< Called with each entry of `calls`, on its thread.
    MemoryCredentials credentials;

    // What a test reads. Copies: entries may come from any thread.
    std::vector<ShownAlert> alerts() const;
    /// What happened, in order: "shouldBeginExport", "shouldCancelExport", "shouldFinishExport", "alert
    /// MESSAGE", "sheet MESSAGE", "imagePrepared N", "imageLeftOut N", "imageUploaded FILENAME",
    /// "listsCouldNotBeLoaded", "folderChainEnded 0|1", "uploadEnded 0|1", "finishingRequestUnanswered".
    QStringList calls() const;
    int count(const QString& call) const;
    QVariantMap defaults() const;
    /// How often the plug-in has read a default.
    int defaultsRead() const;

    // PROAPIObject
    std::shared_ptr<hostapi::PROAPIObject> apiForProtocol(QLatin1String protocol) override;
    // HostServices
    hostapi::AlertPresenter* alertPresenter() override { return usesDesktopAlerts ? nullptr : this; }
    hostapi::CredentialStore* credentialStore() override {
        return usesDesktopCredentials ? nullptr : &credentials;
    }
    hostapi::DefaultsStore* defaultsStore() override { return this; }
    hostapi::ExportObserver* observer() override { return this; }
    // AlertPresenter
    void runModal(const hostapi::Alert& alert) override;
    void beginSheet(const hostapi::Alert& alert, QWidget* window) override;
    // DefaultsStore
    QVariant value(QLatin1String key) override;
    void setValue(QLatin1String key, const QVariant& value) override;
    void remove(QLatin1String key) override;
    // ExportObserver
    void imagePrepared(std::uint32_t index, const QString& path) override;
    void imageLeftOut(std::uint32_t index) override;
    void imageUploaded(const QString& path) override;
    void listsCouldNotBeLoaded() override;
    void folderChainEnded(bool complete) override;
    void uploadEnded(bool complete) override;
    void finishingRequestUnanswered() override;

private:
    class ExportManager;
    void record(const QString& call);
    void recordAlert(const ShownAlert& shown);

    mutable std::mutex mutex_;
    std::vector<ShownAlert> alerts_;
    QStringList calls_;
    QVariantMap defaults_;
    int defaultsRead_ = 0;
    QString configurationFile_;
};

} // namespace test_support
