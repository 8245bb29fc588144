#pragma once

#include "host/desktop/PhotographDelegate.h"
#include "host/desktop/PhotographModel.h"
#include "host/desktop/PictureLoader.h"

#include <QtCore/QTimer>
#include <QtWidgets/QListView>

namespace host::desktop {

/// The photographs of a PhotographModel as a grid of pictures, which are loaded as they come into view, and
/// for a screenful ahead. Main thread.
class LightTable final : public QListView {
    Q_OBJECT

public:
    static constexpr int kSmallestSide = 64;
    static constexpr int kLargestSide = 400;

    /// The model must outlive the view.
    explicit LightTable(PhotographModel& model, QWidget* parent = nullptr);

    void setThumbnailSide(int side);
    int thumbnailSide() const { return delegate_.thumbnailSide(); }

    /// The rows in view; the last one before the first where there are none.
    std::pair<int, int> visibleRows() const;
    /// Once more those in view that could not be read: what was wrong may have passed.
    void retryFailures();
    /// What stands in place of photographs where there are none.
    void setEmptyText(const QString& text);
    const QString& emptyText() const { return emptyText_; }

Q_SIGNALS:
    void previewRequested(const QModelIndex& index);
    /// Files or folders were dropped.
    void dropped(const std::vector<QByteArray>& paths);

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void scrollContentsBy(int dx, int dy) override;
    void changeEvent(QEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    void updateCells();
    void loadVisible();
    int firstRowNotAbove(int y) const;

    PhotographModel& model_;
    PictureLoader loader_;
    PhotographDelegate delegate_;
    QString emptyText_;
    QTimer loadTimer_; ///< Once the view has settled.
};

} // namespace host::desktop
