#include "CheckUpdateResponse.h"

#include "../platform/files/FileDigest.h"
#include "../platform/settings/Json.h"
#include "../platform/settings/Text.h"
#include "../platform/settings/VersionOrder.h"
#include "BaseResponse.h"
#include "HttpFunctionURLEncode.h"
#include "LanguageCodes.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>

#include <algorithm>

using namespace ZVPlatform;

const char *kZVLanguageCode_zh_TW = "zh-TW";
const char *kZVLanguageCode_zh_CN = "zh-CN";
const char *kZVLanguageCode_EN = "en";

namespace {

constexpr QChar quote = u'"';

bool isQuoted(const QString &text)
{
    return text.startsWith(quote) && text.endsWith(quote);
}

// Adds one element of the list of notes. One that lacks a field or is too broken to be unquoted
// is passed over; the last one of a language wins.
void addMessage(const QJsonObject &element, CheckUpdateResponse::UpdateMessages &messages)
{
    std::optional<QString> memo = textField(element, u"memo");
    std::optional<QString> language = textField(element, u"language");
    if (!memo || !language || *memo == quote || *language == quote)
        return;
    if (isQuoted(*memo))
        memo = memo->mid(1, memo->size() - 2);
    // A quoted language code is replaced by as many characters of the notes, not of the code. This
    // is how we decided it and it stays so: notes under a quoted code are not to be found by it.
    if (isQuoted(*language))
        language = memo->mid(1, language->size() - 2);
    messages.insert(*language, *memo);
}

std::optional<CheckUpdateResponse::UpdateMessages> updateMessages(const QJsonObject &inner)
{
    const QJsonValue list = inner.value(u"ZVMemo").toObject().value(u"datas");
    if (!list.isArray())
        return std::nullopt;
    CheckUpdateResponse::UpdateMessages messages;
    const QJsonArray elements = list.toArray();
    for (const QJsonValueConstRef element : elements)
        addMessage(element.toObject(), messages);
    return messages;
}

// A clock that has been set back, or never set, is no younger than the library.
QDateTime today()
{
    const QDate built = QDate::fromString(QStringLiteral(ZVUPDATE_BUILD_DATE), Qt::ISODate);
    return std::max(QDateTime::currentDateTimeUtc(), built.startOfDay(Qt::UTC));
}

} // namespace

std::shared_ptr<CheckUpdateResponse>
CheckUpdateResponse::getFromJson(const std::optional<QString> &reply)
{
    const BaseResponse outer(reply);
    std::optional<QByteArray> inner;
    if (outer.ok() && outer.data())
        inner = HttpFunctionURLEncode::decodeBytes(*outer.data());
    auto response =
        std::make_shared<CheckUpdateResponse>(inner ? textFromUtf8(*inner) : std::nullopt);
    response->setOk(outer.ok());
    response->setMsg(outer.msg());
    response->statement_ = inner.value_or(QByteArray());
    response->signatures_ = outer.signatures();
    return response;
}

CheckUpdateResponse::CheckUpdateResponse(const std::optional<QString> &innerJson)
{
    const QJsonObject inner = jsonObject(innerJson);
    ZVUpdateVersion_ = textField(inner, u"ZVUpdVersion");
    ZVMD5_ = textField(inner, u"ZVMD5");
    mUpdateMsgDict_ = updateMessages(inner);
}

std::optional<QString>
CheckUpdateResponse::getUpdateMessageWithLang(const std::optional<QString> &code) const
{
    if (!code || !mUpdateMsgDict_)
        return std::nullopt;
    QString language = QString::fromUtf8(kZVLanguageCode_EN);
    for (const char *chinese : {kZVLanguageCode_zh_TW, kZVLanguageCode_zh_CN}) {
        if (*code == QString::fromUtf8(chinese))
            language = *code;
    }
    const auto entry = mUpdateMsgDict_->constFind(language);
    if (entry == mUpdateMsgDict_->constEnd())
        return std::nullopt;
    return *entry;
}

Result<ReleaseStatement, UpdateOutcome>
CheckUpdateResponse::signedRelease(const ReleaseKeys &keys, const QString &productID,
                                   const QString &productVersion) const
{
    using Kind = UpdateOutcome::Kind;
    if (!keys.signer(statement_, signatures_))
        return Failure{UpdateOutcome(Kind::NotSigned)};
    const auto release = ReleaseStatement::read(statement_);
    if (!release)
        return Failure{UpdateOutcome(
            Kind::NotSigned, QStringLiteral("What the maker has signed %1.").arg(release.error()))};
    if (release->product != productID)
        return Failure{UpdateOutcome(Kind::OtherProduct)};
    if (compareVersions(release->version, productVersion) <= 0)
        return Failure{UpdateOutcome(Kind::NotNewer)};
    if (release->expires && *release->expires <= today())
        return Failure{UpdateOutcome(
            Kind::Expired, QStringLiteral("The maker's signature of the offer was good until %1.")
                               .arg(release->expires->toString(Qt::ISODate)))};
    return *release;
}

std::optional<bool> CheckUpdateResponse::announces(const QString &path,
                                                   const std::function<bool()> &stopped) const
{
    QFile file(path);
    // Only a regular file is opened: opening a pipe would wait for its other end.
    const bool isOpen = !path.contains(QChar(QChar::Null)) && QFileInfo(path).isFile() &&
                        file.open(QIODevice::ReadOnly);
    const auto found = digestsOfOpenFile(isOpen ? file.handle() : -1, sha256Wanted(), stopped);
    // One that cannot be read to its end counts as empty, too.
    return found && found->md5.isEmpty() ? announcesOpenFile(-1, stopped) : isAnnounced(found);
}

std::optional<bool>
CheckUpdateResponse::announcesOpenFile(int descriptor, const std::function<bool()> &stopped) const
{
    return isAnnounced(digestsOfOpenFile(descriptor, sha256Wanted(), stopped));
}

WithSha256 CheckUpdateResponse::sha256Wanted() const
{
    return release_ ? WithSha256::Yes : WithSha256::No;
}

std::optional<bool> CheckUpdateResponse::isAnnounced(const std::optional<FileDigests> &found) const
{
    if (!found)
        return std::nullopt;
    const bool isSigned =
        !release_ || (found->size == release_->size && found->sha256 == release_->sha256);
    return isSigned && ZVMD5_ && QString::fromLatin1(found->md5.toHex()) == ZVMD5_->toLower();
}

QString CheckUpdateResponse::debugDescription() const
{
    // No comma follows the digest; that is the line's form.
    return QStringLiteral("{\"ZVUpdateVersion\":%1, \"MD5\":%2 \"ok\":%3, \"msg\":%4}")
        .arg(describe(ZVUpdateVersion_), describe(ZVMD5_),
             ok_ ? QStringLiteral("true") : QStringLiteral("false"), describe(msg_));
}
