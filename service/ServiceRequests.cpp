#include "service/ServiceRequests.h"

#include "platform/Secret.h"
#include "plugin/TextFormat.h"

namespace {

const QString kLoginRequest = QStringLiteral("https://%@/instantupload/login.php?user=%@&pwd=%@");
const QString kEventListRequest =
    QStringLiteral("https://%@/instantupload/eventlist.php?uid=%@&pwd=%@&obn=1");
const QString kCategoryListRequest =
    QStringLiteral("https://%@/instantupload/categorylist.php?uid=%@&pwd=%@&eid=%@");
const QString kFinishingRequest =
    QStringLiteral("https://%@/instantupload/processimages.php?uid=%@&pwd=%@&id=%@&pptid=%@");

constexpr int kAcceptedStatus = 200;

} // namespace

namespace service_requests {

QString login(const QString& webHost, const std::optional<QString>& user, const std::optional<QString>& pwd) {
    return formattedText(kLoginRequest, {webHost, user, pwd});
}

QString eventList(const QString& webHost, const std::optional<QString>& uid,
                  const std::optional<QString>& pwd) {
    return formattedText(kEventListRequest, {webHost, uid, pwd});
}

QString categoryList(const QString& webHost, const std::optional<QString>& uid,
                     const std::optional<QString>& pwd, const std::optional<QString>& eid) {
    return formattedText(kCategoryListRequest, {webHost, uid, pwd, eid});
}

QString finishing(const QString& webHost, const std::optional<QString>& uid,
                  const std::optional<QString>& pwd, const std::optional<QString>& id,
                  const std::optional<QString>& pptid) {
    return formattedText(kFinishingRequest, {webHost, uid, pwd, id, pptid});
}

} // namespace service_requests

std::optional<QByteArray> acceptedAnswer(platform::URLLoader& loader, QString urlText) {
    platform::URLResponse response = loader.get(urlText);
    platform::wipe(urlText);
    if (response.body.isEmpty() || response.statusCode != kAcceptedStatus) {
        platform::wipe(response.body);
        return std::nullopt;
    }
    return std::move(response.body);
}
