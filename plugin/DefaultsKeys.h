#pragma once

#include <QtCore/QLatin1String>

/// Keys of the user defaults, with their types and what an absent value stands for.
namespace defaults_keys {

inline constexpr QLatin1String kRememberDetails{"rememberDetails"};         ///< bool, false
inline constexpr QLatin1String kQuillmarkUsername{"quillmarkUsername"};     ///< text, none
inline constexpr QLatin1String kSavedKeyChain{"savedKeyChain"};             ///< bool, false
inline constexpr QLatin1String kImageQualityPresent{"imageQualityPresent"}; ///< bool, false
inline constexpr QLatin1String kImageQuality{"imageQuality"};               ///< double in twelfths, 12

} // namespace defaults_keys
