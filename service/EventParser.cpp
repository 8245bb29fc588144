#include "service/EventParser.h"

#include "service/IdentifiedRecord.h"

namespace {

const QString kEventElement = QStringLiteral("Event");
const QString kPricingTemplateElement = QStringLiteral("PricingTemplate");

/// Moves a record that has ended to its list. Of two that are nested the inner one has taken the place.
void close(std::shared_ptr<Record>& record, RecordList& list) {
    if (record)
        list.push_back(std::move(record));
    record.reset();
}

} // namespace

const EventParser::KeySet& EventParser::initialize() {
    static const KeySet interestingKeys{kNameKey};
    return interestingKeys;
}

EventParser::EventParser()
    : TextCollector(initialize()) {}

bool EventParser::parseData(const QByteArray& data) {
    setEvents(std::make_shared<RecordList>());
    setPricingTemplates(std::make_shared<RecordList>());
    parse(data);
    return true;
}

void EventParser::didStartElement(const QString& name, const QHash<QString, QString>& attributes) {
    if (name == kEventElement)
        event = identifiedRecord(attributes);
    else if (name == kPricingTemplateElement)
        pricingTemplate = identifiedRecord(attributes);
    else
        TextCollector::didStartElement(name, attributes);
}

void EventParser::didEndElement(const QString& name) {
    if (name == kEventElement)
        close(event, *events());
    else if (name == kPricingTemplateElement)
        close(pricingTemplate, *pricingTemplates());
    else
        TextCollector::didEndElement(name);
}

void EventParser::store(const QString& key, const QString& value) {
    if (event)
        event->setText(key, value);
    if (pricingTemplate)
        pricingTemplate->setText(key, value);
}
