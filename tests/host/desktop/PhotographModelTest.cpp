#include "host/desktop/PhotographModel.h"

#include "host/desktop/PhotographFiles.h"
#include "tests/host/desktop/PhotographFolder.h"

#include <QtCore/QItemSelectionModel>
#include <QtTest/QAbstractItemModelTester>

#include <gtest/gtest.h>

#include <utime.h>

#include <cstdio>

using namespace host::desktop;

namespace {

class Model : public testing::Test {
protected:
    void add(const std::vector<QByteArray>& paths) { model_.add(findPhotographs(paths).photographs); }

    QString names() const {
        QStringList names;
        for (int row = 0; row < model_.rowCount(); ++row)
            names << model_.index(row).data().toString();
        return names.join(QLatin1Char(' '));
    }

    PhotographFolder folder_;
    PhotographModel model_;
    QAbstractItemModelTester tester_{&model_, QAbstractItemModelTester::FailureReportingMode::Fatal};
};

} // namespace

TEST_F(Model, AFolderStandsForThePicturesInIt) {
    for (const char* name : {"b.jpg", "a.PNG", "c.tif", "notes.txt"})
        folder_.file(QLatin1String(name), "x");
    QDir(folder_.path()).mkdir(QStringLiteral("folder.jpg"));
    add({folder_.bytes()});
    EXPECT_EQ(names().toStdString(), "a.PNG b.jpg c.tif");
    EXPECT_EQ(model_.photograph(0).project, QStringLiteral("Smith"));
    EXPECT_EQ(model_.photograph(0).type, QStringLiteral("png"));
}

TEST_F(Model, HiddenFilesOfAFolderArePassedOver) {
    for (const char* name : {"a.jpg", "._a.jpg", ".b.jpg"})
        folder_.file(QLatin1String(name), "x");
    add({folder_.bytes()});
    EXPECT_EQ(names().toStdString(), "a.jpg");
    // Who names one means it.
    add({folder_.bytes() + "/.b.jpg"});
    EXPECT_EQ(model_.rowCount(), 2);
}

TEST_F(Model, AFileThatIsNoPictureOrNotThereIsCounted) {
    const auto found =
        findPhotographs({folder_.file(QStringLiteral("a.jpg"), "x"),
                         folder_.file(QStringLiteral("notes.txt"), "x"), folder_.bytes() + "/nothing.jpg"});
    EXPECT_EQ(found.photographs.size(), 1U);
    EXPECT_EQ(found.othersCount, 2U);
}

TEST_F(Model, AProjectIsCalledWhatTheServerCanCallAFolder) {
    QDir().mkpath(folder_.filePath(QStringLiteral("new\nline")));
    const auto found = findPhotographs({folder_.file(QStringLiteral("new\nline/a.jpg"), "x")});
    ASSERT_EQ(found.photographs.size(), 1U);
    EXPECT_EQ(found.photographs[0].project, QStringLiteral("new_line"));
}

TEST_F(Model, AFileIsOnTheTableOnce) {
    const QByteArray path = folder_.file(QStringLiteral("a.jpg"), "x");
    add({path, path});
    add({folder_.bytes()});
    EXPECT_EQ(model_.rowCount(), 1);
}

TEST_F(Model, ANameThatIsNoUTF8KeepsItsBytes) {
    const QByteArray path = folder_.bytes() + "/caf\xE9.jpg";
    FILE* const file = fopen(path.constData(), "w");
    ASSERT_TRUE(file);
    fclose(file);
    add({folder_.bytes()});
    EXPECT_EQ(model_.photograph(0).path, path);
    std::remove(path.constData()); // Qt's temporary folder can't.
}

TEST_F(Model, NumbersInNamesSortByTheirValue) {
    for (const char* name : {"IMG_10.jpg", "img_9.jpg", "IMG_100.jpg"})
        folder_.file(QLatin1String(name), "x");
    add({folder_.bytes()});
    EXPECT_EQ(names().toStdString(), "img_9.jpg IMG_10.jpg IMG_100.jpg");
}

TEST_F(Model, SortsByTypeThenName) {
    for (const char* name : {"b.png", "c.jpg", "a.png"})
        folder_.file(QLatin1String(name), "x");
    add({folder_.bytes()});
    model_.setSortOrder(SortOrder::Type);
    EXPECT_EQ(names().toStdString(), "c.jpg a.png b.png");
}

TEST_F(Model, SortsByCaptureTimeAndElseByTheFilesOwn) {
    const QByteArray a = folder_.file(QStringLiteral("a.jpg"), "x");
    folder_.file(QStringLiteral("b.jpg"), "x");
    const QByteArray c = folder_.file(QStringLiteral("c.jpg"), "x");
    const utimbuf earlier{0, 1'000'000'000};
    ASSERT_EQ(utime(c.constData(), &earlier), 0);
    add({folder_.bytes()});
    model_.setSortOrder(SortOrder::CaptureTime);
    EXPECT_EQ(names().toStdString(), "c.jpg a.jpg b.jpg");
    model_.setCaptureTimes({{a, QDateTime(QDate(1999, 1, 1), QTime(0, 0))}});
    EXPECT_EQ(names().toStdString(), "a.jpg c.jpg b.jpg");
}

TEST_F(Model, ASelectionFollowsItsPhotographWhenTheOrderChanges) {
    for (const char* name : {"a.png", "b.jpg"})
        folder_.file(QLatin1String(name), "x");
    add({folder_.bytes()});
    QItemSelectionModel selection(&model_);
    selection.select(model_.index(0), QItemSelectionModel::Select);
    model_.setSortOrder(SortOrder::Type);
    ASSERT_EQ(selection.selectedIndexes().size(), 1);
    EXPECT_EQ(selection.selectedIndexes().first().data().toString(), QStringLiteral("a.png"));
    EXPECT_EQ(selection.selectedIndexes().first().row(), 1);
}

TEST_F(Model, AssistiveToolsReadNameProjectAndState) {
    const QByteArray path = folder_.file(QStringLiteral("a.jpg"), "x");
    add({path});
    model_.setState(path, Photograph::State::Unreadable);
    EXPECT_EQ(model_.index(0).data(Qt::AccessibleTextRole).toString().toStdString(),
              "a.jpg, project Smith, cannot be read");
}

TEST_F(Model, AToolTipShowsMarkupInANameAsItStands) {
    add({folder_.file(QStringLiteral("<b>a.jpg"), "x")});
    EXPECT_TRUE(model_.index(0).data(Qt::ToolTipRole).toString().contains(QStringLiteral("&lt;b&gt;a.jpg")));
}
