#pragma once

#include "../platform/Export.h"
#include "../platform/files/InstallerKind.h"
#include "../platform/threads/DelegateAnchor.h"
#include "../service/UpdateLogicFunc.h"
#include "../service/UpdateOutcome.h"

#include <QString>

#include <cstdint>

/// What a host hears from its update controller. Implemented by the host, which owns it; a delegate
/// may be destroyed at any time on the main thread and is not called afterwards. All calls come on
/// the main thread.
class ZVUPDATE_EXPORT ZVUpdateProcDelegate : public ZVPlatform::DelegateAnchor
{
public:
    virtual ~ZVUpdateProcDelegate() = default;

    /// A verified installer lies at path. Called from the event loop, never inside the call that
    /// asked for the update. Look before you use the file: where it could not be given that name,
    /// as in a directory that may only be read, there is none.
    virtual void UpdateFileReady(const QString &path) = 0;

    /// The user chose to update in the prompt window; the installer has been opened.
    virtual void windowClosedUpdateAction() = 0;

    /// The user declined in the prompt window.
    virtual void windowClosedCancelAction() = 0;

    // Additions, for hosts that want to hear more; a host need not have them.

    /// What came of a check that startCheck() has started. Once for each, in the end.
    virtual void updateCheckEnded(const UpdateOutcome & /*outcome*/) {}

    /// How far the download that startCheck() has brought has come. At most ten times a second; the
    /// last call need not be that of the end.
    virtual void updateDownloadProgressed(const UpdateDownloadProgress & /*progress*/) {}

    /// The user chose to update in the prompt window. True when the host has seen to it, as by a
    /// program that replaces the host: then the installer, which lies at the path and is of that
    /// kind by its content, is not opened, and windowClosedUpdateAction() follows all the same.
    virtual bool installUpdate(const QString & /*path*/, ZVPlatform::InstallerKind /*kind*/)
    {
        return false;
    }

    /// A download has ended without a file for UpdateFileReady(), and why; or, where the maker's
    /// signature is demanded, the file was found to be another when the user chose "Update": then
    /// nothing has been opened, and it has been removed.
    virtual void updateDownloadFailed(const UpdateOutcome & /*outcome*/) {}
};
