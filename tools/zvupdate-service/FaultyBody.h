#pragma once

#include "PausedConnections.h"
#include "Reply.h"

#include <microhttpd.h>

#include <chrono>

/// The body of a reply whose sending goes wrong: hands out a piece of a file in portions, as the
/// piece's fault says. Belongs to the HTTP library's response; used by the thread that serves the
/// connection.
class FaultyBody
{
public:
    /// A response to be sent over connection that takes the piece's file along.
    static MHD_Response *response(Reply::FilePiece &piece, MHD_Connection *connection,
                                  PausedConnections &paused);

private:
    FaultyBody(Reply::FilePiece piece, MHD_Connection *connection, PausedConnections &paused);

    ssize_t read(qint64 position, char *buffer, size_t capacity);
    ssize_t wait();
    qint64 allowedNow(qint64 position) const;

    const Reply::FilePiece piece_;
    MHD_Connection *const connection_;
    PausedConnections &paused_;
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};
