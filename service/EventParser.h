#pragma once

#include "plugin/AtomicProperty.h"
#include "service/Records.h"
#include "service/TextCollector.h"

/// Reads the answer to the event list request: events and pricing templates, both in document order.
class EventParser final : private TextCollector {
public:
    EventParser();

    /// Replaces both lists by those of a new answer. Always true: of a broken answer the records that
    /// were complete are kept.
    bool parseData(const QByteArray& data);

    std::shared_ptr<RecordList> events() const { return events_.get(); }
    void setEvents(std::shared_ptr<RecordList> list) { events_.set(std::move(list)); }
    std::shared_ptr<RecordList> pricingTemplates() const { return pricingTemplates_.get(); }
    void setPricingTemplates(std::shared_ptr<RecordList> list) { pricingTemplates_.set(std::move(list)); }

private:
    /// The elements that are collected.
    static const KeySet& initialize();
    void didStartElement(const QString& name, const QHash<QString, QString>& attributes) override;
    void didEndElement(const QString& name) override;
    void store(const QString& key, const QString& value) override;

    AtomicProperty<std::shared_ptr<RecordList>> events_;
    AtomicProperty<std::shared_ptr<RecordList>> pricingTemplates_;
    std::shared_ptr<Record> pricingTemplate;
    std::shared_ptr<Record> event;
};
