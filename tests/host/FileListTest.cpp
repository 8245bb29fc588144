#include "host/core/FileList.h"

#include <QtCore/QByteArrayList>
#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>

#include <gtest/gtest.h>

using host::fileList;

namespace {

class FileList : public testing::Test {
protected:
    /// What is read of a file with these contents; the error where nothing is.
    std::string read(const QByteArray& contents) {
        QFile file(folder_.filePath(QStringLiteral("list")));
        if (!file.open(QIODevice::WriteOnly))
            return "not written";
        file.write(contents);
        file.close();
        return readPath(QFile::encodeName(file.fileName()));
    }
    std::string readPath(const QByteArray& path) {
        QString error;
        const auto names = fileList(path, error);
        return names ? QByteArrayList(names->begin(), names->end()).join('|').toStdString()
                     : error.toStdString();
    }

    const QTemporaryDir folder_;
};

} // namespace

TEST_F(FileList, HoldsNamesOfAnyBytesEachEndedByAZero) {
    EXPECT_EQ(read(QByteArray("a b.jpg\0-c\nd.jpg\0\xFF.jpg\0", 23)), "a b.jpg|-c\nd.jpg|\xFF.jpg");
    EXPECT_EQ(read(QByteArray("a.jpg\0b.jpg", 11)), "a.jpg|b.jpg");
    EXPECT_EQ(read({}), "");
}

TEST_F(FileList, MayBeLong) {
    QByteArray contents;
    for (int i = 0; i < 100'000; ++i)
        contents += QByteArray::number(i) + '\0';
    EXPECT_EQ(read(contents).size(), static_cast<std::size_t>(contents.size()) - 1);
}

TEST_F(FileList, WithAnEmptyNameOrThatCannotBeReadIsRefused) {
    EXPECT_EQ(read(QByteArray("a\0\0b\0", 5)), "it has an empty name");
    EXPECT_EQ(readPath("/no/such"), "No such file or directory");
    EXPECT_EQ(readPath("/"), "Is a directory");
}
