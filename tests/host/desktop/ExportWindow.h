#pragma once

#include "host/core/ExportThread.h"
#include "host/core/JournalFolder.h"
#include "host/core/MemoryStores.h"
#include "host/desktop/MainWindow.h"
#include "hostapi/SettingsPanel.h"
#include "tests/host/FakePlugInScript.h"
#include "tests/host/desktop/PhotographFolder.h"
#include "tests/support/MessageAnswers.h"
#include "tests/support/Waiting.h"

#include <QtTest/QTest>
#include <QtWidgets/QApplication>
#include <QtWidgets/QCheckBox>
#include <QtWidgets/QComboBox>
#include <QtWidgets/QGroupBox>
#include <QtWidgets/QLineEdit>

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <optional>

/// The application's window with a plug-in that does what a test tells it, driven by its real controls.
class ExportWindow : public testing::Test {
protected:
    ExportWindow() { openWindow(); }
    ~ExportWindow() override {
        window_.reset();
        // They would meet the next test, or what the end of the process takes down.
        EXPECT_TRUE(test_support::waitUntil(
            [] { return !host::ExportThread::isAnyRunning() && !isAThreadAtJournals(); }));
    }

    static bool isAThreadAtJournals() {
        const QDir threads(QStringLiteral("/proc/self/task"));
        const QStringList ids = threads.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
        return std::any_of(ids.begin(), ids.end(), [&](const QString& id) {
            QFile name(threads.filePath(id + QStringLiteral("/comm")));
            return name.open(QIODevice::ReadOnly) && name.readAll().trimmed().endsWith("journals");
        });
    }

    /// As a new start of the application.
    void openWindow() {
        window_.reset();
        window_ = std::make_unique<host::desktop::MainWindow>(
            host::desktop::ExportSetting{FakePlugInScript::bundlePath(), journals(), nullptr, defaults_});
        window_->show();
    }

    QString journals() const { return state_.filePath(QStringLiteral("journals")); }
    std::vector<host::FoundJournal> foundJournals() const { return host::journalsIn(journals()); }

    void selectPictures(int count) {
        for (int i = 0; i < count; ++i)
            folder_.picture(QStringLiteral("%1.png").arg(i));
        window_->open({folder_.bytes()});
        ASSERT_TRUE(test_support::waitUntil([this, count] { return table()->model()->rowCount() == count; }));
        table()->selectAll();
    }

    host::desktop::LightTable* table() const { return window_->findChild<host::desktop::LightTable*>(); }

    bool isLoaded(int row) const {
        return !table()->model()->index(row, 0).data(Qt::DecorationRole).value<QImage>().isNull();
    }

    QAction* action(const char* text) const {
        for (QAction* const action : window_->findChildren<QAction*>()) {
            if (action->text().remove(QLatin1Char('&')).startsWith(QLatin1String(text)))
                return action;
        }
        return nullptr;
    }

    QMenu* unfinishedMenu() const {
        for (auto* const menu : window_->findChildren<QMenu*>()) {
            if (menu->title().remove(QLatin1Char('&')) == QStringLiteral("Unfinished Exports"))
                return menu;
        }
        return nullptr;
    }
    /// What the menu says.
    QStringList unfinishedMenuTexts() const {
        QStringList texts;
        for (QAction* const action : unfinishedMenu()->actions()) {
            if (action->isVisible())
                texts << action->text();
        }
        return texts;
    }
    /// What the menu offers once it has opened and looked.
    QStringList unfinishedExports() const {
        Q_EMIT unfinishedMenu()->aboutToShow();
        EXPECT_TRUE(test_support::waitUntil(
            [this] { return !unfinishedMenuTexts().contains(QStringLiteral("Looking…")); }));
        return unfinishedMenuTexts();
    }

    /// Of the notice about earlier exports; empty where there is none.
    QString noticeText() const {
        auto* const notice =
            window_->findChild<host::desktop::NoticeBar*>(QStringLiteral("unfinishedNotice"));
        return notice->isVisible() ? notice->findChild<QLabel*>(QStringLiteral("noticeText"))->text()
                                   : QString();
    }

    template <typename Dialog>
    Dialog* visible() const {
        for (auto* const dialog : window_->findChildren<Dialog*>()) {
            if (dialog->isVisible())
                return dialog;
        }
        return nullptr;
    }
    host::desktop::ExportDialog* exportDialog() const { return visible<host::desktop::ExportDialog>(); }
    host::desktop::SummaryDialog* summary() const { return visible<host::desktop::SummaryDialog>(); }
    bool waitForDialog() const {
        return test_support::waitUntil([this] { return exportDialog() != nullptr; });
    }
    bool waitForSummary() const {
        return test_support::waitUntil([this] { return summary() != nullptr; });
    }

    template <typename Control>
    Control* control(QLatin1String name) const {
        return exportDialog()->findChild<Control*>(name);
    }

    /// What the dialog says will be exported; empty where there is no dialog.
    std::string heading() const {
        return exportDialog() ? control<QLabel>(QLatin1String("heading"))->text().toStdString() : "";
    }

    void press(QWidget* parent, const char* name) {
        auto* const button = parent->findChild<QAbstractButton*>(QLatin1String(name));
        ASSERT_TRUE(button) << name;
        QTest::mouseClick(button, Qt::LeftButton);
    }

    void logIn(const QString& account = QStringLiteral("ann")) {
        namespace panel = hostapi::panel;
        control<QLineEdit>(panel::kUsernameField)->setText(account);
        control<QLineEdit>(panel::kPasswordField)->setText(QStringLiteral("secret"));
        QTest::mouseClick(control<QPushButton>(panel::kLoginButton), Qt::LeftButton);
        ASSERT_TRUE(test_support::waitUntil([this] {
            return control<QPushButton>(panel::kLoginButton)->isEnabled() &&
                   control<QComboBox>(panel::kEventChooser)->count() > 0;
        }));
    }

    void choose(int event, const QString& category) {
        namespace panel = hostapi::panel;
        auto* const events = control<QComboBox>(panel::kEventChooser);
        events->setCurrentIndex(event);
        Q_EMIT events->activated(event);
        control<QComboBox>(panel::kCategoryChooser)->setEditText(category);
    }

    /// The selection, from the menu to the dialog's button.
    void beginExport() {
        action("Export to Quillmark")->trigger();
        ASSERT_TRUE(waitForDialog());
        logIn();
        choose(0, QStringLiteral("Ceremony"));
        press(exportDialog(), "exportButton");
    }
    void exportToTheSummary() {
        beginExport();
        ASSERT_TRUE(waitForSummary());
    }

    /// From the summary's button to the next summary, with the choices that are preselected.
    void exportAgain(const char* button = "exportRemainingButton") {
        press(summary(), button);
        ASSERT_TRUE(waitForDialog());
        logIn();
        press(exportDialog(), "exportButton");
        ASSERT_TRUE(waitForSummary());
    }

    /// Of an export that is gone on with: in its dialog, chooses another event than the one that is
    /// preselected.
    void exportElsewhere() {
        ASSERT_TRUE(waitForDialog());
        logIn();
        ASSERT_TRUE(test_support::waitUntil([this] {
            return control<QComboBox>(hostapi::panel::kCategoryChooser)->currentText() ==
                   QStringLiteral("Ceremony");
        }));
        choose(1, QStringLiteral("Elsewhere"));
        press(exportDialog(), "exportButton");
    }

    QString text(const char* label) const {
        return summary()->findChild<QLabel*>(QLatin1String(label))->text();
    }
    /// The lines of the plug-in's log that begin so.
    QString logged(const QString& beginning) const {
        return plugIn_.log()
            .filter(QRegularExpression(QStringLiteral("^") + beginning))
            .join(QLatin1Char(';'));
    }

    FakePlugInScript plugIn_;
    PhotographFolder folder_;
    QTemporaryDir state_;
    std::shared_ptr<host::MemoryDefaultsStore> defaults_ = std::make_shared<host::MemoryDefaultsStore>();
    MessageAnswers messages_;
    std::unique_ptr<host::desktop::MainWindow> window_;
};
