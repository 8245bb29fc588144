#include "plugin/Quillmark.h"

#include "platform/RunLoop.h"
#include "service/BusyIndicator.h"
#include "service/CategoryParser.h"
#include "service/EventParser.h"
#include "service/ServiceRequests.h"

namespace {

const QString kCategoryPlaceholder = QStringLiteral("Please select a category...");
const QString kEventPlaceholder = QStringLiteral("Select an event...");
const QString kPricingPlaceholder = QStringLiteral("Please select a pricing template...");
constexpr QColor kPlaceholderColor = QColorConstants::Black;

/// Installs the text that a chooser shows while it holds no value.
void setPlaceholder(QComboBox* chooser, const QString& text) {
    if (!chooser)
        return;
    QPalette palette = chooser->palette();
    palette.setColor(QPalette::PlaceholderText, kPlaceholderColor);
    chooser->setPalette(palette);
    chooser->setPlaceholderText(text);
    if (QLineEdit* const field = chooser->lineEdit())
        field->setPlaceholderText(text);
}

/// The record that a chooser's selection stands for in the list it shows; empty where nothing is selected.
std::shared_ptr<Record> chosenRecord(QObject* sender, const std::shared_ptr<RecordList>& list) {
    const auto* const chooser = qobject_cast<QComboBox*>(sender);
    const int index = chooser ? chooser->currentIndex() : -1;
    if (!list || index < 0 || static_cast<std::size_t>(index) >= list->size())
        return nullptr;
    return (*list)[static_cast<std::size_t>(index)];
}

} // namespace

void Quillmark::loadEventThread() {
    const auto details = loginDetails.get();
    const auto uid = textOf(details, kUserIdKey);
    const auto pwd = textOf(details, kEncPasswordKey);
    const QString& webHost = environment->configuration.webHost;
    // One loader for the whole pass: all requests go over its one connection.
    platform::URLLoader loader(environment->configuration.transport);

    const auto answer = acceptedAnswer(loader, service_requests::eventList(webHost, uid, pwd));
    if (!answer) {
        environment->observer.listsCouldNotBeLoaded();
        return;
    }
    EventParser parser;
    parser.parseData(*answer);
    const auto events = parser.events();
    for (const auto& event : *events) {
        const auto eid = event->text(kIdKey);
        if (const auto categories =
                acceptedAnswer(loader, service_requests::categoryList(webHost, uid, pwd, eid))) {
            CategoryParser categoryParser;
            categoryParser.parseData(*categories);
            event->categories = categoryParser.categories();
        }
    }
    setEventList(events);
    setPricingList(parser.pricingTemplates());
    if (shouldCancelExport())
        _exportManager->shouldCancelExport();
    platform::RunLoop::main()->post([self = shared_from_this()] { self->doneEventLoad(); });
}

void Quillmark::doneEventLoad() {
    setThreadLaunched(false);
    if (eventList())
        setHideEventControls(false);
    setPlaceholder(categoryChooser, kCategoryPlaceholder);
    setPlaceholder(eventChooser, kEventPlaceholder);
    setPlaceholder(pricingChooser, kPricingPlaceholder);
    if (pricingList())
        setHidePricingControls(false);
    stopAnimation(eventLoadingProgress);
    stopAnimation(pricingLoadingProgress);
    if (loginButton)
        loginButton->setEnabled(true);
}

void Quillmark::changeEvent(QObject* sender) {
    const auto event = chosenRecord(sender, eventList());
    if (!event) {
        // Unlike a pricing template, an event once chosen stays chosen.
        setCategoryList(nullptr);
        return;
    }
    setChosenEventId(event->text(kIdKey));
    setCategoryList(event->categories);
    setChosenCategory(std::nullopt);
}

void Quillmark::changePricing(QObject* sender) {
    const auto pricing = chosenRecord(sender, pricingList());
    if (!pricing) {
        // The chooser knows already: nobody is notified.
        chosenPricingId_.set(std::nullopt);
        return;
    }
    setChosenPricingId(pricing->text(kIdKey));
}
