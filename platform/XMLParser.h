#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QHash>
#include <QtCore/QString>
#include <QtCore/QStringView>

namespace platform {

/// Is told what an XMLParser reads, in document order, on the parsing thread.
class XMLParserDelegate {
public:
    virtual ~XMLParserDelegate() = default;
    /// Names are as written, prefix included.
    virtual void didStartElement(const QString& name, const QHash<QString, QString>& attributes) = 0;
    /// Character data, CDATA and expanded entities; one text may come in several pieces. The characters live
    /// no longer than the call.
    virtual void foundCharacters(QStringView text) = 0;
    virtual void didEndElement(const QString& name) = 0;
};

/// An event-driven parser over a whole document in memory.
///
/// Without namespace processing. Bounded in memory and time for any input: entity expansion and nesting
/// are limited, nothing outside the document is ever read. Reads UTF-8, UTF-16, ISO-8859-1 and
/// windows-1252 by the document's declaration or byte order mark.
class XMLParser {
public:
    explicit XMLParser(const QByteArray& data);
    void setDelegate(XMLParserDelegate* delegate);
    /// Parses to the end or to the first error; true where there was none.
    bool parse();

private:
    QByteArray data_;
    XMLParserDelegate* delegate_ = nullptr;
};

} // namespace platform
