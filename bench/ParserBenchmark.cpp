// How fast the service's answers are read: as short as they usually are, and as long as an answer may become.

#include "service/CategoryParser.h"
#include "service/EventParser.h"
#include "service/LoginParser.h"
#include "service/PricingParser.h"

#include <benchmark/benchmark.h>

namespace {

constexpr int kUsualRecords = 20;
constexpr int kManyRecords = 10'000;

const QByteArray kLoginAnswer =
    "<?xml version=\"1.0\"?>\n<Login>\n  <Success>1</Success>\n  <UserId>4711</UserId>\n"
    "  <Password>t0ken</Password>\n  <LoggedInName>Ann Smith</LoggedInName>\n"
    "  <AllowHighResUploads>1</AllowHighResUploads>\n</Login>\n";

const QByteArray kFinishingAnswer =
    "<Information><Result>42 images were processed &amp; priced.</Result></Information>";

QByteArray listAnswer(const QByteArray& element, int count) {
    QByteArray text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<List>\n";
    for (int i = 1; i <= count; ++i) {
        const QByteArray number = QByteArray::number(i);
        text += "  <" + element + " id=\"" + number + "\"><Name>Smith &amp; M\xc3\xbcller " + number +
                "</Name></" + element + ">\n";
    }
    return text + "</List>\n";
}

template <typename Parser>
void parse(benchmark::State& state, const QByteArray& answer) {
    Parser parser;
    for ([[maybe_unused]] const auto iteration : state)
        benchmark::DoNotOptimize(parser.parseData(answer));
    state.SetBytesProcessed(state.iterations() * answer.size());
}

template <typename Parser>
void registerParse(const char* name, const QByteArray& answer) {
    benchmark::RegisterBenchmark(name, parse<Parser>, answer)->Unit(benchmark::kMicrosecond);
}

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    registerParse<LoginParser>("login", kLoginAnswer);
    registerParse<EventParser>("20 events", listAnswer("Event", kUsualRecords));
    registerParse<EventParser>("10 000 events", listAnswer("Event", kManyRecords));
    registerParse<CategoryParser>("20 categories", listAnswer("Category", kUsualRecords));
    registerParse<CategoryParser>("10 000 categories", listAnswer("Category", kManyRecords));
    registerParse<PricingParser>("finishing", kFinishingAnswer);
    benchmark::RunSpecifiedBenchmarks();
}
