#include "host/desktop/PictureReader.h"

#include "platform/ColorSpace.h"
#include "platform/Image.h"

#include <malloc.h>

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <new>

namespace host::desktop {

namespace {

using platform::Image;
using platform::ImageFile;

/// What the pictures that are decoded at the same time hold together, of the table and of the preview. One
/// that holds more is decoded alone.
constexpr std::uint64_t kDecodingBytes = std::uint64_t{96} << 20;

/// A part of `kDecodingBytes`, for as long as it lives. Whoever came first gets it first: small pictures
/// would keep a large one waiting.
class DecodingShare {
public:
    explicit DecodingShare(std::uint64_t bytes)
        : bytes_(std::min(bytes, kDecodingBytes)) {
        std::unique_lock lock(mutex);
        const unsigned number = lastNumber++;
        changed.wait(lock, [this, number] { return number == nextNumber && bytes_ <= free; });
        ++nextNumber;
        free -= bytes_;
        changed.notify_all();
    }
    ~DecodingShare() {
        const std::lock_guard lock(mutex);
        free += bytes_;
        changed.notify_all();
    }
    DecodingShare(const DecodingShare&) = delete;
    DecodingShare& operator=(const DecodingShare&) = delete;

private:
    static inline std::mutex mutex;
    static inline std::condition_variable changed;
    static inline unsigned lastNumber = 0;
    static inline unsigned nextNumber = 0;
    static inline std::uint64_t free = kDecodingBytes;

    const std::uint64_t bytes_;
};

} // namespace

QImage readPicture(const QByteArray& path, int side, const std::function<void()>& makeRoom) {
    try {
        const auto file = ImageFile::open(path);
        if (!file)
            return {};
        const std::uint64_t bytes = Image::bytesHeld(*file);
        const DecodingShare share(bytes);
        if (bytes > kDecodingBytes)
            makeRoom();
        const auto image = Image::openFile(file);
        const QImage picture = image ? image->uprightWithin(side, *platform::ColorSpace::sRGB()) : QImage();
        if (bytes > kDecodingBytes)
            ::malloc_trim(0);
        return picture;
    } catch (const std::bad_alloc&) {
        return {};
    }
}

} // namespace host::desktop
