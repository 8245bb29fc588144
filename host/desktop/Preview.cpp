#include "host/desktop/Preview.h"

#include <QtGui/QKeyEvent>
#include <QtGui/QPainter>
#include <QtWidgets/QStyle>

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace host::desktop {

namespace {

constexpr int kThreads = 1;
constexpr qsizetype kCacheBytes = qsizetype{96} * 1024 * 1024;
/// On the largest screens a picture is a little less sharp than it could be: three of them fit.
constexpr int kLargestLoadedSide = 2880;
constexpr int kCaptionMargin = 6;
/// What a notch of a mouse's wheel is, in eighths of a degree.
constexpr int kWheelNotch = 120;

} // namespace

Preview::Preview(PhotographModel& model, QWidget* parent)
    : QWidget(parent)
    , model_(model)
    , loader_(kThreads, kCacheBytes) {
    setFocusPolicy(Qt::StrongFocus);
    setAutoFillBackground(true);
    setBackgroundRole(QPalette::Base);
    connect(&loader_, &PictureLoader::loaded, this, [this](const QByteArray& path, bool readable) {
        model_.setState(path, readable ? Photograph::State::Readable : Photograph::State::Unreadable);
        update();
        announce();
    });
    connect(&model, &PhotographModel::filesChanged, this, [this](const std::vector<QByteArray>& paths) {
        loader_.forget(paths);
        if (isVisible())
            load();
        update();
    });
    connect(&model, &QAbstractItemModel::modelReset, this, [this] {
        if (isVisible())
            Q_EMIT closed();
    });
}

void Preview::show(const QModelIndex& index) {
    index_ = index;
    loader_.forgetFailures();
    load();
    announce();
    update();
}

void Preview::retryFailures() {
    loader_.forgetFailures();
    if (isVisible())
        load();
}

void Preview::announce() {
    setAccessibleName(index_.data(Qt::AccessibleTextRole).toString());
    setAccessibleDescription(tr("%1 of %2").arg(index_.row() + 1).arg(model_.rowCount()));
}

void Preview::load() {
    if (!index_.isValid())
        return;
    std::vector<QByteArray> paths;
    // The next one before the one before: most go forwards.
    for (const int row : {index_.row(), index_.row() + 1, index_.row() - 1}) {
        if (row >= 0 && row < model_.rowCount())
            paths.push_back(model_.photograph(row).path);
    }
    const double side = std::max(width(), height()) * devicePixelRatioF();
    loader_.want(paths, std::clamp(static_cast<int>(std::ceil(side)), 1, kLargestLoadedSide));
}

void Preview::go(int steps) {
    const int row = std::clamp(index_.row() + steps, 0, model_.rowCount() - 1);
    if (!index_.isValid() || row == index_.row())
        return;
    show(model_.index(row));
    Q_EMIT moved(index_);
}

void Preview::keyPressEvent(QKeyEvent* event) {
    switch (event->key()) {
    case Qt::Key_Right:
    case Qt::Key_Down:
    case Qt::Key_PageDown:
        return go(1);
    case Qt::Key_Left:
    case Qt::Key_Up:
    case Qt::Key_PageUp:
        return go(-1);
    case Qt::Key_Home:
        return go(-model_.rowCount());
    case Qt::Key_End:
        return go(model_.rowCount());
    case Qt::Key_Escape:
    case Qt::Key_Space:
    case Qt::Key_Return:
    case Qt::Key_Enter:
        Q_EMIT closed();
        return;
    default:
        QWidget::keyPressEvent(event);
    }
}

void Preview::mouseDoubleClickEvent(QMouseEvent*) {
    Q_EMIT closed();
}

void Preview::wheelEvent(QWheelEvent* event) {
    wheelAngle_ += event->angleDelta().y();
    go(-wheelAngle_ / kWheelNotch);
    wheelAngle_ %= kWheelNotch;
}

void Preview::resizeEvent(QResizeEvent*) {
    load();
}

void Preview::hideEvent(QHideEvent* event) {
    if (!event->spontaneous())
        loader_.want({}, 1);
}

void Preview::paintEvent(QPaintEvent*) {
    if (!index_.isValid())
        return;
    QPainter painter(this);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.setPen(palette().color(QPalette::Text));
    const int captionHeight = fontMetrics().height() + 2 * kCaptionMargin;
    const QRect caption(0, height() - captionHeight, width(), captionHeight);
    painter.drawText(caption, Qt::AlignCenter | Qt::TextSingleLine,
                     tr("%1 (%2 of %3)")
                         .arg(index_.data().toString(), QString::number(index_.row() + 1),
                              QString::number(model_.rowCount())));

    const QRect area = rect().adjusted(0, 0, 0, -captionHeight);
    const Photograph& photograph = model_.photograph(index_.row());
    QImage picture = loader_.picture(photograph.path);
    const bool isWhole = !picture.isNull();
    // It may be tried once more meanwhile, which is not to be seen.
    if (!isWhole && photograph.state == Photograph::State::Unreadable) {
        painter.drawText(area, Qt::AlignCenter, tr("This file cannot be read as a picture."));
        return;
    }
    if (!isWhole)
        picture = index_.data(Qt::DecorationRole).value<QImage>();
    if (picture.isNull())
        return;
    const QSize natural = (QSizeF(picture.size()) / devicePixelRatioF()).toSize();
    QSize shown = natural.scaled(area.size(), Qt::KeepAspectRatio);
    if (isWhole)
        shown = shown.boundedTo(natural); // Only a thumbnail is blown up, until the picture is there.
    painter.drawImage(QStyle::alignedRect(Qt::LeftToRight, Qt::AlignCenter, shown, area), picture);
}

} // namespace host::desktop
