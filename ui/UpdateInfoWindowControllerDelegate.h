#pragma once

#include "../platform/Export.h"
#include "../platform/threads/DelegateAnchor.h"

#include <QString>

#include <cstdint>

/// Hears what the user chose in the prompt window. Main thread only.
class ZVUPDATE_EXPORT UpdateInfoWindowControllerDelegate : public ZVPlatform::DelegateAnchor
{
public:
    virtual ~UpdateInfoWindowControllerDelegate() = default;

    /// 1: the user chose to update, and the installer has been opened. 0: the user declined. A
    /// window that is closed without a choice says nothing.
    virtual void infoWindowClosedActions(uint64_t action) = 0;

    /// The user chose to update, but the installer is not what it was announced to be. It has been
    /// removed and the window closed.
    virtual void infoWindowRefusedInstaller() {}

    /// The user chose to update. True when the delegate has seen to it: then the installer, which
    /// lies at the path, is not opened.
    virtual bool infoWindowInstalls(const QString & /*path*/) { return false; }
};
