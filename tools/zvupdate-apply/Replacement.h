#pragma once

#include "../../platform/Result.h"
#include "../../platform/files/FileDescriptor.h"
#include "Target.h"

#include <QString>

class Archive;

/// The exchange of a target by something new, in steps. Whenever the process ends, the target is
/// the whole old or the whole new one. Failures are sentences for people.
class Replacement
{
public:
    explicit Replacement(Target target) : target_(std::move(target)) {}
    Replacement(const Replacement &) = delete;
    Replacement &operator=(const Replacement &) = delete;
    /// Leaves nothing of its own beside the target but what restore() may want.
    ~Replacement();

    /// Makes the work folder, clears it of what an earlier process has left, and keeps others of
    /// its kind away from the target for as long as this object lives.
    ZVPlatform::Result<void> prepare();

    /// Puts a copy of the file, or what is in the archive, beside the target and onto the disk.
    ZVPlatform::Result<void> stageFile(int descriptor);
    ZVPlatform::Result<void> stageFolder(const Archive &archive);
    /// Where that lies.
    QString staged() const;

    /// Puts what is staged in the place of the target, which is kept as its previous(). When that
    /// fails, the target is as before.
    ZVPlatform::Result<void> exchange();

    /// Puts the old one back after an exchange, and removes the new one.
    ZVPlatform::Result<void> restore();

private:
    const Target target_;
    FileDescriptor workFolder_; // Open and locked while it is ours.
};
