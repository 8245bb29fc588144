#include "service/EventParser.h"
#include "tests/fuzz/FuzzRecords.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    EventParser parser;
    require(parser.parseData(answerOf(data, size)));
    requireSound(parser.events());
    requireSound(parser.pricingTemplates());
    return 0;
}
