#include "FaultyBody.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

namespace {

constexpr size_t portion = 32 * 1024;

/// The library does not watch a paused connection.
bool hasPeerGone(MHD_Connection *connection)
{
    const int socket =
        MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd;
    char byte = 0;
    const ssize_t count = ::recv(socket, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    return count == 0 || (count < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR);
}

} // namespace

MHD_Response *FaultyBody::response(Reply::FilePiece &piece, MHD_Connection *connection,
                                   PausedConnections &paused)
{
    const auto size = piece.fault->announcesLength ? static_cast<uint64_t>(piece.length)
                                                   : uint64_t(MHD_SIZE_UNKNOWN);
    return MHD_create_response_from_callback(
        size, portion,
        [](void *body, uint64_t position, char *buffer, size_t capacity) {
            return static_cast<FaultyBody *>(body)->read(static_cast<qint64>(position), buffer,
                                                         capacity);
        },
        new FaultyBody(std::move(piece), connection, paused),
        [](void *body) { delete static_cast<FaultyBody *>(body); });
}

FaultyBody::FaultyBody(Reply::FilePiece piece, MHD_Connection *connection,
                       PausedConnections &paused)
    : piece_(std::move(piece)), connection_(connection), paused_(paused)
{
}

ssize_t FaultyBody::read(qint64 position, char *buffer, size_t capacity)
{
    const BodyFault &fault = *piece_.fault;
    if (position == piece_.length)
        return MHD_CONTENT_READER_END_OF_STREAM;
    if (fault.bytes && position >= *fault.bytes)
        return fault.end == BodyFault::End::StandStill ? wait() : MHD_CONTENT_READER_END_WITH_ERROR;
    const qint64 allowed = allowedNow(position);
    if (allowed <= 0)
        return wait();

    const size_t wanted = std::min(capacity, static_cast<size_t>(allowed));
    const ssize_t count = ::pread(piece_.file.get(), buffer, wanted, piece_.offset + position);
    // More may have been announced than there is.
    return count > 0 ? count : MHD_CONTENT_READER_END_WITH_ERROR;
}

ssize_t FaultyBody::wait()
{
    if (hasPeerGone(connection_) || !paused_.pause(connection_))
        return MHD_CONTENT_READER_END_WITH_ERROR;
    return 0;
}

qint64 FaultyBody::allowedNow(qint64 position) const
{
    const BodyFault &fault = *piece_.fault;
    const qint64 end = std::min(piece_.length, fault.bytes.value_or(piece_.length));
    if (!fault.bytesPerSecond)
        return end - position;
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start_;
    const double due = elapsed.count() * static_cast<double>(*fault.bytesPerSecond);
    return due < static_cast<double>(end) ? static_cast<qint64>(due) - position : end - position;
}
