#include "host/desktop/ExportDialog.h"

#include <QtCore/QEvent>
#include <QtCore/QTimer>
#include <QtGui/QScreen>
#include <QtWidgets/QDialogButtonBox>
#include <QtWidgets/QScrollBar>
#include <QtWidgets/QStyle>
#include <QtWidgets/QVBoxLayout>

#include <algorithm>

namespace host::desktop {

namespace {

/// Of the screen: the window's own frame, and a desktop's bars, need some room too.
constexpr double kShareOfScreen = 0.9;

} // namespace

ExportDialog::ExportDialog(QWidget& view, HostedPlugIn& plugIn, const QString& heading, QWidget* parent)
    : QDialog(parent)
    , view_(&view)
    , scrollArea_(new QScrollArea)
    , notice_(new AnnouncedLabel) {
    setWindowTitle(tr("Export to Quillmark"));
    setWindowModality(Qt::WindowModal);
    auto* const headingLabel = new QLabel(heading);
    headingLabel->setObjectName(QStringLiteral("heading"));
    headingLabel->setTextFormat(Qt::PlainText);
    headingLabel->setWordWrap(true);
    notice_->setWordWrap(true);
    notice_->setObjectName(QStringLiteral("notice"));
    scrollArea_->setWidgetResizable(true);
    scrollArea_->setFrameShape(QFrame::NoFrame);
    scrollArea_->setWidget(view_);
    auto* const buttons = new QDialogButtonBox(QDialogButtonBox::Cancel);
    exportButton_ = buttons->addButton(tr("E&xport"), QDialogButtonBox::AcceptRole);
    cancelButton_ = buttons->button(QDialogButtonBox::Cancel);
    exportButton_->setObjectName(QStringLiteral("exportButton"));
    cancelButton_->setObjectName(QStringLiteral("cancelButton"));

    auto* const top = new QVBoxLayout;
    top->addWidget(headingLabel);
    top->addWidget(notice_);
    auto* const bottom = new QVBoxLayout;
    bottom->addWidget(buttons);
    auto* const layout = new QVBoxLayout(this);
    // The view has margins of its own: around it there are no others, so that all parts begin at one line.
    const QMargins margins = layout->contentsMargins();
    top->setContentsMargins(margins.left(), margins.top(), margins.right(), 0);
    bottom->setContentsMargins(margins.left(), layout->spacing(), margins.right(), margins.bottom());
    layout->setContentsMargins({});
    layout->setSpacing(0);
    layout->addLayout(top);
    layout->addWidget(scrollArea_, 1);
    layout->addLayout(bottom);

    connect(buttons, &QDialogButtonBox::accepted, this, &ExportDialog::exportRequested);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    linkKeyboardLoop(plugIn);
    view_->installEventFilter(this);
    growWithView();
}

void ExportDialog::linkKeyboardLoop(HostedPlugIn& plugIn) {
    QWidget* const first = plugIn.firstView();
    QWidget* const last = plugIn.lastView();
    if (last)
        setTabOrder(last, exportButton_);
    setTabOrder(exportButton_, cancelButton_);
    if (first) {
        setTabOrder(cancelButton_, first);
        first->setFocus();
    }
}

void ExportDialog::setNotice(const QString& notice) {
    notice_->tell(notice);
    // Else the view pays for its room.
    QTimer::singleShot(0, this, &ExportDialog::growWithView);
}

bool ExportDialog::eventFilter(QObject* watched, QEvent* event) {
    // The view shows more once its user has logged in.
    if (watched == view_ && event->type() == QEvent::LayoutRequest)
        QTimer::singleShot(0, this, &ExportDialog::growWithView);
    return QDialog::eventFilter(watched, event);
}

void ExportDialog::growWithView() {
    if (!view_)
        return;
    const QSize hint = view_->sizeHint().expandedTo(view_->minimumSizeHint());
    const QSize room = screen()->availableSize() * kShareOfScreen;
    const int scrollBar = style()->pixelMetric(QStyle::PM_ScrollBarExtent);
    // Where the view is cut off below, its scroll bar must not cut it off at the side too.
    scrollArea_->setMinimumWidth(std::min(hint.width() + scrollBar, room.width()));
    const int others = sizeHint().height() - scrollArea_->sizeHint().height();
    resize(QSize(std::max(width(), sizeHint().width()), std::max(height(), others + hint.height()))
               .boundedTo(room));
}

} // namespace host::desktop
