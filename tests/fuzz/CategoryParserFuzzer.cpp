#include "service/CategoryParser.h"
#include "tests/fuzz/FuzzRecords.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    CategoryParser parser;
    require(parser.parseData(answerOf(data, size)));
    requireSound(parser.categories());
    return 0;
}
