#include "service/TextCollector.h"

TextCollector::TextCollector(const KeySet& interestingKeys)
    : interestingKeys_(interestingKeys) {}

void TextCollector::parse(const QByteArray& data) {
    platform::XMLParser parser(data);
    parser.setDelegate(this);
    parser.parse();
}

void TextCollector::didStartElement(const QString& name, const QHash<QString, QString>&) {
    if (!interestingKeys_.contains(name))
        return;
    keyInProgress = name;
    textInProgress = QString();
}

void TextCollector::foundCharacters(const QString& text) {
    if (textInProgress)
        textInProgress->append(text);
}

void TextCollector::didEndElement(const QString& name) {
    if (name != keyInProgress)
        return;
    store(name, *textInProgress);
    textInProgress.reset();
    keyInProgress.reset();
}
