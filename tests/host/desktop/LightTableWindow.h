#pragma once

#include "host/desktop/MainWindow.h"
#include "tests/host/desktop/PhotographFolder.h"
#include "tests/support/Waiting.h"

#include <QtTest/QTest>
#include <QtWidgets/QApplication>

#include <gtest/gtest.h>

/// The application's window with the real plug-in, used for its light table.
class LightTableWindow : public testing::Test {
protected:
    void SetUp() override {
        window_.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&window_));
    }

    void fill(int count) {
        for (int i = 0; i < count; ++i)
            folder_.picture(QStringLiteral("IMG_%1.png").arg(i + 1), {30 + i % 7, 20});
        open({folder_.bytes()}, count);
    }
    void open(const std::vector<QByteArray>& paths, int count) {
        window_.open(paths);
        ASSERT_TRUE(test_support::waitUntil([this, count] { return model()->rowCount() == count; }));
    }

    host::desktop::LightTable* table() const { return window_.findChild<host::desktop::LightTable*>(); }
    host::desktop::Preview* preview() const { return window_.findChild<host::desktop::Preview*>(); }
    QAbstractItemModel* model() const { return table()->model(); }
    QModelIndex index(int row) const { return model()->index(row, 0); }
    int selectedCount() const {
        return static_cast<int>(table()->selectionModel()->selectedIndexes().size());
    }
    /// Of the notice about the files that were opened; empty where there is none.
    QString noticeText() const {
        auto* const notice = window_.findChild<host::desktop::NoticeBar*>(QStringLiteral("fileNotice"));
        return notice->isVisible() ? notice->findChild<QLabel*>(QStringLiteral("noticeText"))->text()
                                   : QString();
    }
    bool isLoaded(int row) const { return !index(row).data(Qt::DecorationRole).value<QImage>().isNull(); }
    bool isUnreadable(int row) const {
        return index(row).data(Qt::AccessibleTextRole).toString().contains(QStringLiteral("cannot be read"));
    }
    QPoint centre(int row) const { return table()->visualRect(index(row)).center(); }
    QAction* action(const char* text) const {
        for (QAction* const action : window_.findChildren<QAction*>()) {
            if (action->text().remove(QLatin1Char('&')).startsWith(QLatin1String(text)))
                return action;
        }
        return nullptr;
    }
    void key(Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
        QTest::keyClick(QApplication::focusWidget() ? QApplication::focusWidget() : table(), key, modifiers);
    }

    PhotographFolder folder_;
    host::desktop::MainWindow window_{
        {QStringLiteral(QUILLMARK_BUNDLE_DIR), folder_.filePath(QStringLiteral("journals")), {}, {}}};
};
