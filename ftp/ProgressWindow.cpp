#include "ftp/UploadEstimate.h"
#include "platform/RunLoop.h"
#include "plugin/Quillmark.h"

#include <QtCore/QEvent>
#include <QtGui/QWindow>

#include <algorithm>
#include <bit>
#include <functional>

namespace {

const QString kInterface = QStringLiteral("ProgressBar");
constexpr std::chrono::milliseconds kRefreshInterval{1000};
constexpr char kUploadingFormat[] = "Step 3 of 3: Uploading Image %d of %d ... %02d:%02d remaining";

/// Takes the window system's wish to close a window for something else than closing it.
class CloseRequests final : public QObject {
public:
    CloseRequests(QWidget* window, std::function<void()> handler)
        : QObject(window)
        , handler_(std::move(handler)) {
        window->installEventFilter(this);
    }

    bool eventFilter(QObject*, QEvent* event) override {
        if (event->type() != QEvent::Close || !event->spontaneous())
            return false;
        event->ignore();
        handler_();
        return true;
    }

private:
    const std::function<void()> handler_;
};

/// A QProgressBar counts in `int`, the record in words: both values lose as many low bits as it takes.
void showOnBar(QProgressBar& bar, std::size_t current, std::size_t total) {
    constexpr int kBarBits = 31;
    const int lowBits = std::max(0, static_cast<int>(std::bit_width(total)) - kBarBits);
    bar.setMaximum(static_cast<int>(total >> lowBits));
    // The bar ignores a value beyond its maximum instead of stopping there.
    bar.setValue(static_cast<int>(std::min(current, total) >> lowBits));
}

/// Puts the window above the one that the settings are in, and out of the reach of its modality.
void placeAbove(QWidget& window, QWidget* settings) {
    QWindow* const below = settings ? settings->window()->windowHandle() : nullptr;
    if (!below)
        return;
    window.winId();
    window.windowHandle()->setTransientParent(below);
}

hostapi::ExportProgress copyOfProgress(Quillmark& plugIn) {
    plugIn.lockProgress();
    hostapi::ExportProgress copy = plugIn.exportProgress;
    plugIn.unlockProgress();
    return copy;
}

/// Makes the window of the interface description file and connects its outlets and actions.
void loadProgressWindow(const std::shared_ptr<Quillmark>& plugIn) {
    QWidget* const window = plugIn->mainBundle->loadInterface(kInterface).release();
    plugIn->progressWindow = window;
    if (!window)
        return;
    window->setWindowFlags(Qt::Dialog);
    window->setAttribute(Qt::WA_DeleteOnClose);
    window->setAttribute(Qt::WA_QuitOnClose, false);
    plugIn->progressView = window->findChild<QWidget*>(QStringLiteral("progressView"));
    plugIn->progressBar = window->findChild<QProgressBar*>(QStringLiteral("progressBar"));
    plugIn->progressMessage = window->findChild<QLabel*>(QStringLiteral("progressMessage"));

    // The timer keeps the plug-in, and a cancel stops the timer: here it is kept to the cancel's end.
    const auto cancel = [weak = std::weak_ptr<Quillmark>(plugIn)](QObject* sender) {
        if (const auto strong = weak.lock())
            strong->cancelDuringUpload(sender);
    };
    if (auto* const button = window->findChild<QPushButton*>(QStringLiteral("cancelButton")))
        QObject::connect(button, &QPushButton::clicked, window, [button, cancel] { cancel(button); });
    // Inside its close event a window can't be closed: the cancel comes after it.
    new CloseRequests(window, [window, cancel] {
        QMetaObject::invokeMethod(
            window, [window, cancel] { cancel(window); }, Qt::QueuedConnection);
    });
}

} // namespace

void Quillmark::showProgressBar() {
    const std::shared_ptr<Quillmark> self = shared_from_this();
    platform::RunLoop::main()->call([self] {
        // A broken-off export leaves its window open until the user cancels: there is never more than one.
        self->closeProgressBar();
        loadProgressWindow(self);
        if (self->progressWindow) {
            placeAbove(*self->progressWindow, self->settingsView_);
            // Otherwise the cancel button has it, and a key that was still meant for another window presses
            // it.
            self->progressWindow->setFocus();
            self->progressWindow->show();
            self->progressWindow->raise();
            self->progressWindow->activateWindow();
        }
        if (self->progressBar)
            showOnBar(*self->progressBar, 0, copyOfProgress(*self).totalValue);

        // The window's child: whatever ends the window ends the timer's hold on the plug-in.
        self->progressBarTimer = new QTimer(self->progressWindow);
        QObject::connect(self->progressBarTimer, &QTimer::timeout, self->progressBarTimer,
                         [self] { self->updateTimer(); });
        self->progressBarTimer->start(kRefreshInterval);
    });
}

void Quillmark::closeProgressBar() {
    platform::RunLoop::main()->call([this] {
        delete progressBarTimer;
        if (progressWindow)
            progressWindow->close();
    });
}

void Quillmark::updateTimer() {
    const hostapi::ExportProgress record = copyOfProgress(*this);
    if (progressMessage)
        progressMessage->setText(record.message);
    if (progressBar)
        showOnBar(*progressBar, record.currentValue, record.totalValue);
}

void Quillmark::_incrementUploadProgress(std::int32_t byteCount) {
    using Seconds = std::chrono::duration<double>;
    const Seconds elapsed =
        uploadStartTime ? std::chrono::steady_clock::now() - *uploadStartTime : Seconds::zero();
    // The host is asked outside of the lock, which it may take itself.
    const auto imageCount = static_cast<std::int32_t>(_exportManager->imageCount());
    changeProgress([&](hostapi::ExportProgress& progress) {
        const std::int32_t sent = upload_estimate::bytesSent(byteCount, progress.currentValue);
        const TimeLeft left = upload_estimate::timeLeft(sent, totalBytes, elapsed.count());
        progress.currentValue += static_cast<std::size_t>(std::int64_t{byteCount});
        progress.message = QString::asprintf(kUploadingFormat, upload_estimate::fileNumber(numUploaded),
                                             imageCount, left.minutes, left.seconds);
    });
}

void Quillmark::cancelDuringUpload(QObject*) {
    exportManagerShouldCancelExport();
}
