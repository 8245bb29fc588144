#include "host/core/UniqueNames.h"

#include <QtCore/QElapsedTimer>

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

TEST(UniqueNames, AreNeverTooLongForTheFilesThatAreMadeOfThem) {
    const QString longest = QString(251, QLatin1Char('x'));
    const auto names = uniqueNames({longest + QStringLiteral(".jpg"), longest + QStringLiteral(".tif"),
                                    longest + QStringLiteral("yy.p"), QString(255, QLatin1Char('z'))});
    EXPECT_EQ(names[0], longest + QStringLiteral(".jpg"));
    EXPECT_EQ(names[1], QString(249, QLatin1Char('x')) + QStringLiteral("-2.tif"));
    EXPECT_EQ(names[2], QString(249, QLatin1Char('x')) + QStringLiteral("-3.p"));
    EXPECT_EQ(names[3], QString(251, QLatin1Char('z')));
}

TEST(UniqueNames, AreShortenedWithoutSplittingACharacter) {
    for (const char* const character : {"é", "写", "😀"}) {
        const QString name = QString::fromUtf8(character).repeated(100) + QStringLiteral("aaa");
        for (const QString& unique : uniqueNames({name.repeated(3), name.repeated(3)})) {
            EXPECT_LE(host::preparedName(unique).toUtf8().size(), 255);
            EXPECT_GT(host::preparedName(unique).toUtf8().size(), 251);
            EXPECT_EQ(QString::fromUtf8(unique.toUtf8()), unique);
        }
    }
}

TEST(UniqueNames, PassOverReservedStems) {
    const QSet<QString> reserved{host::stemKey(QStringLiteral("A.jpg")),
                                 host::stemKey(QStringLiteral("a-2.tif"))};
    EXPECT_EQ(uniqueNames(texts({"a.png", "b.png", "A.tif"}), reserved),
              texts({"a-3.png", "b.png", "A-4.tif"}));
}

TEST(UniqueNames, OfThousandsOfEqualOnesAreFoundAtOnce) {
    QElapsedTimer clock;
    clock.start();
    const auto names = uniqueNames(std::vector<QString>(20'000, QStringLiteral("a.jpg")));
    EXPECT_EQ(names.back(), QStringLiteral("a-20000.jpg"));
    // A number that was tried for each would take a minute.
    EXPECT_LT(clock.elapsed(), 5'000);
}

TEST(UniqueNames, HoldNoControlCharacters) {
    EXPECT_EQ(uniqueNames(texts({"new\nline.jpg", "tab\there\x7f.t\rif", "next\u0085line.png"})),
              texts({"new_line.jpg", "tab_here_.t_if", "next_line.png"}));
}

TEST(UniqueNames, ThatHadToBeChangedGiveWayToThoseThatFilesBringAlong) {
    EXPECT_EQ(uniqueNames(texts({"a\nb.jpg", "a\tb.jpg", "a_b.tif"})),
              texts({"a_b-2.jpg", "a_b-3.jpg", "a_b.tif"}));
}
