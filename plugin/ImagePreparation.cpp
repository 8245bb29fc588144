#include "platform/Image.h"
#include "plugin/Quillmark.h"
#include "plugin/TextFormat.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QSaveFile>

#include <algorithm>

namespace {

/// Images of at most this many pixels on both sides are never resized.
constexpr std::uint32_t kLargestUnresizedSide = 1280;
/// What `imageQuality` counts in: this is the best.
constexpr double kBestQuality = 12.0;
constexpr std::size_t kPathBufferSize = 4096;

const QString kPreparingFormat = QStringLiteral("Step 1 of 3: Preparing Image %1 of %2...");
const QString kEventFolderFormat = QStringLiteral("%@/");
const QString kCategoryFolderFormat = QStringLiteral("%@/%@/");

} // namespace

bool Quillmark::exportManagerShouldWriteImageData(const QByteArray& imageData, const QString& relativePath,
                                                  std::uint32_t index) {
    (void)imageData;
    (void)relativePath;
    (void)index;
    return false;
}

std::shared_ptr<ColorSpaceList> Quillmark::initColorspaceList() {
    const auto path = mainBundle->pathForResource(QStringLiteral("ProPhotoRGB"), QStringLiteral("icc"));
    if (!path)
        return nullptr;
    QFile file(*path);
    if (!file.open(QIODevice::ReadOnly))
        return nullptr;
    auto proPhoto = platform::ColorSpace::fromICCProfile(file.readAll());
    if (!proPhoto)
        return nullptr;
    auto list = std::make_shared<ColorSpaceList>();
    *list = {platform::ColorSpace::sRGB(), platform::ColorSpace::adobeRGB1998(), std::move(proPhoto)};
    selectedColorspace = list->front().get();
    return list;
}

void Quillmark::changeColorspace(QObject*) {}

std::optional<QString> Quillmark::fileSystemStringOfPath(const QUrl& fileURL) {
    const QByteArray path = QFile::encodeName(fileURL.toLocalFile());
    if (path.isEmpty() || static_cast<std::size_t>(path.size()) >= kPathBufferSize)
        return std::nullopt;
    return QFile::decodeName(path);
}

std::uint64_t Quillmark::sizeOfFileAtPath(const QUrl& fileURL) {
    const auto path = fileSystemStringOfPath(fileURL);
    if (!path)
        return 0;
    const QFileInfo info(*path);
    return info.exists() ? static_cast<std::uint64_t>(info.size()) : 0;
}
