#include "host/desktop/CaptureTimeReader.h"

#include "host/core/PhotographFile.h"
#include "host/desktop/BackgroundTask.h"
#include "platform/RunLoop.h"

namespace host::desktop {

CaptureTimeReader::~CaptureTimeReader() {
    if (stopped_)
        *stopped_ = true;
}

void CaptureTimeReader::read(std::vector<QByteArray> paths) {
    if (stopped_)
        *stopped_ = true;
    stopped_ = std::make_shared<std::atomic<bool>>(false);
    runInBackground("capture-times", [this, paths = std::move(paths), stopped = stopped_] {
        const auto times = std::make_shared<Times>();
        times->reserve(paths.size());
        for (const QByteArray& path : paths) {
            if (*stopped)
                return;
            times->emplace_back(path, readCaptureTime(path));
        }
        // Both on the main thread: while it is not stopped, the reader is there.
        platform::RunLoop::main()->post([this, times, stopped] {
            if (!*stopped)
                Q_EMIT done(*times);
        });
    });
}

} // namespace host::desktop
