#include "host/desktop/ExportStatus.h"

#include "host/desktop/Counting.h"

#include <QtWidgets/QHBoxLayout>

#include <algorithm>
#include <bit>

namespace host::desktop {

namespace {

constexpr int kBarWidth = 160;
/// Of the sign bit nothing is left to a bar, which counts in `int`.
constexpr int kBarBits = 31;

/// The part of a message that stays the same within a stage, such as "Step 1 of 3".
QString stageOf(const QString& message) {
    return message.section(QLatin1Char(':'), 0, 0);
}

} // namespace

ExportStatus::ExportStatus(QWidget* parent)
    : QWidget(parent)
    , message_(new AnnouncedLabel)
    , bar_(new QProgressBar)
    , waiting_(new QLabel)
    , cancelButton_(new QPushButton(tr("Cance&l Export"))) {
    message_->setObjectName(QStringLiteral("exportMessage"));
    waiting_->setObjectName(QStringLiteral("waitingLabel"));
    cancelButton_->setObjectName(QStringLiteral("cancelExportButton"));
    bar_->setFixedWidth(kBarWidth);
    auto* const layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    for (QWidget* const part : std::initializer_list<QWidget*>{waiting_, message_, bar_, cancelButton_})
        layout->addWidget(part);
    connect(cancelButton_, &QPushButton::clicked, this, &ExportStatus::cancelRequested);
    setWaiting(0);
}

void ExportStatus::begin() {
    stage_.clear();
    message_->tell({});
    bar_->setRange(0, 0);
    bar_->setAccessibleName(tr("Export progress"));
    cancelButton_->setEnabled(true);
    show();
}

void ExportStatus::follow(const hostapi::ExportProgress& progress) {
    if (!cancelButton_->isEnabled())
        return; // It is being cancelled, whatever is still done meanwhile.
    showMessage(progress.message);
    if (progress.indeterminateProgress) {
        bar_->setRange(0, 0);
    } else {
        const int lowBits = std::max(0, static_cast<int>(std::bit_width(progress.totalValue)) - kBarBits);
        // A bar without a range is a busy one: nothing to do is done.
        bar_->setRange(0, std::max(1, static_cast<int>(progress.totalValue >> lowBits)));
        bar_->setValue(static_cast<int>(std::min(progress.currentValue, progress.totalValue) >> lowBits));
    }
}

void ExportStatus::showMessage(const QString& message) {
    const QString stage = stageOf(message);
    if (stage == stage_) {
        message_->setText(message); // Of every image nobody wants to hear.
        return;
    }
    stage_ = stage;
    message_->tell(message);
    // Screen readers read out how far a bar is, with its name.
    bar_->setAccessibleName(tr("Export progress, %1").arg(stage_));
}

void ExportStatus::setWaiting(std::size_t count) {
    waiting_->setText(count == 1 ? tr("1 further export waits.") : tr("%1 further exports wait.").arg(count));
    waiting_->setVisible(count > 0);
}

void ExportStatus::setCancelling() {
    cancelButton_->setEnabled(false);
    message_->tell(tr("Cancelling the export…"));
}

} // namespace host::desktop
