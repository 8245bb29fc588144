#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QObject>

#include <atomic>
#include <memory>
#include <utility>
#include <vector>

namespace host::desktop {

/// Reads from many files when their pictures were taken, on a thread of its own. Main thread.
class CaptureTimeReader final : public QObject {
    Q_OBJECT

public:
    using Times = std::vector<std::pair<QByteArray, QDateTime>>;

    ~CaptureTimeReader() override;

    /// Gives up what it was reading, and reads of these.
    void read(std::vector<QByteArray> paths);

Q_SIGNALS:
    /// All have been looked at.
    void done(const host::desktop::CaptureTimeReader::Times& times);

private:
    /// Tells the reading that is going on to end.
    std::shared_ptr<std::atomic<bool>> stopped_;
};

} // namespace host::desktop
