#pragma once

#include "../platform/Export.h"
#include "../platform/Result.h"
#include "../release/ReleaseKeys.h"
#include "../release/ReleaseStatement.h"
#include "UpdateOutcome.h"

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>

namespace ZVPlatform {
struct FileDigests;
enum class WithSha256;
} // namespace ZVPlatform

/// The result of a check: what the service offers, its digest and its release notes by language.
///
/// Filled while one thread builds it, only read afterwards, and then from any thread.
class ZVUPDATE_EXPORT CheckUpdateResponse
{
public:
    /// Release notes by language code.
    using UpdateMessages = QHash<QString, QString>;

    /// Builds the record of a check-update reply: the outer object's success flag and message and,
    /// when it says ok, what its sealed data holds. Never null. A reply that is absent or broken
    /// gives a record whose ok is false; one that says ok but whose data does not unseal gives a
    /// record that is ok and otherwise empty, so test the fields before using them.
    static std::shared_ptr<CheckUpdateResponse> getFromJson(const std::optional<QString> &reply);

    /// An empty record: not ok, everything absent.
    CheckUpdateResponse() = default;
    /// Reads the unsealed inner object; an absent or broken text gives an empty record.
    explicit CheckUpdateResponse(const std::optional<QString> &innerJson);

    ///@{
    /// Whether the service says that there is an update.
    bool ok() const { return ok_; }
    void setOk(bool ok) { ok_ = ok; }
    ///@}
    ///@{
    /// The service's message, if any.
    const std::optional<QString> &msg() const { return msg_; }
    void setMsg(const std::optional<QString> &msg) { msg_ = msg; }
    ///@}
    ///@{
    /// The version offered.
    const std::optional<QString> &ZVUpdateVersion() const { return ZVUpdateVersion_; }
    void setZVUpdateVersion(const std::optional<QString> &v) { ZVUpdateVersion_ = v; }
    ///@}
    ///@{
    /// The MD5 digest of the installer as hexadecimal text, in the case in which it was sent.
    const std::optional<QString> &ZVMD5() const { return ZVMD5_; }
    void setZVMD5(const std::optional<QString> &md5) { ZVMD5_ = md5; }
    ///@}
    ///@{
    /// Absent when the reply had no list of notes; an empty list gives an empty table.
    const std::optional<UpdateMessages> &mUpdateMsgDict() const { return mUpdateMsgDict_; }
    void setMUpdateMsgDict(const std::optional<UpdateMessages> &d) { mUpdateMsgDict_ = d; }
    ///@}

    /// The release notes for a language code: those of kZVLanguageCode_zh_TW or _zh_CN when the
    /// code equals that variable, of kZVLanguageCode_EN for any other code. Absent when there are
    /// none; no other language is tried instead.
    std::optional<QString> getUpdateMessageWithLang(const std::optional<QString> &code) const;

    // Additions, for hosts that demand the maker's signature.

    ///@{
    /// The bytes that the reply's data unseals to, exactly as they came, and the signatures that
    /// came with them, in Base64. Empty when there are none.
    const QByteArray &statement() const { return statement_; }
    const QStringList &signatures() const { return signatures_; }
    ///@}

    /// Demands that the release is signed under one of the keys, is of this product, newer than
    /// this version, and not out of date by the clock and the day on which the library was built,
    /// whichever is later. Fails with the outcome that says what is wrong; then nothing of the
    /// record is to be used.
    ZVPlatform::Result<ReleaseStatement, UpdateOutcome>
    signedRelease(const ReleaseKeys &keys, const QString &productID,
                  const QString &productVersion) const;

    ///@{
    /// What the maker has signed of the release, where that was demanded.
    const std::optional<ReleaseStatement> &release() const { return release_; }
    void setRelease(const std::optional<ReleaseStatement> &release) { release_ = release; }
    ///@}

    ///@{
    /// Whether a file is the installer that the record announces: by its MD5 digest and, with a
    /// signed release, by its size and SHA-256 digest, too. Reads it on the calling thread, and
    /// asks stopped() meanwhile, if given; absent once that holds. Of a path, one that cannot be
    /// read counts as an empty file.
    std::optional<bool> announces(const QString &path,
                                  const std::function<bool()> &stopped = {}) const;
    std::optional<bool> announcesOpenFile(int descriptor,
                                          const std::function<bool()> &stopped) const;
    ///@}

    /// One line for logs; absent fields print as (null).
    QString debugDescription() const;

private:
    ZVPlatform::WithSha256 sha256Wanted() const;
    std::optional<bool> isAnnounced(const std::optional<ZVPlatform::FileDigests> &found) const;

    bool ok_ = false;
    std::optional<QString> msg_;
    std::optional<QString> ZVUpdateVersion_;
    std::optional<QString> ZVMD5_;
    std::optional<UpdateMessages> mUpdateMsgDict_;
    QByteArray statement_;
    QStringList signatures_;
    std::optional<ReleaseStatement> release_;
};
