#pragma once

#include <QtWidgets/QLabel>

namespace host::desktop {

/// A line of plain text that may be narrower than the text: its end is an ellipsis then. Main thread.
class ElidedLabel final : public QLabel {
public:
    explicit ElidedLabel(QWidget* parent = nullptr);
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
};

} // namespace host::desktop
