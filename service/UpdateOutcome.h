#pragma once

#include "../platform/Error.h"
#include "../platform/Export.h"

#include <QString>

#include <optional>

/// What came of a check, of one of its commands, or of its download. A value; may be used on any
/// thread.
struct ZVUPDATE_EXPORT UpdateOutcome
{
    /// Which of the outcomes it is.
    enum class Kind {
        /// The download of a newer installer has been started in the background.
        DownloadStarted,
        /// A verified installer for the offered version is on disk.
        InstallerReady,
        /// The service has said that there is nothing newer, in whatever words.
        NothingNewer,
        /// The user has switched automatic updating off.
        SwitchedOff,
        /// The next check is set to a later date.
        NotYet,
        /// Product identifier, version or directory is missing.
        NotConfigured,
        /// Nobody has answered.
        ServiceUnreachable,
        /// The proxy does not let the request through.
        ProxyRefused,
        /// Whoever has answered has no right to the service's name.
        CertificateRefused,
        /// What has come is not the reply of an update service: a page to log in with, perhaps.
        NotAService,
        /// The service hands out no download token.
        NoToken,
        /// What the service offers cannot be part of a file name.
        UnsafeName,
        /// The directory for update files is not there, or may not be written to.
        DirectoryNotWritable,
        /// There is no room for the download.
        DiskFull,
        /// The HTTP status says that the request has failed, and the reply says no more.
        HttpStatus,
        /// The reply broke off, or another download has the file.
        BrokenOff,
        /// The file is not the one that was announced.
        WrongDigest,
        /// It was stopped.
        Stopped,
        /// The offer is not signed by the maker: not at all, or not as the host demands it.
        NotSigned,
        /// What the maker has signed is a release of another product.
        OtherProduct,
        /// What the maker has signed is no newer than what is running.
        NotNewer,
        /// The maker's signature has been good until a date that has passed.
        Expired,
        /// The service has a file of another size than the maker has signed.
        WrongSize,
    };

    Kind kind; ///< Which it is.
    /// A sentence for people, in English.
    QString message;
    /// What the system or HTTP says, if it is that.
    std::optional<ZVPlatform::Error> error = {};
    /// The HTTP status; 0 when there is no reply.
    int httpStatus = 0;
    /// What kind of body the reply has announced; may be empty.
    QString contentType = {};
    /// Where the reply has come from, after redirects; empty when there is none.
    QString finalUrl = {};
    /// What the service says itself; may be empty. Nobody signs it.
    QString serviceMessage = {};

    /// An outcome with the message that it has without further knowledge.
    explicit UpdateOutcome(Kind what);
    /// An outcome with a message of its own.
    UpdateOutcome(Kind what, const QString &sentence) : kind(what), message(sentence) {}

    /// The HTTP status of a network that wants its users to log in first.
    static constexpr int loginRequired = 511;
    /// Whether what has answered may be a network's page to log in with.
    bool mayBeLoginPage() const;

    /// The word for an outcome in what programs write, such as "nothing-newer".
    static QString word(Kind kind);
};
