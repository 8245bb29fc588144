#pragma once

#include <QtCore/QLatin1String>
#include <QtCore/Qt>

namespace hostapi::panel {

// Object names of the controls in the plug-in's settings view that a host may rely on, with their
// widget classes. Fill them in as a person would: choosers follow their lists after a login.

inline constexpr QLatin1String kUsernameField{"usernameField"};             // QLineEdit
inline constexpr QLatin1String kPasswordField{"passwordField"};             // QLineEdit
inline constexpr QLatin1String kLoginButton{"loginButton"};                 // QPushButton
inline constexpr QLatin1String kRememberCheckBox{"rememberCheckBox"};       // QCheckBox
inline constexpr QLatin1String kLoggedInStatusLabel{"loggedInStatusLabel"}; // QLabel
inline constexpr QLatin1String kLoginProgress{"loginProgress"};             // QProgressBar, visible while busy
inline constexpr QLatin1String kEventLoadingProgress{"eventLoadingProgress"};     // QProgressBar
inline constexpr QLatin1String kPricingLoadingProgress{"pricingLoadingProgress"}; // QProgressBar
inline constexpr QLatin1String kSettingsBox{"settingsBox"};                 // QGroupBox
inline constexpr QLatin1String kEventBox{"eventBox"};                       // QGroupBox
inline constexpr QLatin1String kPricingBox{"pricingBox"};                   // QGroupBox
inline constexpr QLatin1String kEventChooser{"eventChooser"};               // QComboBox
inline constexpr QLatin1String kPricingChooser{"pricingChooser"};           // QComboBox
inline constexpr QLatin1String kCategoryChooser{"categoryChooser"};         // QComboBox, editable
inline constexpr QLatin1String kAutoCreateCategoriesButton{"autoCreateCategoriesButton"}; // QCheckBox
inline constexpr QLatin1String kColorspaceChooser{"colorspaceChooser"};     // QComboBox: sRGB, Adobe RGB, ProPhoto
inline constexpr QLatin1String kDoResizeButton{"doResizeButton"};           // QCheckBox
inline constexpr QLatin1String kResizeWidth{"resizeWidth"};                 // QLineEdit
inline constexpr QLatin1String kResizeHeight{"resizeHeight"};               // QLineEdit
inline constexpr QLatin1String kQualitySlider{"qualitySlider"};             // QSlider, see kQualityScale
inline constexpr QLatin1String kQualityValueField{"qualityValueField"};     // QLabel
inline constexpr QLatin1String kValidationMessage{"validationMessage"};     // QLabel

/// Roles of the items of the event, pricing and category choosers: the display text is the record's
/// "Name", the user role its "id" (an invalid variant where the record has none).
inline constexpr int kItemNameRole = Qt::DisplayRole;
inline constexpr int kItemIdRole = Qt::UserRole;
/// Further role of the event chooser's items: a QVariantList with a QVariantMap ("id", "Name") for each
/// category; an invalid variant where the event's categories could not be loaded.
inline constexpr int kItemCategoriesRole = Qt::UserRole + 1;

/// `qualitySlider` counts in hundredths, so that a saved quality with a fractional part can be shown:
/// a quality of 8.5 is the slider's 850.
inline constexpr int kQualityScale = 100;

} // namespace hostapi::panel
