#include "service/PricingParser.h"

const PricingParser::KeySet& PricingParser::initialize() {
    static const KeySet interestingKeys{QStringLiteral("Result")};
    return interestingKeys;
}

PricingParser::PricingParser()
    : TextCollector(initialize()) {}

bool PricingParser::parseData(const QByteArray& data) {
    parse(data);
    return true;
}

void PricingParser::store(const QString&, const QString& value) {
    setResult(value);
}
