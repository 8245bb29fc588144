#include "host/desktop/PhotographDelegate.h"

#include "host/desktop/PhotographModel.h"

#include <QtGui/QPainter>
#include <QtWidgets/QApplication>
#include <QtWidgets/QStyle>

namespace host::desktop {

namespace {

constexpr int kMargin = 8;
constexpr int kSelectionRadius = 6;
constexpr double kSelectionStrength = 0.35;

QPalette::ColorGroup colorGroup(const QStyleOptionViewItem& option) {
    return option.state & QStyle::State_Active ? QPalette::Active : QPalette::Inactive;
}

QRect centred(const QSize& size, const QRect& area) {
    return QStyle::alignedRect(Qt::LeftToRight, Qt::AlignCenter, size, area);
}

void paintSelection(QPainter& painter, const QStyleOptionViewItem& option) {
    QColor color = option.palette.color(colorGroup(option), QPalette::Highlight);
    color.setAlphaF(static_cast<float>(kSelectionStrength));
    painter.setPen(option.palette.color(colorGroup(option), QPalette::Highlight));
    painter.setBrush(color);
    painter.drawRoundedRect(option.rect.adjusted(1, 1, -2, -2), kSelectionRadius, kSelectionRadius);
}

void paintFocus(QPainter& painter, const QStyleOptionViewItem& option) {
    QStyleOptionFocusRect focus;
    focus.QStyleOption::operator=(option);
    focus.rect = option.rect.adjusted(2, 2, -2, -2);
    focus.state |= QStyle::State_KeyboardFocusChange;
    focus.backgroundColor = option.palette.color(QPalette::Base);
    const QStyle* const style = option.widget ? option.widget->style() : QApplication::style();
    style->drawPrimitive(QStyle::PE_FrameFocusRect, &focus, &painter, option.widget);
}

void paintUnreadable(QPainter& painter, const QStyleOptionViewItem& option, const QRect& area) {
    const QStyle* const style = option.widget ? option.widget->style() : QApplication::style();
    const int iconSide = style->pixelMetric(QStyle::PM_LargeIconSize, &option, option.widget);
    const int textHeight = option.fontMetrics.height();
    const QRect both = centred({area.width(), iconSide + textHeight}, area);
    const QRect icon = centred({iconSide, iconSide}, {both.topLeft(), QSize(both.width(), iconSide)});
    style->standardIcon(QStyle::SP_MessageBoxWarning, &option, option.widget).paint(&painter, icon);
    painter.setPen(option.palette.color(colorGroup(option), QPalette::Text));
    const QString text = PhotographDelegate::tr("Cannot be read");
    painter.drawText(both.adjusted(0, iconSide, 0, 0), Qt::AlignCenter,
                     option.fontMetrics.elidedText(text, Qt::ElideRight, both.width()));
}

} // namespace

void PhotographDelegate::setThumbnailSide(int side) {
    side_ = side;
}

QSize PhotographDelegate::cellSize(const QFontMetrics& metrics) const {
    return {side_ + 2 * kMargin, side_ + 3 * kMargin + metrics.height()};
}

QSize PhotographDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex&) const {
    return cellSize(option.fontMetrics);
}

void PhotographDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                               const QModelIndex& index) const {
    painter->save();
    painter->setRenderHints(QPainter::Antialiasing | QPainter::SmoothPixmapTransform);
    if (option.state & QStyle::State_Selected)
        paintSelection(*painter, option);
    if (option.state & QStyle::State_HasFocus)
        paintFocus(*painter, option);
    const QRect inner = option.rect.adjusted(kMargin, kMargin, -kMargin, -kMargin);
    paintPicture(*painter, option, index, {inner.topLeft(), QSize(inner.width(), side_)});
    painter->setPen(option.palette.color(colorGroup(option), QPalette::Text));
    const QRect name(inner.left(), inner.bottom() + 1 - option.fontMetrics.height(), inner.width(),
                     option.fontMetrics.height());
    // The end of a name tells pictures of a series apart.
    painter->drawText(name, Qt::AlignCenter | Qt::TextSingleLine,
                      option.fontMetrics.elidedText(index.data().toString(), Qt::ElideMiddle, name.width()));
    painter->restore();
}

void PhotographDelegate::paintPicture(QPainter& painter, const QStyleOptionViewItem& option,
                                      const QModelIndex& index, const QRect& area) const {
    const auto state = static_cast<Photograph::State>(index.data(PhotographModel::StateRole).toInt());
    if (state == Photograph::State::Unreadable) {
        paintUnreadable(painter, option, area);
        return;
    }
    const auto picture = index.data(Qt::DecorationRole).value<QImage>();
    if (picture.isNull()) {
        painter.setPen(option.palette.color(QPalette::Mid));
        painter.setBrush(Qt::NoBrush);
        painter.drawRect(area.adjusted(kMargin, kMargin, -kMargin, -kMargin));
        return;
    }
    // A small picture is not blown up: nothing hides how small it is.
    const double ratio = painter.device()->devicePixelRatioF();
    const QSize natural = (QSizeF(picture.size()) / ratio).toSize().expandedTo({1, 1});
    const QSize shown = natural.boundedTo(natural.scaled(area.size(), Qt::KeepAspectRatio));
    painter.drawImage(centred(shown.expandedTo({1, 1}), area), picture);
}

} // namespace host::desktop
