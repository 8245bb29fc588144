#pragma once

#include "plugin/AtomicProperty.h"
#include "service/Records.h"
#include "service/TextCollector.h"

/// Reads the answer to a login. Nesting is not looked at.
class LoginParser final : private TextCollector {
public:
    LoginParser();

    /// Replaces the result by that of a new answer. Always true: a broken answer has fewer entries.
    bool parseData(const QByteArray& data);

    /// "Success", "UserId", "EncPassword", "LoggedInName", "AllowHighResUploads": those that occurred.
    std::shared_ptr<Record> loginResult() const { return loginResult_.get(); }
    void setLoginResult(std::shared_ptr<Record> result) { loginResult_.set(std::move(result)); }

private:
    /// The elements that are collected.
    static const KeySet& initialize();
    void store(const QString& key, const QString& value) override;

    AtomicProperty<std::shared_ptr<Record>> loginResult_;
};
