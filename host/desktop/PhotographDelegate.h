#pragma once

#include <QtWidgets/QAbstractItemDelegate>

namespace host::desktop {

/// Draws a photograph of a PhotographModel as a cell of the light table: the picture, its name below. All
/// colours are the palette's. Main thread.
class PhotographDelegate final : public QAbstractItemDelegate {
    Q_OBJECT

public:
    using QAbstractItemDelegate::QAbstractItemDelegate;

    /// The largest width and height of a picture, in device-independent pixels.
    void setThumbnailSide(int side);
    int thumbnailSide() const { return side_; }

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    /// Of every cell.
    QSize cellSize(const QFontMetrics& metrics) const;

private:
    void paintPicture(QPainter& painter, const QStyleOptionViewItem& option, const QModelIndex& index,
                      const QRect& area) const;

    int side_ = 0;
};

} // namespace host::desktop
