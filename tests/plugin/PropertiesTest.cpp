// The properties: values that threads share as a whole, and setters that notify.

#include "platform/RunLoop.h"
#include "tests/support/RecordingHost.h"
#include "tests/support/Waiting.h"

#include <QtCore/QCoreApplication>
#include <QtTest/QSignalSpy>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

using test_support::RecordingHost;
using test_support::waitUntil;

namespace {

class Properties : public testing::Test {
protected:
    Properties() { plugIn = host.makePlugIn(); }

    static std::shared_ptr<RecordList> listOf(int count) {
        auto list = std::make_shared<RecordList>();
        for (int i = 0; i < count; ++i) {
            list->push_back(std::make_shared<Record>());
            list->back()->setText(kNameKey, QStringLiteral("Name %1").arg(i));
        }
        return list;
    }

    RecordingHost host;
    std::shared_ptr<Quillmark> plugIn;
};

} // namespace

TEST_F(Properties, EachSetterStoresAndNotifies) {
    const auto notifies = [this](auto signal, const auto& set) {
        QSignalSpy spy(plugIn.get(), signal);
        set();
        set();
        return spy.size() == 2;
    };
    const auto list = listOf(1);
    EXPECT_TRUE(notifies(&Quillmark::eventListChanged, [&] { plugIn->setEventList(list); }));
    EXPECT_EQ(plugIn->eventList(), list);
    EXPECT_TRUE(notifies(&Quillmark::categoryListChanged, [&] { plugIn->setCategoryList(list); }));
    EXPECT_EQ(plugIn->categoryList(), list);
    EXPECT_TRUE(notifies(&Quillmark::pricingListChanged, [&] { plugIn->setPricingList(list); }));
    EXPECT_EQ(plugIn->pricingList(), list);
    EXPECT_TRUE(
        notifies(&Quillmark::chosenCategoryChanged, [&] { plugIn->setChosenCategory(QStringLiteral("C")); }));
    EXPECT_EQ(plugIn->chosenCategory(), QStringLiteral("C"));
    EXPECT_TRUE(
        notifies(&Quillmark::chosenEventIdChanged, [&] { plugIn->setChosenEventId(QStringLiteral("E")); }));
    EXPECT_EQ(plugIn->chosenEventId(), QStringLiteral("E"));
    EXPECT_TRUE(notifies(&Quillmark::chosenPricingIdChanged,
                         [&] { plugIn->setChosenPricingId(QStringLiteral("P")); }));
    EXPECT_EQ(plugIn->chosenPricingId(), QStringLiteral("P"));
    EXPECT_TRUE(notifies(&Quillmark::hideEventControlsChanged, [&] { plugIn->setHideEventControls(false); }));
    EXPECT_FALSE(plugIn->hideEventControls());
    EXPECT_TRUE(
        notifies(&Quillmark::hidePricingControlsChanged, [&] { plugIn->setHidePricingControls(false); }));
    EXPECT_FALSE(plugIn->hidePricingControls());
}

TEST_F(Properties, AnAbsentValueIsNotAnEmptyOne) {
    plugIn->setChosenCategory(QString());
    EXPECT_TRUE(plugIn->chosenCategory().has_value());
    plugIn->setChosenCategory(std::nullopt);
    EXPECT_FALSE(plugIn->chosenCategory().has_value());
    plugIn->setEventList(nullptr);
    EXPECT_EQ(plugIn->eventList(), nullptr);
}

TEST_F(Properties, ThePlainOnesAssign) {
    plugIn->setThreadLaunched(true);
    plugIn->setShouldCancelExport(true);
    plugIn->setDoResizeImages(true);
    plugIn->setAutoCreateCategories(true);
    EXPECT_TRUE(plugIn->threadLaunched());
    EXPECT_TRUE(plugIn->shouldCancelExport());
    EXPECT_TRUE(plugIn->doResizeImages());
    EXPECT_TRUE(plugIn->autoCreateCategories());
    plugIn->setChosenEvent(QStringLiteral("event"));
    EXPECT_EQ(plugIn->chosenEvent(), QStringLiteral("event"));
}

TEST_F(Properties, AGetterKeepsWhatASetterReplaces) {
    std::weak_ptr<RecordList> first;
    {
        auto list = listOf(3);
        first = list;
        plugIn->setEventList(std::move(list));
    }
    auto kept = plugIn->eventList();
    plugIn->setEventList(listOf(1));
    ASSERT_EQ(kept->size(), 3U);
    EXPECT_EQ(kept->back()->text(kNameKey), QStringLiteral("Name 2"));
    kept.reset();
    EXPECT_TRUE(first.expired()) << "replaced, and kept by nobody any more";
}

TEST_F(Properties, GettersAndSettersOnDifferentThreadsSeeWholeValues) {
    constexpr int kRounds = 2000;
    // Half a value would show by a record without its name, or by other letters.
    const auto isWhole = [](const std::shared_ptr<RecordList>& list) {
        return !list || std::all_of(list->begin(), list->end(),
                                    [](const auto& record) { return record->text(kNameKey).has_value(); });
    };
    const auto isWholeText = [](const std::optional<QString>& text) {
        return !text || *text == QString(text->size(), QLatin1Char('x'));
    };
    std::atomic<int> running{2};
    std::vector<std::jthread> setters;
    for (int setter = 0; setter < 2; ++setter) {
        setters.emplace_back([&, setter] {
            for (int i = 0; i < kRounds; ++i) {
                const auto list = i % 7 ? listOf(1 + (i + setter) % 3) : nullptr;
                const auto text =
                    i % 5 ? std::optional<QString>(QString(i % 40, QLatin1Char('x'))) : std::nullopt;
                plugIn->setEventList(list);
                plugIn->setCategoryList(list);
                plugIn->setPricingList(list);
                plugIn->setChosenEvent(text);
                plugIn->setChosenEventId(text);
                plugIn->setChosenPricingId(text);
                plugIn->setChosenCategory(text);
                plugIn->setThreadLaunched(i % 2);
                plugIn->setShouldCancelExport(i % 2);
                plugIn->setDoResizeImages(i % 2);
                plugIn->setAutoCreateCategories(i % 2);
                plugIn->setHideEventControls(i % 2);
                plugIn->setHidePricingControls(i % 2);
            }
            --running;
        });
    }
    std::atomic<bool> onlyWholeValues{true};
    const auto read = [&] {
        while (running > 0) {
            for (const auto& list : {plugIn->eventList(), plugIn->categoryList(), plugIn->pricingList()}) {
                if (!isWhole(list))
                    onlyWholeValues = false;
            }
            for (const auto& text : {plugIn->chosenEvent(), plugIn->chosenEventId(),
                                     plugIn->chosenPricingId(), plugIn->chosenCategory()}) {
                if (!isWholeText(text))
                    onlyWholeValues = false;
            }
            (void)(plugIn->threadLaunched() && plugIn->shouldCancelExport() && plugIn->doResizeImages() &&
                   plugIn->autoCreateCategories() && plugIn->hideEventControls() &&
                   plugIn->hidePricingControls());
        }
    };
    std::jthread otherReader(read);
    read();
    EXPECT_TRUE(onlyWholeValues);
}

TEST_F(Properties, AListSetByAWorkerIsInItsChooserBeforeWhatTheWorkerPostsNext) {
    ASSERT_NE(plugIn->settingsView(), nullptr);
    int events = -1;
    int templates = -1;
    std::thread([&] {
        plugIn->setEventList(listOf(3));
        plugIn->setPricingList(listOf(2));
        platform::RunLoop::main()->post([&] {
            events = plugIn->eventChooser->count();
            templates = plugIn->pricingChooser->count();
        });
    }).join();
    EXPECT_EQ(plugIn->eventChooser->count(), 0) << "a widget is only touched by the main thread";
    ASSERT_TRUE(waitUntil([&] { return templates >= 0; }));
    EXPECT_EQ(events, 3);
    EXPECT_EQ(templates, 2);
}

TEST_F(Properties, ANotificationThatIsUnderWayWhenTheObjectEndsIsDropped) {
    QWidget window;
    const QPointer<QWidget> view = plugIn->settingsView();
    ASSERT_NE(view, nullptr);
    view->setParent(&window);
    const QPointer<QComboBox> chooser = plugIn->eventChooser;
    std::thread([&] {
        plugIn->setEventList(listOf(3));
        plugIn->setChosenCategory(QStringLiteral("Ceremony"));
        plugIn->setHideEventControls(false);
    }).join();
    plugIn.reset();
    QCoreApplication::processEvents();
    ASSERT_FALSE(chooser.isNull());
    EXPECT_EQ(chooser->count(), 0);
}
