#include "service/TextCollector.h"

#include "platform/Secret.h"

TextCollector::TextCollector(const KeySet& interestingKeys)
    : interestingKeys_(interestingKeys) {}

TextCollector::~TextCollector() {
    dropText();
}

void TextCollector::parse(const QByteArray& data) {
    platform::XMLParser parser(data);
    parser.setDelegate(this);
    parser.parse();
}

void TextCollector::didStartElement(const QString& name, const QHash<QString, QString>&) {
    if (!interestingKeys_.contains(name))
        return;
    dropText();
    keyInProgress = name;
    textInProgress = QString();
}

void TextCollector::foundCharacters(QStringView text) {
    if (textInProgress)
        platform::appendSecret(*textInProgress, text);
}

void TextCollector::didEndElement(const QString& name) {
    if (name != keyInProgress)
        return;
    store(name, *textInProgress);
    dropText();
    keyInProgress.reset();
}

void TextCollector::dropText() {
    if (textInProgress)
        platform::wipeUnlessShared(*textInProgress);
    textInProgress.reset();
}
