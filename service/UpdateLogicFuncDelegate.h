#pragma once

#include "../platform/Export.h"
#include "../platform/threads/DelegateAnchor.h"
#include "UpdateOutcome.h"

#include <QString>

/// Hears of a service client's finished download. Not owned by the client; called on the thread on
/// which the transfer reports: a background thread in session mode, the main thread in connection
/// mode.
class ZVUPDATE_EXPORT UpdateLogicFuncDelegate : public ZVPlatform::DelegateAnchor
{
public:
    virtual ~UpdateLogicFuncDelegate() = default;

    /// The download succeeded; the file at path holds what was received, not yet verified. A
    /// download that fails is only logged.
    virtual void downloadFinishWithFilePath(const QString &path) = 0;

    /// The download has failed or was stopped, or its file was found to be of no use.
    virtual void downloadFailed(const UpdateOutcome & /*outcome*/) {}
};
