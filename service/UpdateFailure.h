#pragma once

#include "../platform/Error.h"

#include <QString>

#include <optional>

/// Why a command was not answered as it should be, or a download brought no file that is as it
/// should be. A value; may be used on any thread.
struct UpdateFailure
{
    /// What is the matter.
    enum class Kind {
        /// Nobody has answered.
        ServiceUnreachable,
        /// The proxy does not let the request through.
        ProxyRefused,
        /// Whoever has answered has no right to the service's name.
        CertificateRefused,
        /// The HTTP status says that the request has failed, and the reply says no more.
        HttpStatus,
        /// What has come is not the reply of an update service: a page to log in with, perhaps.
        NotAService,
        /// The service hands out no download token.
        NoToken,
        /// The reply broke off, or another download has the file.
        BrokenOff,
        DirectoryNotWritable,
        DiskFull,
        /// The file is not the one that was announced.
        WrongDigest,
        /// The download was stopped.
        Stopped,
    };

    /// In what it happened.
    enum class Step { Check, Token, Size, Download };

    Kind kind;
    Step step;
    /// A sentence for people.
    QString sentence;
    /// What the system or HTTP says; absent when it is the reply itself that is not right.
    std::optional<ZVPlatform::Error> error = {};
    /// The HTTP status; 0 when there is no reply.
    int httpStatus = 0;
    /// What kind of body the reply has announced; may be empty.
    QString contentType = {};
    /// Where the reply has come from, after redirects; empty when there is none.
    QString finalUrl = {};
};
