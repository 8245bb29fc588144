#include "host/core/SentNames.h"
#include "tests/host/JournalFixture.h"

using namespace host;

namespace {

RecordedImage photograph(const char* source, const QString& project = QStringLiteral("Shoot")) {
    return {source, QFileInfo(QString::fromUtf8(source)).fileName(), project};
}

ExportRecord exportOf(std::vector<RecordedImage> images, const ExportChoices& choices = someChoices()) {
    ExportRecord record;
    record.service = someService();
    record.choices = choices;
    record.images = std::move(images);
    return record;
}

std::vector<QString> named(const SentNames& sent, std::vector<RecordedImage> images,
                           const ExportChoices& choices = someChoices()) {
    sent.giveNames(images, choices);
    std::vector<QString> names;
    for (const RecordedImage& image : images)
        names.push_back(image.name);
    return names;
}

std::vector<QString> texts(std::initializer_list<const char*> names) {
    return {names.begin(), names.end()};
}

ExportChoices otherCategory() {
    ExportChoices choices = someChoices();
    choices.category = QStringLiteral("Party");
    return choices;
}

ExportChoices autoCategories() {
    ExportChoices choices = someChoices();
    choices.autoCategories = true;
    return choices;
}

} // namespace

TEST(SentNames, KeepAPhotographFromTakingThePlaceOfAnotherOne) {
    SentNames sent;
    sent.add(exportOf({photograph("/card-1/IMG_1.jpg"), photograph("/card-1/IMG_2.jpg")}));
    EXPECT_EQ(named(sent, {photograph("/card-2/img_1.tif"), photograph("/card-2/IMG_3.jpg")}),
              texts({"img_1-2.tif", "IMG_3.jpg"}));
}

TEST(SentNames, GiveAPhotographTheNameThatItHas) {
    RecordedImage second = photograph("/card-2/IMG_1.jpg");
    second.name = QStringLiteral("IMG_1-2.jpg");
    SentNames sent;
    sent.add(exportOf({photograph("/card-1/IMG_1.jpg"), second}));
    EXPECT_EQ(named(sent, {photograph("/card-2/IMG_1.jpg")}), texts({"IMG_1-2.jpg"}));
    EXPECT_EQ(named(sent, {photograph("/card-3/IMG_1.jpg"), photograph("/card-2/IMG_1.jpg"),
                           photograph("/card-1/IMG_1.jpg")}),
              texts({"IMG_1-3.jpg", "IMG_1-2.jpg", "IMG_1.jpg"}));
}

TEST(SentNames, BelongToThePhotographThatWasSentLast) {
    SentNames sent;
    sent.add(exportOf({photograph("/card-1/IMG_1.jpg")}));
    sent.add(exportOf({photograph("/card-2/IMG_1.jpg")}));
    EXPECT_EQ(named(sent, {photograph("/card-2/IMG_1.jpg")}), texts({"IMG_1.jpg"}));
    EXPECT_EQ(named(sent, {photograph("/card-1/IMG_1.jpg")}), texts({"IMG_1-2.jpg"}));
}

TEST(SentNames, OfAnotherFolderStandAgainstNothing) {
    SentNames sent;
    sent.add(exportOf({photograph("/card-1/IMG_1.jpg", QStringLiteral("Shoot"))}));
    EXPECT_EQ(named(sent, {photograph("/card-2/IMG_1.jpg")}, otherCategory()), texts({"IMG_1.jpg"}));
    EXPECT_EQ(named(sent, {photograph("/card-2/IMG_1.jpg")}, autoCategories()), texts({"IMG_1.jpg"}));
    sent.add(exportOf({photograph("/card-1/IMG_1.jpg", QStringLiteral("Shoot"))}, autoCategories()));
    EXPECT_EQ(named(sent, {photograph("/card-2/IMG_1.jpg", QStringLiteral("Shoot"))}, autoCategories()),
              texts({"IMG_1-2.jpg"}));
    EXPECT_EQ(named(sent, {photograph("/card-2/IMG_1.jpg", QStringLiteral("Other"))}, autoCategories()),
              texts({"IMG_1.jpg"}));
}

TEST(SentNames, ThatAreEqualInTwoFoldersAreUniqueInOneExport) {
    const RecordedImage one = photograph("/card-1/IMG_1.jpg", QStringLiteral("One"));
    const RecordedImage two = photograph("/card-2/IMG_1.jpg", QStringLiteral("Two"));
    SentNames sent;
    sent.add(exportOf({one}, autoCategories()));
    sent.add(exportOf({two}, autoCategories()));
    EXPECT_EQ(named(sent, {one, two, one}, autoCategories()),
              texts({"IMG_1.jpg", "IMG_1-2.jpg", "IMG_1-3.jpg"}));
}

TEST(SentNames, TellWhosePlaceAPhotographTakes) {
    SentNames sent;
    sent.add(exportOf({photograph("/card-1/IMG_1.jpg")}));
    const SentName* const replaced = sent.replacedBy(photograph("/card-2/IMG_1.tif"), someChoices());
    ASSERT_TRUE(replaced);
    EXPECT_EQ(replaced->source, "/card-1/IMG_1.jpg");
    EXPECT_FALSE(sent.replacedBy(photograph("/card-1/IMG_1.jpg"), someChoices())) << "it is the same";
    EXPECT_FALSE(sent.replacedBy(photograph("/card-2/IMG_2.jpg"), someChoices()));
    EXPECT_FALSE(sent.replacedBy(photograph("/card-2/img_1.jpg"), someChoices()))
        << "the server tells them apart";
    EXPECT_FALSE(sent.replacedBy(photograph("/card-2/IMG_1.jpg"), otherCategory()));
}

// --- In journals ---

TEST_F(Journal, SentNamesOutliveTheJournalsThatNotedThem) {
    const auto exportOne = [this](const RecordedImage& image) {
        std::vector<RecordedImage> images{image};
        const auto sent = SentNames::inJournals(folder(), someService(), someChoices());
        sent.giveNames(images, someChoices());
        auto journal =
            ExportJournal::create(folder(), someService(), someChoices(), images, sent.all(), error_);
        journal->beginAttempt(someChoices(), {0}, exportFolder());
        prepare(*journal, 0);
        upload(*journal, 0);
        journal->processingConfirmed();
        journal->attemptEnded({});
        return journal->record().images.front().name;
    };
    for (const auto& [source, name] :
         {std::pair("/card-1/a.jpg", "a.jpg"), std::pair("/card-2/a.jpg", "a-2.jpg"),
          std::pair("/card 3/\xff.jpg", "\uFFFD.jpg"), std::pair("/card-3/a.jpg", "a-3.jpg"),
          std::pair("/card-1/a.jpg", "a.jpg"), std::pair("/card 3/\xff.jpg", "\uFFFD.jpg")})
        EXPECT_EQ(exportOne(photograph(source)), QString::fromUtf8(name)) << source;
    EXPECT_EQ(QDir(folder()).entryList(QDir::Files).size(), 1) << "all others are settled";
}

TEST_F(Journal, SentNamesOfOtherEventsAccountsAndServicesDoNotCount) {
    create({photograph("/card-1/a.jpg")});
    const auto holds = [this](const QString& service, const ExportChoices& choices) {
        return SentNames::inJournals(folder(), service, choices)
                   .replacedBy(photograph("/card-2/a.jpg"), choices) != nullptr;
    };
    EXPECT_TRUE(holds(someService(), someChoices()));
    EXPECT_FALSE(holds(QStringLiteral("another"), someChoices()));
    ExportChoices choices = someChoices();
    choices.eventId = QStringLiteral("78");
    EXPECT_FALSE(holds(someService(), choices));
    choices = someChoices();
    choices.account = QStringLiteral("bob");
    EXPECT_FALSE(holds(someService(), choices));
}
