#pragma once

#include "platform/Error.h"
#include "platform/Result.h"
#include "platform/http/HttpRequest.h"

#include <QByteArray>
#include <QByteArrayList>

#include <functional>

/// Stands for every HTTP exchange of the process: each is answered by a function, at once, on the
/// thread that runs it.
class InProcessExchange
{
public:
    struct Answer
    {
        int status = 200; ///< 0 for no reply at all.
        qint64 announcedLength = -1;
        QByteArrayList pieces; ///< The body, as it is handed on.
        /// How the exchange ends after its last piece.
        ZVPlatform::Result<void, ZVPlatform::Error> result = {};
    };

    /// Not to be called while an exchange is running.
    static void setService(std::function<Answer(const ZVPlatform::HttpRequest &)> service);
};
