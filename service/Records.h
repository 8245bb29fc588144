#pragma once

#include <QtCore/QHash>
#include <QtCore/QString>

#include <memory>
#include <optional>
#include <vector>

class Record;
using RecordList = std::vector<std::shared_ptr<Record>>;

/// A dictionary from text to text: a login result, an event, a pricing template or a category.
///
/// Records are shared by reference, and like their lists not guarded: the thread that builds one
/// hands it over whole.
class Record {
public:
    /// Without a value where the key is absent.
    std::optional<QString> text(const QString& key) const {
        const auto found = texts_.constFind(key);
        return found == texts_.cend() ? std::nullopt : std::optional<QString>(*found);
    }
    void setText(const QString& key, const QString& value) { texts_.insert(key, value); }
    void removeText(const QString& key) { texts_.remove(key); }
    const QHash<QString, QString>& texts() const { return texts_; }

    /// An event's categories; empty for other records and where they could not be loaded.
    std::shared_ptr<RecordList> categories;

private:
    QHash<QString, QString> texts_;
};

// Keys of the records.
inline const QString kIdKey = QStringLiteral("id");
inline const QString kNameKey = QStringLiteral("Name");
inline const QString kUsernameKey = QStringLiteral("username");
inline const QString kPasswordKey = QStringLiteral("password");
inline const QString kSuccessKey = QStringLiteral("Success");
inline const QString kUserIdKey = QStringLiteral("UserId");
inline const QString kEncPasswordKey = QStringLiteral("EncPassword");
inline const QString kLoggedInNameKey = QStringLiteral("LoggedInName");
inline const QString kAllowHighResUploadsKey = QStringLiteral("AllowHighResUploads");
