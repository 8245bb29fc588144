#pragma once

#include <QtCore/QLatin1String>
#include <QtCore/Qt>

namespace hostapi::panel {

// Object names of the controls in the plug-in's settings view that a host may rely on, with their widget
// classes. All on the main thread.
//
// A host that drives the controls itself has the effect of a person who does: setText on the fields, click
// on the buttons, setChecked or click on the check boxes, setCurrentIndex on the choosers, setEditText on
// the category chooser, setValue on the slider. Disabled buttons ignore clicks; while a login runs, and the
// lists after it, the login button is disabled.
//
// - kLoggedInStatusLabel tells the outcome of a login. After a good one the three boxes are shown, and the
//   choosers are filled once the lists are there, which reveals them and enables the login button.
// - The event, pricing and category choosers follow their lists: an index is an index into the list, -1
//   where nothing is chosen. Filling a chooser is no choice; all stand at -1 until one is made. Choosing an
//   event fills the category chooser and empties its text. To choose the same event again, go by -1.
// - kCategoryChooser's text, listed or not, is the category; without a text there is none. It is disabled
//   while kAutoCreateCategoriesButton is on.
// - kResizeWidth and kResizeHeight are enabled while kDoResizeButton is on and the account allows it.

// QLineEdit
inline constexpr QLatin1String kUsernameField{"usernameField"};
inline constexpr QLatin1String kPasswordField{"passwordField"};
inline constexpr QLatin1String kResizeWidth{"resizeWidth"};
inline constexpr QLatin1String kResizeHeight{"resizeHeight"};

// QPushButton
inline constexpr QLatin1String kLoginButton{"loginButton"};

// QCheckBox
inline constexpr QLatin1String kRememberCheckBox{"rememberCheckBox"};
inline constexpr QLatin1String kAutoCreateCategoriesButton{"autoCreateCategoriesButton"};
inline constexpr QLatin1String kDoResizeButton{"doResizeButton"};

// QComboBox; the category chooser is editable, the colour spaces are sRGB, Adobe RGB (1998) and ProPhoto RGB
inline constexpr QLatin1String kEventChooser{"eventChooser"};
inline constexpr QLatin1String kPricingChooser{"pricingChooser"};
inline constexpr QLatin1String kCategoryChooser{"categoryChooser"};
inline constexpr QLatin1String kColorspaceChooser{"colorspaceChooser"};

// QSlider, see kQualityScale
inline constexpr QLatin1String kQualitySlider{"qualitySlider"};

// QLabel
inline constexpr QLatin1String kLoggedInStatusLabel{"loggedInStatusLabel"};
inline constexpr QLatin1String kQualityValueField{"qualityValueField"};
inline constexpr QLatin1String kValidationMessage{"validationMessage"};

// QProgressBar, shown while busy
inline constexpr QLatin1String kLoginProgress{"loginProgress"};
inline constexpr QLatin1String kEventLoadingProgress{"eventLoadingProgress"};
inline constexpr QLatin1String kPricingLoadingProgress{"pricingLoadingProgress"};

// QGroupBox
inline constexpr QLatin1String kSettingsBox{"settingsBox"};
inline constexpr QLatin1String kEventBox{"eventBox"};
inline constexpr QLatin1String kPricingBox{"pricingBox"};

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
