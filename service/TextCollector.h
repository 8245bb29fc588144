#pragma once

#include "platform/XMLParser.h"

#include <QtCore/QByteArray>
#include <QtCore/QSet>
#include <QtCore/QString>

#include <optional>

/// What the four parsers share: the text of certain elements is collected, wherever they stand, and
/// stored when they end.
///
/// The value is exactly the character data between the start tag and the end tag, that of other elements in
/// between included; nothing is trimmed. The start of another such element replaces a collection
/// that is still open. One thread at a time.
class TextCollector : protected platform::XMLParserDelegate {
public:
    TextCollector(const TextCollector&) = delete;
    TextCollector& operator=(const TextCollector&) = delete;

protected:
    using KeySet = QSet<QString>;

    /// `interestingKeys` names the elements that are collected; it must outlive the parser. The wrapper
    /// elements of the answers are not among them.
    explicit TextCollector(const KeySet& interestingKeys);
    ~TextCollector() override;

    /// Reads a whole answer, or what is well-formed of it; its records so far are kept.
    void parse(const QByteArray& data);

    void didStartElement(const QString& name, const QHash<QString, QString>& attributes) override;
    void foundCharacters(QStringView text) override;
    void didEndElement(const QString& name) override;

    /// Stores the value of a collected element that has ended.
    virtual void store(const QString& key, const QString& value) = 0;

private:
    /// Ends a collection. Its text may be a password: what nobody has taken is wiped.
    void dropText();

    const KeySet& interestingKeys_;
    std::optional<QString> keyInProgress;
    std::optional<QString> textInProgress;
};
