#pragma once

#include "hostapi/PROAPIObject.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtCore/QVariant>

#include <cstdint>
#include <memory>
#include <optional>

class QWidget;

namespace hostapi {

enum class AlertStyle { Warning, Informational, Critical };

/// What an alert says; plain text, with the single button "OK".
struct Alert {
    AlertStyle style = AlertStyle::Warning;
    QString message;
    std::optional<QString> informativeText;
};

/// Shows alerts in place of the desktop.
class Q_DECL_EXPORT AlertPresenter {
public:
    virtual ~AlertPresenter() = default;
    /// Shows an application-modal alert and returns when it has been answered. Any thread.
    virtual void runModal(const Alert& alert) = 0;
    /// Shows an alert as a sheet of `window` (which may be null) and returns at once. Main thread.
    virtual void beginSheet(const Alert& alert, QWidget* window) = 0;
};

/// The attributes of an internet password. All texts are UTF-8 bytes.
struct InternetPassword {
    QByteArray server;
    QByteArray account;
    QByteArray path;
    std::uint16_t port = 0;
    std::uint32_t protocol = 0;           ///< Four-character code.
    std::uint32_t authenticationType = 0; ///< Four-character code.
};

/// A password item that a lookup found or an addition made.
class Q_DECL_EXPORT CredentialItem {
public:
    virtual ~CredentialItem() = default;
};

/// A status of 0 is success; see `messageForStatus` for the others.
using CredentialStatus = std::int32_t;
inline constexpr CredentialStatus kCredentialSuccess = 0;
inline constexpr CredentialStatus kCredentialDuplicateItem = -25299;
inline constexpr CredentialStatus kCredentialItemNotFound = -25300;

/// Keeps passwords in place of the desktop's keyring. Any thread.
class Q_DECL_EXPORT CredentialStore {
public:
    virtual ~CredentialStore() = default;
    /// Finds the item whose attributes all equal; fills what is not null.
    virtual CredentialStatus findInternetPassword(const InternetPassword& attributes, QByteArray* password,
                                                  std::shared_ptr<CredentialItem>* item) = 0;
    /// Adds an item; `kCredentialDuplicateItem` where one with equal attributes exists.
    virtual CredentialStatus addInternetPassword(const InternetPassword& attributes,
                                                 const QByteArray& password,
                                                 std::shared_ptr<CredentialItem>* item) = 0;
    /// Sets account and password of an item.
    virtual CredentialStatus modifyItem(CredentialItem& item, const QByteArray& account,
                                        const QByteArray& password) = 0;
    virtual QString messageForStatus(CredentialStatus status) = 0;
};

/// Keeps user defaults in place of the desktop's settings. Any thread.
class Q_DECL_EXPORT DefaultsStore {
public:
    virtual ~DefaultsStore() = default;
    /// An invalid variant where nothing is stored.
    virtual QVariant value(QLatin1String key) = 0;
    virtual void setValue(QLatin1String key, const QVariant& value) = 0;
    virtual void remove(QLatin1String key) = 0;
};

/// Is told what the plug-in otherwise keeps silent about. Calls come on the thread where it happens
/// and must return at once; nothing that an observer does changes what the plug-in does.
class Q_DECL_EXPORT ExportObserver {
public:
    virtual ~ExportObserver() = default;
    /// The image was written to `path`, to be uploaded.
    virtual void imagePrepared(std::uint32_t index, const QString& path) = 0;
    /// The image could not be decoded and is left out of the export.
    virtual void imageLeftOut(std::uint32_t index) = 0;
    /// The server has confirmed the file, and `path` is deleted.
    virtual void imageUploaded(const QString& path) = 0;
    virtual void listsCouldNotBeLoaded() = 0;
    /// No further folder is made: all were (`complete`), or the chain broke off.
    virtual void folderChainEnded(bool complete) = 0;
    /// No further file is uploaded: all were (`complete`), or the queue broke off.
    virtual void uploadEnded(bool complete) = 0;
    virtual void finishingRequestUnanswered() = 0;
};

/// What a host may give the plug-in; **optional**, asked for by name once, at construction. A null
/// pointer stands for the desktop's own. The objects must outlive the plug-in.
class Q_DECL_EXPORT HostServices : public PROAPIObject {
public:
    static constexpr QLatin1String kProtocol{"HostServices"};
    virtual AlertPresenter* alertPresenter() = 0;
    virtual CredentialStore* credentialStore() = 0;
    virtual DefaultsStore* defaultsStore() = 0;
    virtual ExportObserver* observer() = 0;
};

} // namespace hostapi
