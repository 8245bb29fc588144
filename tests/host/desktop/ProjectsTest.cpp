#include "tests/host/desktop/LightTableWindow.h"

#include <QtWidgets/QDialogButtonBox>
#include <QtWidgets/QLineEdit>

using namespace host::desktop;
using test_support::waitUntil;

TEST_F(LightTableWindow, AProjectIsRenamedForTheSelection) {
    fill(3);
    EXPECT_FALSE(action("Rename Project")->isEnabled());
    table()->selectionModel()->select(index(1), QItemSelectionModel::Select);
    QTimer::singleShot(0, [] {
        auto* const dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
        ASSERT_TRUE(dialog);
        auto* const field = dialog->findChild<QLineEdit*>();
        EXPECT_EQ(field->text(), QStringLiteral("Smith"));
        field->setText(QStringLiteral("Jones"));
        dialog->accept();
    });
    action("Rename Project")->trigger();
    EXPECT_EQ(index(0).data(PhotographModel::ProjectRole).toString(), QStringLiteral("Smith"));
    EXPECT_EQ(index(1).data(PhotographModel::ProjectRole).toString(), QStringLiteral("Jones"));
    auto* const label = window_.findChild<QLabel*>(QStringLiteral("selectionLabel"));
    EXPECT_EQ(label->text().toStdString(), "1 of 3 photographs selected, project “Jones”");
    table()->selectAll();
    EXPECT_EQ(label->text().toStdString(), "3 of 3 photographs selected, several projects");
}

TEST_F(LightTableWindow, ARenamedProjectOutlastsAClearedTable) {
    fill(2);
    static_cast<PhotographModel*>(model())->setProject({index(1)}, QStringLiteral("Jones"));
    action("Clear the Light Table")->trigger();
    open({folder_.bytes()}, 2);
    EXPECT_EQ(index(0).data(PhotographModel::ProjectRole).toString(), QStringLiteral("Smith"));
    EXPECT_EQ(index(1).data(PhotographModel::ProjectRole).toString(), QStringLiteral("Jones"));
}

TEST_F(LightTableWindow, AProjectsNameThatNoFolderCouldHaveIsRefused) {
    fill(1);
    table()->selectAll();
    const std::vector<QString> refused{
        QStringLiteral("a/b"),          QStringLiteral(".."), QStringLiteral("."),
        QStringLiteral("Smith\nJones"), QStringLiteral(" "),  QString(256, QLatin1Char('x')),
        QString(128, QChar(0xFC)),
    };
    QTimer::singleShot(0, [&refused] {
        auto* const dialog = QApplication::activeModalWidget();
        ASSERT_TRUE(dialog);
        auto* const field = dialog->findChild<QLineEdit*>();
        auto* const fault = dialog->findChild<QLabel*>(QStringLiteral("fault"));
        auto* const button = dialog->findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Ok);
        for (const QString& name : refused) {
            field->setText(name);
            EXPECT_FALSE(button->isEnabled()) << name.toStdString();
            EXPECT_FALSE(fault->text().isEmpty()) << name.toStdString();
            QTest::keyClick(field, Qt::Key_Return);
            EXPECT_TRUE(dialog->isVisible()) << name.toStdString();
        }
        field->setText(QStringLiteral("..x & Söhne"));
        EXPECT_TRUE(fault->text().isEmpty()) << fault->text().toStdString();
        QTest::keyClick(field, Qt::Key_Return);
    });
    action("Rename Project")->trigger();
    EXPECT_EQ(index(0).data(PhotographModel::ProjectRole).toString(), QStringLiteral("..x & Söhne"));
}

TEST_F(LightTableWindow, ShowsMarkupInAProjectsNameAsItStands) {
    QDir(folder_.path()).mkdir(QStringLiteral("<b>Smith"));
    folder_.picture(QStringLiteral("<b>Smith/a.png"), {30, 20});
    open({QFile::encodeName(folder_.filePath(QStringLiteral("<b>Smith")))}, 1);
    table()->selectAll();
    auto* const label = window_.findChild<QLabel*>(QStringLiteral("selectionLabel"));
    EXPECT_EQ(label->text().toStdString(), "1 of 1 photograph selected, project “<b>Smith”");
    // Read as markup it would take less room.
    EXPECT_GE(label->sizeHint().width(), label->fontMetrics().horizontalAdvance(label->text()));
}

TEST_F(LightTableWindow, ALongProjectsNameIsCutWithAnEllipsisAndWidensNothing) {
    fill(1);
    auto* const label = window_.findChild<QLabel*>(QStringLiteral("selectionLabel"));
    static_cast<PhotographModel*>(model())->setProject({index(0)}, QString(300, QLatin1Char('W')));
    table()->selectAll();
    EXPECT_LE(window_.minimumSizeHint().width(), 800);
    EXPECT_LT(label->width(), label->sizeHint().width());
    const QImage cut = label->grab().toImage();
    label->setText(
        label->fontMetrics().elidedText(label->text(), Qt::ElideRight, label->contentsRect().width()));
    EXPECT_EQ(label->grab().toImage(), cut);
}
