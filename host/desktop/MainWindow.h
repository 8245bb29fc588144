#pragma once

#include "host/desktop/CaptureTimeReader.h"
#include "host/desktop/ExportStatus.h"
#include "host/desktop/Exporter.h"
#include "host/desktop/LightTable.h"
#include "host/desktop/NoticeBar.h"
#include "host/desktop/PhotographFiles.h"
#include "host/desktop/PhotographModel.h"
#include "host/desktop/Preview.h"

#include <QtGui/QAction>
#include <QtWidgets/QLabel>
#include <QtWidgets/QMainWindow>
#include <QtWidgets/QMenu>
#include <QtWidgets/QSlider>
#include <QtWidgets/QStackedWidget>

namespace host::desktop {

/// The application's window: the light table with its preview, and what can be done with the photographs.
/// Main thread.
class MainWindow final : public QMainWindow {
    Q_OBJECT

public:
    explicit MainWindow(ExportSetting setting);

    /// Puts the files, and the pictures of the folders, on the light table. Returns at once.
    void open(const std::vector<QByteArray>& paths);

protected:
    void closeEvent(QCloseEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    void makeActions();
    void makeMenus();
    void makeToolBar();
    void makeStatusBar();
    QAction* addAction(const QString& text, const QKeySequence& shortcut, void (MainWindow::*slot)());

    void exportSelection();
    void exportEnded();
    void findEarlierExports();
    void earlierExportsFound(EarlierExports exports);
    void tellEarlierExports();
    void listEarlierExports();
    void showNoticed();
    void showUnreadable();
    bool confirmsQuitting();

    void addFound(FoundPhotographs found);
    void chooseFolder();
    void chooseFiles();
    void clear();
    void renameProject();
    void openPreview();
    void showPreview(const QModelIndex& index);
    void closePreview();
    void enlargeThumbnails();
    void reduceThumbnails();
    void setSortOrder(SortOrder order);
    void readCaptureTimes();
    void lookForChanges();
    void retryFailures();
    void updateSelection();
    void updateTitle();
    void showHelp();
    void showAbout();
    QString projectOfSelection() const;

    PhotographModel model_;
    CaptureTimeReader captureTimes_;
    Exporter exporter_;
    bool quitsAfterExport_ = false;
    /// What the last look has found; none before the first one.
    std::optional<EarlierExports> earlierExports_;
    bool looksForExports_ = false;
    bool looksForExportsAgain_ = false; ///< They may have changed since the look began.
    unsigned tableNumber_ = 0;          ///< Counts how often the light table was cleared.
    LightTable* lightTable_;
    Preview* preview_;
    QStackedWidget* pages_;
    NoticeBar* unfinishedNotice_;
    NoticeBar* fileNotice_;
    ExportStatus* exportStatus_;
    QSlider* sizeSlider_;
    QLabel* selectionLabel_;

    QAction* openFolderAction_;
    QAction* openFilesAction_;
    QAction* clearAction_;
    QAction* exportAction_;
    QMenu* unfinishedMenu_;
    QAction* lookingAction_; ///< In the menu: more may come.
    QAction* quitAction_;
    QAction* selectAllAction_;
    QAction* selectNoneAction_;
    QAction* renameProjectAction_;
    QAction* previewAction_;
    QAction* enlargeAction_;
    QAction* reduceAction_;
    QAction* helpAction_;
    QAction* aboutAction_;
    QActionGroup* sortActions_;
};

} // namespace host::desktop
