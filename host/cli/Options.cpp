#include "host/cli/Options.h"

#include "host/core/FileList.h"

#include <QtCore/QRegularExpression>
#include <QtCore/QStringDecoder>

#include <algorithm>
#include <functional>

namespace host::cli {

const char* const kHelpText = R"(quillmark-export [options] IMAGE...
quillmark-export --list [options]
quillmark-export --resume [options]

  --user NAME             account at the service; without it the remembered one
  --password-file FILE    the password is FILE's first line; '-' reads standard input. Without it the
                          remembered password, else a prompt on the terminal that does not echo
  --remember              tick "remember"
  --ephemeral             keep nothing after the run: user defaults and keychain start empty and live in
                          memory, no journal, the temporary folder is removed; the remember box is ticked so
                          that the FTP stage finds the password. Needs --user
  --event NAME|ID         an exact id wins over a name; an ambiguous or unknown name is an error that
                          lists the candidates
  --category NAME         a listed name or a new one
  --auto-categories       name each image's category after its project
  --project NAME          the images' project; without it, the name of the folder that holds the image
  --pricing NAME|ID       the pricing template; without it none
  --resize WxH            the resize box, at least 1280x1280, where the account allows it
  --quality N             0 to 12
  --colorspace NAME       srgb, adobe-rgb or prophoto
  --files0-from FILE      further images: their names are in FILE, each ended by a zero byte
  --resume                export what an earlier run has left, to the event of --event or to the only one for
                          which something is left, with the same choices; see the manual page
  --list                  print events with their categories, and pricing templates, then end
  --json                  one JSON object a line on standard output instead of text
  --quiet                 no progress line
  --plugin PATH           the plug-in's bundle; without it the installed or built one
  --help, --version

Exit status: 0 finished, 1 failed or unconfirmed, 2 wrong usage, 3 login failed, 4 settings refused,
5 cancelled, 6 finished without the images that are named on standard error.
)";

namespace {

constexpr int kBestQuality = 12;

struct Fault {
    QString message;
};

struct OptionDescription {
    const char* name;
    bool takesValue;
    std::function<void(Options&, const QByteArray& value)> apply;
};

QString shown(const QByteArray& argument) {
    return QString::fromUtf8(argument);
}

QString text(const QByteArray& value) {
    QStringDecoder decoder(QStringDecoder::Utf8);
    QString decoded = decoder(value);
    if (decoder.hasError())
        throw Fault{QStringLiteral("\"%1\" is not valid UTF-8").arg(shown(value))};
    return decoded;
}

ResizeBox resizeBox(const QByteArray& value) {
    static const QRegularExpression pattern(
        QRegularExpression::anchoredPattern(QStringLiteral("([0-9]+)x([0-9]+)")));
    const auto match = pattern.match(text(value));
    if (!match.hasMatch())
        throw Fault{
            QStringLiteral("--resize takes WIDTHxHEIGHT, such as 2560x2560, not \"%1\"").arg(shown(value))};
    return {match.captured(1), match.captured(2)};
}

int quality(const QByteArray& value) {
    bool isNumber = false;
    const int number = value.toInt(&isNumber);
    if (!isNumber || number < 0 || number > kBestQuality)
        throw Fault{
            QStringLiteral("--quality takes a whole number from 0 to 12, not \"%1\"").arg(shown(value))};
    return number;
}

ColorSpaceChoice colorSpace(const QByteArray& value) {
    if (value == "srgb")
        return ColorSpaceChoice::SRGB;
    if (value == "adobe-rgb")
        return ColorSpaceChoice::AdobeRGB;
    if (value == "prophoto")
        return ColorSpaceChoice::ProPhotoRGB;
    throw Fault{
        QStringLiteral("--colorspace takes srgb, adobe-rgb or prophoto, not \"%1\"").arg(shown(value))};
}

void addListedImages(Options& options, const QByteArray& value) {
    QString error;
    const auto listed = fileList(value, error);
    if (!listed)
        throw Fault{QStringLiteral("the images of %1 can't be read: %2").arg(shown(value), error)};
    options.images.insert(options.images.end(), listed->begin(), listed->end());
}

const std::vector<OptionDescription>& descriptions() {
    using Value = const QByteArray&;
    static const std::vector<OptionDescription> all{
        {"--user", true, [](Options& o, Value v) { o.user = text(v); }},
        {"--password-file", true, [](Options& o, Value v) { o.passwordFile = v; }},
        {"--remember", false, [](Options& o, Value) { o.remember = true; }},
        {"--ephemeral", false, [](Options& o, Value) { o.ephemeral = true; }},
        {"--event", true, [](Options& o, Value v) { o.event = text(v); }},
        {"--category", true, [](Options& o, Value v) { o.category = text(v); }},
        {"--auto-categories", false, [](Options& o, Value) { o.autoCategories = true; }},
        {"--project", true, [](Options& o, Value v) { o.project = text(v); }},
        {"--pricing", true, [](Options& o, Value v) { o.pricing = text(v); }},
        {"--resize", true, [](Options& o, Value v) { o.resize = resizeBox(v); }},
        {"--quality", true, [](Options& o, Value v) { o.quality = quality(v); }},
        {"--colorspace", true, [](Options& o, Value v) { o.colorspace = colorSpace(v); }},
        {"--files0-from", true, addListedImages},
        {"--list", false, [](Options& o, Value) { o.list = true; }},
        {"--resume", false, [](Options& o, Value) { o.resume = true; }},
        {"--json", false, [](Options& o, Value) { o.json = true; }},
        {"--quiet", false, [](Options& o, Value) { o.quiet = true; }},
        {"--plugin", true, [](Options& o, Value v) { o.plugin = v; }},
        {"--help", false, [](Options& o, Value) { o.help = true; }},
        {"--version", false, [](Options& o, Value) { o.version = true; }},
    };
    return all;
}

/// Walks through the arguments, from option to option.
class Arguments {
public:
    explicit Arguments(const std::vector<QByteArray>& all)
        : next_(all.begin())
        , end_(all.end()) {}

    void readInto(Options& options) {
        while (next_ != end_) {
            const QByteArray& argument = *next_++;
            if (argument == "--") {
                options.images.insert(options.images.end(), next_, end_);
                return;
            }
            if (argument.startsWith('-') && argument != "-")
                readOption(options, argument);
            else
                options.images.push_back(argument);
        }
    }

private:
    void readOption(Options& options, const QByteArray& argument) {
        const qsizetype equals = argument.indexOf('=');
        const QByteArray name = equals >= 0 ? argument.left(equals) : argument;
        const auto& all = descriptions();
        const auto option =
            std::find_if(all.begin(), all.end(), [&name](const auto& known) { return name == known.name; });
        if (option == all.end())
            throw Fault{QStringLiteral("there is no option \"%1\"").arg(shown(name))};
        if (!option->takesValue && equals >= 0)
            throw Fault{QStringLiteral("%1 takes no value").arg(shown(name))};
        QByteArray value;
        if (equals >= 0)
            value = argument.mid(equals + 1);
        else if (option->takesValue && next_ != end_)
            value = *next_++;
        if (option->takesValue && value.isEmpty())
            throw Fault{QStringLiteral("%1 needs a value").arg(shown(name))};
        option->apply(options, value);
    }

    std::vector<QByteArray>::const_iterator next_;
    const std::vector<QByteArray>::const_iterator end_;
};

void checkResumption(const Options& options) {
    if (options.ephemeral)
        throw Fault{QStringLiteral("--resume needs a journal, and --ephemeral keeps none")};
    if (options.list)
        throw Fault{QStringLiteral("--resume and --list don't go together")};
    if (!options.images.empty())
        throw Fault{QStringLiteral("--resume takes no images: it exports those that are left")};
    if (options.category || options.autoCategories || options.project || options.pricing || options.resize ||
        options.quality || options.colorspace)
        throw Fault{QStringLiteral("--resume goes on with the choices of the export that it resumes")};
}

void check(const Options& options) {
    if (options.ephemeral && !options.user)
        throw Fault{QStringLiteral("--ephemeral needs --user")};
    if (options.resume)
        checkResumption(options);
    if (options.list && !options.images.empty())
        throw Fault{QStringLiteral("--list takes no images")};
    if (!options.list && !options.resume && options.images.empty())
        throw Fault{QStringLiteral("no image is named; see --help")};
}

bool asksForJSON(const std::vector<QByteArray>& arguments) {
    const auto endOfOptions = std::find(arguments.begin(), arguments.end(), "--");
    return std::find(arguments.begin(), endOfOptions, "--json") != endOfOptions;
}

} // namespace

std::variant<Options, UsageError> parseOptions(const std::vector<QByteArray>& arguments) {
    Options options;
    try {
        Arguments(arguments).readInto(options);
        if (!options.help && !options.version)
            check(options);
        return options;
    } catch (const Fault& fault) {
        return UsageError{fault.message, asksForJSON(arguments)};
    }
}

} // namespace host::cli
