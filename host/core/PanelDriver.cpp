#include "host/core/PanelDriver.h"

#include "hostapi/SettingsPanel.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QEvent>
#include <QtCore/QStringList>
#include <QtGui/QFocusEvent>

#include <memory>

namespace host {

namespace panel = hostapi::panel;

namespace {

const QString kIdKey = QStringLiteral("id");
const QString kNameKey = QStringLiteral("Name");

/// Finds the controls of a view, and remembers the names of those that it doesn't find.
class Controls {
public:
    explicit Controls(const QWidget& view)
        : view_(view) {}

    template <typename Control>
    void find(QPointer<Control>& control, QLatin1String name) {
        control = view_.findChild<Control*>(name);
        if (!control)
            missing_ += name;
    }
    const QStringList& missing() const { return missing_; }

private:
    const QWidget& view_;
    QStringList missing_;
};

void tick(QCheckBox& box) {
    if (!box.isChecked())
        box.click();
}

/// The reason where the field does not take the text whole.
std::optional<QString> type(QLineEdit& field, const QString& text) {
    field.selectAll();
    field.insert(text);
    // Going on to the next control is what ends the typing.
    QFocusEvent leaving(QEvent::FocusOut, Qt::TabFocusReason);
    QCoreApplication::sendEvent(&field, &leaving);
    if (field.text() == text)
        return std::nullopt;
    return QStringLiteral("\"%1\" can't be entered").arg(text);
}

void pick(QComboBox& chooser, int index) {
    chooser.setCurrentIndex(index);
    Q_EMIT chooser.activated(index);
}

std::optional<QString> textOf(const QVariant& value) {
    return value.isValid() ? std::optional<QString>(value.toString()) : std::nullopt;
}

Entry entryAt(const QComboBox& chooser, int index) {
    return {textOf(chooser.itemData(index, panel::kItemIdRole)),
            chooser.itemData(index, panel::kItemNameRole).toString()};
}

std::vector<Entry> entriesOf(const QComboBox& chooser) {
    std::vector<Entry> entries;
    entries.reserve(static_cast<std::size_t>(chooser.count()));
    for (int i = 0; i < chooser.count(); ++i)
        entries.push_back(entryAt(chooser, i));
    return entries;
}

std::optional<std::vector<Entry>> categoriesOf(const QVariant& value) {
    if (!value.isValid())
        return std::nullopt;
    std::vector<Entry> categories;
    for (const QVariant& category : value.toList()) {
        const QVariantMap record = category.toMap();
        categories.push_back({textOf(record.value(kIdKey)), record.value(kNameKey).toString()});
    }
    return categories;
}

} // namespace

std::unique_ptr<PanelDriver> PanelDriver::make(QWidget& view, QString& error) {
    std::unique_ptr<PanelDriver> driver(new PanelDriver);
    Controls controls(view);
    controls.find(driver->usernameField_, panel::kUsernameField);
    controls.find(driver->passwordField_, panel::kPasswordField);
    controls.find(driver->loginButton_, panel::kLoginButton);
    controls.find(driver->rememberCheckBox_, panel::kRememberCheckBox);
    controls.find(driver->loggedInStatusLabel_, panel::kLoggedInStatusLabel);
    controls.find(driver->settingsBox_, panel::kSettingsBox);
    controls.find(driver->eventChooser_, panel::kEventChooser);
    controls.find(driver->pricingChooser_, panel::kPricingChooser);
    controls.find(driver->categoryChooser_, panel::kCategoryChooser);
    controls.find(driver->autoCreateCategoriesButton_, panel::kAutoCreateCategoriesButton);
    controls.find(driver->colorspaceChooser_, panel::kColorspaceChooser);
    controls.find(driver->doResizeButton_, panel::kDoResizeButton);
    controls.find(driver->resizeWidth_, panel::kResizeWidth);
    controls.find(driver->resizeHeight_, panel::kResizeHeight);
    controls.find(driver->qualitySlider_, panel::kQualitySlider);
    if (!controls.missing().isEmpty()) {
        error = QStringLiteral("the plug-in's settings view lacks ") +
                controls.missing().join(QStringLiteral(", "));
        return nullptr;
    }
    driver->loginButton_->installEventFilter(driver.get());
    return driver;
}

bool PanelDriver::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::EnabledChange)
        Q_EMIT busyChanged();
    return QObject::eventFilter(watched, event);
}

QString PanelDriver::statusText() const {
    return loggedInStatusLabel_ ? loggedInStatusLabel_->text() : QString();
}

QString PanelDriver::accountName() const {
    return usernameField_->text();
}

bool PanelDriver::isBusy() const {
    return !loginButton_->isEnabled();
}

bool PanelDriver::isLoggedIn() const {
    // Hidden for all who are not, by the rules of the view; the status line's text is for people.
    return !settingsBox_->isHidden();
}

void PanelDriver::tickRemember() {
    tick(*rememberCheckBox_);
}

void PanelDriver::logIn(const QString& account, const QString& password) {
    // Set, not typed: a field remembers what was typed, to undo it.
    usernameField_->setText(account);
    passwordField_->setText(password);
    loginButton_->click();
}

Lists PanelDriver::lists() const {
    Lists lists;
    for (int i = 0; i < eventChooser_->count(); ++i)
        lists.events.push_back({entryAt(*eventChooser_, i),
                                categoriesOf(eventChooser_->itemData(i, panel::kItemCategoriesRole))});
    lists.pricingTemplates = entriesOf(*pricingChooser_);
    return lists;
}

std::optional<QString> PanelDriver::choose(const WishedChoices& wishes) {
    std::optional<QString> refusal;
    if (wishes.event)
        refusal = chooseEvent(*wishes.event);
    // After the event: choosing one empties the category.
    if (!refusal && wishes.category)
        refusal = type(*categoryChooser_->lineEdit(), *wishes.category);
    if (!refusal && wishes.pricing)
        refusal = choosePricing(*wishes.pricing);
    if (!refusal && wishes.resize)
        refusal = chooseResizeBox(*wishes.resize);
    if (wishes.autoCategories)
        tick(*autoCreateCategoriesButton_);
    if (wishes.quality)
        chooseQuality(*wishes.quality);
    if (wishes.colorSpace)
        pick(*colorspaceChooser_, *wishes.colorSpace);
    return refusal;
}

ExportChoices PanelDriver::choices() const {
    ExportChoices choices;
    choices.account = accountName();
    if (const int event = eventChooser_->currentIndex(); event >= 0) {
        choices.eventId = entryAt(*eventChooser_, event).id.value_or(QString());
        choices.eventName = entryAt(*eventChooser_, event).name;
    }
    if (const QString category = categoryChooser_->currentText(); !category.isEmpty())
        choices.category = category;
    choices.autoCategories = autoCreateCategoriesButton_->isChecked();
    if (const int pricing = pricingChooser_->currentIndex(); pricing >= 0) {
        choices.pricingId = entryAt(*pricingChooser_, pricing).id;
        choices.pricingName = entryAt(*pricingChooser_, pricing).name;
    }
    // A box that can't be changed is the account's, not chosen.
    if (doResizeButton_->isEnabled() && doResizeButton_->isChecked())
        choices.resize = ResizeBox{resizeWidth_->text(), resizeHeight_->text()};
    choices.quality = qualitySlider_->value();
    choices.colorSpace = colorspaceChooser_->currentIndex();
    return choices;
}

std::optional<QString> PanelDriver::chooseEvent(const QString& idOrName) {
    const auto selection = select(entriesOf(*eventChooser_), idOrName, QStringLiteral("event"));
    if (const auto* none = std::get_if<NoSuchEntry>(&selection))
        return none->message;
    pick(*eventChooser_, static_cast<int>(std::get<std::size_t>(selection)));
    return std::nullopt;
}

std::optional<QString> PanelDriver::choosePricing(const QString& idOrName) {
    const auto selection = select(entriesOf(*pricingChooser_), idOrName, QStringLiteral("pricing template"));
    if (const auto* none = std::get_if<NoSuchEntry>(&selection))
        return none->message;
    pick(*pricingChooser_, static_cast<int>(std::get<std::size_t>(selection)));
    return std::nullopt;
}

std::optional<QString> PanelDriver::chooseResizeBox(const ResizeBox& box) {
    if (!doResizeButton_->isEnabled())
        return QStringLiteral("the account does not allow a resize box of one's own");
    tick(*doResizeButton_);
    auto refusal = type(*resizeWidth_, box.width);
    return refusal ? refusal : type(*resizeHeight_, box.height);
}

void PanelDriver::chooseQuality(int position) {
    // A slider that stands at its end for a saved value beyond it must still be moved to be heard of.
    qualitySlider_->setValue(position == qualitySlider_->minimum() ? qualitySlider_->maximum()
                                                                   : qualitySlider_->minimum());
    qualitySlider_->setValue(position);
}

} // namespace host
