#include "plugin/RecordListModel.h"

#include "hostapi/SettingsPanel.h"

namespace {

QVariant textOrNothing(const Record& record, const QString& key) {
    const auto text = record.text(key);
    return text ? QVariant(*text) : QVariant();
}

QVariant categoriesOf(const Record& event) {
    if (!event.categories)
        return {};
    QVariantList categories;
    categories.reserve(static_cast<qsizetype>(event.categories->size()));
    for (const auto& category : *event.categories)
        categories.append(QVariantMap{{kIdKey, textOrNothing(*category, kIdKey)},
                                      {kNameKey, textOrNothing(*category, kNameKey)}});
    return categories;
}

} // namespace

void RecordListModel::setRecords(std::shared_ptr<const RecordList> records) {
    beginResetModel();
    records_ = std::move(records);
    endResetModel();
}

int RecordListModel::rowCount(const QModelIndex& parent) const {
    return records_ && !parent.isValid() ? static_cast<int>(records_->size()) : 0;
}

QVariant RecordListModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid())
        return {};
    const Record& record = *(*records_)[static_cast<std::size_t>(index.row())];
    switch (role) {
    case hostapi::panel::kItemNameRole:
    case Qt::EditRole: // An editable chooser takes its text from here.
        return textOrNothing(record, kNameKey);
    case hostapi::panel::kItemIdRole:
        return textOrNothing(record, kIdKey);
    case hostapi::panel::kItemCategoriesRole:
        return categoriesOf(record);
    default:
        return {};
    }
}
