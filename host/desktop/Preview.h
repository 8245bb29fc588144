#pragma once

#include "host/desktop/PhotographModel.h"
#include "host/desktop/PictureLoader.h"

#include <QtCore/QPersistentModelIndex>
#include <QtWidgets/QWidget>

namespace host::desktop {

/// One photograph as large as there is room, with the keys to go through all of them. Main thread.
class Preview final : public QWidget {
    Q_OBJECT

public:
    /// The model must outlive the preview.
    explicit Preview(PhotographModel& model, QWidget* parent = nullptr);

    void show(const QModelIndex& index);
    QModelIndex index() const { return index_; }
    /// Once more, if it could not be read: what was wrong may have passed.
    void retryFailures();

Q_SIGNALS:
    /// Another photograph is shown.
    void moved(const QModelIndex& index);
    /// The user wants back to the light table.
    void closed();

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;

private:
    void go(int steps);
    void load();
    void announce();

    PhotographModel& model_;
    PictureLoader loader_;
    QPersistentModelIndex index_;
    int wheelAngle_ = 0;
};

} // namespace host::desktop
