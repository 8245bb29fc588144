#include "host/core/FixedAnswers.h"

namespace host {

FixedAnswers askFixedQuestions(hostapi::ApertureExportPlugIn& plugIn) {
    // What stands in braces is evaluated in its order.
    return {
        plugIn.allowsOnlyPlugInPresets(), plugIn.allowsMasterExport(),         plugIn.allowsVersionExport(),
        plugIn.wantsFileNamingControls(), plugIn.wantsDestinationPathPrompt(), plugIn.destinationPath(),
        plugIn.defaultDirectory()};
}

std::optional<QString> unmetWish(const FixedAnswers& answers) {
    if (!answers.allowsVersionExport)
        return QStringLiteral("it takes only original files, not photographs as they look");
    if (answers.wantsFileNamingControls)
        return QStringLiteral("it wants files to be named, which this program does not offer");
    if (answers.wantsDestinationPathPrompt)
        return QStringLiteral("it wants a folder to be chosen, which this program does not offer");
    return std::nullopt;
}

} // namespace host
