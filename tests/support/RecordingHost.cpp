#include "tests/support/RecordingHost.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QUuid>

namespace test_support {

namespace {

bool sameAttributes(const hostapi::InternetPassword& a, const hostapi::InternetPassword& b) {
    return a.server == b.server && a.account == b.account && a.path == b.path && a.port == b.port &&
           a.protocol == b.protocol && a.authenticationType == b.authenticationType;
}

struct MemoryItem : hostapi::CredentialItem {
    std::shared_ptr<MemoryCredentials::Entry> entry;
};

} // namespace

hostapi::CredentialStatus
MemoryCredentials::findInternetPassword(const hostapi::InternetPassword& attributes, QByteArray* password,
                                        std::shared_ptr<hostapi::CredentialItem>* item) {
    const std::lock_guard lock(mutex);
    if (failFind != hostapi::kCredentialSuccess)
        return failFind;
    for (const auto& entry : entries) {
        if (!sameAttributes(entry->attributes, attributes))
            continue;
        if (password)
            *password = entry->password;
        if (item) {
            auto found = std::make_shared<MemoryItem>();
            found->entry = entry;
            *item = found;
        }
        return hostapi::kCredentialSuccess;
    }
    return hostapi::kCredentialItemNotFound;
}

hostapi::CredentialStatus
MemoryCredentials::addInternetPassword(const hostapi::InternetPassword& attributes,
                                       const QByteArray& password,
                                       std::shared_ptr<hostapi::CredentialItem>* item) {
    const std::lock_guard lock(mutex);
    if (failAdd != hostapi::kCredentialSuccess)
        return failAdd;
    for (const auto& entry : entries) {
        if (sameAttributes(entry->attributes, attributes))
            return hostapi::kCredentialDuplicateItem;
    }
    entries.push_back(std::make_shared<Entry>(Entry{attributes, password}));
    if (item) {
        auto added = std::make_shared<MemoryItem>();
        added->entry = entries.back();
        *item = added;
    }
    return hostapi::kCredentialSuccess;
}

hostapi::CredentialStatus MemoryCredentials::modifyItem(hostapi::CredentialItem& item,
                                                        const QByteArray& account,
                                                        const QByteArray& password) {
    const std::lock_guard lock(mutex);
    if (failModify != hostapi::kCredentialSuccess)
        return failModify;
    auto& entry = *dynamic_cast<MemoryItem&>(item).entry;
    entry.attributes.account = account;
    entry.password = password;
    return hostapi::kCredentialSuccess;
}

QString MemoryCredentials::messageForStatus(hostapi::CredentialStatus status) {
    return QStringLiteral("status %1 of the credentials in memory").arg(status);
}

class RecordingHost::ExportManager final : public hostapi::ApertureExportManager {
public:
    explicit ExportManager(RecordingHost& host)
        : host_(host) {}
    std::shared_ptr<hostapi::PROAPIObject> apiForProtocol(QLatin1String protocol) override {
        return host_.apiForProtocol(protocol);
    }
    std::uint32_t imageCount() override { return host_.imageCount; }
    QVariantMap propertiesForImageAtIndex(std::uint32_t index) override {
        return index < host_.properties.size() ? host_.properties[index] : QVariantMap();
    }
    void shouldBeginExport() override { host_.record(QStringLiteral("shouldBeginExport")); }
    void shouldCancelExport() override { host_.record(QStringLiteral("shouldCancelExport")); }
    void shouldFinishExport() override { host_.record(QStringLiteral("shouldFinishExport")); }

private:
    RecordingHost& host_;
};

RecordingHost::RecordingHost() {
    useService({});
}

RecordingHost::~RecordingHost() {
    QFile::remove(configurationFile_);
}

QString RecordingHost::defaultBundlePath() {
    return QStringLiteral(QUILLMARK_BUNDLE_DIR);
}

std::shared_ptr<Quillmark> RecordingHost::makePlugIn(const QString& bundlePath, QString* error) {
    qputenv("QUILLMARK_SERVICE_CONFIG", QFile::encodeName(configurationFile_));
    return Quillmark::initWithAPIManager(this, bundlePath, error);
}

QString RecordingHost::useService(const QString& connectTo, const QString& caFile, const QString& ftpSecurity,
                                  int idleTimeout) {
    if (configurationFile_.isEmpty())
        configurationFile_ = QDir::tempPath() + QLatin1Char('/') +
                             QUuid::createUuid().toString(QUuid::WithoutBraces) + QStringLiteral(".ini");
    QFile file(configurationFile_);
    if (file.open(QIODevice::WriteOnly)) {
        QString text = QStringLiteral(
            "[service]\nwebHost=www.quillmark.example\nftpHost=ftp.quillmark.example\n[transport]\n");
        text += QStringLiteral("connectTo=\"%1\"\ncaFile=%2\nidleTimeout=%3\n")
                    .arg(connectTo, caFile)
                    .arg(idleTimeout);
        if (!ftpSecurity.isEmpty())
            text += QStringLiteral("ftpSecurity=%1\n").arg(ftpSecurity);
        file.write(text.toUtf8());
    }
    return configurationFile_;
}

std::vector<ShownAlert> RecordingHost::alerts() const {
    const std::lock_guard lock(mutex_);
    return alerts_;
}

QStringList RecordingHost::calls() const {
    const std::lock_guard lock(mutex_);
    return calls_;
}

int RecordingHost::count(const QString& call) const {
    return static_cast<int>(calls().count(call));
}

QVariantMap RecordingHost::defaults() const {
    const std::lock_guard lock(mutex_);
    return defaults_;
}

int RecordingHost::defaultsRead() const {
    const std::lock_guard lock(mutex_);
    return defaultsRead_;
}

std::shared_ptr<hostapi::PROAPIObject> RecordingHost::apiForProtocol(QLatin1String protocol) {
    if (protocol == hostapi::ApertureExportManager::kProtocol && offersExportManager)
        return std::make_shared<ExportManager>(*this);
    if (protocol == hostapi::HostServices::kProtocol && offersHostServices)
        return std::shared_ptr<hostapi::PROAPIObject>(std::shared_ptr<void>(),
                                                      static_cast<hostapi::HostServices*>(this));
    return nullptr;
}

void RecordingHost::runModal(const hostapi::Alert& alert) {
    recordAlert({alert, false, nullptr});
}
void RecordingHost::beginSheet(const hostapi::Alert& alert, QWidget* window) {
    recordAlert({alert, true, window});
}

QVariant RecordingHost::value(QLatin1String key) {
    const std::lock_guard lock(mutex_);
    ++defaultsRead_;
    return defaults_.value(key);
}

void RecordingHost::setValue(QLatin1String key, const QVariant& value) {
    const std::lock_guard lock(mutex_);
    defaults_.insert(key, value);
}

void RecordingHost::remove(QLatin1String key) {
    const std::lock_guard lock(mutex_);
    defaults_.remove(key);
}

void RecordingHost::imagePrepared(std::uint32_t index, const QString&) {
    record(QStringLiteral("imagePrepared %1").arg(index));
}
void RecordingHost::imageLeftOut(std::uint32_t index) {
    record(QStringLiteral("imageLeftOut %1").arg(index));
}
void RecordingHost::imageUploaded(const QString& path) {
    record(QStringLiteral("imageUploaded ") + QFileInfo(path).fileName());
}
void RecordingHost::listsCouldNotBeLoaded() {
    record(QStringLiteral("listsCouldNotBeLoaded"));
}
void RecordingHost::folderChainEnded(bool complete) {
    record(QStringLiteral("folderChainEnded %1").arg(int(complete)));
}
void RecordingHost::uploadEnded(bool complete) {
    record(QStringLiteral("uploadEnded %1").arg(int(complete)));
}
void RecordingHost::finishingRequestUnanswered() {
    record(QStringLiteral("finishingRequestUnanswered"));
}

void RecordingHost::record(const QString& call) {
    {
        const std::lock_guard lock(mutex_);
        calls_.append(call);
    }
    if (onCall)
        onCall(call);
}

void RecordingHost::recordAlert(const ShownAlert& shown) {
    {
        const std::lock_guard lock(mutex_);
        alerts_.push_back(shown);
    }
    record((shown.isSheet ? QStringLiteral("sheet ") : QStringLiteral("alert ")) + shown.alert.message);
    if (onAlert)
        onAlert(shown);
}

} // namespace test_support
