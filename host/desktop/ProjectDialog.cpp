#include "host/desktop/ProjectDialog.h"

#include "host/desktop/ProjectName.h"

#include <QtWidgets/QPushButton>
#include <QtWidgets/QVBoxLayout>

namespace host::desktop {

namespace {

constexpr int kFieldWidth = 360;

} // namespace

ProjectDialog::ProjectDialog(const QString& question, const QString& project, QWidget* parent)
    : QDialog(parent)
    , field_(new QLineEdit(project))
    , fault_(new AnnouncedLabel)
    , buttons_(new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel)) {
    setWindowTitle(tr("Rename Project"));
    auto* const label = new QLabel(question);
    label->setBuddy(field_);
    field_->setMinimumWidth(kFieldWidth);
    field_->setAccessibleName(question);
    field_->selectAll();
    fault_->setWordWrap(true);
    fault_->setObjectName(QStringLiteral("fault"));
    // Its room is there all the time: nothing moves below who types.
    QSizePolicy policy = fault_->sizePolicy();
    policy.setRetainSizeWhenHidden(true);
    fault_->setSizePolicy(policy);
    fault_->setMinimumHeight(2 * fontMetrics().lineSpacing());
    auto* const layout = new QVBoxLayout(this);
    for (QWidget* const part : std::initializer_list<QWidget*>{label, field_, fault_, buttons_})
        layout->addWidget(part);
    connect(field_, &QLineEdit::textChanged, this, &ProjectDialog::check);
    connect(buttons_, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons_, &QDialogButtonBox::rejected, this, &QDialog::reject);
    check();
}

void ProjectDialog::check() {
    const QString fault = projectNameFault(project());
    buttons_->button(QDialogButtonBox::Ok)->setEnabled(fault.isEmpty());
    if (fault != fault_->text())
        fault_->tell(fault);
}

} // namespace host::desktop
