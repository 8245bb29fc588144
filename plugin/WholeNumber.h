#pragma once

#include <QtCore/QLocale>
#include <QtCore/QString>

#include <cstdint>
#include <optional>

/// The whole number that `text` stands for: an optional minus sign, then digits, each ASCII's or the
/// locale's own, and nothing else. Of a number beyond 32 bits the low 32 bits, signed. Without a value for
/// any other text, grouped numbers and blanks around included.
std::optional<std::int32_t> wholeNumber(const QString& text, const QLocale& locale = QLocale());
