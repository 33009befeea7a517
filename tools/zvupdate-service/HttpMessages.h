#pragma once

#include "../../platform/files/FileDescriptor.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>
#include <utility>

/// One HTTP request, as far as it matters here.
struct Request
{
    QByteArray method;
    QByteArray path;
    /// The query's value of "dt"; empty when there is none.
    QString sealedCommand;
    /// The Range header field; empty when there is none.
    QByteArray range;
};

/// What is sent back: all that the HTTP side needs to know, nothing of how it is sent.
struct Reply
{
    /// How the sending of a file is interrupted on purpose.
    struct Interruption
    {
        /// How many bytes are sent before that.
        qint64 bytes = 0;
        /// Then nothing more comes; otherwise the connection ends.
        bool isStall = false;
    };

    /// A piece of an open file.
    struct FilePiece
    {
        FileDescriptor file;
        qint64 offset = 0;
        qint64 length = 0;
        std::optional<Interruption> interruption = std::nullopt;
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
