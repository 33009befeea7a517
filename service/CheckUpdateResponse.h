#pragma once

#include "../platform/Export.h"

#include <QHash>
#include <QString>

#include <memory>
#include <optional>

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

    /// One line for logs; absent fields print as (null).
    QString debugDescription() const;

private:
    bool ok_ = false;
    std::optional<QString> msg_;
    std::optional<QString> ZVUpdateVersion_;
    std::optional<QString> ZVMD5_;
    std::optional<UpdateMessages> mUpdateMsgDict_;
};
