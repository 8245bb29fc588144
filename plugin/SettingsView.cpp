#include "plugin/DefaultsKeys.h"
#include "plugin/PanelAppearance.h"
#include "plugin/Quillmark.h"
#include "plugin/WholeNumber.h"

#include "hostapi/SettingsPanel.h"

#include <QtCore/QSignalBlocker>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

const QString kInterfaceName = QStringLiteral("Quillmark");

constexpr std::int32_t kSmallestBoxSide = 1280;

const QString kNotLoggedIn = QStringLiteral("Please log in first");
const QString kNotLoggedInInfo = QStringLiteral("You must be logged in before attempting to export.");
const QString kWidthNotValid = QStringLiteral("Resize width is not valid");
const QString kWidthNoNumberInfo = QStringLiteral("Please enter a valid integer for the maximum width.");
const QString kHeightNotValid = QStringLiteral("Resize height is not valid");
const QString kHeightNoNumberInfo = QStringLiteral("Please enter a valid integer for the maximum height.");
// Without a full stop, unlike the next; both are meant to stay so.
const QString kWidthTooSmallInfo = QStringLiteral("Please enter a maximum width of at least 1280 pixels");
const QString kHeightTooSmallInfo = QStringLiteral("Please enter a maximum height of at least 1280 pixels.");
const QString kNoEvent = QStringLiteral("Please select an event");
const QString kNoEventInfo = QStringLiteral("You must choose an event before attempting to export.");
const QString kNoCategory = QStringLiteral("Please select a category");
const QString kNoCategoryInfo =
    QStringLiteral("You must either select a category or choose to generate categories automatically, before "
                   "attempting to export.");

QString textOf(const QLineEdit* field) {
    return field ? field->text() : QString();
}

/// What a saved quality is read as: a stored value that is no number counts as none.
double savedQuality(hostapi::DefaultsStore& defaults) {
    if (!defaults.value(defaults_keys::kImageQualityPresent).toBool())
        return Quillmark::kBestImageQuality;
    bool isNumber = false;
    const double quality = defaults.value(defaults_keys::kImageQuality).toDouble(&isNumber);
    return isNumber && std::isfinite(quality) ? quality : Quillmark::kBestImageQuality;
}

int sliderPosition(double quality) {
    const double top = Quillmark::kBestImageQuality * hostapi::panel::kQualityScale;
    return static_cast<int>(std::lround(std::clamp(quality * hostapi::panel::kQualityScale, 0.0, top)));
}

/// Truncated toward zero. A saved quality may be any number, and its text must fit beside the slider.
QString wholeText(double quality) {
    using Limits = std::numeric_limits<std::int32_t>;
    return QString::number(
        static_cast<std::int32_t>(std::clamp<double>(quality, Limits::min(), Limits::max())));
}

/// The slider's value as the whole number nearest to it, halves away from zero.
double wholeQuality(const QSlider& slider) {
    return std::round(static_cast<double>(slider.value()) / hostapi::panel::kQualityScale);
}

} // namespace

QWidget* Quillmark::settingsView() {
    if (!settingsView_)
        loadSettingsView();
    imageQuality = savedQuality(environment->defaults);
    if (qualitySlider) {
        // Shown, not moved: moving it makes the quality a whole number.
        const QSignalBlocker silence(qualitySlider);
        qualitySlider->setValue(sliderPosition(imageQuality));
    }
    if (qualityValueField)
        qualityValueField->setText(wholeText(imageQuality));
    return settingsView_;
}

void Quillmark::loadSettingsView() {
    auto view = mainBundle->loadInterface(kInterfaceName);
    if (!view)
        return;
    settingsView_ = view.release();
    _topLevelNibObjects.assign(1, QPointer<QObject>(settingsView_));
    connectOutlets(*settingsView_);
    connectActions();
    connectChoosers();
    connectVisibility(*settingsView_);
    new PanelAppearance(settingsView_);
}

void Quillmark::pressButton(QObject*) {
    if (isLoggedIn)
        logOut();
    else
        authenticate();
}

void Quillmark::resizeButtonClicked(QObject* sender) {
    const auto* const checkBox = qobject_cast<QCheckBox*>(sender);
    updateResizeGUI(checkBox && checkBox->checkState() == Qt::Checked);
}

void Quillmark::updateResizeGUI(bool resize) {
    const bool sizesAreTheUsers = resize && hiResUploads;
    for (QLineEdit* const field : {resizeWidth.data(), resizeHeight.data()}) {
        if (!field)
            continue;
        if (!sizesAreTheUsers)
            field->setText(QString::number(kSmallestBoxSide));
        field->setEnabled(sizesAreTheUsers);
    }
    setDoResizeImages(resize);
    if (doResizeButton)
        doResizeButton->setChecked(resize);
}

void Quillmark::sliderChanged(QObject*) {
    if (!qualitySlider)
        return;
    imageQuality = wholeQuality(*qualitySlider);
    if (qualityValueField)
        qualityValueField->setText(wholeText(wholeQuality(*qualitySlider)));
}

bool Quillmark::validateSettings() {
    const auto refused = [this](const QString& message, const QString& infoText) {
        displayValidationAlertWithMessage(message, infoText);
        return false;
    };

    if (!isLoggedIn)
        return refused(kNotLoggedIn, kNotLoggedInInfo);

    std::optional<std::int32_t> width = kSmallestBoxSide;
    std::optional<std::int32_t> height = kSmallestBoxSide;
    if (doResizeImages()) {
        width = wholeNumber(textOf(resizeWidth));
        height = wholeNumber(textOf(resizeHeight));
        if (!width)
            return refused(kWidthNotValid, kWidthNoNumberInfo);
        if (!height)
            return refused(kHeightNotValid, kHeightNoNumberInfo);
        if (*width < kSmallestBoxSide)
            return refused(kWidthNotValid, kWidthTooSmallInfo);
        if (*height < kSmallestBoxSide)
            return refused(kHeightNotValid, kHeightTooSmallInfo);
    }
    maxWidthValue = *width;
    maxHeightValue = *height;

    if (!chosenEventId())
        return refused(kNoEvent, kNoEventInfo);
    if (!autoCreateCategories() && !chosenCategory())
        return refused(kNoCategory, kNoCategoryInfo);
    return true;
}

void Quillmark::displayValidationAlertWithMessage(const QString& message, const QString& infoText) {
    environment->alerts.beginSheet({hostapi::AlertStyle::Warning, message, infoText},
                                   settingsView_ ? settingsView_->window() : nullptr);
}
