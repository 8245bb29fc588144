#include "plugin/Quillmark.h"

#include "platform/RunLoop.h"
#include "service/PricingParser.h"
#include "service/ServiceRequests.h"

namespace {

/// The service's word for "without a pricing template".
const QString kNoPricingId = QStringLiteral("0");
const QString kCompleteMessage = QStringLiteral("Your Quillmark export is complete.");

} // namespace

void Quillmark::_startFinishThread() {
    finishThreadRef =
        platform::Thread::start("finishing", [self = shared_from_this()] { self->finishingThread(); });
    if (finishThreadRef)
        return;
    // Without a thread the request gets no answer.
    closeProgressBar();
    environment->observer.finishingRequestUnanswered();
}

void Quillmark::finishingThread() {
    // Before the request: the window is gone while the service processes the images.
    closeProgressBar();
    const auto details = loginDetails.get();
    platform::URLLoader loader(environment->configuration.transport);
    const auto answer = acceptedAnswer(
        loader, service_requests::finishing(environment->configuration.webHost, textOf(details, kUserIdKey),
                                            textOf(details, kEncPasswordKey), chosenEventId(),
                                            chosenPricingId().value_or(kNoPricingId)));
    if (!answer) {
        environment->observer.finishingRequestUnanswered();
        return;
    }
    PricingParser parser;
    parser.parseData(*answer);
    if (shouldCancelExport())
        _exportManager->shouldCancelExport();
    platform::RunLoop::main()->post(
        [self = shared_from_this(), result = parser.result()] { self->doneFinishing(result); });
}

void Quillmark::doneFinishing(const std::optional<QString>& result) {
    hostapi::Alert alert{hostapi::AlertStyle::Informational, kCompleteMessage, std::nullopt};
    if (result)
        alert.informativeText = result->trimmed();
    environment->alerts.runModal(alert);
    _exportManager->shouldFinishExport();
}
