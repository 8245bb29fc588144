#include "host/core/JournalFormat.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <algorithm>
#include <cmath>

namespace host::journal_format {

namespace {

// Keys. The first of a line tells what it is.
const QString kJournal = QStringLiteral("journal");
const QString kService = QStringLiteral("service");
const QString kBegun = QStringLiteral("begun");
const QString kCount = QStringLiteral("images");
const QString kChoices = QStringLiteral("choices");
const QString kAccount = QStringLiteral("account");
const QString kEventId = QStringLiteral("eventId");
const QString kEventName = QStringLiteral("eventName");
const QString kCategory = QStringLiteral("category");
const QString kAutoCategories = QStringLiteral("autoCategories");
const QString kPricingId = QStringLiteral("pricingId");
const QString kPricingName = QStringLiteral("pricingName");
const QString kWidth = QStringLiteral("width");
const QString kHeight = QStringLiteral("height");
const QString kQuality = QStringLiteral("quality");
const QString kColorSpace = QStringLiteral("colorSpace");
const QString kImage = QStringLiteral("image");
const QString kSource = QStringLiteral("source");
const QString kName = QStringLiteral("name");
const QString kProject = QStringLiteral("project");
const QString kModified = QStringLiteral("modified");
const QString kSize = QStringLiteral("size");
const QString kCaptured = QStringLiteral("captured");
const QString kTime = QStringLiteral("time");
const QString kSentBefore = QStringLiteral("sentBefore");
const QString kAttempt = QStringLiteral("attempt");
const QString kFolder = QStringLiteral("folder");
const QString kBoot = QStringLiteral("boot");
const QString kPrepared = QStringLiteral("prepared");
const QString kPath = QStringLiteral("path");
const QString kLeftOut = QStringLiteral("leftOut");
const QString kFailed = QStringLiteral("failed");
const QString kReason = QStringLiteral("reason");
const QString kUploaded = QStringLiteral("uploaded");
const QString kConfirmed = QStringLiteral("confirmed");
const QString kEnded = QStringLiteral("ended");

/// Changes when what an older program wrote, or a newer one writes, can't be taken for the same. Version 1
/// did not note the service, version 2 no image that failed, version 3 nothing of earlier exports, version 4
/// of the files only their paths.
constexpr int kVersion = 5;
constexpr std::size_t kMostImages = 1'000'000;
/// What stays readable in a source's path; all other bytes are percent-encoded, since they need not be text.
constexpr char kPlainInPaths[] = "/ +,()[]@";

QByteArray line(const QJsonObject& object) {
    return QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n';
}

/// Thrown within this file, where a line lacks something or something has the wrong type.
struct Senseless {};

/// Thrown within this file, where the journal was kept by another version of the program.
struct AnotherVersion {
    int version;
};

QString text(const QJsonObject& object, const QString& key) {
    const QJsonValue value = object.value(key);
    if (!value.isString())
        throw Senseless();
    return value.toString();
}

std::optional<QString> textOrNone(const QJsonObject& object, const QString& key) {
    return object.contains(key) ? std::optional(text(object, key)) : std::nullopt;
}

bool flag(const QJsonObject& object, const QString& key) {
    const QJsonValue value = object.value(key);
    if (!value.isBool())
        throw Senseless();
    return value.toBool();
}

std::size_t wholeNumber(const QJsonValue& value, std::size_t end) {
    const double number = value.toDouble(-1);
    if (number < 0 || number >= static_cast<double>(end) || std::floor(number) != number)
        throw Senseless();
    return static_cast<std::size_t>(number);
}

QJsonObject asObject(const ExportChoices& choices) {
    QJsonObject object{{kAccount, choices.account},         {kEventId, choices.eventId},
                       {kEventName, choices.eventName},     {kAutoCategories, choices.autoCategories},
                       {kPricingName, choices.pricingName}, {kQuality, choices.quality},
                       {kColorSpace, choices.colorSpace}};
    if (choices.category)
        object.insert(kCategory, *choices.category);
    if (choices.pricingId)
        object.insert(kPricingId, *choices.pricingId);
    if (choices.resize) {
        object.insert(kWidth, choices.resize->width);
        object.insert(kHeight, choices.resize->height);
    }
    return object;
}

ExportChoices choicesOf(const QJsonObject& object) {
    // Larger than any slider and any list of colour spaces.
    constexpr std::size_t kNumbersEnd = 1'000'000;
    ExportChoices choices;
    choices.account = text(object, kAccount);
    choices.eventId = text(object, kEventId);
    choices.eventName = text(object, kEventName);
    choices.category = textOrNone(object, kCategory);
    choices.autoCategories = flag(object, kAutoCategories);
    choices.pricingId = textOrNone(object, kPricingId);
    choices.pricingName = text(object, kPricingName);
    if (object.contains(kWidth) || object.contains(kHeight))
        choices.resize = ResizeBox{text(object, kWidth), text(object, kHeight)};
    choices.quality = static_cast<int>(wholeNumber(object.value(kQuality), kNumbersEnd));
    choices.colorSpace = static_cast<int>(wholeNumber(object.value(kColorSpace), kNumbersEnd));
    return choices;
}

QString encodedSource(const QByteArray& source) {
    return QString::fromLatin1(source.toPercentEncoding(kPlainInPaths));
}

QByteArray source(const QJsonObject& object) {
    QByteArray source = QByteArray::fromPercentEncoding(text(object, kSource).toLatin1());
    if (!source.startsWith('/') || source.contains('\0'))
        throw Senseless();
    return source;
}

/// It becomes a file's in the plug-in's folder, and must not lead out of it.
QString fileName(const QJsonObject& object) {
    QString name = text(object, kName);
    if (name.isEmpty() || name.contains(QLatin1Char('/')) || name.contains(QChar(u'\0')) ||
        name == QLatin1String(".") || name == QLatin1String(".."))
        throw Senseless();
    return name;
}

void insertStamp(const std::optional<FileStamp>& stamp, QJsonObject& object) {
    if (!stamp)
        return;
    object.insert(kModified, stamp->modified);
    object.insert(kSize, stamp->size);
}

std::optional<FileStamp> stampOf(const QJsonObject& object) {
    // Up to here, numbers in JSON are whole.
    constexpr std::size_t kNumbersEnd = std::size_t{1} << 53;
    if (!object.contains(kModified))
        return std::nullopt;
    return FileStamp{static_cast<qint64>(wholeNumber(object.value(kModified), kNumbersEnd)),
                     static_cast<qint64>(wholeNumber(object.value(kSize), kNumbersEnd))};
}

QString timeText(const QDateTime& time) {
    return time.toString(Qt::ISODate);
}

QDateTime time(const QJsonObject& object, const QString& key) {
    QDateTime time = QDateTime::fromString(text(object, key), Qt::ISODate);
    if (!time.isValid())
        throw Senseless();
    return time;
}

/// Invalid where the clocks of this machine's place never show it: the camera's may have been in another one.
QDateTime cameraTime(const QJsonObject& object, const QString& key) {
    return QDateTime::fromString(text(object, key), Qt::ISODate);
}

RecordedImage imageOf(const QJsonObject& object) {
    RecordedImage image;
    image.source = source(object);
    image.name = fileName(object);
    image.project = textOrNone(object, kProject);
    image.stamp = stampOf(object);
    return image;
}

SentName sentNameOf(const QJsonObject& object) {
    PhotographTrace trace;
    trace.stamp = stampOf(object);
    if (object.contains(kCaptured))
        trace.captured = cameraTime(object, kCaptured);
    trace.exported = time(object, kBegun);
    return {text(object, kSentBefore), fileName(object), source(object), trace};
}

QJsonObject parsed(const QByteArray& line) {
    const QJsonDocument document = QJsonDocument::fromJson(line);
    if (!document.isObject())
        throw Senseless();
    return document.object();
}

void beginAttempt(const QJsonObject& object, ExportRecord& record) {
    std::vector<std::size_t> attempt;
    const QJsonValue images = object.value(kAttempt);
    if (!images.isArray())
        throw Senseless();
    for (const QJsonValue& image : images.toArray())
        attempt.push_back(wholeNumber(image, record.images.size()));
    const ExportChoices choices = choicesOf(object.value(kChoices).toObject());
    if (!sameDestination(choices, record.choices))
        throw Senseless();
    record.choices = choices;
    record.attemptFolder = text(object, kFolder);
    record.attemptBoot = text(object, kBoot).toUtf8();
    record.attemptEnded = false;
    for (RecordedImage& image : record.images)
        image.preparedPath.clear();
    for (const std::size_t index : attempt) {
        record.images[index].outcome = ImageOutcome::NotUploaded;
        record.images[index].reason.clear();
    }
    record.attempt = std::move(attempt);
}

void upload(RecordedImage& image, ExportRecord& record) {
    image.outcome = ImageOutcome::Uploaded;
    image.reason.clear();
    image.hasFailed = false;
    // What was confirmed before did not cover this image.
    record.processingConfirmed = false;
}

void endAttempt(const QString& reason, ExportRecord& record) {
    record.attemptEnded = true;
    for (RecordedImage& image : record.images) {
        if (image.outcome == ImageOutcome::NotUploaded && image.reason.isEmpty())
            image.reason = reason;
    }
}

void applyObject(const QJsonObject& object, ExportRecord& record) {
    const auto image = [&](const QString& key) -> RecordedImage& {
        return record.images[wholeNumber(object.value(key), record.images.size())];
    };
    if (object.contains(kAttempt)) {
        beginAttempt(object, record);
    } else if (object.contains(kPrepared)) {
        image(kPrepared).preparedPath = text(object, kPath);
    } else if (object.contains(kCaptured)) {
        image(kCaptured).captured = cameraTime(object, kTime);
    } else if (object.contains(kLeftOut)) {
        RecordedImage& leftOut = image(kLeftOut);
        leftOut.reason = text(object, kReason);
        leftOut.outcome = ImageOutcome::LeftOut;
    } else if (object.contains(kFailed)) {
        RecordedImage& failed = image(kFailed);
        failed.reason = text(object, kReason);
        failed.hasFailed = true;
    } else if (object.contains(kUploaded)) {
        upload(image(kUploaded), record);
    } else if (object.contains(kConfirmed)) {
        record.processingConfirmed = flag(object, kConfirmed);
    } else if (object.contains(kEnded)) {
        endAttempt(text(object, kEnded), record);
    } else {
        throw Senseless();
    }
}

/// Goes from line to line, and counts them.
class Lines {
public:
    explicit Lines(const QByteArray& contents)
        : contents_(contents) {}

    std::optional<QByteArray> next() {
        const qsizetype end = contents_.indexOf('\n', position_);
        if (end < 0)
            return std::nullopt;
        ++number_;
        const QByteArray line = contents_.mid(position_, end - position_);
        position_ = end + 1;
        return line;
    }
    QByteArray expected() {
        auto line = next();
        if (!line)
            throw Senseless();
        return *std::move(line);
    }
    int number() const { return number_; }
    qint64 position() const { return position_; }

private:
    const QByteArray& contents_;
    qsizetype position_ = 0;
    int number_ = 0;
};

ExportRecord recordBegunBy(const QJsonObject& first) {
    const int version = first.value(kJournal).toInt();
    if (version < 1)
        throw Senseless();
    if (version != kVersion)
        throw AnotherVersion{version};
    ExportRecord record;
    record.begun = time(first, kBegun);
    record.service = text(first, kService);
    record.choices = choicesOf(first.value(kChoices).toObject());
    return record;
}

ExportRecord readBeginning(Lines& lines) {
    const QJsonObject first = parsed(lines.expected());
    ExportRecord record = recordBegunBy(first);
    const std::size_t count = wholeNumber(first.value(kCount), kMostImages + 1);
    for (std::size_t i = 0; i < count; ++i) {
        const QJsonObject object = parsed(lines.expected());
        if (wholeNumber(object.value(kImage), count) != i)
            throw Senseless();
        record.images.push_back(imageOf(object));
    }
    const std::size_t sentBefore = wholeNumber(first.value(kSentBefore), kMostImages + 1);
    for (std::size_t i = 0; i < sentBefore; ++i)
        record.sentBefore.push_back(sentNameOf(parsed(lines.expected())));
    return record;
}

} // namespace

QByteArray beginning(const ExportRecord& record) {
    QByteArray lines = line({{kJournal, kVersion},
                             {kService, record.service},
                             {kBegun, timeText(record.begun.toUTC())},
                             {kChoices, asObject(record.choices)},
                             {kCount, static_cast<qint64>(record.images.size())},
                             {kSentBefore, static_cast<qint64>(record.sentBefore.size())}});
    for (std::size_t i = 0; i < record.images.size(); ++i) {
        const RecordedImage& image = record.images[i];
        QJsonObject object{
            {kImage, static_cast<qint64>(i)}, {kSource, encodedSource(image.source)}, {kName, image.name}};
        if (image.project)
            object.insert(kProject, *image.project);
        insertStamp(image.stamp, object);
        lines += line(object);
    }
    for (const SentName& sent : record.sentBefore) {
        QJsonObject object{{kSentBefore, sent.folder},
                           {kSource, encodedSource(sent.source)},
                           {kName, sent.name},
                           {kBegun, timeText(sent.trace.exported.toUTC())}};
        insertStamp(sent.trace.stamp, object);
        if (sent.trace.captured.isValid())
            object.insert(kCaptured, timeText(sent.trace.captured));
        lines += line(object);
    }
    return lines;
}

QByteArray attemptBegan(const ExportChoices& choices, const std::vector<std::size_t>& images,
                        const QString& folder, const QByteArray& boot) {
    QJsonArray indices;
    for (const std::size_t index : images)
        indices.append(static_cast<qint64>(index));
    return line({{kAttempt, indices},
                 {kChoices, asObject(choices)},
                 {kFolder, folder},
                 {kBoot, QString::fromUtf8(boot)}});
}

QByteArray imagePrepared(std::size_t image, const QString& path) {
    return line({{kPrepared, static_cast<qint64>(image)}, {kPath, path}});
}

QByteArray imageCaptured(std::size_t image, const QDateTime& time) {
    return line({{kCaptured, static_cast<qint64>(image)}, {kTime, timeText(time)}});
}

QByteArray imageLeftOut(std::size_t image, const QString& reason) {
    return line({{kLeftOut, static_cast<qint64>(image)}, {kReason, reason}});
}

QByteArray imageFailed(std::size_t image, const QString& reason) {
    return line({{kFailed, static_cast<qint64>(image)}, {kReason, reason}});
}

QByteArray imageUploaded(std::size_t image) {
    return line({{kUploaded, static_cast<qint64>(image)}});
}

QByteArray processingConfirmed() {
    return line({{kConfirmed, true}});
}

QByteArray attemptEnded(const QString& reason) {
    return line({{kEnded, reason}});
}

bool apply(const QByteArray& line, ExportRecord& record) {
    try {
        applyObject(parsed(line), record);
        return true;
    } catch (const Senseless&) {
        return false;
    }
}

std::optional<ExportRecord> readFirstLine(const QByteArray& contents) {
    try {
        return recordBegunBy(parsed(Lines(contents).expected()));
    } catch (const Senseless&) {
        return std::nullopt;
    } catch (const AnotherVersion&) {
        return std::nullopt;
    }
}

std::optional<ExportRecord> read(const QByteArray& contents, qint64& length, QString& error) {
    // A block that a power cut has kept from the disk reads as zeros: nothing behind it counts. What is lost
    // that way is sent again.
    const qsizetype zero = contents.indexOf('\0');
    const QByteArray written = zero < 0 ? contents : contents.left(zero);
    Lines lines(written);
    try {
        ExportRecord record = readBeginning(lines);
        while (const auto line = lines.next())
            applyObject(parsed(*line), record);
        length = lines.position();
        return record;
    } catch (const Senseless&) {
        error = lines.number() == 0 ? QStringLiteral("it is no journal of an export")
                                    : QStringLiteral("it is damaged at or after line %1").arg(lines.number());
        return std::nullopt;
    } catch (const AnotherVersion& another) {
        error =
            QStringLiteral("it was kept by another version of the program, in the form %1; this one keeps "
                           "and reads the form %2")
                .arg(another.version)
                .arg(kVersion);
        return std::nullopt;
    }
}

} // namespace host::journal_format
