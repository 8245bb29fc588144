#include "host/cli/CommandModule.h"
#include "host/cli/ImageFiles.h"
#include "host/cli/InterruptingSignals.h"
#include "host/cli/Options.h"
#include "host/cli/Outcome.h"
#include "host/cli/Output.h"
#include "host/cli/RunCommand.h"

#include <QtCore/QLibrary>

#include <unistd.h>

#include <algorithm>

namespace {

using namespace host::cli;

int ended(Outcome outcome, const QString& complaint, bool json) {
    complain(complaint);
    if (json)
        writeAll(STDOUT_FILENO, endLine(outcome));
    return describe(outcome).exitStatus;
}

int followed(const Options& options) {
    holdInterruptingSignals();
    for (const QByteArray& image : options.images) {
        if (const auto reason = reasonAgainstReading(image)) {
            return ended(Outcome::Usage,
                         QStringLiteral("%1 can't be read: %2").arg(QString::fromUtf8(image), *reason),
                         options.json);
        }
    }
    QLibrary module(commandModule());
    module.setLoadHints(QLibrary::ResolveAllSymbolsHint | QLibrary::PreventUnloadHint);
    const auto run = reinterpret_cast<RunCommandFunction>(module.resolve(kRunCommandSymbol));
    if (!run)
        return ended(Outcome::Failed, module.errorString(), options.json);
    run(options);
    return describe(Outcome::Failed).exitStatus;
}

} // namespace

int main(int argc, char** argv) {
    const auto parsed = parseOptions(std::vector<QByteArray>(argv + std::min(argc, 1), argv + argc));
    if (const auto* error = std::get_if<UsageError>(&parsed))
        return ended(Outcome::Usage, error->message, error->json);
    const auto& options = std::get<Options>(parsed);
    if (options.help)
        writeAll(STDOUT_FILENO, kHelpText);
    else if (options.version)
        writeAll(STDOUT_FILENO, "quillmark-export " QUILLMARK_VERSION "\n");
    else
        return followed(options);
    return 0;
}
