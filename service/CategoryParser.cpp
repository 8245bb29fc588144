#include "service/CategoryParser.h"

#include "service/IdentifiedRecord.h"

namespace {

const QString kCategoryElement = QStringLiteral("Category");

} // namespace

const CategoryParser::KeySet& CategoryParser::initialize() {
    static const KeySet interestingKeys{kNameKey};
    return interestingKeys;
}

CategoryParser::CategoryParser()
    : TextCollector(initialize()) {}

bool CategoryParser::parseData(const QByteArray& data) {
    setCategories(std::make_shared<RecordList>());
    parse(data);
    return true;
}

void CategoryParser::didStartElement(const QString& name, const QHash<QString, QString>& attributes) {
    if (name == kCategoryElement)
        category = identifiedRecord(attributes);
    else
        TextCollector::didStartElement(name, attributes);
}

void CategoryParser::didEndElement(const QString& name) {
    if (name == kCategoryElement)
        categories()->push_back(category);
    else
        TextCollector::didEndElement(name);
}

void CategoryParser::store(const QString& key, const QString& value) {
    if (category)
        category->setText(key, value);
}
