#include "host/core/ExportRecord.h"

#include <algorithm>

namespace host {

std::vector<std::size_t> ExportRecord::remaining() const {
    std::vector<std::size_t> indices;
    for (std::size_t i = 0; i < images.size(); ++i) {
        if (images[i].outcome != ImageOutcome::Uploaded)
            indices.push_back(i);
    }
    std::stable_partition(indices.begin(), indices.end(),
                          [this](std::size_t index) { return !images[index].hasFailed; });
    return indices;
}

std::size_t ExportRecord::count(ImageOutcome outcome) const {
    return static_cast<std::size_t>(std::count_if(
        images.begin(), images.end(), [outcome](const auto& image) { return image.outcome == outcome; }));
}

bool ExportRecord::lacksConfirmation() const {
    return !processingConfirmed && count(ImageOutcome::Uploaded) > 0;
}

bool ExportRecord::isSettled() const {
    return count(ImageOutcome::Uploaded) == images.size() && !lacksConfirmation();
}

PhotographTrace traceOf(const RecordedImage& image, const ExportRecord& record) {
    return {image.stamp, image.captured, record.begun};
}

bool isToBeFinished(std::size_t offered, std::size_t leftOut, const ExportRecord* record) {
    return leftOut < offered || (record && record->lacksConfirmation());
}

bool isOfEvent(const ExportRecord& record, const QString& service, const ExportChoices& choices) {
    return record.service == service && record.choices.account == choices.account &&
           record.choices.eventId == choices.eventId;
}

bool sameEvent(const ExportRecord& one, const ExportRecord& other) {
    return isOfEvent(one, other.service, other.choices);
}

} // namespace host
