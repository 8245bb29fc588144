#pragma once

#include "platform/Secret.h"

#include <QtCore/QHash>
#include <QtCore/QString>

#include <memory>
#include <optional>
#include <vector>

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

class Record;
using RecordList = std::vector<std::shared_ptr<Record>>;

/// A dictionary from text to text: a login result, an event, a pricing template or a category.
///
/// Records are shared by reference, and like their lists not guarded: the thread that builds one
/// hands it over whole, and from then on nobody changes it.
///
/// A record holds copies of its own of the two passwords, and wipes them when they leave it.
class Record {
public:
    Record() = default;
    Record(const Record& other)
        : categories(other.categories)
        , texts_(other.texts_) {
        for (const QString& key : {kPasswordKey, kEncPasswordKey}) {
            if (const auto secret = other.text(key))
                texts_.insert(key, ownCopy(*secret));
        }
    }
    Record& operator=(const Record&) = delete;
    ~Record() {
        removeText(kPasswordKey);
        removeText(kEncPasswordKey);
    }

    /// Without a value where the key is absent.
    std::optional<QString> text(const QString& key) const {
        const auto found = texts_.constFind(key);
        return found == texts_.cend() ? std::nullopt : std::optional<QString>(*found);
    }
    void setText(const QString& key, const QString& value) {
        removeText(key);
        texts_.insert(key, isSecret(key) ? ownCopy(value) : value);
    }
    void removeText(const QString& key) {
        QString removed = texts_.take(key);
        // A reader of a shared text keeps it.
        if (isSecret(key))
            platform::wipeUnlessShared(removed);
    }
    const QHash<QString, QString>& texts() const { return texts_; }

    /// An event's categories; empty for other records and where they could not be loaded.
    std::shared_ptr<RecordList> categories;

private:
    static bool isSecret(const QString& key) { return key == kPasswordKey || key == kEncPasswordKey; }
    static QString ownCopy(const QString& text) { return QString(text.constData(), text.size()); }

    QHash<QString, QString> texts_;
};

/// What a record that may be missing holds: nothing, where it is.
inline std::optional<QString> textOf(const std::shared_ptr<Record>& record, const QString& key) {
    return record ? record->text(key) : std::nullopt;
}
