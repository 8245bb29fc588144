#include "tests/host/fake/FakePanel.h"

#include "hostapi/SettingsPanel.h"

namespace fake {

namespace panel = hostapi::panel;

namespace {

QVariantMap category(const QVariant& id, const QString& name) {
    return {{QStringLiteral("id"), id}, {QStringLiteral("Name"), name}};
}

void addItem(QComboBox& chooser, const QVariant& id, const QString& name, const QVariant& categories = {}) {
    chooser.addItem(name);
    chooser.setItemData(chooser.count() - 1, id, panel::kItemIdRole);
    chooser.setItemData(chooser.count() - 1, categories, panel::kItemCategoriesRole);
}

} // namespace

Panel::Panel()
    : usernameField(add<QLineEdit>(panel::kUsernameField))
    , passwordField(add<QLineEdit>(panel::kPasswordField))
    , loginButton(add<QPushButton>(panel::kLoginButton))
    , rememberCheckBox(add<QCheckBox>(panel::kRememberCheckBox))
    , loggedInStatusLabel(add<QLabel>(panel::kLoggedInStatusLabel))
    , settingsBox(add<QGroupBox>(panel::kSettingsBox))
    , eventChooser(add<QComboBox>(panel::kEventChooser))
    , pricingChooser(add<QComboBox>(panel::kPricingChooser))
    , categoryChooser(add<QComboBox>(panel::kCategoryChooser))
    , autoCreateCategoriesButton(add<QCheckBox>(panel::kAutoCreateCategoriesButton))
    , colorspaceChooser(add<QComboBox>(panel::kColorspaceChooser))
    , doResizeButton(add<QCheckBox>(panel::kDoResizeButton))
    , resizeWidth(add<QLineEdit>(panel::kResizeWidth))
    , resizeHeight(add<QLineEdit>(panel::kResizeHeight))
    , qualitySlider(add<QSlider>(panel::kQualitySlider)) {
    settingsBox->hide();
    categoryChooser->setEditable(true);
    categoryChooser->setInsertPolicy(QComboBox::NoInsert);
    colorspaceChooser->addItems({QStringLiteral("1"), QStringLiteral("2"), QStringLiteral("3")});
    qualitySlider->setRange(0, 12 * panel::kQualityScale);
    qualitySlider->setValue(qualitySlider->maximum());
}

void Panel::fillLists() {
    addItem(*eventChooser, QStringLiteral("77"), QStringLiteral("Smith Wedding"),
            QVariantList{category(QStringLiteral("1"), QStringLiteral("Ceremony")),
                         category({}, QStringLiteral("Party"))});
    addItem(*eventChooser, QStringLiteral("78"), QStringLiteral("Gala"));
    addItem(*pricingChooser, QStringLiteral("5"), QStringLiteral("Standard"));
    for (QComboBox* const chooser : {eventChooser, pricingChooser})
        chooser->setCurrentIndex(-1);
}

} // namespace fake
