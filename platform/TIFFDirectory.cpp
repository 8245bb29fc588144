#include "platform/TIFFDirectory.h"

#include <QtCore/QtEndian>

#include <array>
#include <cstdint>

namespace platform {

namespace {

constexpr std::uint16_t kExtraSamplesTag = 338;
constexpr std::uint16_t kShortType = 3;
constexpr std::uint16_t kAssociatedAlpha = 1;
constexpr std::uint16_t kUnassociatedAlpha = 2;
constexpr std::uint16_t kBigTIFFVersion = 43;
/// Further ones aren't looked at: a chain may be a circle.
constexpr int kMostDirectories = 1000;

/// Bytes of a value by its type; 0 for types that don't exist.
constexpr std::array<std::uint64_t, 19> kTypeSizes{0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8, 4, 0, 0, 8, 8, 8};

/// Where what stands in a directory; the two kinds of file differ in nothing else.
struct Layout {
    std::uint64_t firstOffsetAt; ///< Of the directory's offset, in the file.
    std::uint64_t countSize;     ///< Of the number of entries.
    std::uint64_t entrySize;
    std::uint64_t valueAt;  ///< Of the value or its offset, in an entry.
    std::uint64_t wordSize; ///< Of offsets and counts; a value of at most this size stands in the entry.
};
constexpr Layout kClassic{4, 2, 12, 8, 4};
constexpr Layout kBig{8, 8, 20, 12, 8};

class Reader {
public:
    explicit Reader(QByteArrayView file)
        : file_(file)
        , isLittleEndian_(file.startsWith("II")) {}

    bool holds(std::uint64_t position, std::uint64_t count) const {
        const auto size = static_cast<std::uint64_t>(file_.size());
        return position <= size && count <= size - position;
    }

    std::uint16_t shortAt(std::uint64_t position) const { return number<std::uint16_t>(position); }
    std::uint64_t wordAt(std::uint64_t position, std::uint64_t size) const {
        switch (size) {
        case sizeof(std::uint16_t):
            return number<std::uint16_t>(position);
        case sizeof(std::uint32_t):
            return number<std::uint32_t>(position);
        default:
            return number<std::uint64_t>(position);
        }
    }

private:
    /// The caller has made sure that the file holds it.
    template <typename Number>
    Number number(std::uint64_t position) const {
        const char* at = file_.data() + position;
        return isLittleEndian_ ? qFromLittleEndian<Number>(at) : qFromBigEndian<Number>(at);
    }

    QByteArrayView file_;
    bool isLittleEndian_;
};

TIFFDirectory::ExtraSample extraSample(std::uint16_t value) {
    return value == kAssociatedAlpha || value == kUnassociatedAlpha ? TIFFDirectory::ExtraSample::Alpha
                                                                    : TIFFDirectory::ExtraSample::Unspecified;
}

/// Where the entry's value stands; without a value where that is not wholly in the file.
std::optional<std::uint64_t> valuePosition(const Reader& reader, const Layout& layout, std::uint64_t entry) {
    const std::uint16_t type = reader.shortAt(entry + 2);
    const std::uint64_t count = reader.wordAt(entry + 4, layout.wordSize);
    const std::uint64_t size = type < kTypeSizes.size() ? kTypeSizes[type] : 0;
    if (size == 0 || count <= layout.wordSize / size)
        return entry + layout.valueAt;
    const std::uint64_t position = reader.wordAt(entry + layout.valueAt, layout.wordSize);
    if (count > UINT64_MAX / size || !reader.holds(position, count * size))
        return std::nullopt;
    return position;
}

/// The directory at `*offset`, which becomes that of the next one, or 0.
std::optional<TIFFDirectory> directoryAt(const Reader& reader, const Layout& layout, std::uint64_t* offset) {
    if (!reader.holds(*offset, layout.countSize))
        return std::nullopt;
    const std::uint64_t count = reader.wordAt(*offset, layout.countSize);
    const std::uint64_t entries = *offset + layout.countSize;
    if (count > UINT16_MAX || !reader.holds(entries, count * layout.entrySize + layout.wordSize))
        return std::nullopt;

    TIFFDirectory directory;
    for (std::uint64_t i = 0; i < count; ++i) {
        const std::uint64_t entry = entries + i * layout.entrySize;
        const auto value = valuePosition(reader, layout, entry);
        if (!value)
            return std::nullopt;
        if (reader.shortAt(entry) == kExtraSamplesTag && reader.shortAt(entry + 2) == kShortType)
            directory.extraSample = extraSample(reader.shortAt(*value));
    }
    *offset = reader.wordAt(entries + count * layout.entrySize, layout.wordSize);
    return directory;
}

} // namespace

std::optional<TIFFDirectory> TIFFDirectory::read(QByteArrayView file) {
    const Reader reader(file);
    if (!reader.holds(0, kBig.firstOffsetAt))
        return std::nullopt;
    const Layout& layout = reader.shortAt(2) == kBigTIFFVersion ? kBig : kClassic;
    if (!reader.holds(layout.firstOffsetAt, layout.wordSize))
        return std::nullopt;

    std::uint64_t offset = reader.wordAt(layout.firstOffsetAt, layout.wordSize);
    const auto first = directoryAt(reader, layout, &offset);
    std::optional<TIFFDirectory> last = first;
    for (int i = 1; last && offset != 0 && i < kMostDirectories; ++i)
        last = directoryAt(reader, layout, &offset);
    return last ? first : std::nullopt;
}

} // namespace platform
