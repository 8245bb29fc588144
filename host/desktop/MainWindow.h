#pragma once

#include "host/desktop/CaptureTimeReader.h"
#include "host/desktop/LightTable.h"
#include "host/desktop/PhotographModel.h"
#include "host/desktop/Preview.h"

#include <QtGui/QAction>
#include <QtWidgets/QLabel>
#include <QtWidgets/QMainWindow>
#include <QtWidgets/QSlider>
#include <QtWidgets/QStackedWidget>

namespace host::desktop {

/// The application's window: the light table with its preview, and what can be done with the photographs.
/// Main thread.
class MainWindow final : public QMainWindow {
    Q_OBJECT

public:
    MainWindow();

    /// Puts the files, and the pictures of the folders, on the light table. Returns at once.
    void open(const std::vector<QByteArray>& paths);

private:
    void makeActions();
    void makeMenus();
    void makeToolBar();
    void makeStatusBar();
    QAction* addAction(const QString& text, const QKeySequence& shortcut, void (MainWindow::*slot)());

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
    void updateSelection();

    PhotographModel model_;
    CaptureTimeReader captureTimes_;
    LightTable* lightTable_;
    Preview* preview_;
    QStackedWidget* pages_;
    QSlider* sizeSlider_;
    QLabel* selectionLabel_;

    QAction* openFolderAction_;
    QAction* openFilesAction_;
    QAction* clearAction_;
    QAction* quitAction_;
    QAction* selectAllAction_;
    QAction* selectNoneAction_;
    QAction* renameProjectAction_;
    QAction* previewAction_;
    QAction* enlargeAction_;
    QAction* reduceAction_;
    QActionGroup* sortActions_;
};

} // namespace host::desktop
