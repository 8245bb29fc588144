#include "host/desktop/MainWindow.h"

#include "host/desktop/BackgroundTask.h"
#include "host/desktop/Counting.h"
#include "host/desktop/EarlierExportsText.h"
#include "host/desktop/ElidedLabel.h"
#include "host/desktop/FindingsText.h"
#include "host/desktop/ProjectDialog.h"
#include "platform/Alert.h"
#include "platform/RunLoop.h"

#include <QtCore/QDir>
#include <QtCore/QPointer>
#include <QtGui/QActionGroup>
#include <QtGui/QCloseEvent>
#include <QtWidgets/QApplication>
#include <QtWidgets/QFileDialog>
#include <QtWidgets/QMenuBar>
#include <QtWidgets/QMessageBox>
#include <QtWidgets/QStatusBar>
#include <QtWidgets/QStyle>
#include <QtWidgets/QToolBar>
#include <QtWidgets/QVBoxLayout>

#include <algorithm>

namespace host::desktop {

namespace {

constexpr QSize kFirstSize{1100, 720};
constexpr int kSizeStep = 32;
constexpr int kSliderWidth = 140;

QString folderOf(const QByteArray& path) {
    return QFile::decodeName(path.left(path.lastIndexOf('/')));
}

} // namespace

MainWindow::MainWindow(ExportSetting setting)
    : exporter_(std::move(setting), *this)
    , lightTable_(new LightTable(model_))
    , preview_(new Preview(model_))
    , pages_(new QStackedWidget)
    , unfinishedNotice_(new NoticeBar)
    , fileNotice_(new NoticeBar)
    , exportStatus_(new ExportStatus) {
    resize(kFirstSize);
    pages_->addWidget(lightTable_);
    pages_->addWidget(preview_);
    auto* const centre = new QWidget;
    auto* const layout = new QVBoxLayout(centre);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    unfinishedNotice_->setObjectName(QStringLiteral("unfinishedNotice"));
    fileNotice_->setObjectName(QStringLiteral("fileNotice"));
    layout->addWidget(unfinishedNotice_);
    layout->addWidget(fileNotice_);
    layout->addWidget(pages_, 1);
    setCentralWidget(centre);
    makeActions();
    makeMenus();
    makeToolBar();
    makeStatusBar();

    connect(lightTable_, &LightTable::previewRequested, this, &MainWindow::showPreview);
    connect(lightTable_, &LightTable::dropped, this, &MainWindow::open);
    connect(lightTable_->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &MainWindow::updateSelection);
    connect(preview_, &Preview::closed, this, &MainWindow::closePreview);
    connect(preview_, &Preview::moved, this, [this](const QModelIndex& index) {
        // Who looks at photographs still wants those exported that are selected.
        lightTable_->selectionModel()->setCurrentIndex(index, QItemSelectionModel::NoUpdate);
    });
    connect(&captureTimes_, &CaptureTimeReader::done, &model_, &PhotographModel::setCaptureTimes);
    connect(&model_, &QAbstractItemModel::rowsInserted, this, &MainWindow::updateSelection);
    connect(&model_, &QAbstractItemModel::modelReset, this, &MainWindow::updateSelection);
    connect(&model_, &QAbstractItemModel::rowsInserted, this, &MainWindow::updateTitle);
    connect(&model_, &QAbstractItemModel::modelReset, this, &MainWindow::updateTitle);
    connect(unfinishedNotice_, &NoticeBar::activated, this, &MainWindow::showNoticed);
    connect(&exporter_, &Exporter::earlierExportsChanged, this, &MainWindow::findEarlierExports);
    connect(&exporter_, &Exporter::begun, exportStatus_, &ExportStatus::begin);
    connect(&exporter_, &Exporter::progressed, exportStatus_, &ExportStatus::follow);
    connect(&exporter_, &Exporter::ended, this, &MainWindow::exportEnded);
    connect(&exporter_, &Exporter::waitingChanged, this,
            [this] { exportStatus_->setWaiting(exporter_.waitingCount()); });
    connect(exportStatus_, &ExportStatus::cancelRequested, this, [this] {
        exportStatus_->setCancelling();
        exporter_.cancel();
    });
    lightTable_->setEmptyText(emptyTableText());
    updateSelection();
    updateTitle();
    lightTable_->setFocus();
    findEarlierExports();
}

// --- What can be done ---

QAction* MainWindow::addAction(const QString& text, const QKeySequence& shortcut,
                               void (MainWindow::*slot)()) {
    auto* const action = new QAction(text, this);
    action->setShortcut(shortcut);
    connect(action, &QAction::triggered, this, slot);
    return action;
}

void MainWindow::makeActions() {
    openFolderAction_ = addAction(tr("&Open Folder…"), QKeySequence::Open, &MainWindow::chooseFolder);
    openFolderAction_->setIcon(style()->standardIcon(QStyle::SP_DirOpenIcon));
    openFilesAction_ = addAction(tr("Add &Photographs…"), tr("Ctrl+Shift+O"), &MainWindow::chooseFiles);
    clearAction_ = addAction(tr("&Clear the Light Table"), {}, &MainWindow::clear);
    exportAction_ = addAction(tr("&Export to Quillmark…"), tr("Ctrl+E"), &MainWindow::exportSelection);
    exportAction_->setIcon(style()->standardIcon(QStyle::SP_ArrowUp));
    lookingAction_ = new QAction(tr("Looking…"), this);
    lookingAction_->setEnabled(false);
    quitAction_ = new QAction(tr("&Quit"), this);
    quitAction_->setShortcut(QKeySequence::Quit);
    connect(quitAction_, &QAction::triggered, this, &QWidget::close);

    selectAllAction_ = new QAction(tr("Select &All"), this);
    selectAllAction_->setShortcut(QKeySequence::SelectAll);
    connect(selectAllAction_, &QAction::triggered, lightTable_, &QAbstractItemView::selectAll);
    selectNoneAction_ = new QAction(tr("Select &None"), this);
    selectNoneAction_->setShortcut(tr("Ctrl+Shift+A"));
    connect(selectNoneAction_, &QAction::triggered, lightTable_, &QAbstractItemView::clearSelection);
    renameProjectAction_ = addAction(tr("&Rename Project…"), tr("F2"), &MainWindow::renameProject);

    // Space is the light table's own key.
    previewAction_ = addAction(tr("&Preview\tSpace"), {}, &MainWindow::openPreview);
    enlargeAction_ =
        addAction(tr("&Larger Thumbnails"), QKeySequence::ZoomIn, &MainWindow::enlargeThumbnails);
    reduceAction_ =
        addAction(tr("&Smaller Thumbnails"), QKeySequence::ZoomOut, &MainWindow::reduceThumbnails);
    helpAction_ = addAction(tr("Quillmark &Help"), QKeySequence::HelpContents, &MainWindow::showHelp);
    aboutAction_ = addAction(tr("&About Quillmark"), {}, &MainWindow::showAbout);

    sortActions_ = new QActionGroup(this);
    const auto addSorting = [this](const QString& text, SortOrder order) {
        QAction* const action = sortActions_->addAction(text);
        action->setCheckable(true);
        action->setChecked(order == model_.sortOrder());
        connect(action, &QAction::triggered, this, [this, order] { setSortOrder(order); });
    };
    addSorting(tr("Sort by &Name"), SortOrder::Name);
    addSorting(tr("Sort by &Capture Time"), SortOrder::CaptureTime);
    addSorting(tr("Sort by &Type"), SortOrder::Type);
}

void MainWindow::makeMenus() {
    QMenu* const fileMenu = menuBar()->addMenu(tr("&File"));
    fileMenu->addActions({openFolderAction_, openFilesAction_, clearAction_});
    fileMenu->addSeparator();
    fileMenu->addAction(exportAction_);
    unfinishedMenu_ = fileMenu->addMenu(tr("&Unfinished Exports"));
    unfinishedMenu_->addAction(lookingAction_);
    // Another program may have changed them too.
    connect(unfinishedMenu_, &QMenu::aboutToShow, this, &MainWindow::findEarlierExports);
    fileMenu->addSeparator();
    fileMenu->addAction(quitAction_);

    QMenu* const editMenu = menuBar()->addMenu(tr("&Edit"));
    editMenu->addActions({selectAllAction_, selectNoneAction_});
    editMenu->addSeparator();
    editMenu->addAction(renameProjectAction_);

    QMenu* const viewMenu = menuBar()->addMenu(tr("&View"));
    viewMenu->addAction(previewAction_);
    viewMenu->addSeparator();
    viewMenu->addActions({enlargeAction_, reduceAction_});
    viewMenu->addSeparator();
    viewMenu->addActions(sortActions_->actions());

    menuBar()->addMenu(tr("&Help"))->addActions({helpAction_, aboutAction_});
}

void MainWindow::makeToolBar() {
    QToolBar* const toolBar = addToolBar(tr("Tools"));
    toolBar->setMovable(false);
    toolBar->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    toolBar->setContextMenuPolicy(Qt::PreventContextMenu);
    toolBar->addActions({openFolderAction_, exportAction_});
    auto* const space = new QWidget;
    space->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    toolBar->addWidget(space);

    auto* const label = new QLabel(tr("Thumbnail si&ze:"));
    sizeSlider_ = new QSlider(Qt::Horizontal);
    label->setBuddy(sizeSlider_);
    sizeSlider_->setAccessibleName(tr("Thumbnail size"));
    sizeSlider_->setRange(LightTable::kSmallestSide, LightTable::kLargestSide);
    sizeSlider_->setPageStep(kSizeStep);
    sizeSlider_->setSingleStep(kSizeStep / 2);
    sizeSlider_->setFixedWidth(kSliderWidth);
    sizeSlider_->setValue(lightTable_->thumbnailSide());
    connect(sizeSlider_, &QSlider::valueChanged, lightTable_, &LightTable::setThumbnailSide);
    toolBar->addWidget(label);
    toolBar->addWidget(sizeSlider_);
}

void MainWindow::makeStatusBar() {
    selectionLabel_ = new ElidedLabel;
    selectionLabel_->setObjectName(QStringLiteral("selectionLabel"));
    statusBar()->addWidget(selectionLabel_, 1);
    statusBar()->addPermanentWidget(exportStatus_);
    exportStatus_->hide();
}

// --- Exports ---

void MainWindow::exportSelection() {
    QModelIndexList selected = lightTable_->selectionModel()->selectedIndexes();
    // In the order in which they lie there, not in that of the clicks.
    std::sort(selected.begin(), selected.end());
    ExportJob job;
    for (const QModelIndex& index : selected) {
        const Photograph& photograph = model_.photograph(index.row());
        RecordedImage image;
        image.source = photograph.path;
        image.name = photograph.name;
        if (!photograph.project.isEmpty())
            image.project = photograph.project;
        job.images.push_back(std::move(image));
    }
    if (!job.images.empty())
        exporter_.request(std::move(job));
}

void MainWindow::exportEnded() {
    exportStatus_->hide();
    if (quitsAfterExport_)
        close();
}

void MainWindow::findEarlierExports() {
    lookingAction_->setVisible(true);
    looksForExportsAgain_ = looksForExports_;
    if (looksForExports_)
        return;
    looksForExports_ = true;
    runInBackground("find-journals", [window = QPointer(this), setting = exporter_.setting()] {
        platform::RunLoop::main()->post([window, exports = earlierExports(setting)] {
            if (window)
                window->earlierExportsFound(exports);
        });
    });
}

void MainWindow::earlierExportsFound(EarlierExports exports) {
    looksForExports_ = false;
    const bool isFirst = !earlierExports_;
    const bool isNew = earlierExports_ != exports;
    earlierExports_ = std::move(exports);
    lookingAction_->setVisible(false);
    if (isNew)
        listEarlierExports();
    // A user who has closed the notice wants none.
    if (isFirst || unfinishedNotice_->isVisible())
        tellEarlierExports();
    if (looksForExportsAgain_)
        findEarlierExports();
}

void MainWindow::tellEarlierExports() {
    if (earlierExports_->isEmpty())
        unfinishedNotice_->hide();
    else
        unfinishedNotice_->showNotice(earlierExportsNotice(*earlierExports_), tr("&Show…"));
}

void MainWindow::listEarlierExports() {
    unfinishedMenu_->clear();
    for (const auto& [path, text] : earlierExports_->unfinished) {
        // An ampersand would underline the next letter.
        QAction* const action =
            unfinishedMenu_->addAction(QString(text).replace(QLatin1Char('&'), QStringLiteral("&&")));
        connect(action, &QAction::triggered, this, [this, path = path] { exporter_.review(path); });
    }
    if (const std::size_t count = earlierExports_->unreadable.size(); count > 0)
        connect(unfinishedMenu_->addAction(count == 1 ? tr("1 Unreadable Journal…")
                                                      : tr("%1 Unreadable Journals…").arg(count)),
                &QAction::triggered, this, &MainWindow::showUnreadable);
    if (unfinishedMenu_->isEmpty())
        unfinishedMenu_->addAction(tr("None"))->setEnabled(false);
    unfinishedMenu_->addAction(lookingAction_);
}

void MainWindow::showNoticed() {
    if (earlierExports_->unfinished.empty())
        showUnreadable();
    else
        exporter_.review(earlierExports_->unfinished.front().path);
}

void MainWindow::showUnreadable() {
    platform::Alert(platform::AlertStyle::Warning, tr("The journals of earlier exports cannot be read."),
                    unreadableJournalsText(earlierExports_->unreadable))
        .beginSheet(this);
}

bool MainWindow::confirmsQuitting() {
    QStringList question;
    if (exporter_.isExporting())
        question << tr(
            "An export is running and will be cancelled. What has not been uploaded by then can be "
            "exported later.");
    if (const std::size_t waiting = exporter_.waitingCount(); waiting > 0)
        question << (waiting == 1 ? tr("1 further export waits and is given up, since it has not begun.")
                                  : tr("%1 further exports wait and are given up, since they have not begun.")
                                        .arg(waiting));
    if (question.isEmpty())
        return true;
    question << tr("Quit?");
    return QMessageBox::question(this, tr("Quit"), question.join(QLatin1Char(' ')),
                                 QMessageBox::Yes | QMessageBox::No, QMessageBox::No) == QMessageBox::Yes;
}

void MainWindow::closeEvent(QCloseEvent* event) {
    // It may have ended while the question was open.
    if (!quitsAfterExport_ && !confirmsQuitting()) {
        event->ignore();
        return;
    }
    if (exporter_.isExporting()) {
        quitsAfterExport_ = true;
        exportStatus_->setCancelling();
        exporter_.cancelToQuit();
        event->ignore();
        return;
    }
    exporter_.cancelToQuit();
    QMainWindow::closeEvent(event);
}

// --- The light table ---

void MainWindow::open(const std::vector<QByteArray>& paths) {
    findPhotographsInBackground(paths,
                                [window = QPointer(this), number = tableNumber_](FoundPhotographs found) {
                                    // What was asked for before the table was cleared is not wanted on it any
                                    // more.
                                    if (window && window->tableNumber_ == number)
                                        window->addFound(std::move(found));
                                });
}

void MainWindow::addFound(FoundPhotographs found) {
    if (const QString text = passedOverText(found); !text.isEmpty())
        fileNotice_->showNotice(text);
    model_.add(std::move(found.photographs));
    retryFailures();
    // Of a folder that could not be read it is not known.
    if (found.unreadFolders.empty())
        lightTable_->setEmptyText(emptyTableText(found.folderNames));
    if (model_.sortOrder() == SortOrder::CaptureTime)
        readCaptureTimes();
    if (!lightTable_->currentIndex().isValid() && model_.rowCount() > 0)
        lightTable_->selectionModel()->setCurrentIndex(model_.index(0), QItemSelectionModel::NoUpdate);
}

void MainWindow::chooseFolder() {
    const QString folder = QFileDialog::getExistingDirectory(this, tr("Open Folder"));
    if (folder.isEmpty())
        return;
    clear();
    open({QFile::encodeName(folder)});
}

void MainWindow::chooseFiles() {
    std::vector<QByteArray> paths;
    for (const QString& file : QFileDialog::getOpenFileNames(this, tr("Add Photographs")))
        paths.push_back(QFile::encodeName(file));
    open(paths);
}

void MainWindow::clear() {
    ++tableNumber_;
    fileNotice_->hide();
    lightTable_->setEmptyText(emptyTableText());
    model_.clear();
    closePreview();
}

void MainWindow::renameProject() {
    const QModelIndexList selected = lightTable_->selectionModel()->selectedIndexes();
    if (selected.isEmpty())
        return;
    ProjectDialog dialog(
        tr("Project of the selected %1:").arg(photographs(static_cast<std::size_t>(selected.size()))),
        selected.first().data(PhotographModel::ProjectRole).toString(), this);
    if (dialog.exec() != QDialog::Accepted)
        return;
    model_.setProject(lightTable_->selectionModel()->selectedIndexes(), dialog.project());
    updateSelection();
}

void MainWindow::openPreview() {
    if (pages_->currentWidget() == preview_)
        closePreview();
    else if (lightTable_->currentIndex().isValid())
        showPreview(lightTable_->currentIndex());
}

void MainWindow::showPreview(const QModelIndex& index) {
    pages_->setCurrentWidget(preview_);
    preview_->show(index);
    preview_->setFocus();
}

void MainWindow::closePreview() {
    pages_->setCurrentWidget(lightTable_);
    if (lightTable_->currentIndex().isValid())
        lightTable_->scrollTo(lightTable_->currentIndex());
    lightTable_->setFocus();
}

void MainWindow::enlargeThumbnails() {
    sizeSlider_->setValue(sizeSlider_->value() + kSizeStep);
}

void MainWindow::reduceThumbnails() {
    sizeSlider_->setValue(sizeSlider_->value() - kSizeStep);
}

void MainWindow::setSortOrder(SortOrder order) {
    model_.setSortOrder(order);
    if (order == SortOrder::CaptureTime)
        readCaptureTimes();
}

void MainWindow::readCaptureTimes() {
    captureTimes_.read(model_.paths());
}

void MainWindow::changeEvent(QEvent* event) {
    QMainWindow::changeEvent(event);
    // Its user may come from another program, which has worked on the photographs.
    if (event->type() == QEvent::ActivationChange && isActiveWindow() && model_.rowCount() > 0)
        lookForChanges();
}

void MainWindow::lookForChanges() {
    findChangedInBackground(model_.files(), [window = QPointer(this)](const std::vector<SeenFile>& changed) {
        if (!window)
            return;
        if (!changed.empty()) {
            window->model_.setChanged(changed);
            if (window->model_.sortOrder() == SortOrder::CaptureTime)
                window->readCaptureTimes();
        }
        // The folder of a server may have been away for a moment: its files are as they were.
        window->retryFailures();
    });
}

void MainWindow::retryFailures() {
    lightTable_->retryFailures();
    preview_->retryFailures();
}

void MainWindow::updateSelection() {
    const auto selected = lightTable_->selectionModel()->selectedIndexes().size();
    renameProjectAction_->setEnabled(selected > 0);
    exportAction_->setEnabled(selected > 0);
    const QString all = model_.rowCount() == 0 ? tr("No photographs")
                                               : photographs(static_cast<std::size_t>(model_.rowCount()));
    selectionLabel_->setText(
        selected == 0
            ? all
            : tr("%1 of %2 selected, %3").arg(QString::number(selected), all, projectOfSelection()));
}

void MainWindow::updateTitle() {
    QSet<QString> folders;
    for (const QByteArray& path : model_.paths())
        folders.insert(folderOf(path));
    if (folders.isEmpty())
        setWindowTitle(tr("Quillmark"));
    else
        setWindowTitle(
            tr("%1 – Quillmark")
                .arg(folders.size() == 1 ? QDir(*folders.begin()).dirName() : tr("Several folders")));
}

QString MainWindow::projectOfSelection() const {
    QSet<QString> projects;
    for (const QModelIndex& index : lightTable_->selectionModel()->selectedIndexes())
        projects.insert(index.data(PhotographModel::ProjectRole).toString());
    return projects.size() == 1 ? tr("project “%1”").arg(*projects.begin()) : tr("several projects");
}

// --- Help ---

void MainWindow::showHelp() {
    QMessageBox::information(
        this, tr("Quillmark Help"),
        tr("1. Open a folder of photographs, or drop photographs onto the light table.\n"
           "2. Select those that are to be exported: with clicks, with Ctrl or Shift and clicks or arrow "
           "keys, or all "
           "of them with Ctrl+A.\n"
           "3. Look at one in large with Space; the arrow keys go to the next, Escape goes back.\n"
           "4. Rename the project of the selected photographs with F2: it may name their category.\n"
           "5. Export them with Ctrl+E: log in, choose an event and a category, and press Export.\n\n"
           "What an export has left, whatever broke it off, is under File, Unfinished Exports.\n"
           "The manual page quillmark(1) tells more."));
}

void MainWindow::showAbout() {
    QMessageBox::about(this, tr("About Quillmark"),
                       tr("Quillmark %1\n\nSends photographs to the Quillmark online proofing service.")
                           .arg(QApplication::applicationVersion()));
}

} // namespace host::desktop
