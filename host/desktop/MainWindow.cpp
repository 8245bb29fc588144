#include "host/desktop/MainWindow.h"

#include "host/desktop/BackgroundTask.h"
#include "host/desktop/Counting.h"
#include "host/desktop/PhotographFiles.h"
#include "platform/RunLoop.h"

#include <QtCore/QPointer>
#include <QtGui/QActionGroup>
#include <QtGui/QCloseEvent>
#include <QtWidgets/QFileDialog>
#include <QtWidgets/QInputDialog>
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
constexpr int kMessageMilliseconds = 8000;

} // namespace

MainWindow::MainWindow(ExportSetting setting)
    : exporter_(std::move(setting), *this)
    , lightTable_(new LightTable(model_))
    , preview_(new Preview(model_))
    , pages_(new QStackedWidget)
    , noticeBar_(new NoticeBar)
    , exportStatus_(new ExportStatus) {
    setWindowTitle(tr("Quillmark"));
    resize(kFirstSize);
    pages_->addWidget(lightTable_);
    pages_->addWidget(preview_);
    auto* const centre = new QWidget;
    auto* const layout = new QVBoxLayout(centre);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(noticeBar_);
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
    connect(preview_, &Preview::moved, this,
            [this](const QModelIndex& index) { lightTable_->setCurrentIndex(index); });
    connect(&captureTimes_, &CaptureTimeReader::done, &model_, &PhotographModel::setCaptureTimes);
    connect(&model_, &QAbstractItemModel::rowsInserted, this, &MainWindow::updateSelection);
    connect(&model_, &QAbstractItemModel::modelReset, this, &MainWindow::updateSelection);
    connect(&exporter_, &Exporter::begun, exportStatus_, &QWidget::show);
    connect(&exporter_, &Exporter::progressed, exportStatus_, &ExportStatus::follow);
    connect(&exporter_, &Exporter::ended, this, &MainWindow::exportEnded);
    connect(&exporter_, &Exporter::waitingChanged, this,
            [this] { exportStatus_->setWaiting(exporter_.waitingCount()); });
    connect(exportStatus_, &ExportStatus::cancelRequested, this, [this] {
        exportStatus_->setCancelling();
        exporter_.cancel();
    });
    updateSelection();
    lightTable_->setFocus();
    findUnfinished();
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
    connect(unfinishedMenu_, &QMenu::aboutToShow, this, &MainWindow::listUnfinished);
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
    selectionLabel_ = new QLabel;
    selectionLabel_->setObjectName(QStringLiteral("selectionLabel"));
    selectionLabel_->setTextFormat(Qt::PlainText);
    statusBar()->addWidget(selectionLabel_);
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

void MainWindow::listUnfinished() {
    unfinishedMenu_->clear();
    for (const FoundJournal& journal : unfinishedJournals(exporter_.setting())) {
        // An ampersand would underline the next letter.
        const QString text = unfinishedLine(*journal.record).replace(QLatin1Char('&'), QStringLiteral("&&"));
        connect(unfinishedMenu_->addAction(text), &QAction::triggered, this,
                [this, path = journal.path] { exporter_.review(path); });
    }
    if (unfinishedMenu_->isEmpty())
        unfinishedMenu_->addAction(tr("None"))->setEnabled(false);
}

void MainWindow::findUnfinished() {
    runInBackground("find-journals", [window = QPointer(this), setting = exporter_.setting()] {
        platform::RunLoop::main()->post([window, journals = unfinishedJournals(setting)] {
            if (window && !journals.empty())
                window->tellUnfinished(journals);
        });
    });
}

void MainWindow::tellUnfinished(const std::vector<FoundJournal>& journals) {
    const FoundJournal& last = journals.front();
    const QString text =
        journals.size() == 1
            ? tr("An export is not complete: %1").arg(unfinishedLine(*last.record))
            : tr("%1 exports are not complete. See File, Unfinished Exports. The last one: %2")
                  .arg(QString::number(journals.size()), unfinishedLine(*last.record));
    connect(noticeBar_, &NoticeBar::activated, this, [this, path = last.path] { exporter_.review(path); });
    noticeBar_->showNotice(text, tr("&Show…"));
}

bool MainWindow::confirmsQuitting() {
    if (!exporter_.isExporting())
        return true;
    return QMessageBox::question(this, windowTitle(),
                                 tr("An export is running. Cancel it and quit? What has not been uploaded by "
                                    "then can be exported "
                                    "later."),
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
    findPhotographsInBackground(paths, [window = QPointer(this)](FoundPhotographs found) {
        if (!window)
            return;
        window->model_.add(std::move(found.photographs));
        if (found.othersCount > 0)
            window->statusBar()->showMessage(
                tr("Passed over as no pictures: %1 of the files.").arg(found.othersCount),
                kMessageMilliseconds);
        if (window->model_.sortOrder() == SortOrder::CaptureTime)
            window->readCaptureTimes();
        if (!window->lightTable_->currentIndex().isValid() && window->model_.rowCount() > 0)
            window->lightTable_->selectionModel()->setCurrentIndex(window->model_.index(0),
                                                                   QItemSelectionModel::NoUpdate);
    });
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
    model_.clear();
    closePreview();
}

void MainWindow::renameProject() {
    const QModelIndexList selected = lightTable_->selectionModel()->selectedIndexes();
    if (selected.isEmpty())
        return;
    QInputDialog dialog(this);
    dialog.setWindowTitle(tr("Rename Project"));
    dialog.setLabelText(
        tr("Project of the selected %1:").arg(photographs(static_cast<std::size_t>(selected.size()))));
    dialog.setTextValue(selected.first().data(PhotographModel::ProjectRole).toString());
    const QString project = dialog.exec() == QDialog::Accepted ? dialog.textValue().trimmed() : QString();
    if (project.isEmpty())
        return;
    model_.setProject(lightTable_->selectionModel()->selectedIndexes(), project);
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

void MainWindow::updateSelection() {
    const auto selected = lightTable_->selectionModel()->selectedIndexes().size();
    renameProjectAction_->setEnabled(selected > 0);
    exportAction_->setEnabled(selected > 0);
    const QString all = photographs(static_cast<std::size_t>(model_.rowCount()));
    selectionLabel_->setText(
        selected == 0
            ? all
            : tr("%1 of %2 selected, %3").arg(QString::number(selected), all, projectOfSelection()));
}

QString MainWindow::projectOfSelection() const {
    QSet<QString> projects;
    for (const QModelIndex& index : lightTable_->selectionModel()->selectedIndexes())
        projects.insert(index.data(PhotographModel::ProjectRole).toString());
    return projects.size() == 1 ? tr("project “%1”").arg(*projects.begin()) : tr("several projects");
}

} // namespace host::desktop
