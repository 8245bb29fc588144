#pragma once

#include "host/core/ExportChoices.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <optional>
#include <variant>
#include <vector>

namespace host::cli {

/// Indices of the settings view's colour space chooser.
enum class ColorSpaceChoice { SRGB = 0, AdobeRGB = 1, ProPhotoRGB = 2 };

/// What the command line asks for. File names are bytes, as the system keeps them.
struct Options {
    std::optional<QString> user;
    std::optional<QByteArray> passwordFile; ///< "-" is standard input.
    bool remember = false;
    bool ephemeral = false;
    std::optional<QString> event;
    std::optional<QString> category;
    bool autoCategories = false;
    std::optional<QString> project;
    std::optional<QString> pricing;
    std::optional<ResizeBox> resize;
    std::optional<int> quality;
    std::optional<ColorSpaceChoice> colorspace;
    bool list = false;
    bool resume = false;
    bool json = false;
    bool quiet = false;
    std::optional<QByteArray> plugin;
    bool help = false;
    bool version = false;
    std::vector<QByteArray> images;
};

/// Why a command line can't be followed.
struct UsageError {
    QString message;
    bool json = false; ///< Whether "--json" is among the options, before or behind the fault.
};

/// Reads the arguments, and the files of names among them, without the program's name: "--option=value" and
/// "--option value", options and images in any order, only images after "--". Of an option given twice the
/// last counts.
std::variant<Options, UsageError> parseOptions(const std::vector<QByteArray>& arguments);

/// What "--help" prints.
extern const char* const kHelpText;

} // namespace host::cli
