#pragma once

#include "host/desktop/AnnouncedLabel.h"

#include <QtWidgets/QDialog>
#include <QtWidgets/QDialogButtonBox>
#include <QtWidgets/QLineEdit>

namespace host::desktop {

/// Asks for a project's name, and takes none that no folder could have. Main thread.
class ProjectDialog final : public QDialog {
    Q_OBJECT

public:
    ProjectDialog(const QString& question, const QString& project, QWidget* parent);
    /// Without spaces around it.
    QString project() const { return field_->text().trimmed(); }

private:
    void check();

    QLineEdit* field_;
    AnnouncedLabel* fault_;
    QDialogButtonBox* buttons_;
};

} // namespace host::desktop
