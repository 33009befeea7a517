#pragma once

#include "../platform/Error.h"
#include "../platform/Export.h"
#include "../platform/threads/DelegateAnchor.h"

#include <QString>

class HttpFunctionPost;

/// Hears how a download ended: one of the two calls, once, unless the download was stopped in
/// connection mode. The thread is a background thread in session mode and the main thread in
/// connection mode.
class ZVUPDATE_EXPORT HttpFunctionPostDelegate : public ZVPlatform::DelegateAnchor
{
public:
    virtual ~HttpFunctionPostDelegate() = default;

    /// The transfer succeeded; the file at path holds what was received.
    virtual void downloadFinishWithFilePath(const QString &path) = 0;

    /// The transfer failed or was stopped. What was received stays in the file.
    virtual void downloadFinishWithError(const ZVPlatform::Error &error) = 0;

    /// The download is over, also when it was stopped and neither of the two calls was made: the
    /// last call of all.
    virtual void downloadEnded(const HttpFunctionPost & /*transport*/) {}
};
