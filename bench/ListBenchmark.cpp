// What it costs to bring the service's lists into the panel: the answers are read, and the choosers' models
// filled. Without the requests, which only wait.

#include "service/CategoryParser.h"
#include "service/EventParser.h"
#include "tests/support/RecordingHost.h"

#include <QtWidgets/QApplication>

#include <benchmark/benchmark.h>

#include <string>

namespace {

constexpr int kPricingTemplates = 10;
constexpr int kCategories = 12; ///< Of each event.

QByteArray records(const QByteArray& element, int count) {
    QByteArray text;
    for (int i = 1; i <= count; ++i) {
        const QByteArray number = QByteArray::number(i);
        text += '<' + element + " id=\"" + number + "\"><Name>" + element + ' ' + number + "</Name></" +
                element + '>';
    }
    return text;
}

void loadLists(benchmark::State& state, int eventCount) {
    test_support::RecordingHost host;
    const std::shared_ptr<Quillmark> plugIn = host.makePlugIn();
    QWidget* const panel = plugIn ? plugIn->settingsView() : nullptr;
    if (!panel)
        return state.SkipWithError("no panel");
    panel->show();
    const QByteArray eventAnswer =
        "<List>" + records("Event", eventCount) + records("PricingTemplate", kPricingTemplates) + "</List>";
    const QByteArray categoryAnswer = "<List>" + records("Category", kCategories) + "</List>";
    for ([[maybe_unused]] const auto iteration : state) {
        EventParser parser;
        parser.parseData(eventAnswer);
        const auto events = parser.events();
        for (const auto& event : *events) {
            CategoryParser categoryParser;
            categoryParser.parseData(categoryAnswer);
            event->categories = categoryParser.categories();
        }
        plugIn->setEventList(events);
        plugIn->setPricingList(parser.pricingTemplates());
        plugIn->setCategoryList(events->front()->categories);
        QCoreApplication::processEvents();
    }
    if (plugIn->eventChooser->count() != eventCount || plugIn->categoryChooser->count() != kCategories)
        state.SkipWithError("the choosers do not show the lists");
    state.SetItemsProcessed(state.iterations() * eventCount);
}

} // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    for (const int count : {10, 100, 1000})
        benchmark::RegisterBenchmark((std::to_string(count) + " events").c_str(), loadLists, count)
            ->Unit(benchmark::kMillisecond);
    benchmark::RunSpecifiedBenchmarks();
}
