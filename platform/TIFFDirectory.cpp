#include "platform/TIFFDirectory.h"

#include <QtCore/QtEndian>

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

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

/// Some bytes of the file, at hand.
class Block {
public:
    Block(QByteArray bytes, bool isLittleEndian)
        : bytes_(std::move(bytes))
        , isLittleEndian_(isLittleEndian) {}

    std::uint16_t shortAt(std::uint64_t offset) const { return number<std::uint16_t>(offset); }
    std::uint64_t wordAt(std::uint64_t offset, std::uint64_t size) const {
        switch (size) {
        case sizeof(std::uint16_t):
            return number<std::uint16_t>(offset);
        case sizeof(std::uint32_t):
            return number<std::uint32_t>(offset);
        default:
            return number<std::uint64_t>(offset);
        }
    }

private:
    /// The caller has made sure that the block holds it.
    template <typename Number>
    Number number(std::uint64_t offset) const {
        const char* at = bytes_.constData() + offset;
        return isLittleEndian_ ? qFromLittleEndian<Number>(at) : qFromBigEndian<Number>(at);
    }

    QByteArray bytes_;
    bool isLittleEndian_;
};

class Reader {
public:
    Reader(std::uint64_t size, const TIFFDirectory::Bytes& bytes)
        : size_(size)
        , bytes_(bytes)
        , isLittleEndian_(bytes(0, 2) == "II") {}

    bool holds(std::uint64_t position, std::uint64_t count) const {
        return position <= size_ && count <= size_ - position;
    }
    /// Without a value where the file does not hold it.
    std::optional<Block> block(std::uint64_t position, std::uint64_t count) const {
        if (!holds(position, count))
            return std::nullopt;
        QByteArray bytes = bytes_(position, count);
        if (static_cast<std::uint64_t>(bytes.size()) < count)
            return std::nullopt;
        return Block(std::move(bytes), isLittleEndian_);
    }
    std::optional<std::uint64_t> word(std::uint64_t position, std::uint64_t size) const {
        const auto found = block(position, size);
        return found ? std::optional(found->wordAt(0, size)) : std::nullopt;
    }

private:
    const std::uint64_t size_;
    const TIFFDirectory::Bytes& bytes_;
    const bool isLittleEndian_;
};

TIFFDirectory::ExtraSample extraSample(std::uint16_t value) {
    return value == kAssociatedAlpha || value == kUnassociatedAlpha ? TIFFDirectory::ExtraSample::Alpha
                                                                    : TIFFDirectory::ExtraSample::Unspecified;
}

/// Where the value of the entry at `entry` of the directory's `entries`, which stand at `position`, stands;
/// without a value where that is not wholly in the file.
std::optional<std::uint64_t> valuePosition(const Reader& reader, const Layout& layout, const Block& entries,
                                           std::uint64_t position, std::uint64_t entry) {
    const std::uint16_t type = entries.shortAt(entry + 2);
    const std::uint64_t count = entries.wordAt(entry + 4, layout.wordSize);
    const std::uint64_t size = type < kTypeSizes.size() ? kTypeSizes[type] : 0;
    if (size == 0 || count <= layout.wordSize / size)
        return position + entry + layout.valueAt;
    const std::uint64_t value = entries.wordAt(entry + layout.valueAt, layout.wordSize);
    if (count > UINT64_MAX / size || !reader.holds(value, count * size))
        return std::nullopt;
    return value;
}

/// The directory at `*offset`, which becomes that of the next one, or 0.
std::optional<TIFFDirectory> directoryAt(const Reader& reader, const Layout& layout, std::uint64_t* offset) {
    const auto count = reader.word(*offset, layout.countSize);
    if (!count || *count > UINT16_MAX)
        return std::nullopt;
    const std::uint64_t position = *offset + layout.countSize;
    const auto entries = reader.block(position, *count * layout.entrySize + layout.wordSize);
    if (!entries)
        return std::nullopt;

    std::optional<std::uint64_t> extraSampleAt;
    for (std::uint64_t i = 0; i < *count; ++i) {
        const std::uint64_t entry = i * layout.entrySize;
        const auto value = valuePosition(reader, layout, *entries, position, entry);
        if (!value)
            return std::nullopt;
        if (entries->shortAt(entry) == kExtraSamplesTag && entries->shortAt(entry + 2) == kShortType)
            extraSampleAt = value;
    }
    *offset = entries->wordAt(*count * layout.entrySize, layout.wordSize);
    TIFFDirectory directory;
    if (extraSampleAt) {
        const auto value = reader.word(*extraSampleAt, sizeof(std::uint16_t));
        if (!value)
            return std::nullopt;
        directory.extraSample = extraSample(static_cast<std::uint16_t>(*value));
    }
    return directory;
}

} // namespace

std::optional<TIFFDirectory> TIFFDirectory::read(QByteArrayView file) {
    return read(static_cast<std::uint64_t>(file.size()), [file](std::uint64_t position, std::uint64_t count) {
        const auto size = static_cast<std::uint64_t>(file.size());
        return QByteArray::fromRawData(file.data() + position,
                                       static_cast<qsizetype>(std::min(count, size - position)));
    });
}

std::optional<TIFFDirectory> TIFFDirectory::read(std::uint64_t size, const Bytes& bytes) {
    const Reader reader(size, bytes);
    if (!reader.holds(0, kBig.firstOffsetAt))
        return std::nullopt;
    const auto version = reader.word(2, sizeof(std::uint16_t));
    const Layout& layout = version == kBigTIFFVersion ? kBig : kClassic;
    auto offset = reader.word(layout.firstOffsetAt, layout.wordSize);
    if (!offset)
        return std::nullopt;

    const auto first = directoryAt(reader, layout, &*offset);
    std::optional<TIFFDirectory> last = first;
    for (int i = 1; last && *offset != 0 && i < kMostDirectories; ++i)
        last = directoryAt(reader, layout, &*offset);
    return last ? first : std::nullopt;
}

} // namespace platform
