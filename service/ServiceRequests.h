#pragma once

#include "platform/URLLoader.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <optional>

/// URL texts of the four requests to the service's web host. Values are inserted verbatim, an absent one
/// as "(null)".
namespace service_requests {

QString login(const QString& webHost, const std::optional<QString>& user, const std::optional<QString>& pwd);
QString eventList(const QString& webHost, const std::optional<QString>& uid,
                  const std::optional<QString>& pwd);
QString categoryList(const QString& webHost, const std::optional<QString>& uid,
                     const std::optional<QString>& pwd, const std::optional<QString>& eid);
QString finishing(const QString& webHost, const std::optional<QString>& uid,
                  const std::optional<QString>& pwd, const std::optional<QString>& id,
                  const std::optional<QString>& pptid);

} // namespace service_requests

/// Sends a request and waits. The body of an accepted answer: non-empty, with status exactly 200. The
/// text, which holds a password, is wiped.
std::optional<QByteArray> acceptedAnswer(platform::URLLoader& loader, QString urlText);
