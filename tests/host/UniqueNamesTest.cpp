#include "host/core/UniqueNames.h"

#include <gtest/gtest.h>

using host::stemOf;
using host::uniqueNames;

namespace {

std::vector<QString> texts(std::initializer_list<const char*> names) {
    std::vector<QString> result;
    for (const char* name : names)
        result.push_back(QString::fromUtf8(name));
    return result;
}

} // namespace

TEST(UniqueNames, LeavesNamesWithDifferentStemsAlone) {
    const auto names = texts({"a.tif", "b.tif", "c"});
    EXPECT_EQ(uniqueNames(names), names);
}

TEST(UniqueNames, NumberFurtherFilesOfTheSameStemBehindIt) {
    EXPECT_EQ(uniqueNames(texts({"a.tif", "a.png", "a.jpg"})), texts({"a.tif", "a-2.png", "a-3.jpg"}));
}

TEST(UniqueNames, TakeStemsThatDifferInTheirLettersCaseForEqual) {
    EXPECT_EQ(uniqueNames(texts({"IMG_1.JPG", "img_1.tif", "Łódź.png", "łÓDŹ.png"})),
              texts({"IMG_1.JPG", "img_1-2.tif", "Łódź.png", "łÓDŹ-2.png"}));
}

TEST(UniqueNames, NeverTakeTheStemThatAnotherFileBringsAlong) {
    EXPECT_EQ(uniqueNames(texts({"a.tif", "a.png", "a-2.jpg"})), texts({"a.tif", "a-3.png", "a-2.jpg"}));
    EXPECT_EQ(uniqueNames(texts({"A-2.jpg", "a.tif", "a.png"})), texts({"A-2.jpg", "a.tif", "a-3.png"}));
}

TEST(UniqueNames, NumberTheSameFileNamedTwice) {
    EXPECT_EQ(uniqueNames(texts({"a.tif", "a.tif"})), texts({"a.tif", "a-2.tif"}));
}

TEST(UniqueNames, OnlyTheLastDotBeginsTheExtension) {
    EXPECT_EQ(stemOf(QStringLiteral("a.b.tif")), QStringLiteral("a.b"));
    EXPECT_EQ(stemOf(QStringLiteral(".hidden")), QStringLiteral(".hidden"));
    EXPECT_EQ(stemOf(QStringLiteral("plain")), QStringLiteral("plain"));
    EXPECT_EQ(uniqueNames(texts({"a.b.tif", "a.b.png", "a.c.png"})),
              texts({"a.b.tif", "a.b-2.png", "a.c.png"}));
}
