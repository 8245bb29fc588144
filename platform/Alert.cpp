#include "platform/Alert.h"

#include "platform/RunLoop.h"

#include <QtGui/QScreen>
#include <QtGui/QWindow>
#include <QtWidgets/QApplication>
#include <QtWidgets/QLabel>
#include <QtWidgets/QLayout>
#include <QtWidgets/QMessageBox>
#include <QtWidgets/QPlainTextEdit>

namespace platform {

namespace {

constexpr QLatin1String kTitle{"Quillmark"};

// QMessageBox's own names for its labels.
constexpr QLatin1String kMessageLabel{"qt_msgbox_label"};
constexpr QLatin1String kInformativeLabel{"qt_msgbox_informativelabel"};

// How wide texts are, and what they may take up before they scroll.
constexpr int kNarrowestText = 320;
constexpr int kWidestText = 480;
constexpr int kScreenShare = 4; ///< One part in so many of the screen's height.
constexpr qsizetype kLongestMeasuredText = 4000;

QMessageBox::Icon iconForStyle(AlertStyle style) {
    switch (style) {
    case AlertStyle::Warning:
        return QMessageBox::Warning;
    case AlertStyle::Informational:
        return QMessageBox::Information;
    case AlertStyle::Critical:
        return QMessageBox::Critical;
    }
    return QMessageBox::NoIcon;
}

QSize wrappedSize(const QLabel& label, int flags) {
    const QRect unbounded(0, 0, kWidestText, QWIDGETSIZE_MAX);
    return label.fontMetrics().boundingRect(unbounded, flags, label.text()).size();
}

/// A message box grows with its texts, beyond the screen if need be, and cuts words that are too long for a
/// line. Such a text gets a view that scrolls and wraps anywhere.
void keepInBounds(QMessageBox& box, QLabel& label) {
    int height = box.screen()->availableGeometry().height() / kScreenShare;
    // Measuring a very long text takes its time, and its answer is known.
    if (label.text().size() <= kLongestMeasuredText) {
        const int needed = wrappedSize(label, Qt::TextWordWrap | Qt::TextWrapAnywhere).height();
        if (needed <= height && wrappedSize(label, Qt::TextWordWrap).width() <= kWidestText)
            return;
        height = qMin(height, needed + 2 * label.fontMetrics().height());
    }
    auto* view = new QPlainTextEdit(label.text(), &box);
    view->setReadOnly(true);
    view->setFont(label.font());
    view->setFixedSize(kWidestText, height);
    delete box.layout()->replaceWidget(&label, view);
    label.hide();
}

class Box : public QMessageBox {
public:
    Box(AlertStyle style, const QString& message, const std::optional<QString>& informativeText,
        QWidget* parent)
        : QMessageBox(parent) {
        setWindowTitle(kTitle);
        setIcon(iconForStyle(style));
        setStandardButtons(Ok);
        setTextFormat(Qt::PlainText);
        setText(message);
        if (informativeText && !informativeText->isEmpty())
            setPlainInformativeText(*informativeText);
        for (const QLatin1String name : {kMessageLabel, kInformativeLabel}) {
            if (auto* label = findChild<QLabel*>(name))
                keepInBounds(*this, *label);
        }
    }

private:
    void setPlainInformativeText(const QString& text) {
        // The label comes into being with its text, and would guess the text's format.
        setInformativeText(QStringLiteral(" "));
        auto* const label = findChild<QLabel*>(kInformativeLabel);
        label->setTextFormat(Qt::PlainText);
        label->setMinimumWidth(kNarrowestText);
        setInformativeText(text);

        auto* const messageLabel = findChild<QLabel*>(kMessageLabel);
        QFont bold = messageLabel->font();
        bold.setBold(true);
        messageLabel->setFont(bold);
    }
};

} // namespace

Alert::Alert(AlertStyle style, QString message, std::optional<QString> informativeText)
    : style_(style)
    , message_(std::move(message))
    , informativeText_(std::move(informativeText)) {}

void Alert::runModal() const {
    RunLoop::main()->call([this] {
        // No window is its parent: a window that closes meanwhile must not answer for the user.
        Box box(style_, message_, informativeText_, nullptr);
        if (const auto* window = QApplication::activeWindow()) {
            box.winId(); // makes the window handle
            box.windowHandle()->setTransientParent(window->windowHandle());
        }
        box.setWindowModality(Qt::ApplicationModal);
        box.show();
        box.raise();
        box.activateWindow();
        box.exec();
    });
}

void Alert::beginSheet(QWidget* window) const {
    auto* box = new Box(style_, message_, informativeText_, window ? window->window() : nullptr);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->open();
}

} // namespace platform
