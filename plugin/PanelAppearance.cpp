#include "plugin/PanelAppearance.h"

#include <QtCore/QEvent>
#include <QtWidgets/QComboBox>
#include <QtWidgets/QGridLayout>

#include <algorithm>

namespace {

constexpr int kLabelColumn = 0;

/// Below this lightness black text can't be read.
constexpr int kDarkestReadableBackground = 128;

/// A chooser's colours: where text is entered, where the list is opened, and the text on both.
struct ChooserColors {
    QColor field;
    QColor button;
    QColor text;
};

// Those of a dark panel: light enough to read black on, and not glaring beside what is dark. A style shades
// the button up to a lighter colour.
const ChooserColors kLightColors{{0xe2, 0xe2, 0xe2}, {0xcc, 0xcc, 0xcc}, Qt::black};
const ChooserColors kLightDisabledColors{{0x80, 0x80, 0x80}, {0x78, 0x78, 0x78}, {0x48, 0x48, 0x48}};

bool isDark(const QPalette& palette) {
    return std::min(palette.color(QPalette::Base).lightness(), palette.color(QPalette::Button).lightness()) <
           kDarkestReadableBackground;
}

void setColors(QPalette& palette, QPalette::ColorGroup group, const ChooserColors& colors) {
    palette.setColor(group, QPalette::Base, colors.field);
    palette.setColor(group, QPalette::Button, colors.button);
    palette.setColor(group, QPalette::Text, colors.text);
    palette.setColor(group, QPalette::ButtonText, colors.text);
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
        setColors(colors, QPalette::Active, kLightColors);
        setColors(colors, QPalette::Inactive, kLightColors);
        setColors(colors, QPalette::Disabled, kLightDisabledColors);
    }
    for (auto* const chooser : view_->findChildren<QComboBox*>()) {
        QPalette itsColors = colors;
        // The prompt's colour is not the panel's to choose.
        itsColors.setColor(QPalette::PlaceholderText, chooser->palette().color(QPalette::PlaceholderText));
        chooser->setPalette(itsColors);
    }
}
