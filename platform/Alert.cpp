#include "platform/Alert.h"

#include "platform/RunLoop.h"

#include <QtWidgets/QLabel>
#include <QtWidgets/QMessageBox>

namespace platform {

namespace {

constexpr QLatin1String kTitle{"Quillmark"};

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

void fill(QMessageBox& box, AlertStyle style, const QString& message,
          const std::optional<QString>& informativeText) {
    box.setWindowTitle(kTitle);
    box.setIcon(iconForStyle(style));
    box.setStandardButtons(QMessageBox::Ok);
    box.setTextFormat(Qt::PlainText);
    box.setText(message);
    if (!informativeText || informativeText->isEmpty())
        return;
    // The box has a label for this text only once it has a text, and that label would guess the format.
    box.setInformativeText(QStringLiteral(" "));
    for (auto* label : box.findChildren<QLabel*>())
        label->setTextFormat(Qt::PlainText);
    box.setInformativeText(*informativeText);
}

} // namespace

Alert::Alert(AlertStyle style, QString message, std::optional<QString> informativeText)
    : style_(style)
    , message_(std::move(message))
    , informativeText_(std::move(informativeText)) {}

void Alert::runModal() const {
    RunLoop::main()->call([this] {
        QMessageBox box;
        fill(box, style_, message_, informativeText_);
        box.exec();
    });
}

void Alert::beginSheet(QWidget* window) const {
    auto* box = new QMessageBox(window);
    box->setAttribute(Qt::WA_DeleteOnClose);
    fill(*box, style_, message_, informativeText_);
    box->open();
}

} // namespace platform
