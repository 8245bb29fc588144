#include "host/desktop/LightTable.h"

#include "host/desktop/PhotographFiles.h"

#include <QtCore/QMimeData>
#include <QtGui/QDropEvent>
#include <QtGui/QKeyEvent>
#include <QtGui/QPainter>
#include <QtWidgets/QScrollBar>

#include <algorithm>
#include <array>

namespace host::desktop {

namespace {

constexpr int kThreads = 2;
constexpr qsizetype kCacheBytes = qsizetype{128} * 1024 * 1024;
constexpr int kUsualSide = 160;
constexpr int kEmptyTextMargin = 24;

/// The sizes that pictures are loaded in, in device pixels: moving the slider a little loads nothing anew.
constexpr std::array kLoadedSides{96, 128, 192, 256, 384, 512, 800};

int loadedSide(double needed) {
    const auto found =
        std::find_if(kLoadedSides.begin(), kLoadedSides.end(), [needed](int side) { return side >= needed; });
    return found == kLoadedSides.end() ? kLoadedSides.back() : *found;
}

std::vector<QByteArray> pathsOf(const QMimeData& data) {
    std::vector<QByteArray> paths;
    for (const QUrl& url : data.urls()) {
        if (const auto path = pathOf(url))
            paths.push_back(*path);
    }
    return paths;
}

} // namespace

LightTable::LightTable(PhotographModel& model, QWidget* parent)
    : QListView(parent)
    , model_(model)
    , loader_(kThreads, kCacheBytes) {
    setAccessibleName(tr("Light table"));
    setModel(&model);
    setItemDelegate(&delegate_);
    setViewMode(IconMode);
    setMovement(Static);
    setResizeMode(Adjust);
    setUniformItemSizes(true);
    setSelectionMode(ExtendedSelection);
    setVerticalScrollMode(ScrollPerPixel);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setTabKeyNavigation(false);
    // Static movement has turned it off for the viewport.
    viewport()->setAcceptDrops(true);

    model.setThumbnails([this](const QByteArray& path) { return loader_.picture(path); });
    connect(&loader_, &PictureLoader::loaded, this, [this](const QByteArray& path, bool readable) {
        model_.setState(path, readable ? Photograph::State::Readable : Photograph::State::Unreadable);
        model_.thumbnailChanged(path);
    });
    loadTimer_.setSingleShot(true);
    loadTimer_.setInterval(0);
    connect(&loadTimer_, &QTimer::timeout, this, &LightTable::loadVisible);
    const auto loadSoon = [this] { loadTimer_.start(); };
    connect(&model, &QAbstractItemModel::rowsInserted, this, loadSoon);
    connect(&model, &QAbstractItemModel::modelReset, this, [this] { loader_.forgetAll(); });
    connect(&model, &QAbstractItemModel::layoutChanged, this, loadSoon);
    connect(&model, &PhotographModel::filesChanged, this, [this](const std::vector<QByteArray>& paths) {
        loader_.forget(paths);
        loadTimer_.start();
    });
    connect(this, &QListView::doubleClicked, this, &LightTable::previewRequested);
    setThumbnailSide(kUsualSide);
}

void LightTable::setThumbnailSide(int side) {
    delegate_.setThumbnailSide(std::clamp(side, kSmallestSide, kLargestSide));
    updateCells();
}

void LightTable::updateCells() {
    const QModelIndex kept = currentIndex();
    setGridSize(delegate_.cellSize(fontMetrics()));
    verticalScrollBar()->setSingleStep(gridSize().height() / 3);
    if (kept.isValid())
        scrollTo(kept);
    loadTimer_.start();
}

int LightTable::firstRowNotAbove(int y) const {
    int first = 0;
    int count = model_.rowCount();
    while (count > 0) {
        const int half = count / 2;
        if (visualRect(model_.index(first + half)).bottom() < y) {
            first += half + 1;
            count -= half + 1;
        } else {
            count = half;
        }
    }
    return first;
}

std::pair<int, int> LightTable::visibleRows() const {
    // A cell ends one pixel above the next one.
    const int cellHeight = std::max(gridSize().height(), 1);
    return {firstRowNotAbove(0), firstRowNotAbove(viewport()->height() + cellHeight - 1) - 1};
}

void LightTable::loadVisible() {
    const auto [first, last] = visibleRows();
    const int ahead = last + (last - first + 1);
    std::vector<QByteArray> wanted;
    for (int row = first; row <= std::min(ahead, model_.rowCount() - 1); ++row)
        wanted.push_back(model_.photograph(row).path);
    loader_.want(wanted, loadedSide(thumbnailSide() * devicePixelRatioF()));
}

void LightTable::retryFailures() {
    loader_.forgetFailures();
    loadTimer_.start();
}

void LightTable::keyPressEvent(QKeyEvent* event) {
    const bool isOpening =
        event->key() == Qt::Key_Space || event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
    if (isOpening && event->modifiers() == Qt::NoModifier && currentIndex().isValid()) {
        Q_EMIT previewRequested(currentIndex());
        return;
    }
    QListView::keyPressEvent(event);
}

void LightTable::resizeEvent(QResizeEvent* event) {
    QListView::resizeEvent(event);
    loadTimer_.start();
}

void LightTable::scrollContentsBy(int dx, int dy) {
    QListView::scrollContentsBy(dx, dy);
    loadTimer_.start();
}

void LightTable::changeEvent(QEvent* event) {
    QListView::changeEvent(event);
    if (event->type() == QEvent::FontChange || event->type() == QEvent::StyleChange)
        updateCells();
}

void LightTable::dragEnterEvent(QDragEnterEvent* event) {
    if (!pathsOf(*event->mimeData()).empty())
        event->acceptProposedAction();
}

void LightTable::dragMoveEvent(QDragMoveEvent* event) {
    event->acceptProposedAction();
}

void LightTable::dropEvent(QDropEvent* event) {
    // Never a move: a file manager would take the user's files away.
    event->setDropAction(Qt::CopyAction);
    event->accept();
    Q_EMIT dropped(pathsOf(*event->mimeData()));
}

void LightTable::paintEvent(QPaintEvent* event) {
    QListView::paintEvent(event);
    if (model_.rowCount() > 0)
        return;
    QPainter painter(viewport());
    painter.setPen(palette().color(QPalette::PlaceholderText));
    const QRect area = viewport()->rect().adjusted(kEmptyTextMargin, 0, -kEmptyTextMargin, 0);
    painter.drawText(area, Qt::AlignCenter | Qt::TextWordWrap, emptyText_);
}

void LightTable::setEmptyText(const QString& text) {
    emptyText_ = text;
    viewport()->update();
}

} // namespace host::desktop
