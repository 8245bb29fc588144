#include "service/PricingParser.h"
#include "tests/fuzz/FuzzData.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    PricingParser parser;
    require(parser.parseData(answerOf(data, size)));
    const auto result = parser.result();
    require(!result || !result->contains(QChar::Null));
    // An answer without a result leaves the one there is.
    parser.parseData("<Information/>");
    require(parser.result() == result);
    return 0;
}
