#include "host/desktop/AnnouncedLabel.h"

#include <QtWidgets/QAccessibleWidget>

namespace host::desktop {

namespace {

class Notification final : public QAccessibleWidget {
public:
    explicit Notification(AnnouncedLabel& label)
        : QAccessibleWidget(&label, QAccessible::Notification)
        , label_(label) {}

    QString text(QAccessible::Text kind) const override {
        return kind == QAccessible::Name ? label_.text() : QAccessibleWidget::text(kind);
    }

private:
    AnnouncedLabel& label_;
};

QAccessibleInterface* makeNotification(const QString&, QObject* object) {
    auto* const label = qobject_cast<AnnouncedLabel*>(object);
    return label ? new Notification(*label) : nullptr;
}

} // namespace

AnnouncedLabel::AnnouncedLabel(QWidget* parent)
    : QLabel(parent) {
    [[maybe_unused]] static const bool isKnown = (QAccessible::installFactory(makeNotification), true);
    setTextFormat(Qt::PlainText);
    hide();
}

void AnnouncedLabel::tell(const QString& text) {
    const bool wasThere = isVisible();
    setText(text);
    setVisible(!text.isEmpty());
    if (!wasThere || text.isEmpty())
        return;
    // As if it had just appeared: Qt's alerts reach no one on this platform.
    QAccessibleEvent appearance(this, QAccessible::ObjectShow);
    QAccessible::updateAccessibility(&appearance);
}

} // namespace host::desktop
