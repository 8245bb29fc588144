#pragma once

#include <QtCore/QString>

#include <initializer_list>
#include <optional>

/// What an absent value reads as in a text.
inline constexpr QLatin1String kAbsentText{"(null)"};

/// `format` with each "%@" replaced, in order, by the next of `values`: verbatim, never looked at again,
/// "(null)" for an absent one.
QString formattedText(const QString& format, std::initializer_list<std::optional<QString>> values);
