#include "platform/Image.h"
#include "plugin/Quillmark.h"
#include "plugin/TextFormat.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <algorithm>

namespace {

/// An image of at most this many pixels on both sides is never resized.
constexpr std::uint32_t kLargestSideKept = 1280;
/// What a path must fit into, with the zero that ends it.
constexpr qsizetype kPathBufferSize = 4096;
/// The host's count is a hint of how much room to make, not a reason to run out of memory.
constexpr std::uint32_t kMostRoomMade = 100'000;

const QString kExtension = QStringLiteral(".jpg");
const QString kEventFolderFormat = QStringLiteral("%@/");
const QString kCategoryFolderFormat = QStringLiteral("%@/%@/");
const QString kCategoryWithoutProject = QStringLiteral("Untitled");
const QString kProPhotoResource = QStringLiteral("ProPhotoRGB");
const QString kProfileType = QStringLiteral("icc");

struct PixelSize {
    std::int32_t width;
    std::int32_t height;
};

/// The box may enlarge the image: the scale is not limited to 1.
PixelSize sizeInBox(const platform::Image& image, std::int32_t boxWidth, std::int32_t boxHeight) {
    const double width = image.width();
    const double height = image.height();
    const double scale = std::min(boxWidth / width, boxHeight / height);
    return {static_cast<std::int32_t>(width * scale), static_cast<std::int32_t>(height * scale)};
}

std::optional<QByteArray> preparedJPEG(const Quillmark& plugIn, const platform::Image& image) {
    const double quality = plugIn.imageQuality / Quillmark::kBestImageQuality;
    if (!plugIn.doResizeImages() || (image.width() <= kLargestSideKept && image.height() <= kLargestSideKept))
        return image.asJPEG(quality);
    const PixelSize size = sizeInBox(image, plugIn.maxWidthValue, plugIn.maxHeightValue);
    return image.scaledJPEG(size.width, size.height, *plugIn.selectedColorspace.load(), quality);
}

/// The relative path with "jpg" for its extension. A dot that begins a name begins no extension.
QString outputName(const QString& relativePath) {
    const qsizetype nameStart = relativePath.lastIndexOf(QLatin1Char('/')) + 1;
    const qsizetype dot = relativePath.lastIndexOf(QLatin1Char('.'));
    return (dot > nameStart ? relativePath.left(dot) : relativePath) + kExtension;
}

/// Whether the path names a file in the export folder or below it.
bool staysInside(const QString& relativePath) {
    if (relativePath.contains(QChar(u'\0')))
        return false;
    const QStringList components = relativePath.split(QLatin1Char('/'));
    return std::none_of(components.begin(), components.end(), [](const QString& component) {
        return component.isEmpty() || component == QLatin1String(".") || component == QLatin1String("..");
    });
}

/// Without an export folder there is no URL: the root is not meant.
QUrl fileURLInFolder(const QString& folder, const QString& name) {
    if (folder.isEmpty())
        return {};
    return QUrl::fromLocalFile(folder.endsWith(QLatin1Char('/')) ? folder + name
                                                                 : folder + QLatin1Char('/') + name);
}

/// Writes a new file, with the folders that the host's relative path asks for. What is left of an attempt
/// that failed is removed: half an image must not be uploaded as a whole one.
bool writeFile(const QString& path, const QByteArray& contents) {
    QDir().mkpath(QFileInfo(path).path());
    QFile::remove(path); // Not overwritten: it could be a link to a file elsewhere.
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly))
        return false;
    const bool whole = file.write(contents) == contents.size() && file.flush();
    file.close();
    if (!whole || file.error() != QFileDevice::NoError) {
        file.remove();
        return false;
    }
    return true;
}

/// The category that the image goes to, as it stands: what can't be sent, the upload refuses.
std::optional<QString> categoryOf(const Quillmark& plugIn, const QString& project) {
    if (!plugIn.autoCreateCategories())
        return plugIn.chosenCategory();
    return project.isEmpty() ? kCategoryWithoutProject : project;
}

void makeHandOverLists(Quillmark& plugIn) {
    const auto room = static_cast<qsizetype>(std::min(plugIn._exportManager->imageCount(), kMostRoomMade));
    for (auto* list : {&plugIn.exportedImagePaths, &plugIn.exportFTPFolders}) {
        if (!*list) {
            *list = std::make_shared<QStringList>();
            (*list)->reserve(room);
        }
    }
    if (!plugIn.ftpPaths) {
        plugIn.ftpPaths = std::make_shared<std::deque<std::optional<QString>>>();
        plugIn.ftpPaths->push_back(formattedText(kEventFolderFormat, {plugIn.chosenEventId()}));
    }
}

void handOver(Quillmark& plugIn, const QString& path, const QString& project) {
    makeHandOverLists(plugIn);
    plugIn.exportedImagePaths->append(path);
    const QString folder =
        formattedText(kCategoryFolderFormat, {plugIn.chosenEventId(), categoryOf(plugIn, project)});
    plugIn.exportFTPFolders->append(folder);
    auto& folders = *plugIn.ftpPaths;
    if (std::find(folders.begin(), folders.end(), folder) == folders.end())
        folders.push_back(folder);
}

} // namespace

bool Quillmark::exportManagerShouldWriteImageData(const QByteArray& imageData, const QString& relativePath,
                                                  std::uint32_t index) {
    const auto image = staysInside(relativePath) ? platform::Image::open(imageData) : nullptr;
    const auto jpeg = image ? preparedJPEG(*this, *image) : std::nullopt;
    if (!jpeg) {
        environment->observer.imageLeftOut(index);
        return false;
    }

    const QVariantMap properties = _exportManager->propertiesForImageAtIndex(index);
    const QString project = properties.value(hostapi::kExportKeyProjectName).toString();
    const QUrl fileURL = fileURLInFolder(_exportPath, outputName(relativePath));
    const auto path = fileSystemStringOfPath(fileURL);
    if (!path) { // Too long: there is no file that the upload could be given.
        environment->observer.imageLeftOut(index);
        return false;
    }
    const bool written = writeFile(*path, *jpeg);

    totalBytes += sizeOfFileAtPath(fileURL);
    handOver(*this, *path, project);
    changeProgress([](hostapi::ExportProgress& progress) {
        progress.currentValue += 1;
        progress.message = preparationMessage(progress.currentValue, progress.totalValue);
    });
    // A file that could not be written stays in the lists: the upload stops at it and tells the user.
    if (written)
        environment->observer.imagePrepared(index, *path);
    return false;
}

std::shared_ptr<ColorSpaceList> Quillmark::initColorspaceList() {
    const auto path = mainBundle->pathForResource(kProPhotoResource, kProfileType);
    QFile file(path.value_or(QString()));
    if (!path || !file.open(QIODevice::ReadOnly))
        return nullptr;
    auto proPhoto = platform::ColorSpace::fromICCProfile(file.readAll());
    if (!proPhoto)
        return nullptr;

    auto list = std::make_shared<ColorSpaceList>(ColorSpaceList{
        platform::ColorSpace::sRGB(), platform::ColorSpace::adobeRGB1998(), std::move(proPhoto)});
    selectedColorspace = list->front().get();
    return list;
}

void Quillmark::changeColorspace(QObject*) {
    // The chooser stores its choice in `selectedColorspace` directly.
}

std::optional<QString> Quillmark::fileSystemStringOfPath(const QUrl& fileURL) {
    const QByteArray path = QFile::encodeName(fileURL.toLocalFile());
    if (path.isEmpty() || path.contains('\0') || path.size() >= kPathBufferSize)
        return std::nullopt;
    return QFile::decodeName(path);
}

std::uint64_t Quillmark::sizeOfFileAtPath(const QUrl& fileURL) {
    const auto path = fileSystemStringOfPath(fileURL);
    return path ? static_cast<std::uint64_t>(QFileInfo(*path).size()) : 0;
}
