#pragma once

#include <QtCore/QByteArrayList>
#include <QtCore/QString>

#include <iosfwd>
#include <random>
#include <vector>

namespace soak {

/// What goes wrong in one export.
enum class Mishap {
    None,
    CancelWhilePreparing,
    CancelWhileUploading,
    CancelBeforeFinishing,
    LogoutWhileUploading,
    RefusedLogin,
    DamagedImage,
    RefusedFolder,
    RefusedFile,
    UnconfirmedFile,
    LostData,
    LostConnection,
    FinishingUnanswered,
    Count
};

/// One export: what goes wrong in it, and at which image.
struct Plan {
    Mishap mishap = Mishap::None;
    int at = 1; ///< From 1 to the number of images.
    bool logsOutFirst = false;

    /// The next one that the generator has in it, for an export of so many images.
    static Plan next(std::mt19937& generator, int images);
};

/// What has become of an export; of two exports by the same plan it is the same.
struct Outcome {
    bool isFinished = false;
    int confirmed = 0; ///< Files that the plug-in told the host to be uploaded.
    bool operator==(const Outcome&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Plan& plan);
std::ostream& operator<<(std::ostream& stream, const Outcome& outcome);

/// Pictures as files, for all exports; the last one is damaged.
class Photographs {
public:
    explicit Photographs(int count);
    int count() const { return static_cast<int>(paths_.size()) - 1; }
    const QByteArray& path(int index) const { return paths_.at(index); }
    const QByteArray& damaged() const { return paths_.back(); }

private:
    QByteArrayList paths_;
};

/// Makes a plug-in, logs in, exports by the plan, and lets go of everything. Checks that no photograph is
/// lost or doubled. Main thread.
Outcome runExport(const Plan& plan, const Photographs& photographs);

} // namespace soak
