#include "platform/JPEGSegments.h"

#include <QtCore/QtEndian>

#include <algorithm>

namespace platform {

namespace {

constexpr qsizetype kMarkerSize = 2;
constexpr qsizetype kLengthSize = 2; // A segment's length counts itself, not the marker.
constexpr qsizetype kLongestSegment = 65535;
constexpr char kStartOfImage[] = "\xFF\xD8";
constexpr char kJFIF[] = "\xFF\xE0";
constexpr char kICC[] = "\xFF\xE2";
constexpr char kICCIdentifier[] = "ICC_PROFILE"; // With the closing zero.
constexpr qsizetype kICCNumbersSize = 2;         // This segment's number, from 1, and how many there are.
constexpr qsizetype kICCHeaderSize = kLengthSize + qsizetype(sizeof kICCIdentifier) + kICCNumbersSize;
constexpr qsizetype kBytesPerSegment = kLongestSegment - kICCHeaderSize;
constexpr qsizetype kMostSegments = 255;

// Bytes after 0xFF, in ITU T.81, table B.1.
constexpr unsigned char kFill = 0xFF;
constexpr unsigned char kStuffing = 0x00;
constexpr unsigned char kTemporary = 0x01;
constexpr unsigned char kFirstRestart = 0xD0;
constexpr unsigned char kStartOfAnImage = 0xD8; // The last that stands without a segment, but for the next.
constexpr unsigned char kEndOfImage = 0xD9;
constexpr unsigned char kStartOfScan = 0xDA;

bool beginsSegment(unsigned char marker) {
    return marker != kStuffing && marker != kTemporary &&
           (marker < kFirstRestart || marker > kStartOfAnImage);
}

bool markerStands(const QByteArray& jpeg, qsizetype position, const char* marker) {
    return jpeg.size() >= position + kMarkerSize && jpeg[position] == marker[0] &&
           jpeg[position + 1] == marker[1];
}

/// Where the ICC segments go; JFIF's segment has to come before any other.
qsizetype insertionPoint(const QByteArray& jpeg) {
    if (!markerStands(jpeg, kMarkerSize, kJFIF) || jpeg.size() < 2 * kMarkerSize + kLengthSize)
        return kMarkerSize;
    const auto length = qFromBigEndian<quint16>(jpeg.constData() + 2 * kMarkerSize);
    return std::min(2 * kMarkerSize + qsizetype(length), jpeg.size());
}

void appendSegment(QByteArray& out, QByteArrayView part, qsizetype number, qsizetype count) {
    const quint16 length = qToBigEndian(static_cast<quint16>(kICCHeaderSize + part.size()));
    out.append(kICC, kMarkerSize);
    out.append(reinterpret_cast<const char*>(&length), kLengthSize);
    out.append(kICCIdentifier, sizeof kICCIdentifier);
    out.append(static_cast<char>(number));
    out.append(static_cast<char>(count));
    out.append(part);
}

} // namespace

std::optional<QByteArray> withICCProfile(const QByteArray& jpeg, const QByteArray& profile) {
    const qsizetype count = (profile.size() + kBytesPerSegment - 1) / kBytesPerSegment;
    if (count > kMostSegments || !markerStands(jpeg, 0, kStartOfImage))
        return std::nullopt;

    const qsizetype split = insertionPoint(jpeg);
    QByteArray out;
    out.reserve(jpeg.size() + profile.size() + count * (kMarkerSize + kICCHeaderSize));
    out.append(QByteArrayView(jpeg).first(split));
    for (qsizetype i = 0; i < count; ++i)
        appendSegment(out,
                      QByteArrayView(profile)
                          .sliced(i * kBytesPerSegment)
                          .first(std::min(kBytesPerSegment, profile.size() - i * kBytesPerSegment)),
                      i + 1, count);
    out.append(QByteArrayView(jpeg).sliced(split));
    return out;
}

int scanCount(QByteArrayView jpeg) {
    int count = 0;
    qsizetype at = 0;
    while ((at = jpeg.indexOf(static_cast<char>(kFill), at)) >= 0 && ++at < jpeg.size()) {
        const auto marker = static_cast<unsigned char>(jpeg[at]);
        if (marker == kEndOfImage)
            break;
        if (marker == kFill || !beginsSegment(marker))
            continue;
        if (marker == kStartOfScan)
            ++count;
        if (++at + kLengthSize <= jpeg.size())
            at += qFromBigEndian<quint16>(jpeg.data() + at);
    }
    return count;
}

} // namespace platform
