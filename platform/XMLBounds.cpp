#include "platform/XMLBounds.h"

#include <QtCore/QString>

namespace platform {

namespace {

constexpr int kMaximumDepth = 256;
constexpr int kMaximumAttributes = 64;
/// Each is at most as long as QXmlStreamReader's entityExpansionLimit, 4096 characters.
constexpr int kMaximumReferences = 4096;
constexpr qsizetype kMaximumDeclarations = 65536;

/// Walks over a document from one piece of markup to the next.
class Walk {
public:
    explicit Walk(QStringView document)
        : document_(document) {}

    qsizetype lengthWithinBounds() {
        while (position_ < document_.size()) {
            const qsizetype start = position_;
            if (!passNext())
                return start;
        }
        return document_.size();
    }

private:
    /// Passes the text up to the next markup, or that markup; false where it exceeds a bound.
    bool passNext() {
        if (!at(u"<"))
            return passText();
        if (at(u"<!--"))
            return passTo(u"-->", 4);
        if (at(u"<![CDATA["))
            return passTo(u"]]>", 9);
        if (at(u"<?"))
            return passTo(u"?>", 2);
        if (at(u"<!DOCTYPE"))
            return passDocumentType();
        if (at(u"</")) {
            --depth_;
            return passTo(u">", 2);
        }
        return passStartTag();
    }

    bool at(QStringView text) const { return document_.sliced(position_).startsWith(text); }

    bool passTo(QStringView end, qsizetype from) {
        const qsizetype found = document_.indexOf(end, position_ + from);
        position_ = found < 0 ? document_.size() : found + end.size();
        return true;
    }

    bool passText() {
        const qsizetype found = document_.indexOf(u'<', position_);
        const qsizetype end = found < 0 ? document_.size() : found;
        const QStringView text = document_.sliced(position_, end - position_);
        position_ = end;
        return countReferences(text);
    }

    /// Without declared entities a reference is shorter than what it stands for.
    bool countReferences(QStringView text) {
        if (!declaresEntities_)
            return true;
        references_ += text.count(u'&');
        return references_ <= kMaximumReferences;
    }

    bool passStartTag() {
        const qsizetype start = position_;
        int attributes = 0;
        QChar quote;
        for (++position_; position_ < document_.size(); ++position_) {
            const QChar character = document_[position_];
            if (!quote.isNull()) {
                if (character == quote)
                    quote = QChar();
            } else if (character == u'"' || character == u'\'') {
                quote = character;
                if (++attributes > kMaximumAttributes)
                    return false;
            } else if (character == u'>') {
                break;
            }
        }
        const bool isEmptyElement = document_[position_ - 1] == u'/';
        if (position_ < document_.size())
            ++position_;
        if (!isEmptyElement && ++depth_ > kMaximumDepth)
            return false;
        return countReferences(document_.sliced(start, position_ - start));
    }

    bool passDocumentType() {
        const qsizetype subset = passUnquoted(u"[>");
        if (subset == document_.size() || document_[subset] == u'>')
            return true;
        const qsizetype subsetEnd = passUnquoted(u"]");
        const QStringView declarations = document_.sliced(subset, subsetEnd - subset);
        declaresEntities_ = declarations.contains(u"<!ENTITY");
        passUnquoted(u">");
        return arePlain(declarations);
    }

    /// Passes the next character that is one of `characters` and in no literal; its place.
    qsizetype passUnquoted(QStringView characters) {
        QChar quote;
        for (; position_ < document_.size(); ++position_) {
            const QChar character = document_[position_];
            if (!quote.isNull()) {
                if (character == quote)
                    quote = QChar();
            } else if (character == u'"' || character == u'\'') {
                quote = character;
            } else if (characters.contains(character)) {
                return position_++;
            }
        }
        return document_.size();
    }

    /// Entities that refer to others, markup in them, parameter entities and default attributes all
    /// multiply themselves. Comments and instructions could hide where a literal starts.
    static bool arePlain(QStringView declarations) {
        if (declarations.size() > kMaximumDeclarations)
            return false;
        for (const QStringView multiplier : {u"&", u"%", u"<!ATTLIST", u"<!--", u"<?"}) {
            if (declarations.contains(multiplier))
                return false;
        }
        QChar quote;
        for (const QChar character : declarations) {
            if (!quote.isNull() && character == u'<')
                return false;
            if (character == quote)
                quote = QChar();
            else if (quote.isNull() && (character == u'"' || character == u'\''))
                quote = character;
        }
        return true;
    }

    const QStringView document_;
    qsizetype position_ = 0;
    qsizetype depth_ = 0;
    qsizetype references_ = 0;
    bool declaresEntities_ = false;
};

} // namespace

qsizetype lengthWithinXMLBounds(QStringView document) {
    return Walk(document).lengthWithinBounds();
}

} // namespace platform
