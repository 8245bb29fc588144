#pragma once

#include <QtWidgets/QLabel>

namespace host::desktop {

/// Plain text that screen readers read out when it appears, whatever has the focus: to them it is a
/// notification (AT-SPI's ROLE_NOTIFICATION). Main thread.
class AnnouncedLabel final : public QLabel {
    Q_OBJECT

public:
    explicit AnnouncedLabel(QWidget* parent = nullptr);
    /// Shows `text` and has it read out, now or once the label's window is there. With an empty one the
    /// label hides.
    void tell(const QString& text);
};

} // namespace host::desktop
