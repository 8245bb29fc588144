#pragma once

#include "host/desktop/PhotographFiles.h"

#include <QtCore/QAbstractListModel>
#include <QtCore/QHash>
#include <QtGui/QImage>

#include <functional>
#include <vector>

namespace host::desktop {

enum class SortOrder { Name, CaptureTime, Type };

/// The photographs on the light table, each file once, in the chosen order. Main thread.
class PhotographModel final : public QAbstractListModel {
    Q_OBJECT

public:
    enum Role { StateRole = Qt::UserRole, ProjectRole };

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;

    const Photograph& photograph(int row) const { return photographs_[static_cast<std::size_t>(row)]; }
    /// -1 where the file is not on the table.
    int rowOf(const QByteArray& path) const { return rows_.value(path, -1); }
    /// The paths of all photographs, in their order.
    std::vector<QByteArray> paths() const;

    /// The files of all photographs, as they were last looked at.
    std::vector<SeenFile> files() const;

    /// Files that are there already are passed over.
    void add(std::vector<Photograph> photographs);
    void clear();
    /// Keeps selections: persistent indexes follow their photographs.
    void setSortOrder(SortOrder order);
    SortOrder sortOrder() const { return order_; }

    /// Stays with the files, also when they leave the table and come back.
    void setProject(const QModelIndexList& indexes, const QString& project);
    void setState(const QByteArray& path, Photograph::State state);
    /// Sorts anew where that is the order.
    void setCaptureTimes(const std::vector<std::pair<QByteArray, QDateTime>>& times);

    /// The files have changed: nothing is known of their pictures any more.
    void setChanged(const std::vector<SeenFile>& files);

    /// Where the decorations come from; null images for what is not at hand.
    void setThumbnails(std::function<QImage(const QByteArray& path)> thumbnail);
    /// The thumbnail of `path` has changed.
    void thumbnailChanged(const QByteArray& path);

Q_SIGNALS:
    /// What was read from these files is out of date.
    void filesChanged(const std::vector<QByteArray>& paths);

private:
    void sortPhotographs();
    void numberRows();
    void changed(const QByteArray& path, const QList<int>& roles);

    std::vector<Photograph> photographs_;
    QHash<QByteArray, int> rows_;
    QHash<QByteArray, QString> renamedProjects_;
    SortOrder order_ = SortOrder::Name;
    std::function<QImage(const QByteArray&)> thumbnail_ = [](const QByteArray&) { return QImage(); };
};

} // namespace host::desktop
