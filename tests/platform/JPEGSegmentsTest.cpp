// Where an ICC profile goes in a JPEG, and how it is cut to fit.

#include "platform/JPEGSegments.h"
#include "tests/support/Pictures.h"

#include <gtest/gtest.h>

using platform::withICCProfile;
using test_support::embeddedProfile;
using test_support::segments;

namespace {

constexpr qsizetype kBytesPerSegment = 65519;
const QByteArray kJFIF("\xFF\xE0\0\x08JFIF\0\x01", 10);
const QByteArray kTables("\xFF\xDB\0\x03\x07", 5);
const QByteArray kStart("\xFF\xD8");

QByteArray bytes(qsizetype count) {
    QByteArray result(count, Qt::Uninitialized);
    for (qsizetype i = 0; i < count; ++i)
        result[i] = static_cast<char>(i * 7 + i / 251);
    return result;
}

} // namespace

TEST(JPEGSegments, TheProfileFollowsTheJFIFSegment) {
    const auto jpeg = withICCProfile(kStart + kJFIF + kTables, "profile");
    ASSERT_TRUE(jpeg);
    EXPECT_TRUE(
        jpeg->startsWith(kStart + kJFIF + QByteArray("\xFF\xE2\0\x17ICC_PROFILE\0\x01\x01profile", 25)));
    EXPECT_TRUE(jpeg->endsWith("profile" + kTables));
}

TEST(JPEGSegments, WithoutAJFIFSegmentTheProfileComesFirst) {
    const auto jpeg = withICCProfile(kStart + kTables, "profile");
    ASSERT_TRUE(jpeg);
    EXPECT_TRUE(jpeg->startsWith(kStart + "\xFF\xE2"));
    EXPECT_TRUE(jpeg->endsWith("profile" + kTables));
}

TEST(JPEGSegments, ALongProfileIsCutIntoNumberedSegments) {
    const std::vector<std::pair<qsizetype, std::size_t>> sizes{{kBytesPerSegment, 1},
                                                               {kBytesPerSegment + 1, 2},
                                                               {3 * kBytesPerSegment, 3},
                                                               {255 * kBytesPerSegment, 255}};
    for (const auto& [size, count] : sizes) {
        SCOPED_TRACE(size);
        const QByteArray profile = bytes(size);
        const auto jpeg = withICCProfile(kStart + kTables, profile);
        ASSERT_TRUE(jpeg);
        EXPECT_EQ(segments(*jpeg).size(), count + 1);
        EXPECT_EQ(embeddedProfile(*jpeg), profile);
    }
}

TEST(JPEGSegments, AProfileOfMoreThan255SegmentsDoesNotFit) {
    EXPECT_FALSE(withICCProfile(kStart + kTables, bytes(255 * kBytesPerSegment + 1)));
}

TEST(JPEGSegments, WhatIsNoJPEGIsRefused) {
    EXPECT_FALSE(withICCProfile("", "profile"));
    EXPECT_FALSE(withICCProfile("\xFF", "profile"));
    EXPECT_FALSE(withICCProfile("GIF89a", "profile"));
}

TEST(JPEGSegments, ACutOffJFIFSegmentIsNotReadBehindItsEnd) {
    EXPECT_TRUE(withICCProfile(kStart + kJFIF.left(2), "profile"));
    EXPECT_TRUE(withICCProfile(kStart + kJFIF.left(5), "profile"));
}
