#include "plugin/PanelAppearance.h"

#include <QtCore/QEvent>
#include <QtWidgets/QComboBox>
#include <QtWidgets/QGridLayout>

#include <algorithm>

namespace {

constexpr int kLabelColumn = 0;

/// Below this lightness black text can't be read.
constexpr int kDarkestReadableBackground = 128;

// The choosers of a dark panel: light enough to read black on, and not glaring beside what is dark.
constexpr QColor kLightBackground(0xd8, 0xd8, 0xd8);
constexpr QColor kDisabledBackground(0x80, 0x80, 0x80);
constexpr QColor kDisabledText(0x48, 0x48, 0x48);

bool isDark(const QPalette& palette) {
    return std::min(palette.color(QPalette::Base).lightness(), palette.color(QPalette::Button).lightness()) <
           kDarkestReadableBackground;
}

void setColors(QPalette& palette, QPalette::ColorGroup group, const QColor& background, const QColor& text) {
    for (const auto role : {QPalette::Base, QPalette::Button})
        palette.setColor(group, role, background);
    for (const auto role : {QPalette::Text, QPalette::ButtonText})
        palette.setColor(group, role, text);
}

} // namespace

PanelAppearance::PanelAppearance(QWidget* view)
    : QObject(view)
    , view_(view) {
    alignLabels();
    colorChoosers();
    view->installEventFilter(this);
}

bool PanelAppearance::eventFilter(QObject* watched, QEvent* event) {
    switch (event->type()) {
    case QEvent::FontChange:
    case QEvent::StyleChange:
        alignLabels();
        break;
    case QEvent::PaletteChange:
        colorChoosers();
        break;
    default:
        break;
    }
    return QObject::eventFilter(watched, event);
}

void PanelAppearance::alignLabels() {
    const auto grids = view_->findChildren<QGridLayout*>();
    int width = 0;
    for (const auto* const grid : grids) {
        for (int row = 0; row < grid->rowCount(); ++row) {
            if (const auto* const label = grid->itemAtPosition(row, kLabelColumn))
                width = std::max(width, label->sizeHint().width());
        }
    }
    for (auto* const grid : grids)
        grid->setColumnMinimumWidth(kLabelColumn, width);
}

void PanelAppearance::colorChoosers() {
    QPalette colors;
    if (isDark(view_->palette())) {
        setColors(colors, QPalette::Active, kLightBackground, Qt::black);
        setColors(colors, QPalette::Inactive, kLightBackground, Qt::black);
        setColors(colors, QPalette::Disabled, kDisabledBackground, kDisabledText);
    }
    for (auto* const chooser : view_->findChildren<QComboBox*>()) {
        QPalette itsColors = colors;
        // The prompt's colour is not the panel's to choose.
        itsColors.setColor(QPalette::PlaceholderText, chooser->palette().color(QPalette::PlaceholderText));
        chooser->setPalette(itsColors);
    }
}
