#pragma once

#include "service/Records.h"

#include <QtCore/QAbstractListModel>

#include <memory>

/// The items of a chooser: a list of records in list order, each shown by its "Name". The roles are those of
/// hostapi/SettingsPanel.h. Main thread.
class RecordListModel final : public QAbstractListModel {
    Q_OBJECT

public:
    using QAbstractListModel::QAbstractListModel;

    /// Shows other records; an absent list has no items. The records must not change any more.
    void setRecords(std::shared_ptr<const RecordList> records);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;

private:
    std::shared_ptr<const RecordList> records_;
};
