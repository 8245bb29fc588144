#include "host/desktop/PhotographModel.h"

#include <algorithm>
#include <numeric>

namespace host::desktop {

namespace {

constexpr qint64 kNanosecondsInAMillisecond = 1'000'000;

QString stateText(Photograph::State state) {
    return state == Photograph::State::Unreadable ? PhotographModel::tr("cannot be read") : QString();
}

QString description(const Photograph& photograph) {
    QStringList parts{photograph.name};
    if (!photograph.project.isEmpty())
        parts << PhotographModel::tr("project %1").arg(photograph.project);
    if (const QString state = stateText(photograph.state); !state.isEmpty())
        parts << state;
    return parts.join(QStringLiteral(", "));
}

/// Of a file that does not tell, the time of its last change is the nearest there is.
QDateTime timeOf(const Photograph& photograph) {
    return photograph.captured.isValid()
               ? photograph.captured
               : QDateTime::fromMSecsSinceEpoch(photograph.version.modified / kNanosecondsInAMillisecond);
}

bool isBefore(SortOrder order, const Photograph& a, const Photograph& b) {
    if (order == SortOrder::CaptureTime && timeOf(a) != timeOf(b))
        return timeOf(a) < timeOf(b);
    if (order == SortOrder::Type && a.type != b.type)
        return a.type < b.type;
    const int byName = a.nameKey.compare(b.nameKey);
    return byName != 0 ? byName < 0 : a.path < b.path;
}

} // namespace

int PhotographModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(photographs_.size());
}

QVariant PhotographModel::data(const QModelIndex& index, int role) const {
    if (!checkIndex(index, CheckIndexOption::IndexIsValid))
        return {};
    const Photograph& shown = photograph(index.row());
    switch (role) {
    case Qt::DisplayRole:
        return shown.name;
    case Qt::DecorationRole:
        return thumbnail_(shown.path);
    case Qt::ToolTipRole:
        // As it stands, whatever the file's name looks like.
        return QStringLiteral("<span>%1</span>").arg(description(shown).toHtmlEscaped());
    case Qt::AccessibleTextRole:
        return description(shown);
    case StateRole:
        return QVariant::fromValue(static_cast<int>(shown.state));
    case ProjectRole:
        return shown.project;
    default:
        return {};
    }
}

std::vector<QByteArray> PhotographModel::paths() const {
    std::vector<QByteArray> paths;
    paths.reserve(photographs_.size());
    for (const Photograph& photograph : photographs_)
        paths.push_back(photograph.path);
    return paths;
}

std::vector<SeenFile> PhotographModel::files() const {
    std::vector<SeenFile> files;
    files.reserve(photographs_.size());
    for (const Photograph& photograph : photographs_)
        files.push_back({photograph.path, photograph.version});
    return files;
}

void PhotographModel::add(std::vector<Photograph> photographs) {
    QHash<QByteArray, int> seen = rows_;
    std::erase_if(photographs, [&seen](const Photograph& photograph) {
        const qsizetype before = seen.size();
        seen.insert(photograph.path, 0);
        return seen.size() == before;
    });
    if (photographs.empty())
        return;
    for (Photograph& photograph : photographs)
        photograph.project = renamedProjects_.value(photograph.path, photograph.project);
    const int first = rowCount();
    beginInsertRows({}, first, first + static_cast<int>(photographs.size()) - 1);
    photographs_.insert(photographs_.end(), std::make_move_iterator(photographs.begin()),
                        std::make_move_iterator(photographs.end()));
    numberRows();
    endInsertRows();
    sortPhotographs();
}

void PhotographModel::clear() {
    beginResetModel();
    photographs_.clear();
    rows_.clear();
    endResetModel();
}

void PhotographModel::setSortOrder(SortOrder order) {
    if (order == order_)
        return;
    order_ = order;
    sortPhotographs();
}

void PhotographModel::sortPhotographs() {
    std::vector<int> formerRows(photographs_.size());
    std::iota(formerRows.begin(), formerRows.end(), 0);
    std::sort(formerRows.begin(), formerRows.end(),
              [this](int a, int b) { return isBefore(order_, photograph(a), photograph(b)); });
    if (std::is_sorted(formerRows.begin(), formerRows.end()))
        return;

    Q_EMIT layoutAboutToBeChanged({}, QAbstractItemModel::VerticalSortHint);
    const QModelIndexList before = persistentIndexList();
    std::vector<Photograph> sorted;
    sorted.reserve(photographs_.size());
    std::vector<int> newRows(photographs_.size());
    for (const int former : formerRows) {
        newRows[static_cast<std::size_t>(former)] = static_cast<int>(sorted.size());
        sorted.push_back(std::move(photographs_[static_cast<std::size_t>(former)]));
    }
    photographs_ = std::move(sorted);
    numberRows();
    QModelIndexList after;
    for (const QModelIndex& persistent : before)
        after << index(newRows[static_cast<std::size_t>(persistent.row())]);
    changePersistentIndexList(before, after);
    Q_EMIT layoutChanged({}, QAbstractItemModel::VerticalSortHint);
}

void PhotographModel::numberRows() {
    rows_.clear();
    rows_.reserve(static_cast<qsizetype>(photographs_.size()));
    for (int row = 0; row < rowCount(); ++row)
        rows_.insert(photograph(row).path, row);
}

void PhotographModel::setProject(const QModelIndexList& indexes, const QString& project) {
    for (const QModelIndex& renamed : indexes) {
        Photograph& photograph = photographs_[static_cast<std::size_t>(renamed.row())];
        photograph.project = project;
        renamedProjects_.insert(photograph.path, project);
        Q_EMIT dataChanged(renamed, renamed, {ProjectRole, Qt::ToolTipRole, Qt::AccessibleTextRole});
    }
}

void PhotographModel::setState(const QByteArray& path, Photograph::State state) {
    const int row = rowOf(path);
    if (row < 0 || photograph(row).state == state)
        return;
    photographs_[static_cast<std::size_t>(row)].state = state;
    changed(path, {StateRole, Qt::ToolTipRole, Qt::AccessibleTextRole});
}

void PhotographModel::setCaptureTimes(const std::vector<std::pair<QByteArray, QDateTime>>& times) {
    for (const auto& [path, time] : times) {
        if (const int row = rowOf(path); row >= 0)
            photographs_[static_cast<std::size_t>(row)].captured = time;
    }
    if (order_ == SortOrder::CaptureTime)
        sortPhotographs();
}

void PhotographModel::setChanged(const std::vector<SeenFile>& files) {
    std::vector<QByteArray> paths;
    for (const SeenFile& file : files) {
        const int row = rowOf(file.path);
        if (row < 0)
            continue;
        Photograph& changed = photographs_[static_cast<std::size_t>(row)];
        changed.version = file.version;
        changed.captured = {};
        changed.state = Photograph::State::Unknown;
        paths.push_back(file.path);
    }
    Q_EMIT filesChanged(paths);
    for (const QByteArray& path : paths)
        changed(path, {StateRole, Qt::DecorationRole, Qt::ToolTipRole, Qt::AccessibleTextRole});
    if (order_ == SortOrder::CaptureTime)
        sortPhotographs();
}

void PhotographModel::setThumbnails(std::function<QImage(const QByteArray&)> thumbnail) {
    thumbnail_ = std::move(thumbnail);
}

void PhotographModel::thumbnailChanged(const QByteArray& path) {
    changed(path, {Qt::DecorationRole});
}

void PhotographModel::changed(const QByteArray& path, const QList<int>& roles) {
    if (const int row = rowOf(path); row >= 0)
        Q_EMIT dataChanged(index(row), index(row), roles);
}

} // namespace host::desktop
