#include "platform/XMLParser.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QStringList>

#include <gtest/gtest.h>

using platform::XMLParser;

namespace {

/// Writes down what a parser tells, pieces of one text put together.
class Record final : public platform::XMLParserDelegate {
public:
    void didStartElement(const QString& name, const QHash<QString, QString>& attributes) override {
        QStringList texts{QStringLiteral("<") + name};
        QStringList keys = attributes.keys();
        keys.sort();
        for (const QString& key : keys)
            texts.append(key + QLatin1Char('=') + attributes.value(key));
        add(texts.join(QLatin1Char(' ')));
    }
    void foundCharacters(QStringView text) override {
        length += text.size();
        if (keepsTexts && !isText)
            events.append(QString());
        isText = true;
        if (keepsTexts)
            events.last() += text;
    }
    void didEndElement(const QString& name) override { add(QStringLiteral(">") + name); }

    QStringList events;
    qsizetype length = 0;
    bool keepsTexts = true;
    bool isText = false;

private:
    void add(const QString& event) {
        events.append(event);
        isText = false;
    }
};

struct Result {
    QStringList events;
    bool isWellFormed = false;
};

Result parsed(const QByteArray& data) {
    Record record;
    XMLParser parser(data);
    parser.setDelegate(&record);
    const bool isWellFormed = parser.parse();
    return {record.events, isWellFormed};
}

/// What a document element with this text tells.
QStringList elementOf(const QString& text) {
    return {QStringLiteral("<a"), text, QStringLiteral(">a")};
}

const QString kCafe = QStringLiteral("caf\u00e9 \u20ac");

/// `text` in UTF-16, low bytes first or last.
QByteArray utf16(const QString& text, bool isLittleEndian, bool hasMark) {
    QByteArray bytes;
    for (const QChar character : hasMark ? QChar(0xFEFF) + text : text) {
        const char low = static_cast<char>(character.unicode() & 0xFF);
        const char high = static_cast<char>(character.unicode() >> 8);
        bytes.append(isLittleEndian ? low : high);
        bytes.append(isLittleEndian ? high : low);
    }
    return bytes;
}

constexpr qsizetype kLargest = 16 * 1024 * 1024;
/// Far more than any machine that runs tests needs for the largest answer, far less than what grows
/// with its square.
constexpr qint64 kLongestMilliseconds = 30'000;

} // namespace

TEST(XMLParser, TellsElementsTextsAndAttributesInOrder) {
    const Result result = parsed("<?xml version='1.0'?><a x='1' y=\"2\">one<b/>two &lt;&#65;&amp;</a>");
    EXPECT_EQ(result.events,
              (QStringList{QStringLiteral("<a x=1 y=2"), QStringLiteral("one"), QStringLiteral("<b"),
                           QStringLiteral(">b"), QStringLiteral("two <A&"), QStringLiteral(">a")}));
    EXPECT_TRUE(result.isWellFormed);
}

TEST(XMLParser, CDATAIsCharacterData) {
    EXPECT_EQ(parsed("<a> x <![CDATA[<b>&amp;]]> y </a>").events,
              elementOf(QStringLiteral(" x <b>&amp; y ")));
}

TEST(XMLParser, CommentsAndInstructionsAreNotTold) {
    EXPECT_EQ(parsed("<a>x<!-- <b> -->y<?do <b> ?>z</a>").events, elementOf(QStringLiteral("xyz")));
}

TEST(XMLParser, NamesKeepPrefixesDeclaredOrNot) {
    EXPECT_EQ(parsed("<q:a p:x='1' xmlns:p='u'></q:a>").events,
              (QStringList{QStringLiteral("<q:a p:x=1 xmlns:p=u"), QStringLiteral(">q:a")}));
}

TEST(XMLParser, WithoutADelegateADocumentIsOnlyChecked) {
    EXPECT_TRUE(XMLParser("<a/>").parse());
    EXPECT_FALSE(XMLParser("<a>").parse());
}

TEST(XMLParser, WhatStandsBeforeAnErrorIsTold) {
    const Result result = parsed("<a><b>x</b><c></d>");
    EXPECT_EQ(result.events, (QStringList{QStringLiteral("<a"), QStringLiteral("<b"), QStringLiteral("x"),
                                          QStringLiteral(">b"), QStringLiteral("<c")}));
    EXPECT_FALSE(result.isWellFormed);
}

TEST(XMLParser, TextsThatAreNoXMLAreErrors) {
    for (const QByteArray& text :
         {QByteArray(), QByteArray("hello"), QByteArray("\0\0\0", 3), QByteArray("{\"a\":1}"),
          QByteArray("<"), QByteArray("<a"), QByteArray("<a>&none;</a>"), QByteArray("<a/><b/>"),
          QByteArray("\xff\xfe"), QByteArray("<a b='1' b='2'/>")})
        EXPECT_FALSE(parsed(text).isWellFormed) << text.constData();
}

TEST(XMLParser, ReadsUTF8WithAndWithoutItsMark) {
    const QByteArray document = "<a>" + kCafe.toUtf8() + "</a>";
    EXPECT_EQ(parsed(document).events, elementOf(kCafe));
    EXPECT_EQ(parsed("\xEF\xBB\xBF" + document).events, elementOf(kCafe));
    for (const char* name : {"utf-8", "UTF-8", "utf8"})
        EXPECT_EQ(parsed("<?xml version='1.0' encoding='" + QByteArray(name) + "'?>" + document).events,
                  elementOf(kCafe));
    EXPECT_EQ(parsed("<?xml version='1.0' encoding='ASCII'?><a>x</a>").events,
              elementOf(QStringLiteral("x")));
}

TEST(XMLParser, ReadsUTF16ByItsMarkOrItsDeclaration) {
    const QString document = QStringLiteral("<a>") + kCafe + QStringLiteral("</a>");
    const QString declared = QStringLiteral("<?xml version=\"1.0\" encoding=\"UTF-16\"?>") + document;
    for (const bool isLittleEndian : {true, false}) {
        EXPECT_EQ(parsed(utf16(document, isLittleEndian, true)).events, elementOf(kCafe));
        EXPECT_EQ(parsed(utf16(declared, isLittleEndian, true)).events, elementOf(kCafe));
        EXPECT_EQ(parsed(utf16(declared, isLittleEndian, false)).events, elementOf(kCafe));
    }
}

TEST(XMLParser, ReadsISO88591) {
    EXPECT_EQ(parsed("<?xml version='1.0' encoding='ISO-8859-1'?><a>caf\xE9</a>").events,
              elementOf(QStringLiteral("caf\u00e9")));
}

TEST(XMLParser, ReadsWindows1252) {
    EXPECT_EQ(parsed("<?xml version=\"1.0\" encoding=\"windows-1252\" standalone=\"yes\"?><a>caf\xE9 \x80 "
                     "\x93x\x94 \x9F</a>")
                  .events,
              elementOf(kCafe + QStringLiteral(" \u201cx\u201d \u0178")));
}

TEST(XMLParser, OtherEncodingsAreNotGuessed) {
    EXPECT_TRUE(parsed("<?xml version='1.0' encoding='x-unknown'?><a>x</a>").events.isEmpty());
}

TEST(XMLParser, BytesThatTheirEncodingDoesNotAllowEndTheDocument) {
    const Result result = parsed("<a><b>x</b><c>\xC3(</c></a>");
    EXPECT_FALSE(result.isWellFormed);
    EXPECT_EQ(result.events.mid(0, 4), (QStringList{QStringLiteral("<a"), QStringLiteral("<b"),
                                                    QStringLiteral("x"), QStringLiteral(">b")}));
    EXPECT_FALSE(result.events.contains(QStringLiteral(">c")));
}

TEST(XMLParser, NulEndsTheDocument) {
    const Result result = parsed(QByteArray("<a><b>x</b>\0<c>y</c></a>", 24));
    EXPECT_FALSE(result.isWellFormed);
    EXPECT_TRUE(result.events.contains(QStringLiteral(">b")));
    EXPECT_FALSE(result.events.contains(QStringLiteral("<c")));
}

TEST(XMLParser, DeclaredEntitiesOfPlainTextAreExpanded) {
    EXPECT_EQ(parsed("<!DOCTYPE a [<!ENTITY n \"Ann\">]><a>&n; &n;</a>").events,
              elementOf(QStringLiteral("Ann Ann")));
}

TEST(XMLParser, DocumentTypeWithoutDeclarationsIsPassed) {
    EXPECT_EQ(parsed("<!DOCTYPE a SYSTEM 'x>[.dtd'><a>x</a>").events, elementOf(QStringLiteral("x")));
}

TEST(XMLParser, ExternalEntitiesAreNotRead) {
    const Result result = parsed("<!DOCTYPE a [<!ENTITY e SYSTEM \"file:///etc/passwd\">]><a>x&e;</a>");
    EXPECT_FALSE(result.events.join(QString()).contains(QStringLiteral("root")));
    EXPECT_FALSE(
        parsed("<!DOCTYPE a [<!ENTITY % e SYSTEM \"file:///etc/passwd\">%e;]><a>x</a>").isWellFormed);
}

TEST(XMLParser, EntitiesThatMultiplyThemselvesAreNotExpanded) {
    QByteArray nested = "<!DOCTYPE a [<!ENTITY e0 \"%1\">";
    QByteArray parameters = "<!DOCTYPE a [<!ENTITY % p0 \" \">";
    for (int i = 1; i < 30; ++i) {
        const QByteArray inner = QByteArray::number(i - 1);
        const QByteArray outer = QByteArray::number(i);
        nested += "<!ENTITY e" + outer + " \"" + ("&e" + inner + ";").repeated(10) + "\">";
        parameters += "<!ENTITY % p" + outer + " \"" + ("%p" + inner + ";").repeated(10) + "\">";
    }
    nested += "]><a>&e29;</a>";
    parameters += "%p29;]><a>x</a>";
    QElapsedTimer timer;
    timer.start();
    for (const char* innermost : {"", "x", "lol"}) {
        QByteArray document = nested;
        EXPECT_TRUE(parsed(document.replace("%1", innermost)).events.isEmpty());
    }
    EXPECT_TRUE(parsed(nested.replace("&e", "&#38;e")).events.isEmpty());
    EXPECT_TRUE(parsed(parameters).events.isEmpty());
    EXPECT_TRUE(parsed("<!DOCTYPE a [<!ENTITY e '<b>'>]><a>&e;</b></a>").events.isEmpty());
    EXPECT_TRUE(parsed("<!DOCTYPE a [<!ATTLIST a x CDATA 'y'>]><a/>").events.isEmpty());
    EXPECT_TRUE(
        parsed("<!DOCTYPE a [<!-- \" --><!ENTITY e ']'><!ENTITY f '&e;&e;'>]><a>&f;</a>").events.isEmpty());
    EXPECT_LT(timer.elapsed(), kLongestMilliseconds);
}

TEST(XMLParser, DeclarationsAreLimited) {
    const auto declaring = [](qsizetype count) {
        return parsed("<!DOCTYPE a [" + QByteArray("<!ELEMENT b (c)>").repeated(count) + "]><a>x</a>");
    };
    EXPECT_EQ(declaring(4000).events, elementOf(QStringLiteral("x")));
    EXPECT_TRUE(declaring(5000).events.isEmpty());
    EXPECT_TRUE(parsed("<!DOCTYPE a [<!ELEMENT e " + QByteArray(kLargest, '(') + "]><a/>").events.isEmpty());
}

TEST(XMLParser, ReferencesToALongEntityAreLimited) {
    const QByteArray document = "<!DOCTYPE a [<!ENTITY e \"" + QByteArray(4000, 'x') + "\">]><a>" +
                                QByteArray("&e;").repeated(5'000'000) + "</a>";
    Record record;
    record.keepsTexts = false;
    XMLParser parser(document);
    parser.setDelegate(&record);
    EXPECT_FALSE(parser.parse());
    EXPECT_LE(record.length, 4096 * 4096);
}

TEST(XMLParser, NestingIsLimited) {
    const auto nested = [](int depth) {
        return parsed(QByteArray("<a>").repeated(depth) + QByteArray("</a>").repeated(depth));
    };
    EXPECT_TRUE(nested(256).isWellFormed);
    const Result tooDeep = nested(257);
    EXPECT_FALSE(tooDeep.isWellFormed);
    EXPECT_EQ(tooDeep.events.size(), 256);
    EXPECT_EQ(nested(2'000'000).events.size(), 256);
    EXPECT_TRUE(parsed("<a>" + QByteArray("<b/><c></c>").repeated(1000) + "</a>").isWellFormed);
}

TEST(XMLParser, AttributesOfATagAreLimited) {
    const auto withAttributes = [](int count) {
        QByteArray document = "<a><x/><b";
        for (int i = 0; i < count; ++i)
            document += " a" + QByteArray::number(i) + "='>'";
        return parsed(document + "/></a>");
    };
    EXPECT_TRUE(withAttributes(64).isWellFormed);
    const Result tooMany = withAttributes(65);
    EXPECT_FALSE(tooMany.isWellFormed);
    EXPECT_EQ(tooMany.events,
              (QStringList{QStringLiteral("<a"), QStringLiteral("<x"), QStringLiteral(">x")}));
    EXPECT_EQ(withAttributes(1'000'000).events.size(), 3);
}

TEST(XMLParser, LargestAnswersTakeTimeInProportion) {
    const QByteArray wide = "<a>" + QByteArray("<b c='d'>e</b>").repeated(kLargest / 14) + "</a>";
    const QByteArray text = "<a>" + QByteArray("x]]&gt;").repeated(kLargest / 7) + "</a>";
    const QByteArray comment = "<a><!--" + QByteArray(kLargest, '-').replace("--", "- ") + "--></a>";
    QByteArray tag = "<a><b";
    for (int i = 0; i < 64; ++i)
        tag += " a" + QByteArray::number(i) + "=''";
    tag += "/></a>";
    const QByteArray tags = "<a>" + tag.mid(3).chopped(4).repeated(kLargest / tag.size()) + "</a>";
    for (const QByteArray& document : {wide, text, comment, tags}) {
        QElapsedTimer timer;
        timer.start();
        EXPECT_TRUE(XMLParser(document).parse());
        EXPECT_LT(timer.elapsed(), kLongestMilliseconds);
    }
}

TEST(XMLParser, LineEndsAreNormalised) {
    EXPECT_EQ(parsed("<a>1\r\n2\r3\n4</a>").events, elementOf(QStringLiteral("1\n2\n3\n4")));
}
