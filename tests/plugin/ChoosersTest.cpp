// The choosers: how they follow the lists, and how a choice reaches the properties.

#include "hostapi/SettingsPanel.h"
#include "tests/support/RecordingHost.h"
#include "tests/support/Waiting.h"

#include <QtTest/QSignalSpy>
#include <QtTest/QTest>
#include <QtWidgets/QAbstractItemView>

#include <gtest/gtest.h>

namespace panel = hostapi::panel;
using test_support::RecordingHost;

namespace {

using Texts = std::optional<QString>;

std::shared_ptr<Record> record(const Texts& id, const Texts& name) {
    auto made = std::make_shared<Record>();
    if (id)
        made->setText(kIdKey, *id);
    if (name)
        made->setText(kNameKey, *name);
    return made;
}

std::shared_ptr<RecordList> listOf(std::initializer_list<std::shared_ptr<Record>> records) {
    return std::make_shared<RecordList>(records);
}

QStringList textsOf(const QComboBox* chooser) {
    QStringList texts;
    for (int i = 0; i < chooser->count(); ++i)
        texts << chooser->itemText(i);
    return texts;
}

/// Chooses as a person does, also what is chosen already.
void choose(QComboBox* chooser, int index) {
    chooser->setFocus();
    chooser->showPopup();
    auto* const items = chooser->view();
    items->setCurrentIndex(items->model()->index(index, chooser->modelColumn()));
    QTest::keyClick(items, Qt::Key_Return);
}

class Choosers : public testing::Test {
protected:
    Choosers() {
        plugIn = host.makePlugIn();
        view = plugIn->settingsView();
        automatic = view->findChild<QCheckBox*>(panel::kAutoCreateCategoriesButton);
        wedding = record(QStringLiteral("77"), QStringLiteral("Smith Wedding"));
        wedding->categories = listOf({record(QStringLiteral("1"), QStringLiteral("Ceremony")),
                                      record(QStringLiteral("2"), QStringLiteral("Reception"))});
        portrait = record(QStringLiteral("78"), QStringLiteral("Portraits"));
    }

    void loadLists() {
        plugIn->setEventList(listOf({wedding, portrait}));
        plugIn->setPricingList(listOf({record(QStringLiteral("5"), QStringLiteral("Standard")),
                                       record(QStringLiteral("6"), QStringLiteral("Premium"))}));
        plugIn->doneEventLoad();
    }

    void showEverything() {
        for (QGroupBox* const box :
             {plugIn->settingsBox.data(), plugIn->eventBox.data(), plugIn->pricingBox.data()})
            box->show();
        view->show();
    }

    RecordingHost host;
    std::shared_ptr<Quillmark> plugIn;
    QWidget* view = nullptr;
    QCheckBox* automatic = nullptr;
    std::shared_ptr<Record> wedding;
    std::shared_ptr<Record> portrait;
};

} // namespace

TEST_F(Choosers, ShowTheListsByNameInListOrder) {
    loadLists();
    EXPECT_EQ(textsOf(plugIn->eventChooser),
              (QStringList{QStringLiteral("Smith Wedding"), QStringLiteral("Portraits")}));
    EXPECT_EQ(textsOf(plugIn->pricingChooser),
              (QStringList{QStringLiteral("Standard"), QStringLiteral("Premium")}));
    EXPECT_EQ(plugIn->categoryChooser->count(), 0);
    plugIn->eventChooser->setCurrentIndex(0);
    EXPECT_EQ(textsOf(plugIn->categoryChooser),
              (QStringList{QStringLiteral("Ceremony"), QStringLiteral("Reception")}));
}

TEST_F(Choosers, ItemsCarryTheIdsOfTheirRecords) {
    loadLists();
    EXPECT_EQ(plugIn->eventChooser->itemData(0, panel::kItemIdRole), QVariant(QStringLiteral("77")));
    EXPECT_EQ(plugIn->eventChooser->itemData(1, panel::kItemIdRole), QVariant(QStringLiteral("78")));
    EXPECT_EQ(plugIn->pricingChooser->itemData(1, panel::kItemIdRole), QVariant(QStringLiteral("6")));
    plugIn->eventChooser->setCurrentIndex(0);
    EXPECT_EQ(plugIn->categoryChooser->itemData(1, panel::kItemIdRole), QVariant(QStringLiteral("2")));
}

TEST_F(Choosers, EventItemsCarryTheirCategories) {
    wedding->categories->push_back(record(std::nullopt, QStringLiteral("Nameless id")));
    loadLists();
    const QVariant categories = plugIn->eventChooser->itemData(0, panel::kItemCategoriesRole);
    const auto category = [](const QVariant& id, const char* name) {
        return QVariantMap{{QStringLiteral("id"), id}, {QStringLiteral("Name"), QString::fromLatin1(name)}};
    };
    const QVariantList expected{category(QStringLiteral("1"), "Ceremony"),
                                category(QStringLiteral("2"), "Reception"),
                                category(QVariant(), "Nameless id")};
    EXPECT_EQ(categories.toList(), expected);
    EXPECT_FALSE(plugIn->eventChooser->itemData(1, panel::kItemCategoriesRole).isValid())
        << "they could not be loaded";
}

TEST_F(Choosers, AnEventWithoutCategoriesIsNotOneWithUnknownCategories) {
    portrait->categories = std::make_shared<RecordList>();
    loadLists();
    const QVariant categories = plugIn->eventChooser->itemData(1, panel::kItemCategoriesRole);
    EXPECT_TRUE(categories.isValid());
    EXPECT_TRUE(categories.toList().isEmpty());
}

TEST_F(Choosers, RecordsWithoutIdOrNameHaveItemsAllTheSame) {
    plugIn->setEventList(
        listOf({record(std::nullopt, QStringLiteral("No id")), record(QStringLiteral("1"), std::nullopt),
                record(std::nullopt, std::nullopt)}));
    EXPECT_EQ(textsOf(plugIn->eventChooser), (QStringList{QStringLiteral("No id"), QString(), QString()}));
    EXPECT_FALSE(plugIn->eventChooser->itemData(0, panel::kItemIdRole).isValid());
    EXPECT_EQ(plugIn->eventChooser->itemData(1, panel::kItemIdRole), QVariant(QStringLiteral("1")));
    plugIn->setChosenEventId(QStringLiteral("before"));
    plugIn->eventChooser->setCurrentIndex(2);
    EXPECT_FALSE(plugIn->chosenEventId().has_value());
}

TEST_F(Choosers, NothingIsChosenUntilTheUserChooses) {
    QSignalSpy events(plugIn.get(), &Quillmark::chosenEventIdChanged);
    QSignalSpy pricing(plugIn.get(), &Quillmark::chosenPricingIdChanged);
    QSignalSpy categories(plugIn.get(), &Quillmark::chosenCategoryChanged);
    loadLists();
    EXPECT_EQ(plugIn->eventChooser->currentIndex(), -1);
    EXPECT_EQ(plugIn->pricingChooser->currentIndex(), -1);
    EXPECT_EQ(plugIn->categoryChooser->currentIndex(), -1);
    EXPECT_FALSE(plugIn->chosenEventId().has_value());
    EXPECT_FALSE(plugIn->chosenPricingId().has_value());
    EXPECT_FALSE(plugIn->chosenCategory().has_value());
    EXPECT_EQ(events.size() + pricing.size() + categories.size(), 0);
}

TEST_F(Choosers, NewListsDeselectWithoutUndoingTheChoice) {
    loadLists();
    plugIn->eventChooser->setCurrentIndex(0);
    plugIn->categoryChooser->setCurrentIndex(1);
    plugIn->pricingChooser->setCurrentIndex(1);
    loadLists();
    EXPECT_EQ(plugIn->eventChooser->currentIndex(), -1);
    EXPECT_EQ(plugIn->pricingChooser->currentIndex(), -1);
    EXPECT_EQ(plugIn->chosenEventId(), QStringLiteral("77"));
    EXPECT_EQ(plugIn->chosenPricingId(), QStringLiteral("6"));
    EXPECT_EQ(plugIn->chosenCategory(), QStringLiteral("Reception"));
}

TEST_F(Choosers, AnAbsentListHasNoItems) {
    loadLists();
    plugIn->eventChooser->setCurrentIndex(0);
    plugIn->setEventList(nullptr);
    plugIn->setCategoryList(nullptr);
    plugIn->setPricingList(nullptr);
    EXPECT_EQ(plugIn->eventChooser->count(), 0);
    EXPECT_EQ(plugIn->categoryChooser->count(), 0);
    EXPECT_EQ(plugIn->pricingChooser->count(), 0);
}

TEST_F(Choosers, AnEmptyEventListRevealsAnEmptyChooser) {
    plugIn->setEventList(std::make_shared<RecordList>());
    plugIn->doneEventLoad();
    EXPECT_EQ(plugIn->eventChooser->count(), 0);
    EXPECT_FALSE(view->findChild<QWidget*>(QStringLiteral("eventControls"))->isHidden());
    EXPECT_EQ(plugIn->eventChooser->placeholderText(), QStringLiteral("Select an event..."));
}

TEST_F(Choosers, AProgramsChoiceCountsLikeAPersons) {
    loadLists();
    plugIn->eventChooser->setCurrentIndex(1);
    EXPECT_EQ(plugIn->chosenEventId(), QStringLiteral("78"));
    plugIn->pricingChooser->setCurrentIndex(0);
    EXPECT_EQ(plugIn->chosenPricingId(), QStringLiteral("5"));
}

TEST_F(Choosers, APersonsChoiceOfAnEventReachesTheProperties) {
    loadLists();
    showEverything();
    choose(plugIn->eventChooser, 0);
    EXPECT_EQ(plugIn->chosenEventId(), QStringLiteral("77"));
    EXPECT_EQ(plugIn->categoryList(), wedding->categories);
    choose(plugIn->pricingChooser, 1);
    EXPECT_EQ(plugIn->chosenPricingId(), QStringLiteral("6"));
}

TEST_F(Choosers, ChoosingTheSameEventAgainClearsTheCategory) {
    loadLists();
    showEverything();
    choose(plugIn->eventChooser, 0);
    plugIn->categoryChooser->setCurrentIndex(0);
    ASSERT_EQ(plugIn->chosenCategory(), QStringLiteral("Ceremony"));
    choose(plugIn->eventChooser, 0);
    EXPECT_FALSE(plugIn->chosenCategory().has_value());
    EXPECT_TRUE(plugIn->categoryChooser->currentText().isEmpty());
    EXPECT_EQ(plugIn->categoryChooser->count(), 2);
    EXPECT_EQ(plugIn->chosenEventId(), QStringLiteral("77"));
}

TEST_F(Choosers, AnEventWhoseCategoriesAreUnknownEmptiesTheCategoryChooser) {
    loadLists();
    plugIn->eventChooser->setCurrentIndex(0);
    ASSERT_EQ(plugIn->categoryChooser->count(), 2);
    plugIn->eventChooser->setCurrentIndex(1);
    EXPECT_EQ(plugIn->categoryList(), nullptr);
    EXPECT_EQ(plugIn->categoryChooser->count(), 0);
}

TEST_F(Choosers, DeselectingTheEventKeepsWhatIsChosen) {
    loadLists();
    plugIn->eventChooser->setCurrentIndex(0);
    plugIn->categoryChooser->setCurrentIndex(1);
    plugIn->eventChooser->setCurrentIndex(-1);
    EXPECT_EQ(plugIn->categoryList(), nullptr);
    EXPECT_EQ(plugIn->categoryChooser->count(), 0);
    EXPECT_EQ(plugIn->chosenEventId(), QStringLiteral("77"));
    EXPECT_EQ(plugIn->chosenCategory(), QStringLiteral("Reception"));
    EXPECT_EQ(plugIn->categoryChooser->currentText(), QStringLiteral("Reception"))
        << "the chooser shows what is chosen";
}

TEST_F(Choosers, DeselectingThePricingTemplateClearsIt) {
    loadLists();
    plugIn->pricingChooser->setCurrentIndex(1);
    plugIn->pricingChooser->setCurrentIndex(-1);
    EXPECT_FALSE(plugIn->chosenPricingId().has_value());
}

TEST_F(Choosers, TheClearButtonDeselectsThePricingTemplate) {
    loadLists();
    plugIn->pricingChooser->setCurrentIndex(1);
    view->findChild<QPushButton*>(QStringLiteral("clearPricingButton"))->click();
    EXPECT_EQ(plugIn->pricingChooser->currentIndex(), -1);
    EXPECT_FALSE(plugIn->chosenPricingId().has_value());
}

TEST_F(Choosers, AChosenCategoryIsTheChoosersText) {
    loadLists();
    plugIn->eventChooser->setCurrentIndex(0);
    plugIn->categoryChooser->setCurrentIndex(1);
    EXPECT_EQ(plugIn->chosenCategory(), QStringLiteral("Reception"));
    plugIn->categoryChooser->setCurrentIndex(0);
    EXPECT_EQ(plugIn->chosenCategory(), QStringLiteral("Ceremony"));
}

TEST_F(Choosers, ATypedCategoryIsTakenAsItStands) {
    loadLists();
    plugIn->eventChooser->setCurrentIndex(0);
    showEverything();
    view->activateWindow();
    plugIn->categoryChooser->setFocus();
    ASSERT_TRUE(test_support::waitUntil([&] { return plugIn->categoryChooser->lineEdit()->hasFocus(); }));
    QTest::keyClicks(plugIn->categoryChooser->lineEdit(), QStringLiteral("cer"));
    EXPECT_EQ(plugIn->chosenCategory(), QStringLiteral("cer")) << "not completed to Ceremony";
    QTest::keyClick(plugIn->categoryChooser->lineEdit(), Qt::Key_Return);
    EXPECT_EQ(plugIn->chosenCategory(), QStringLiteral("cer"));
    EXPECT_EQ(plugIn->categoryChooser->count(), 2) << "typing adds no item";
}

TEST_F(Choosers, ACategoryThatIsSetIsShownAndThatIsNoChoice) {
    plugIn->categoryChooser->setEditText(QStringLiteral("Typed"));
    QSignalSpy changes(plugIn.get(), &Quillmark::chosenCategoryChanged);
    plugIn->setChosenCategory(QStringLiteral("Set"));
    EXPECT_EQ(plugIn->categoryChooser->currentText(), QStringLiteral("Set"));
    EXPECT_EQ(changes.size(), 1);
}

TEST_F(Choosers, AnErasedCategoryIsAbsent) {
    plugIn->categoryChooser->setEditText(QStringLiteral("A"));
    EXPECT_EQ(plugIn->chosenCategory(), QStringLiteral("A"));
    QTest::keyClick(plugIn->categoryChooser->lineEdit(), Qt::Key_Backspace);
    EXPECT_FALSE(plugIn->chosenCategory().has_value());
    plugIn->categoryChooser->setEditText(QStringLiteral("B"));
    plugIn->categoryChooser->setEditText(QString());
    EXPECT_FALSE(plugIn->chosenCategory().has_value());
}

TEST_F(Choosers, TheSameCategoryCanBeChosenAgainAfterItWasCleared) {
    loadLists();
    plugIn->eventChooser->setCurrentIndex(0);
    plugIn->categoryChooser->setCurrentIndex(0);
    plugIn->setChosenCategory(std::nullopt);
    EXPECT_TRUE(plugIn->categoryChooser->currentText().isEmpty());
    plugIn->categoryChooser->setCurrentIndex(0);
    EXPECT_EQ(plugIn->chosenCategory(), QStringLiteral("Ceremony"));
}

TEST_F(Choosers, ALongOrStrangeNameIsShownAsItIsAndDoesNotWidenThePanel) {
    const QString name = QStringLiteral("<b>&Bold</b>\n") + QString(5000, QLatin1Char('W'));
    showEverything();
    const int widthBefore = view->minimumSizeHint().width();
    plugIn->setEventList(listOf({record(QStringLiteral("1"), name)}));
    plugIn->setPricingList(listOf({record(QStringLiteral("1"), name)}));
    plugIn->doneEventLoad();
    const int width = view->minimumSizeHint().width();
    plugIn->eventChooser->setCurrentIndex(0);
    plugIn->pricingChooser->setCurrentIndex(0);
    plugIn->categoryChooser->setEditText(name);
    plugIn->loggedInStatusLabel->setText(name);
    EXPECT_EQ(plugIn->eventChooser->itemText(0), name);
    EXPECT_EQ(view->minimumSizeHint().width(), width);
    EXPECT_LT(width, widthBefore + 500);
}

TEST_F(Choosers, TheHideFlagsHideTheControlsInTheirBoxes) {
    showEverything();
    auto* const eventLoading = view->findChild<QLabel*>(QStringLiteral("eventLoadingLabel"));
    auto* const pricingLoading = view->findChild<QLabel*>(QStringLiteral("pricingLoadingLabel"));
    EXPECT_FALSE(plugIn->eventChooser->isVisible());
    EXPECT_FALSE(plugIn->categoryChooser->isVisible());
    EXPECT_FALSE(automatic->isVisible());
    EXPECT_FALSE(plugIn->pricingChooser->isVisible());
    EXPECT_TRUE(eventLoading->isVisible());
    EXPECT_TRUE(pricingLoading->isVisible());

    plugIn->setHideEventControls(false);
    EXPECT_TRUE(plugIn->eventChooser->isVisible());
    EXPECT_TRUE(plugIn->categoryChooser->isVisible());
    EXPECT_TRUE(automatic->isVisible());
    EXPECT_FALSE(eventLoading->isVisible());
    EXPECT_FALSE(plugIn->pricingChooser->isVisible());

    plugIn->setHidePricingControls(false);
    EXPECT_TRUE(plugIn->pricingChooser->isVisible());
    EXPECT_FALSE(pricingLoading->isVisible());

    plugIn->setHideEventControls(true);
    EXPECT_FALSE(plugIn->eventChooser->isVisible());
    EXPECT_TRUE(eventLoading->isVisible());
}

TEST_F(Choosers, TheAutomaticCategoriesBoxSetsItsProperty) {
    automatic->click();
    EXPECT_TRUE(plugIn->autoCreateCategories());
    EXPECT_FALSE(plugIn->categoryChooser->isEnabled()) << "its text would not be used";
    automatic->setChecked(false);
    EXPECT_FALSE(plugIn->autoCreateCategories());
    EXPECT_TRUE(plugIn->categoryChooser->isEnabled());
}

TEST_F(Choosers, TheColourSpaceIsTheEntryAtTheChosenIndex) {
    const auto& colorSpaces = *plugIn->colorspaceList;
    ASSERT_EQ(plugIn->colorspaceChooser->count(), static_cast<int>(colorSpaces.size()));
    EXPECT_EQ(plugIn->colorspaceChooser->currentIndex(), 0);
    EXPECT_EQ(textsOf(plugIn->colorspaceChooser),
              (QStringList{QStringLiteral("sRGB"), QStringLiteral("Adobe RGB (1998)"),
                           QStringLiteral("ProPhoto RGB")}));
    for (const int index : {2, 1, 0}) {
        plugIn->colorspaceChooser->setCurrentIndex(index);
        EXPECT_EQ(plugIn->selectedColorspace, colorSpaces[static_cast<std::size_t>(index)].get()) << index;
    }
    plugIn->colorspaceChooser->setCurrentIndex(2);
    plugIn->colorspaceChooser->setCurrentIndex(-1);
    EXPECT_EQ(plugIn->selectedColorspace, colorSpaces[2].get()) << "no choice is no other choice";
}
