#include "platform/XMLParser.h"

#include "platform/Secret.h"
#include "platform/XMLBounds.h"
#include "platform/XMLEncoding.h"

#include <QtCore/QXmlStreamReader>

namespace platform {

namespace {

QHash<QString, QString> attributesOf(const QXmlStreamReader& reader) {
    QHash<QString, QString> attributes;
    for (const QXmlStreamAttribute& attribute : reader.attributes())
        attributes.insert(attribute.qualifiedName().toString(), attribute.value().toString());
    return attributes;
}

/// Tells `delegate`, unless null, what stands in `document`, to its end or the first error; true where there
/// was none.
bool parseDocument(const QString& document, XMLParserDelegate* delegate) {
    QXmlStreamReader reader(document);
    reader.setNamespaceProcessing(false);
    while (!reader.atEnd()) {
        const auto token = reader.readNext();
        if (!delegate)
            continue;
        if (token == QXmlStreamReader::StartElement)
            delegate->didStartElement(reader.qualifiedName().toString(), attributesOf(reader));
        else if (token == QXmlStreamReader::Characters)
            delegate->foundCharacters(reader.text());
        else if (token == QXmlStreamReader::EndElement)
            delegate->didEndElement(reader.qualifiedName().toString());
    }
    return !reader.hasError();
}

} // namespace

XMLParser::XMLParser(const QByteArray& data)
    : data_(data) {}

void XMLParser::setDelegate(XMLParserDelegate* delegate) {
    delegate_ = delegate;
}

bool XMLParser::parse() {
    std::optional<QString> document = decodedXMLDocument(data_);
    if (!document)
        return false;
    const qsizetype length = lengthWithinXMLBounds(*document);
    const bool isWithinBounds = length == document->size();
    document->truncate(length);
    const bool isWellFormed = parseDocument(*document, delegate_);
    // It may hold what stands for a password.
    wipe(*document);
    return isWellFormed && isWithinBounds;
}

} // namespace platform
