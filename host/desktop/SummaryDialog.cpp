#include "host/desktop/SummaryDialog.h"

#include "host/desktop/Counting.h"

#include <QtCore/QFileInfo>
#include <QtWidgets/QDialogButtonBox>
#include <QtWidgets/QHeaderView>
#include <QtWidgets/QLabel>
#include <QtWidgets/QMessageBox>
#include <QtWidgets/QPushButton>
#include <QtWidgets/QTreeWidget>
#include <QtWidgets/QVBoxLayout>

namespace host::desktop {

namespace {

constexpr QSize kListSize{560, 220};
constexpr int kTextWidth = 440;
constexpr double kHeadlineSize = 1.25;

QLabel* plainLabel(const QString& text, const char* name) {
    auto* const label = new QLabel(text);
    label->setObjectName(QLatin1String(name));
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    // At least, and at most: a word of any length widens no window.
    label->setMinimumWidth(kTextWidth);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    return label;
}

} // namespace

SummaryDialog::SummaryDialog(std::unique_ptr<ExportJournal> journal, const SummaryText& text, QWidget* parent)
    : QDialog(parent)
    , journal_(std::move(journal)) {
    setWindowTitle(tr("Export to “%1”").arg(shortened(journal_->record().choices.eventName)));
    setWindowModality(Qt::WindowModal);
    auto* const layout = new QVBoxLayout(this);
    QLabel* const headline = plainLabel(text.headline, "headline");
    QFont font = headline->font();
    font.setBold(true);
    font.setPointSizeF(font.pointSizeF() * kHeadlineSize);
    headline->setFont(font);
    layout->addWidget(headline);
    layout->addWidget(plainLabel(text.destination, "destination"));
    layout->addWidget(plainLabel(text.details, "details"));
    // Read out when the dialog opens.
    setAccessibleDescription(
        QStringList{text.headline, text.destination, text.details}.join(QLatin1Char('\n')));
    if (!journal_->record().remaining().empty())
        addList();
    addButtons();
}

void SummaryDialog::addList() {
    auto* const list = new QTreeWidget;
    list->setObjectName(QStringLiteral("remainingList"));
    list->setAccessibleName(tr("Photographs that were not exported"));
    list->setHeaderLabels({tr("Not exported"), tr("Reason")});
    list->setRootIsDecorated(false);
    list->setUniformRowHeights(true);
    list->setMinimumSize(kListSize);
    const ExportRecord& record = journal_->record();
    QList<QTreeWidgetItem*> items;
    for (const std::size_t index : record.remaining()) {
        const RecordedImage& image = record.images[index];
        const QString path = QString::fromUtf8(image.source);
        const QString reason = image.reason.isEmpty() ? tr("Its turn did not come.") : image.reason;
        auto* const item = new QTreeWidgetItem({QFileInfo(path).fileName(), reason});
        item->setToolTip(0, QStringLiteral("<span>%1</span>").arg(path.toHtmlEscaped()));
        item->setToolTip(1, QStringLiteral("<span>%1</span>").arg(reason.toHtmlEscaped()));
        items << item;
    }
    list->addTopLevelItems(items);
    list->header()->resizeSection(0, kListSize.width() / 3);
    layout()->addWidget(list);
}

void SummaryDialog::addButtons() {
    const ExportRecord& record = journal_->record();
    auto* const buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    const auto addButton = [this, buttons](const QString& text, const char* name, Decision decision) {
        QPushButton* const button = buttons->addButton(text, QDialogButtonBox::ActionRole);
        button->setObjectName(QLatin1String(name));
        connect(button, &QPushButton::clicked, this, [this, decision] { decide(decision); });
        return button;
    };
    QPushButton* usual = buttons->button(QDialogButtonBox::Close);
    if (!record.isSettled())
        addButton(tr("&Forget This Export…"), "forgetButton", Decision::Forget);
    if (record.lacksConfirmation())
        usual =
            addButton(tr("&Ask for the Confirmation Again…"), "askAgainButton", Decision::AskForConfirmation);
    if (const std::size_t count = record.remaining().size(); count > 0)
        usual = addButton(tr("Export the &Remaining %1…").arg(count), "exportRemainingButton",
                          Decision::ExportRemaining);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout()->addWidget(buttons);
    usual->setDefault(true);
    usual->setFocus();
}

bool SummaryDialog::confirmsForgetting() {
    const QString question =
        tr("Forget this export? The record of what was uploaded and what remains is deleted for good: "
           "nothing can go "
           "on with this export any more, and exporting the same photographs again sends all of them. The "
           "photographs themselves, and what is on the server, stay where they are.");
    return QMessageBox::question(this, tr("Forget This Export"), question, QMessageBox::Yes | QMessageBox::No,
                                 QMessageBox::No) == QMessageBox::Yes;
}

void SummaryDialog::decide(Decision decision) {
    if (decision == Decision::Forget && !confirmsForgetting())
        return;
    decision_ = decision;
    accept();
}

} // namespace host::desktop
