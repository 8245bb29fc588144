#include "host/desktop/NoticeBar.h"

#include <QtWidgets/QHBoxLayout>
#include <QtWidgets/QStyle>
#include <QtWidgets/QToolButton>

namespace host::desktop {

NoticeBar::NoticeBar(QWidget* parent)
    : QFrame(parent)
    , text_(new AnnouncedLabel)
    , button_(new QPushButton) {
    setFrameShape(QFrame::StyledPanel);
    setAutoFillBackground(true);
    setBackgroundRole(QPalette::ToolTipBase);
    setForegroundRole(QPalette::ToolTipText);
    text_->setForegroundRole(QPalette::ToolTipText);
    text_->setWordWrap(true);
    // A word of any length widens no window.
    text_->setMinimumWidth(1);
    text_->setObjectName(QStringLiteral("noticeText"));
    button_->setObjectName(QStringLiteral("noticeButton"));
    auto* const closeButton = new QToolButton;
    closeButton->setIcon(style()->standardIcon(QStyle::SP_TitleBarCloseButton));
    closeButton->setAutoRaise(true);
    closeButton->setFocusPolicy(Qt::StrongFocus);
    closeButton->setAccessibleName(tr("Close this notice"));
    auto* const layout = new QHBoxLayout(this);
    layout->addWidget(text_, 1);
    layout->addWidget(button_);
    layout->addWidget(closeButton);
    connect(closeButton, &QToolButton::clicked, this, &QWidget::hide);
    connect(button_, &QPushButton::clicked, this, [this] {
        hide();
        Q_EMIT activated();
    });
    hide();
}

void NoticeBar::showNotice(const QString& text, const QString& buttonText) {
    if (isVisible() && text_->text() == text)
        return;
    text_->tell(text);
    button_->setText(buttonText);
    button_->setVisible(!buttonText.isEmpty());
    show();
}

} // namespace host::desktop
