#pragma once

#include "plugin/AtomicProperty.h"
#include "service/Records.h"
#include "service/TextCollector.h"

/// Reads the answer to a category list request, in document order.
class CategoryParser final : private TextCollector {
public:
    CategoryParser();

    /// Replaces the list by that of a new answer. Always true: of a broken answer the records that were
    /// complete are kept.
    bool parseData(const QByteArray& data);

    std::shared_ptr<RecordList> categories() const { return categories_.get(); }
    void setCategories(std::shared_ptr<RecordList> list) { categories_.set(std::move(list)); }

private:
    /// The elements that are collected.
    static const KeySet& initialize();
    void didStartElement(const QString& name, const QHash<QString, QString>& attributes) override;
    void didEndElement(const QString& name) override;
    void store(const QString& key, const QString& value) override;

    AtomicProperty<std::shared_ptr<RecordList>> categories_;
    /// Stays at the category that has ended until the next one starts: a name in between is its name.
    std::shared_ptr<Record> category;
};
