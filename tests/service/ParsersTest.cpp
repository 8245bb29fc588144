#include "service/CategoryParser.h"
#include "service/EventParser.h"
#include "service/LoginParser.h"
#include "service/PricingParser.h"

#include <gtest/gtest.h>

namespace {

using Texts = QHash<QString, QString>;

Texts loginResult(const QByteArray& answer) {
    LoginParser parser;
    EXPECT_TRUE(parser.parseData(answer));
    return parser.loginResult()->texts();
}

/// "id=Name" for each record, "-" for what is absent.
QStringList shown(const std::shared_ptr<RecordList>& records) {
    QStringList texts;
    for (const auto& record : *records)
        texts.append(record->text(kIdKey).value_or(QStringLiteral("-")) + QLatin1Char('=') +
                     record->text(kNameKey).value_or(QStringLiteral("-")));
    return texts;
}

struct Lists {
    QStringList events;
    QStringList pricingTemplates;
};

Lists eventLists(const QByteArray& answer) {
    EventParser parser;
    EXPECT_TRUE(parser.parseData(answer));
    return {shown(parser.events()), shown(parser.pricingTemplates())};
}

QStringList categories(const QByteArray& answer) {
    CategoryParser parser;
    EXPECT_TRUE(parser.parseData(answer));
    return shown(parser.categories());
}

std::optional<QString> finishingResult(const QByteArray& answer) {
    PricingParser parser;
    EXPECT_TRUE(parser.parseData(answer));
    return parser.result();
}

QStringList list(std::initializer_list<const char*> texts) {
    QStringList made;
    for (const char* text : texts)
        made.append(QString::fromUtf8(text));
    return made;
}

QString latin1(const char* text) {
    return QString::fromLatin1(text);
}

} // namespace

TEST(LoginParser, FieldsBecomeTheResultWithThePasswordUnderItsOwnKey) {
    EXPECT_EQ(loginResult("<Login><Success>1</Success><UserId>4711</UserId><Password>t0ken</Password>"
                          "<LoggedInName>Ann</LoggedInName><AllowHighResUploads>0</AllowHighResUploads>"
                          "<Other>x</Other></Login>"),
              (Texts{{kSuccessKey, latin1("1")},
                     {kUserIdKey, latin1("4711")},
                     {kEncPasswordKey, latin1("t0ken")},
                     {kLoggedInNameKey, latin1("Ann")},
                     {kAllowHighResUploadsKey, latin1("0")}}));
}

TEST(LoginParser, AbsentElementsAreAbsent) {
    EXPECT_EQ(loginResult("<Login><Success>0</Success></Login>"), (Texts{{kSuccessKey, latin1("0")}}));
    EXPECT_EQ(loginResult("<Login><Success/></Login>"), (Texts{{kSuccessKey, latin1("")}}));
}

TEST(LoginParser, FieldsCountWhereverTheyStand) {
    EXPECT_EQ(loginResult("<x><y><UserId>1</UserId></y></x>"), (Texts{{kUserIdKey, latin1("1")}}));
    EXPECT_EQ(loginResult("<Success>1</Success>"), (Texts{{kSuccessKey, latin1("1")}}));
}

TEST(LoginParser, WhiteSpaceIsNotTrimmed) {
    const Texts result =
        loginResult("<Login><Success>\n1</Success><AllowHighResUploads> 1\t</AllowHighResUploads></Login>");
    EXPECT_EQ(result.value(kSuccessKey), latin1("\n1"));
    EXPECT_EQ(result.value(kAllowHighResUploadsKey), latin1(" 1\t"));
}

TEST(LoginParser, LaterElementWins) {
    EXPECT_EQ(loginResult("<Login><UserId>1</UserId><UserId>2</UserId></Login>").value(kUserIdKey),
              latin1("2"));
}

TEST(LoginParser, ElementsInsideACollectedOneReplaceTheCollectionOrAddTheirText) {
    // An interesting element takes over; the end of the outer one is then any element's.
    EXPECT_EQ(loginResult("<Login><UserId>a<Success>1</Success>b</UserId></Login>"),
              (Texts{{kSuccessKey, latin1("1")}}));
    EXPECT_EQ(loginResult("<Login><UserId>a<Login>b</Login>c</UserId></Login>").value(kUserIdKey),
              latin1("abc"));
}

TEST(LoginParser, NamesAreComparedAsWritten) {
    EXPECT_TRUE(loginResult("<Login><success>1</success><q:Success>1</q:Success><SUCCESS>1</SUCCESS></Login>")
                    .isEmpty());
}

TEST(LoginParser, TextsThatAreNoXMLYieldAnEmptyResult) {
    for (const QByteArray& answer :
         {QByteArray("Welcome!"), QByteArray("\0", 1), QByteArray("<html><body>x"), QByteArray()})
        EXPECT_TRUE(loginResult(answer).isEmpty());
}

TEST(LoginParser, FieldsBeforeAnErrorAreKept) {
    EXPECT_EQ(loginResult("<Login><Success>1</Success><UserId>2</UserI></Login>"),
              (Texts{{kSuccessKey, latin1("1")}}));
}

TEST(LoginParser, SecondAnswerReplacesTheResult) {
    LoginParser parser;
    parser.parseData("<Login><Success>1</Success></Login>");
    const auto first = parser.loginResult();
    parser.parseData("<Login><UserId>2</UserId></Login>");
    EXPECT_EQ(first->texts(), (Texts{{kSuccessKey, latin1("1")}}));
    EXPECT_EQ(parser.loginResult()->texts(), (Texts{{kUserIdKey, latin1("2")}}));
}

TEST(LoginParser, ReferencesAndCDATAAreText) {
    EXPECT_EQ(
        loginResult("<Login><UserId>a&amp;b<![CDATA[<c>&amp;]]>&#x20AC;</UserId></Login>").value(kUserIdKey),
        QStringLiteral("a&b<c>&amp;\u20ac"));
}

TEST(EventParser, EventsAndTemplatesKeepTheirOrder) {
    const Lists lists = eventLists("<Anything><Event id='2'><Name>B</Name></Event>"
                                   "<PricingTemplate id='9'><Name>P</Name></PricingTemplate>"
                                   "<Event id='1'><Name>A</Name></Event>"
                                   "<PricingTemplate id='8'><Name>O</Name></PricingTemplate></Anything>");
    EXPECT_EQ(lists.events, list({"2=B", "1=A"}));
    EXPECT_EQ(lists.pricingTemplates, list({"9=P", "8=O"}));
}

TEST(EventParser, EventWithoutAnIdIsStillListed) {
    EXPECT_EQ(
        eventLists("<x><Event><Name>A</Name></Event><Event id=''><Name>B</Name></Event><Event id='1'/></x>")
            .events,
        list({"-=A", "-=B", "1=-"}));
}

TEST(EventParser, NameInAnEventInATemplateIsBothTheirs) {
    const Lists lists =
        eventLists("<x><PricingTemplate id='1'><Event id='2'><Name>N</Name></Event></PricingTemplate></x>");
    EXPECT_EQ(lists.events, list({"2=N"}));
    EXPECT_EQ(lists.pricingTemplates, list({"1=N"}));
}

TEST(EventParser, LaterOfTwoNamesWins) {
    EXPECT_EQ(eventLists("<x><Event id='1'><Name>A</Name><Name>B</Name></Event></x>").events, list({"1=B"}));
}

TEST(EventParser, ElementInsideANameAddsItsText) {
    EXPECT_EQ(eventLists("<x><Event id='1'><Name>a <b>bold</b>\n name </Name></Event></x>").events,
              list({"1=a bold\n name "}));
}

TEST(EventParser, NameInsideANameStartsAnew) {
    EXPECT_EQ(eventLists("<x><Event id='1'><Name>a<Name>b</Name>c</Name></Event></x>").events, list({"1=b"}));
}

TEST(EventParser, NameOutsideOfRecordsIsDropped) {
    EXPECT_EQ(eventLists("<x><Name>N</Name><Event id='1'/><Name>M</Name></x>").events, list({"1=-"}));
}

TEST(EventParser, NameThatSpansAnEventIsStoredInNone) {
    EXPECT_EQ(eventLists("<x><Name>a<Event id='1'>b</Event>c</Name></x>").events, list({"1=-"}));
}

TEST(EventParser, InnerOfTwoNestedEventsIsTheOneListed) {
    EXPECT_EQ(
        eventLists("<x><Event id='1'><Event id='2'><Name>N</Name></Event><Name>M</Name></Event></x>").events,
        list({"2=N"}));
}

TEST(EventParser, RecordsCompleteBeforeAnErrorAreKept) {
    const Lists lists = eventLists("<x><Event id='1'><Name>A</Name></Event><PricingTemplate id='5'/>"
                                   "<Event id='2'><Name>B</Name>");
    EXPECT_EQ(lists.events, list({"1=A"}));
    EXPECT_EQ(lists.pricingTemplates, list({"5=-"}));
}

TEST(EventParser, TextsThatAreNoXMLYieldEmptyLists) {
    const Lists lists = eventLists("404 not found");
    EXPECT_TRUE(lists.events.isEmpty());
    EXPECT_TRUE(lists.pricingTemplates.isEmpty());
}

TEST(EventParser, SecondAnswerReplacesBothLists) {
    EventParser parser;
    parser.parseData("<x><Event id='1'/><PricingTemplate id='5'/></x>");
    parser.parseData("<x/>");
    EXPECT_TRUE(parser.events()->empty());
    EXPECT_TRUE(parser.pricingTemplates()->empty());
}

TEST(EventParser, ReadsNamesInOtherEncodings) {
    EXPECT_EQ(eventLists("<?xml version='1.0' encoding='windows-1252'?><x><Event id='1'><Name>\x8Anna "
                         "\x80</Name></Event></x>")
                  .events,
              list({"1=Šnna €"}));
}

TEST(CategoryParser, CategoriesKeepTheirOrder) {
    EXPECT_EQ(
        categories("<Anything><Category id='2'><Name>B</Name></Category><Category><Name>A</Name></Category>"
                   "<Category id=''/></Anything>"),
        list({"2=B", "-=A", "-=-"}));
}

TEST(CategoryParser, NameAfterACategoryIsStillItsName) {
    EXPECT_EQ(categories("<x><Name>dropped</Name><Category id='1'><Name>A</Name></Category><Name>B</Name>"
                         "<Category id='2'/><Name>C</Name></x>"),
              list({"1=B", "2=C"}));
}

TEST(CategoryParser, NameOpenAcrossTheEndOfACategoryIsTheNextOnes) {
    EXPECT_EQ(categories("<x><Category id='1'/><Name>a<Category id='2'/></Name></x>"), list({"1=-", "2=a"}));
}

TEST(CategoryParser, CategoryInACategoryTakesThePlaceOfTheOuterOne) {
    EXPECT_EQ(categories("<x><Category id='1'><Category id='2'/><Name>N</Name></Category></x>"),
              list({"2=N", "2=N"}));
}

TEST(CategoryParser, NameThatEndsInNoCategoryIsDropped) {
    EXPECT_EQ(categories("<x><Name>N</Name></x>"), list({}));
    EXPECT_TRUE(categories("This is no XML").isEmpty());
}

TEST(CategoryParser, RecordsCompleteBeforeAnErrorAreKept) {
    EXPECT_EQ(categories("<x><Category id='1'/><Category id='2'></x>"), list({"1=-"}));
}

TEST(CategoryParser, SecondAnswerReplacesTheList) {
    CategoryParser parser;
    parser.parseData("<x><Category id='1'/></x>");
    parser.parseData("nothing");
    EXPECT_TRUE(parser.categories()->empty());
}

TEST(PricingParser, ResultIsTheTextOfItsElement) {
    EXPECT_EQ(finishingResult("<Information><Result> 12 images\n</Result></Information>"),
              latin1(" 12 images\n"));
    EXPECT_EQ(finishingResult("<Information><Result/></Information>"), latin1(""));
    EXPECT_EQ(finishingResult("<Information><Result>a</Result><Result>b</Result></Information>"),
              latin1("b"));
    EXPECT_EQ(finishingResult("<Result>a<Information>b</Information></Result>"), latin1("ab"));
}

TEST(PricingParser, AnswerWithoutAResultHasNone) {
    EXPECT_EQ(finishingResult("<Information>done</Information>"), std::nullopt);
    EXPECT_EQ(finishingResult("done"), std::nullopt);
    EXPECT_EQ(finishingResult("<Information><Result>cut off"), std::nullopt);
}

TEST(PricingParser, AnswerWithoutAResultLeavesTheEarlierOne) {
    PricingParser parser;
    parser.parseData("<Information><Result>first</Result></Information>");
    parser.parseData("<Information/>");
    EXPECT_EQ(parser.result(), latin1("first"));
    parser.parseData("<Information><Result>second</Result></Information>");
    EXPECT_EQ(parser.result(), latin1("second"));
}

TEST(Parsers, ResultsCanBeSet) {
    LoginParser login;
    const auto record = std::make_shared<Record>();
    login.setLoginResult(record);
    EXPECT_EQ(login.loginResult(), record);
    const auto records = std::make_shared<RecordList>();
    EventParser events;
    events.setEvents(records);
    events.setPricingTemplates(records);
    EXPECT_EQ(events.events(), records);
    EXPECT_EQ(events.pricingTemplates(), records);
    CategoryParser categoryParser;
    categoryParser.setCategories(records);
    EXPECT_EQ(categoryParser.categories(), records);
    PricingParser pricing;
    pricing.setResult(latin1("x"));
    EXPECT_EQ(pricing.result(), latin1("x"));
}
