#include "platform/XMLParser.h"

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

} // namespace

XMLParser::XMLParser(const QByteArray& data)
    : data_(data) {}

void XMLParser::setDelegate(XMLParserDelegate* delegate) {
    delegate_ = delegate;
}

bool XMLParser::parse() {
    const std::optional<QString> document = decodedXMLDocument(data_);
    if (!document)
        return false;
    const qsizetype length = lengthWithinXMLBounds(*document);
    QXmlStreamReader reader(document->left(length));
    reader.setNamespaceProcessing(false);
    while (!reader.atEnd()) {
        switch (reader.readNext()) {
        case QXmlStreamReader::StartElement:
            if (delegate_)
                delegate_->didStartElement(reader.qualifiedName().toString(), attributesOf(reader));
            break;
        case QXmlStreamReader::Characters:
            if (delegate_)
                delegate_->foundCharacters(reader.text().toString());
            break;
        case QXmlStreamReader::EndElement:
            if (delegate_)
                delegate_->didEndElement(reader.qualifiedName().toString());
            break;
        default:
            break;
        }
    }
    return !reader.hasError() && length == document->size();
}

} // namespace platform
