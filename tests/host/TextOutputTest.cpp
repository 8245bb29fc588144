#include "host/cli/ImageFiles.h"
#include "host/cli/JSONLine.h"
#include "host/cli/Listing.h"
#include "host/cli/PrintableText.h"
#include "host/cli/Resumption.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

using namespace host;
using namespace host::cli;

namespace {

QString text(const char* utf8) {
    return QString::fromUtf8(utf8);
}

Entry entry(const char* id, const char* name) {
    return {id ? std::optional<QString>(text(id)) : std::nullopt, text(name)};
}

std::string messageOf(const std::variant<std::size_t, NoSuchEntry>& selection) {
    const auto* none = std::get_if<NoSuchEntry>(&selection);
    return none ? none->message.toStdString() : std::string();
}

} // namespace

TEST(PrintableText, ShowsTextOfAllScriptsAsItIs) {
    EXPECT_EQ(printable(text("Zoë & Söhne 写真 😀")), text("Zoë & Söhne 写真 😀"));
}

TEST(PrintableText, EscapesWhatWouldActOnATerminal) {
    EXPECT_EQ(printable(text("a\nb\r\tc")), text("a\\nb\\r\\tc"));
    EXPECT_EQ(printable(text("\x1b[2J\x07\x7f")), text("\\x1b[2J\\x07\\x7f"));
    EXPECT_EQ(printable(QString(QChar(0x9b))), text("\\x9b"));
    EXPECT_EQ(printable(QString(QChar(0x202e))), text("\\u{202e}"));
    EXPECT_EQ(printable(QString(QChar(0x2028))), text("\\u{2028}"));
}

TEST(PrintableText, IsCutWhereTheLineEnds) {
    EXPECT_EQ(cutToWidth(text("Uploading"), 6), text("Upload"));
    EXPECT_EQ(cutToWidth(text("Up"), 6), text("Up"));
}

TEST(JSONLines, KeepTheOrderOfTheirKeys) {
    EXPECT_EQ(JSONLine("status").add("text", text("Logged in as Ann")).line(),
              "{\"event\":\"status\",\"text\":\"Logged in as Ann\"}\n");
    EXPECT_EQ(
        JSONLine("image").add("index", std::uint64_t{0}).add("source", text("a.tif")).add("b", true).line(),
        "{\"event\":\"image\",\"index\":0,\"source\":\"a.tif\",\"b\":true}\n");
}

TEST(JSONLines, StayOneLineAndReadableWhateverTheTextHolds) {
    QString hostile = text("\"\\\n\r\t</script>\x1b é写😀");
    hostile += QChar(0);
    const QByteArray line = JSONLine("status").add("text", hostile).line();
    EXPECT_EQ(line.count('\n'), 1);
    EXPECT_EQ(QJsonDocument::fromJson(line).object().value(QStringLiteral("text")).toString(), hostile);
}

TEST(JSONLines, HoldNothingThatATerminalActsUpon) {
    const QString hostile = text("\x7f\u009b2J\u0085\u2028\u202egnp.exe\u2066");
    const QByteArray line = JSONLine("status").add("text", hostile).line();
    EXPECT_EQ(line,
              "{\"event\":\"status\",\"text\":\"\\u007f\\u009b2J\\u0085\\u2028\\u202egnp.exe\\u2066\"}\n");
    EXPECT_EQ(QJsonDocument::fromJson(line).object().value(QStringLiteral("text")).toString(), hostile);
}

TEST(JSONLines, OfHalfACharacterAreStillReadable) {
    const QByteArray line = JSONLine("status").add("text", QString(QChar(0xD800))).line();
    EXPECT_TRUE(QJsonDocument::fromJson(line).isObject()) << line.toStdString();
}

TEST(JSONLines, SayNullForWhatIsMissing) {
    const std::vector<Event> events{
        {entry("77", "Smith Wedding"), std::vector<Entry>{entry("1", "Ceremony")}},
        {entry(nullptr, "No id"), std::nullopt},
        {entry("79", "Empty"), std::vector<Entry>{}}};
    EXPECT_EQ(JSONLine("lists")
                  .add("events", events)
                  .add("pricingTemplates", std::vector{entry("5", "Standard")})
                  .line(),
              "{\"event\":\"lists\",\"events\":[{\"id\":\"77\",\"name\":\"Smith "
              "Wedding\",\"categories\":[{\"id\":\"1\","
              "\"name\":\"Ceremony\"}]},{\"id\":null,\"name\":\"No "
              "id\",\"categories\":null},{\"id\":\"79\",\"name\":"
              "\"Empty\",\"categories\":[]}],\"pricingTemplates\":[{\"id\":\"5\",\"name\":\"Standard\"}]}\n");
    EXPECT_EQ(JSONLine("alert").add("info", std::optional<QString>()).line(),
              "{\"event\":\"alert\",\"info\":null}\n");
}

TEST(Selection, AnExactIdWinsOverAName) {
    const std::vector entries{entry("1", "2"), entry("2", "Party")};
    EXPECT_EQ(std::get<std::size_t>(select(entries, text("2"), text("event"))), 1U);
}

TEST(Selection, FindsTheOnlyEntryOfAName) {
    const std::vector entries{entry("1", "Ceremony"), entry(nullptr, "Party")};
    EXPECT_EQ(std::get<std::size_t>(select(entries, text("Party"), text("event"))), 1U);
}

TEST(Selection, OfANameOnMoreThanOneEntryListsThose) {
    const std::vector entries{entry("1", "Party"), entry("2", "Other"), entry("3", "Party")};
    EXPECT_EQ(messageOf(select(entries, text("Party"), text("event"))),
              "\"Party\" is the name of more than one event; choose by id: Party (1), Party (3)");
}

TEST(Selection, OfAnUnknownNameListsAllEntries) {
    const std::vector entries{entry("1", "Ceremony"), entry(nullptr, "Party")};
    EXPECT_EQ(messageOf(select(entries, text("party"), text("event"))),
              "there is no event \"party\"; to choose from: Ceremony (1), Party (no id)");
    EXPECT_EQ(messageOf(select({}, text("x"), text("event"))),
              "there is no event \"x\"; to choose from: there is none");
}

TEST(Listing, ShowsEventsWithTheirCategoriesAndThePricingTemplates) {
    Lists lists;
    lists.events = {{entry("77", "Smith\nWedding"), std::vector{entry("1", "Ceremony")}},
                    {entry(nullptr, "Lost"), std::nullopt}};
    lists.pricingTemplates = {entry("5", "Standard")};
    EXPECT_EQ(listing(lists).toStdString(), "Events:\n"
                                            "  77  Smith\\nWedding\n"
                                            "      1  Ceremony\n"
                                            "  -  Lost\n"
                                            "      (its categories could not be loaded)\n"
                                            "Pricing templates:\n"
                                            "  5  Standard\n");
}

TEST(ImageFiles, AreNamedAfterThePathsLastPart) {
    EXPECT_EQ(fileName("/photos/Smith/a.tif"), text("a.tif"));
    EXPECT_EQ(fileName("a.tif"), text("a.tif"));
}

TEST(ImageFiles, HaveOnePathHoweverTheirFolderIsWritten) {
    const QTemporaryDir place;
    QDir(place.path()).mkpath(QStringLiteral("Smith/raw"));
    const QByteArray folder = QFile::encodeName(QDir(place.path()).canonicalPath()) + "/Smith";
    for (const char* const path : {"/a.tif", "/./a.tif", "/raw/../a.tif", "//a.tif"})
        EXPECT_EQ(absolutePath(folder + path), folder + "/a.tif") << path;
    const QString before = QDir::currentPath();
    QDir::setCurrent(QFile::decodeName(folder));
    for (const char* const path : {"a.tif", "./a.tif", "../Smith/a.tif"})
        EXPECT_EQ(absolutePath(path), folder + "/a.tif") << path;
    QDir::setCurrent(before);
    EXPECT_EQ(absolutePath("/gone/./a.tif"), "/gone/./a.tif");
}

TEST(ImageFiles, BelongToTheProjectOfTheirFolder) {
    EXPECT_EQ(folderName("/photos/Smith/a.tif"), text("Smith"));
    EXPECT_EQ(folderName("/photos/Smith/../Miller/./a.tif"), text("Miller"));
    EXPECT_EQ(folderName("a.tif"), QDir::current().dirName());
    EXPECT_FALSE(folderName("/a.tif"));
}

TEST(ImageFiles, MustBeFilesThatCanBeRead) {
    const QTemporaryDir folder;
    QFile file(folder.filePath(QStringLiteral("a.tif")));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    EXPECT_FALSE(reasonAgainstReading(QFile::encodeName(file.fileName())));
    EXPECT_EQ(reasonAgainstReading(QFile::encodeName(folder.path())), text("it is a folder"));
    EXPECT_EQ(reasonAgainstReading("/nowhere/a.tif"), text("No such file or directory"));
    const QByteArray pipe = QFile::encodeName(folder.filePath(QStringLiteral("pipe")));
    ASSERT_EQ(mkfifo(pipe.constData(), 0600), 0);
    EXPECT_EQ(reasonAgainstReading(pipe), text("it is not a file"));
}

TEST(Resumption, DescribesAnEventOfAnyName) {
    ExportRecord record;
    record.begun = QDateTime::currentDateTimeUtc();
    record.choices.eventName = text("100%2 Smith %3");
    record.images.resize(4);
    EXPECT_TRUE(description(record).startsWith(text("Going on with the export to \"100%2 Smith %3\" ()")))
        << description(record).toStdString();
    EXPECT_TRUE(description(record).contains(text(": of 4 images 4 are left ")));
}
