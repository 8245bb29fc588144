#include "host/core/ExportChoices.h"

namespace host {

WishedChoices::WishedChoices(const ExportChoices& choices)
    : event(choices.eventId)
    , category(choices.category)
    , autoCategories(choices.autoCategories)
    , pricing(choices.pricingId)
    , resize(choices.resize)
    , quality(choices.quality)
    , colorSpace(choices.colorSpace) {}

bool sameDestination(const ExportChoices& one, const ExportChoices& other) {
    return one.account == other.account && one.eventId == other.eventId && one.category == other.category &&
           one.autoCategories == other.autoCategories;
}

} // namespace host
