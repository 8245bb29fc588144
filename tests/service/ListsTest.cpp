// Events, pricing templates and categories: how they are loaded, shown and chosen.

#include "tests/service/ServiceTest.h"

#include <QtTest/QSignalSpy>
#include <QtTest/QTest>

#include <thread>

using namespace service_tests;
using test_support::runLoopFor;
using test_support::waitUntil;
using test_support::WebAnswer;
using test_support::WebRequest;
using namespace std::chrono_literals;

namespace {

QString text(const char* utf8) {
    return QString::fromUtf8(utf8);
}

QStringList itemsOf(const QComboBox* chooser) {
    QStringList items;
    for (int i = 0; i < chooser->count(); ++i)
        items.append(chooser->itemText(i));
    return items;
}

/// Category list answers that name the event they are for; status 500 for the ids in `failing`.
WebAnswer categoriesByEvent(const WebRequest& request, const QByteArrayList& failing = {}) {
    const QByteArray id = request.target().split('=').last();
    if (failing.contains(id))
        return WebAnswer::of(500, "broken");
    return WebAnswer::ok("<x><Category id='1'><Name>Ceremony " + id +
                         "</Name></Category><Category id='2'><Name>Dance " + id + "</Name></Category></x>");
}

/// The share of light pixels in what a control draws.
double lightShare(QWidget& control) {
    const QImage picture = control.grab().toImage();
    int light = 0;
    for (int y = 0; y < picture.height(); ++y) {
        for (int x = 0; x < picture.width(); ++x)
            light += picture.pixelColor(x, y).lightness() > 180 ? 1 : 0;
    }
    return static_cast<double>(light) / (picture.width() * picture.height());
}

class Lists : public ServiceTest {
protected:
    void loadEvents(int count, const QByteArrayList& failing = {}) {
        answer(kEventListPage, eventListAnswer(count));
        answer(kCategoryListPage,
               [failing](const WebRequest& request) { return categoriesByEvent(request, failing); });
        logInAndLoadLists();
    }

    std::shared_ptr<Record> event(std::size_t index) { return plugIn->eventList()->at(index); }
};

} // namespace

TEST_F(Lists, RequestsComeInOrderOneAtATimeOverOneConnection) {
    loadEvents(5);
    QStringList expected{text("GET /instantupload/eventlist.php?uid=4711&pwd=t0ken&obn=1 HTTP/1.1")};
    for (int i = 1; i <= 5; ++i)
        expected.append(
            text("GET /instantupload/categorylist.php?uid=4711&pwd=t0ken&eid=%1 HTTP/1.1").arg(i));
    EXPECT_EQ(server.requestLines().mid(1), expected);
    EXPECT_EQ(server.largestConcurrency(), 1);
    // One for the login, one for the lists.
    EXPECT_EQ(server.connectionCount(), 2);
}

TEST_F(Lists, ChoosersShowTheNamesInListOrderAndNoSelection) {
    loadEvents(3);
    EXPECT_EQ(itemsOf(plugIn->eventChooser),
              (QStringList{text("Event 1"), text("Event 2"), text("Event 3")}));
    EXPECT_EQ(itemsOf(plugIn->pricingChooser), (QStringList{text("Standard"), text("Deluxe")}));
    EXPECT_EQ(plugIn->categoryChooser->count(), 0);
    for (const QComboBox* chooser : std::initializer_list<QComboBox*>{
             plugIn->eventChooser, plugIn->pricingChooser, plugIn->categoryChooser})
        EXPECT_EQ(chooser->currentIndex(), -1);
    EXPECT_EQ(plugIn->chosenEventId(), std::nullopt);
    EXPECT_EQ(plugIn->chosenPricingId(), std::nullopt);
    EXPECT_EQ(plugIn->chosenCategory(), std::nullopt);
    EXPECT_EQ(plugIn->chosenEvent(), std::nullopt);
}

TEST_F(Lists, ControlsAreRevealedWhenTheListsAreThere) {
    std::promise<void> mayAnswer;
    WebAnswer late = WebAnswer::ok(eventListAnswer(1));
    late.gate = mayAnswer.get_future().share();
    answer(kEventListPage, late);
    logIn();
    ASSERT_TRUE(waitForRequests(2));
    EXPECT_TRUE(plugIn->hideEventControls());
    EXPECT_FALSE(plugIn->eventChooser->isVisible());
    EXPECT_FALSE(plugIn->pricingChooser->isVisible());
    EXPECT_TRUE(plugIn->eventLoadingProgress->isVisible());
    EXPECT_TRUE(plugIn->pricingLoadingProgress->isVisible());
    mayAnswer.set_value();
    ASSERT_TRUE(waitForLists());
    EXPECT_FALSE(plugIn->hideEventControls());
    EXPECT_FALSE(plugIn->hidePricingControls());
    EXPECT_TRUE(plugIn->eventChooser->isVisible());
    EXPECT_TRUE(plugIn->categoryChooser->isVisible());
    EXPECT_TRUE(plugIn->pricingChooser->isVisible());
    EXPECT_FALSE(plugIn->eventLoadingProgress->isVisible());
    EXPECT_FALSE(plugIn->pricingLoadingProgress->isVisible());
    EXPECT_TRUE(plugIn->loginButton->isEnabled());
    EXPECT_FALSE(plugIn->threadLaunched());
}

TEST_F(Lists, PlaceholdersAreInstalledInBlack) {
    loadEvents(1);
    EXPECT_EQ(plugIn->eventChooser->placeholderText(), text("Select an event..."));
    EXPECT_EQ(plugIn->pricingChooser->placeholderText(), text("Please select a pricing template..."));
    ASSERT_TRUE(plugIn->categoryChooser->lineEdit());
    EXPECT_EQ(plugIn->categoryChooser->lineEdit()->placeholderText(), text("Please select a category..."));
    for (const QComboBox* chooser : std::initializer_list<QComboBox*>{
             plugIn->eventChooser, plugIn->pricingChooser, plugIn->categoryChooser})
        EXPECT_EQ(chooser->palette().color(QPalette::PlaceholderText), QColor(Qt::black));
    EXPECT_EQ(plugIn->categoryChooser->lineEdit()->palette().color(QPalette::PlaceholderText),
              QColor(Qt::black));
    // They are no items.
    EXPECT_EQ(plugIn->eventChooser->count(), 1);
}

TEST_F(Lists, ChoosersKeepALightBackgroundInADarkPalette) {
    const QPalette light = QApplication::palette();
    QPalette dark(QColor(40, 40, 40));
    QApplication::setPalette(dark);
    makePlugIn();
    loadEvents(1);
    for (const QWidget* control :
         std::initializer_list<QWidget*>{plugIn->eventChooser, plugIn->pricingChooser,
                                         plugIn->categoryChooser, plugIn->categoryChooser->lineEdit()}) {
        const QPalette& palette = control->palette();
        EXPECT_GT(palette.color(QPalette::Base).lightness(), 200);
        EXPECT_GT(palette.color(QPalette::Button).lightness(), 200);
        EXPECT_EQ(palette.color(QPalette::Text), QColor(Qt::black));
        EXPECT_EQ(palette.color(QPalette::ButtonText), QColor(Qt::black));
    }
    // What is drawn: hardly anything but light pixels and the dark text.
    for (QWidget* const control :
         std::initializer_list<QWidget*>{plugIn->eventChooser, plugIn->pricingChooser,
                                         plugIn->categoryChooser, plugIn->categoryChooser->lineEdit()})
        EXPECT_GT(lightShare(*control), 0.75) << control->objectName().toStdString();
    // So the desktop is dark, and the other fields are.
    EXPECT_LT(lightShare(*plugIn->resizeWidth), 0.25);
    closeDialog();
    QApplication::setPalette(light);
}

TEST_F(Lists, AnswerWithoutEventsStillRevealsTheControls) {
    answer(kEventListPage, "<Nothing/>");
    logInAndLoadLists();
    ASSERT_TRUE(plugIn->eventList());
    EXPECT_TRUE(plugIn->eventList()->empty());
    EXPECT_FALSE(plugIn->hideEventControls());
    EXPECT_TRUE(plugIn->eventChooser->isVisible());
    EXPECT_EQ(plugIn->eventChooser->count(), 0);
    EXPECT_EQ(plugIn->eventChooser->placeholderText(), text("Select an event..."));
    EXPECT_FALSE(plugIn->hidePricingControls());
    EXPECT_TRUE(targets(kCategoryListPage).isEmpty());
}

TEST_F(Lists, ControlsOfAnAbsentListStayHidden) {
    loadEvents(1);
    const auto events = plugIn->eventList();
    const auto pricing = plugIn->pricingList();
    for (const bool hasEvents : {true, false}) {
        plugIn->setEventList(hasEvents ? events : nullptr);
        plugIn->setPricingList(hasEvents ? nullptr : pricing);
        plugIn->setHideEventControls(true);
        plugIn->setHidePricingControls(true);
        plugIn->setThreadLaunched(true);
        plugIn->loginButton->setEnabled(false);
        plugIn->doneEventLoad();
        EXPECT_EQ(plugIn->hideEventControls(), !hasEvents);
        EXPECT_EQ(plugIn->eventChooser->isVisible(), hasEvents);
        EXPECT_EQ(plugIn->hidePricingControls(), hasEvents);
        EXPECT_EQ(plugIn->pricingChooser->isVisible(), !hasEvents);
        // All else is done.
        EXPECT_FALSE(plugIn->threadLaunched());
        EXPECT_TRUE(plugIn->loginButton->isEnabled());
    }
}

TEST_F(Lists, RejectedEventListLeavesTheViewWaiting) {
    WebAnswer reset;
    reset.cuts = {test_support::Cut::Reset};
    for (const WebAnswer& failure : {WebAnswer::ok({}), WebAnswer::of(404, eventListAnswer(1)),
                                     WebAnswer::of(202, eventListAnswer(1)), reset}) {
        makePlugIn();
        const auto before = plugIn->eventList();
        const int failures = host.count(kListsFailed);
        answer(kEventListPage, failure);
        logIn();
        ASSERT_TRUE(waitUntil([&] { return host.count(kListsFailed) == failures + 1; }));
        runLoopFor(50ms);
        EXPECT_EQ(plugIn->eventList(), before);
        EXPECT_TRUE(plugIn->hideEventControls());
        EXPECT_TRUE(plugIn->hidePricingControls());
        EXPECT_TRUE(plugIn->eventLoadingProgress->isVisible());
        EXPECT_TRUE(plugIn->pricingLoadingProgress->isVisible());
        EXPECT_FALSE(plugIn->loginButton->isEnabled());
        EXPECT_TRUE(plugIn->threadLaunched());
        EXPECT_TRUE(host.alerts().empty());
    }
}

TEST_F(Lists, FailedCategoriesLeaveTheirEventWithoutAny) {
    loadEvents(5, {"3"});
    ASSERT_EQ(plugIn->eventList()->size(), 5U);
    for (const std::size_t i : {0U, 1U, 3U, 4U}) {
        ASSERT_TRUE(event(i)->categories) << i;
        EXPECT_EQ(event(i)->categories->at(0)->text(kNameKey), text("Ceremony %1").arg(i + 1));
    }
    EXPECT_EQ(event(2)->categories, nullptr);

    plugIn->eventChooser->setCurrentIndex(1);
    EXPECT_EQ(itemsOf(plugIn->categoryChooser), (QStringList{text("Ceremony 2"), text("Dance 2")}));
    plugIn->eventChooser->setCurrentIndex(2);
    EXPECT_EQ(plugIn->categoryList(), nullptr);
    EXPECT_EQ(plugIn->categoryChooser->count(), 0);
    EXPECT_EQ(plugIn->chosenEventId(), text("3"));
    // Then a category is typed, or made of the project's name.
    EXPECT_FALSE(plugIn->validateSettings());
    EXPECT_EQ(host.alerts().back().alert.message, text("Please select a category"));
    QTest::keyClicks(plugIn->categoryChooser->lineEdit(), text("Speeches"));
    EXPECT_TRUE(plugIn->validateSettings());
}

TEST_F(Lists, AlbumWithoutCategoriesEmptiesTheCategoryChooser) {
    answer(kEventListPage, eventListAnswer(2));
    answer(kCategoryListPage, [](const WebRequest& request) {
        return request.target().endsWith("eid=2") ? WebAnswer::ok("<x/>") : categoriesByEvent(request);
    });
    logInAndLoadLists();
    plugIn->eventChooser->setCurrentIndex(0);
    EXPECT_EQ(plugIn->categoryChooser->count(), 2);
    plugIn->eventChooser->setCurrentIndex(1);
    ASSERT_TRUE(plugIn->categoryList());
    EXPECT_TRUE(plugIn->categoryList()->empty());
    EXPECT_EQ(plugIn->categoryChooser->count(), 0);
}

TEST_F(Lists, ChosenEventSetsItsIdAndItsCategories) {
    loadEvents(3);
    plugIn->eventChooser->setCurrentIndex(1);
    EXPECT_EQ(plugIn->chosenEventId(), text("2"));
    EXPECT_EQ(plugIn->categoryList(), event(1)->categories);
    EXPECT_EQ(plugIn->categoryChooser->currentIndex(), -1);
    EXPECT_EQ(plugIn->chosenCategory(), std::nullopt);
    EXPECT_EQ(plugIn->chosenEvent(), std::nullopt);
}

TEST_F(Lists, ChoosingAnEventClearsTheCategoryAlsoOfTheSameEvent) {
    loadEvents(2);
    plugIn->eventChooser->setCurrentIndex(1);
    plugIn->categoryChooser->setCurrentIndex(1);
    EXPECT_EQ(plugIn->chosenCategory(), text("Dance 2"));
    plugIn->changeEvent(plugIn->eventChooser);
    EXPECT_EQ(plugIn->chosenEventId(), text("2"));
    EXPECT_EQ(plugIn->chosenCategory(), std::nullopt);
    EXPECT_TRUE(plugIn->categoryChooser->currentText().isEmpty());
}

TEST_F(Lists, TypedCategoryIsTheChosenOneAndAnErasedOneIsAbsent) {
    loadEvents(1);
    plugIn->eventChooser->setCurrentIndex(0);
    QTest::keyClicks(plugIn->categoryChooser->lineEdit(), text("Speeches"));
    EXPECT_EQ(plugIn->chosenCategory(), text("Speeches"));
    plugIn->categoryChooser->lineEdit()->selectAll();
    QTest::keyClick(plugIn->categoryChooser->lineEdit(), Qt::Key_Delete);
    EXPECT_EQ(plugIn->chosenCategory(), std::nullopt);
}

TEST_F(Lists, EventWithoutAnIdIsAskedForWithNullAndChosenAsAbsent) {
    answer(kEventListPage, "<x><Event id='1'><Name>A</Name></Event><Event><Name>B</Name></Event></x>");
    logInAndLoadLists();
    EXPECT_EQ(targets(kCategoryListPage).value(1),
              text("/instantupload/categorylist.php?uid=4711&pwd=t0ken&eid=(null)"));
    EXPECT_TRUE(event(1)->categories);
    plugIn->eventChooser->setCurrentIndex(0);
    EXPECT_EQ(plugIn->chosenEventId(), text("1"));
    plugIn->eventChooser->setCurrentIndex(1);
    EXPECT_EQ(plugIn->chosenEventId(), std::nullopt);
    EXPECT_FALSE(plugIn->validateSettings());
    EXPECT_EQ(host.alerts().back().alert.message, text("Please select an event"));
}

TEST_F(Lists, EventIdsGoIntoTheQueryAsTheyStand) {
    answer(kEventListPage, "<x><Event id='a&amp;b=c'/><Event id='no url'/><Event id='3'/></x>");
    logInAndLoadLists();
    EXPECT_EQ(targets(kCategoryListPage),
              (QStringList{text("/instantupload/categorylist.php?uid=4711&pwd=t0ken&eid=a&b=c"),
                           text("/instantupload/categorylist.php?uid=4711&pwd=t0ken&eid=3")}));
    EXPECT_FALSE(event(1)->categories);
    EXPECT_TRUE(event(2)->categories);
}

TEST_F(Lists, ClearedEventKeepsItsIdAndEmptiesTheCategories) {
    loadEvents(1);
    plugIn->eventChooser->setCurrentIndex(0);
    plugIn->categoryChooser->setCurrentIndex(0);
    plugIn->eventChooser->setCurrentIndex(-1);
    EXPECT_EQ(plugIn->categoryList(), nullptr);
    EXPECT_EQ(plugIn->categoryChooser->count(), 0);
    EXPECT_EQ(plugIn->chosenEventId(), text("1"));
    EXPECT_EQ(plugIn->chosenCategory(), text("Ceremony 1"));
    EXPECT_TRUE(plugIn->validateSettings());
}

TEST_F(Lists, ChosenPricingTemplateSetsItsIdAndAClearedOneIsAbsent) {
    loadEvents(1);
    QSignalSpy changes(plugIn.get(), &Quillmark::chosenPricingIdChanged);
    plugIn->pricingChooser->setCurrentIndex(1);
    EXPECT_EQ(plugIn->chosenPricingId(), text("6"));
    EXPECT_EQ(changes.count(), 1);
    plugIn->pricingChooser->setCurrentIndex(-1);
    EXPECT_EQ(plugIn->chosenPricingId(), std::nullopt);
    // Cleared without a word.
    EXPECT_EQ(changes.count(), 1);
}

TEST_F(Lists, PricingTemplateWithoutAnIdIsChosenAsAbsent) {
    answer(kEventListPage, "<x><PricingTemplate id='5'/><PricingTemplate/></x>");
    logInAndLoadLists();
    plugIn->pricingChooser->setCurrentIndex(0);
    EXPECT_EQ(plugIn->chosenPricingId(), text("5"));
    plugIn->pricingChooser->setCurrentIndex(1);
    EXPECT_EQ(plugIn->chosenPricingId(), std::nullopt);
}

TEST_F(Lists, SettersNotify) {
    QSignalSpy events(plugIn.get(), &Quillmark::eventListChanged);
    QSignalSpy pricing(plugIn.get(), &Quillmark::pricingListChanged);
    loadEvents(1);
    EXPECT_EQ(events.count(), 1);
    EXPECT_EQ(pricing.count(), 1);
    QSignalSpy categories(plugIn.get(), &Quillmark::categoryListChanged);
    QSignalSpy id(plugIn.get(), &Quillmark::chosenEventIdChanged);
    QSignalSpy category(plugIn.get(), &Quillmark::chosenCategoryChanged);
    plugIn->changeEvent(plugIn->eventChooser);
    EXPECT_EQ(categories.count(), 1);
    EXPECT_EQ(id.count(), 0);
    EXPECT_EQ(category.count(), 0);
    plugIn->eventChooser->setCurrentIndex(0);
    EXPECT_EQ(categories.count(), 2);
    EXPECT_EQ(id.count(), 1);
    EXPECT_GE(category.count(), 1);
}

TEST_F(Lists, CancelWhileTheListsLoadIsToldAndTheViewIsStillCompleted) {
    std::promise<void> mayAnswer;
    WebAnswer late = WebAnswer::ok(eventListAnswer(2));
    late.gate = mayAnswer.get_future().share();
    answer(kEventListPage, late);
    logIn();
    ASSERT_TRUE(waitForRequests(2));
    plugIn->showProgressBar();
    plugIn->exportManagerShouldCancelExport();
    EXPECT_EQ(host.count(kCancelled), 0);
    mayAnswer.set_value();
    ASSERT_TRUE(waitForLists());
    EXPECT_EQ(host.count(kCancelled), 1);
    EXPECT_NE(plugIn->progressBarTimer, nullptr) << "the worker tells the host, and cleans nothing up";
    ASSERT_TRUE(plugIn->progressWindow && plugIn->progressWindow->isVisible());
    plugIn->progressWindow->close();
    EXPECT_EQ(plugIn->eventList()->size(), 2U);
    EXPECT_EQ(plugIn->eventChooser->count(), 2);
    EXPECT_NE(plugIn->loginDetails.get(), nullptr);
    EXPECT_FALSE(plugIn->hideEventControls());
    EXPECT_EQ(targets(kCategoryListPage).size(), 2);
}

TEST_F(Lists, CancelWhileTheListsLoadIsToldByTheWorkerAndTouchesNothingElse) {
    Gate gate;
    answer(kEventListPage, gate.hold(WebAnswer::ok(eventListAnswer(2))));
    logIn();
    ASSERT_TRUE(waitForRequests(2));
    plugIn->showProgressBar();
    const QPointer<QWidget> window = plugIn->progressWindow;
    const QPointer<QTimer> timer = plugIn->progressBarTimer;
    ASSERT_TRUE(window && timer);
    const auto details = plugIn->loginDetails.get();
    plugIn->exportManagerShouldCancelExport();

    std::thread::id teller;
    bool listsWereThere = false;
    bool wasStillBusy = false;
    host.onCall = [&](const QString& call) {
        if (call != kCancelled)
            return;
        teller = std::this_thread::get_id();
        listsWereThere = plugIn->eventList()->size() == 2 && plugIn->pricingList()->size() == 2;
        wasStillBusy = plugIn->threadLaunched();
    };
    gate.open();
    ASSERT_TRUE(waitForLists());
    EXPECT_EQ(host.count(kCancelled), 1);
    EXPECT_NE(teller, std::this_thread::get_id());
    EXPECT_TRUE(listsWereThere);
    EXPECT_TRUE(wasStillBusy) << "told before the view is completed";
    EXPECT_TRUE(window && window->isVisible());
    EXPECT_TRUE(timer && timer->isActive());
    EXPECT_EQ(plugIn->loginDetails.get(), details);
    EXPECT_NE(plugIn->categoryList(), nullptr);
    EXPECT_FALSE(plugIn->hideEventControls());
    host.onCall = nullptr;
    plugIn->closeProgressBar();
}

TEST_F(Lists, CancelWhileTheEventListFailsIsNotToldByItsWorker) {
    Gate gate;
    answer(kEventListPage, gate.hold(WebAnswer::of(500, "broken")));
    logIn();
    ASSERT_TRUE(waitForRequests(2));
    plugIn->exportManagerShouldCancelExport();
    gate.open();
    ASSERT_TRUE(
        waitUntil([this] { return host.count(kListsFailed) == 1 && !plugIn->eventThreadRef->isRunning(); }));
    runLoopFor(50ms);
    EXPECT_EQ(host.calls(), (QStringList{kListsFailed}));
    EXPECT_TRUE(plugIn->threadLaunched());
    EXPECT_NE(plugIn->eventList(), nullptr);
}

TEST_F(Lists, ListsSurviveALogoutAndTheNextLoginReplacesThem) {
    plugIn->rememberCheckBox->setChecked(true);
    loadEvents(3);
    plugIn->eventChooser->setCurrentIndex(2);
    plugIn->pricingChooser->setCurrentIndex(0);
    pressLoginButton();
    EXPECT_EQ(plugIn->eventList()->size(), 3U);
    EXPECT_EQ(plugIn->chosenEventId(), text("3"));
    EXPECT_FALSE(plugIn->eventChooser->isVisible());
    loadEvents(1);
    EXPECT_EQ(plugIn->eventList()->size(), 1U);
    EXPECT_EQ(plugIn->chosenEventId(), text("3"));
    EXPECT_EQ(plugIn->chosenPricingId(), text("5"));
    EXPECT_EQ(plugIn->eventChooser->currentIndex(), -1);
}

TEST_F(Lists, BrokenAnswerKeepsItsCompleteRecords) {
    answer(kEventListPage, "<x><Event id='1'><Name>A</Name></Event><Event id='2'>");
    logInAndLoadLists();
    EXPECT_EQ(plugIn->eventList()->size(), 1U);
    EXPECT_EQ(targets(kCategoryListPage).size(), 1);
}

TEST_F(Lists, NamesAreShownLiterally) {
    answer(kEventListPage, "<x><Event id='1'><Name> &lt;b&gt;%@&amp;A\n</Name></Event></x>");
    logInAndLoadLists();
    EXPECT_EQ(plugIn->eventChooser->itemData(0, hostapi::panel::kItemNameRole).toString(),
              text(" <b>%@&A\n"));
}
