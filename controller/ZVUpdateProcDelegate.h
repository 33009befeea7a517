#pragma once

#include "../platform/Export.h"
#include "../platform/threads/DelegateAnchor.h"

#include <QString>

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
};
