#pragma once

#include "../../platform/files/FileDescriptor.h"
#include "BodyFault.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>
#include <utility>

/// What is sent back: all that the HTTP side needs to know, nothing of how it is sent. Whatever is
/// to go wrong on purpose can be done to this value on its way there.
struct Reply
{
    /// A piece of an open file.
    struct FilePiece
    {
        FileDescriptor file;
        qint64 offset = 0;
        qint64 length = 0;
        /// Absent in good health.
        std::optional<BodyFault> fault = std::nullopt;
    };

    int status = 200;
    QList<std::pair<QByteArray, QByteArray>> headers;
    /// Sent unless there is a piece of a file to send.
    QByteArray body;
    std::optional<FilePiece> file;

    /// For the log: the unsealed command, and what else a reader of the log would ask.
    QString command;
    QString remark;
};
