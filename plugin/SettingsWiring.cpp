#include "plugin/Quillmark.h"

#include "hostapi/SettingsPanel.h"
#include "plugin/ControlFilters.h"
#include "plugin/LoginFocus.h"
#include "plugin/RecordListModel.h"
#include "plugin/TypeToFind.h"

#include <QtCore/QSignalBlocker>

#include <algorithm>
#include <functional>

namespace panel = hostapi::panel;

namespace {

// Controls of the view that only its wiring knows.
constexpr QLatin1String kEventControls{"eventControls"};
constexpr QLatin1String kEventLoadingLabel{"eventLoadingLabel"};
constexpr QLatin1String kPricingControls{"pricingControls"};
constexpr QLatin1String kPricingLoadingLabel{"pricingLoadingLabel"};
constexpr QLatin1String kClearPricingButton{"clearPricingButton"};

constexpr int kNoSelection = -1;

template <typename Control>
void connectOutlet(QPointer<Control>& outlet, const QWidget& view, QLatin1String name) {
    outlet = view.findChild<Control*>(name);
}

/// Gives a chooser items of its own, and returns what sets them: no item is selected afterwards, and
/// none of it counts as a choice.
std::function<void(std::shared_ptr<const RecordList>)> itemsSetter(QComboBox* chooser) {
    auto* const model = new RecordListModel(chooser);
    const QSignalBlocker silence(chooser);
    chooser->setModel(model);
    return [chooser, model](std::shared_ptr<const RecordList> records) {
        const QSignalBlocker noChoice(chooser);
        model->setRecords(std::move(records));
        chooser->setCurrentIndex(kNoSelection);
    };
}

/// Shows `text` in an editable chooser; not a choice.
void showText(QComboBox* chooser, const QString& text) {
    if (chooser->currentText() == text)
        return;
    const QSignalBlocker noChoice(chooser);
    chooser->setCurrentIndex(kNoSelection);
    chooser->setEditText(text);
}

} // namespace

void Quillmark::connectOutlets(QWidget& view) {
    connectOutlet(usernameField, view, panel::kUsernameField);
    connectOutlet(loggedInStatusLabel, view, panel::kLoggedInStatusLabel);
    connectOutlet(passwordField, view, panel::kPasswordField);
    connectOutlet(loginProgress, view, panel::kLoginProgress);
    connectOutlet(loginButton, view, panel::kLoginButton);
    connectOutlet(rememberCheckBox, view, panel::kRememberCheckBox);
    connectOutlet(eventBox, view, panel::kEventBox);
    connectOutlet(settingsBox, view, panel::kSettingsBox);
    connectOutlet(pricingBox, view, panel::kPricingBox);
    connectOutlet(eventChooser, view, panel::kEventChooser);
    connectOutlet(pricingChooser, view, panel::kPricingChooser);
    connectOutlet(categoryChooser, view, panel::kCategoryChooser);
    connectOutlet(colorspaceChooser, view, panel::kColorspaceChooser);
    connectOutlet(doResizeButton, view, panel::kDoResizeButton);
    connectOutlet(resizeWidth, view, panel::kResizeWidth);
    connectOutlet(resizeHeight, view, panel::kResizeHeight);
    connectOutlet(validationMessage, view, panel::kValidationMessage);
    connectOutlet(qualitySlider, view, panel::kQualitySlider);
    connectOutlet(qualityValueField, view, panel::kQualityValueField);
    connectOutlet(eventLoadingProgress, view, panel::kEventLoadingProgress);
    connectOutlet(pricingLoadingProgress, view, panel::kPricingLoadingProgress);
    // The ends of the keyboard loop, in the tab order of the interface file.
    firstView_ = usernameField.data();
    lastView_ = qualitySlider.data();
}

void Quillmark::connectActions() {
    if (loginButton) {
        connect(loginButton, &QPushButton::clicked, this, [this] { pressButton(loginButton); });
        new ReturnKeyPresses(loginButton, {usernameField, passwordField});
        new LoginFocus(loginButton, {usernameField, passwordField, rememberCheckBox}, eventChooser);
    }
    if (rememberCheckBox)
        connect(rememberCheckBox, &QCheckBox::stateChanged, this,
                [this] { changeRememberState(rememberCheckBox); });
    if (doResizeButton)
        connect(doResizeButton, &QCheckBox::stateChanged, this,
                [this] { resizeButtonClicked(doResizeButton); });
    if (qualitySlider)
        connect(qualitySlider, &QSlider::valueChanged, this, [this] { sliderChanged(qualitySlider); });
    for (QWidget* const control : std::initializer_list<QWidget*>{
             eventChooser, categoryChooser, pricingChooser, colorspaceChooser, qualitySlider}) {
        if (control)
            new WheelNeedsFocus(control);
    }
}

void Quillmark::connectChoosers() {
    connectListChooser(eventChooser, &Quillmark::eventListChanged, &Quillmark::eventList);
    connectListChooser(pricingChooser, &Quillmark::pricingListChanged, &Quillmark::pricingList);
    connectListChooser(categoryChooser, &Quillmark::categoryListChanged, &Quillmark::categoryList);

    if (eventChooser) {
        const auto change = [this] { changeEvent(eventChooser); };
        connect(eventChooser, &QComboBox::currentIndexChanged, this, change);
        // A person may choose the same event again, which is a choice like any other. After another event it
        // comes as well, and changes nothing more.
        connect(eventChooser, &QComboBox::activated, this, change);
    }
    if (pricingChooser)
        connect(pricingChooser, &QComboBox::currentIndexChanged, this,
                [this] { changePricing(pricingChooser); });
    for (QComboBox* const chooser : {eventChooser.data(), pricingChooser.data()}) {
        if (!chooser)
            continue;
        new TypeToFind(chooser);
        new WholeTextInToolTip(chooser);
    }
    connectCategoryText();
    connectColorspaceChooser();
}

void Quillmark::connectListChooser(QComboBox* chooser, void (Quillmark::*changed)(),
                                   std::shared_ptr<RecordList> (Quillmark::*list)() const) {
    if (!chooser)
        return;
    const auto follow = [this, list, outlet = QPointer(chooser), setItems = itemsSetter(chooser)] {
        if (outlet)
            setItems((this->*list)());
    };
    follow();
    // Workers set lists: with this object as context the call comes on the main thread, and only while both
    // live.
    connect(this, changed, this, follow);
}

void Quillmark::connectCategoryText() {
    if (!categoryChooser)
        return;
    // What is typed is what is sent: nothing completes it to another text.
    categoryChooser->setCompleter(nullptr);
    const auto show = [this] {
        if (categoryChooser)
            showText(categoryChooser, chosenCategory().value_or(QString()));
    };
    show();
    connect(this, &Quillmark::chosenCategoryChanged, this, show);
    // New items empty the chooser's text, but the category stays chosen.
    connect(this, &Quillmark::categoryListChanged, this, show);
    connect(categoryChooser, &QComboBox::editTextChanged, this, [this](const QString& text) {
        setChosenCategory(text.isEmpty() ? std::nullopt : std::optional<QString>(text));
    });
}

void Quillmark::connectColorspaceChooser() {
    if (!colorspaceChooser)
        return;
    const auto isSelected = [this](const auto& colorSpace) { return colorSpace.get() == selectedColorspace; };
    const auto selected = std::find_if(colorspaceList->begin(), colorspaceList->end(), isSelected);
    colorspaceChooser->setCurrentIndex(static_cast<int>(selected - colorspaceList->begin()));
    connect(colorspaceChooser, &QComboBox::currentIndexChanged, this, [this](int index) {
        if (index >= 0 && static_cast<std::size_t>(index) < colorspaceList->size())
            selectedColorspace = (*colorspaceList)[static_cast<std::size_t>(index)].get();
        changeColorspace(colorspaceChooser);
    });
}

void Quillmark::connectVisibility(QWidget& view) {
    // While a list is loaded, a line that says so stands in for its controls.
    const auto follow = [this, &view](void (Quillmark::*changed)(), bool (Quillmark::*hidden)() const,
                                      QLatin1String controlsName, QLatin1String loadingName) {
        auto* const controls = view.findChild<QWidget*>(controlsName);
        auto* const loading = view.findChild<QWidget*>(loadingName);
        if (!controls || !loading)
            return;
        const auto apply = [this, hidden, shown = QPointer(controls), standIn = QPointer(loading)] {
            if (shown)
                shown->setVisible(!(this->*hidden)());
            if (standIn)
                standIn->setVisible((this->*hidden)());
        };
        apply();
        connect(this, changed, this, apply);
    };
    follow(&Quillmark::hideEventControlsChanged, &Quillmark::hideEventControls, kEventControls,
           kEventLoadingLabel);
    follow(&Quillmark::hidePricingControlsChanged, &Quillmark::hidePricingControls, kPricingControls,
           kPricingLoadingLabel);

    if (auto* const automatic = view.findChild<QCheckBox*>(panel::kAutoCreateCategoriesButton)) {
        automatic->setChecked(autoCreateCategories());
        connect(automatic, &QCheckBox::toggled, this, &Quillmark::setAutoCreateCategories);
    }
    auto* const clearPricing = view.findChild<QPushButton*>(kClearPricingButton);
    if (clearPricing && pricingChooser)
        connect(clearPricing, &QPushButton::clicked, pricingChooser,
                [chooser = pricingChooser.data()] { chooser->setCurrentIndex(kNoSelection); });
}
