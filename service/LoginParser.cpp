#include "service/LoginParser.h"

namespace {

/// The element of the service-issued password.
const QString kPasswordElement = QStringLiteral("Password");

} // namespace

const LoginParser::KeySet& LoginParser::initialize() {
    static const KeySet interestingKeys{kSuccessKey, kUserIdKey, kPasswordElement, kLoggedInNameKey,
                                        kAllowHighResUploadsKey};
    return interestingKeys;
}

LoginParser::LoginParser()
    : TextCollector(initialize()) {}

bool LoginParser::parseData(const QByteArray& data) {
    setLoginResult(std::make_shared<Record>());
    parse(data);
    return true;
}

void LoginParser::store(const QString& key, const QString& value) {
    loginResult()->setText(key == kPasswordElement ? kEncPasswordKey : key, value);
}
