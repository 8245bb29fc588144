#include "host/core/PhotographFile.h"

#include "tests/host/desktop/PhotographFolder.h"
#include "tests/support/Pictures.h"

#include <gtest/gtest.h>

using host::readCaptureTime;

TEST(PhotographFile, TellsWhenItWasTaken) {
    PhotographFolder folder;
    vips::VImage picture = test_support::gradient(64, 64);
    picture.set("exif-ifd2-DateTimeOriginal", "2024:06:01 15:04:05");
    const QDateTime expected(QDate(2024, 6, 1), QTime(15, 4, 5));
    EXPECT_EQ(readCaptureTime(folder.file(QStringLiteral("a.jpg"), test_support::file(picture, ".jpg"))),
              expected);
    EXPECT_FALSE(readCaptureTime(folder.picture(QStringLiteral("b.jpg"))).isValid());
    EXPECT_FALSE(readCaptureTime(folder.file(QStringLiteral("c.jpg"), "no picture")).isValid());
}

TEST(PhotographFile, TellsWhenItWasTakenWithoutBeingReadWhole) {
    PhotographFolder folder;
    vips::VImage picture = test_support::noise(800, 800);
    picture.set("exif-ifd2-DateTimeOriginal", "2024:06:01 15:04:05");
    const QByteArray bytes = test_support::file(picture, ".jpg[Q=100]");
    ASSERT_GT(bytes.size(), 512 * 1024);
    const QByteArray path = folder.file(QStringLiteral("a.jpg"), bytes.left(300 * 1024));
    EXPECT_TRUE(readCaptureTime(path).isValid());
}
