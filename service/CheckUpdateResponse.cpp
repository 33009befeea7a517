#include "CheckUpdateResponse.h"

#include "../platform/settings/Json.h"
#include "../platform/settings/Text.h"
#include "BaseResponse.h"
#include "HttpFunctionURLEncode.h"
#include "LanguageCodes.h"

#include <QJsonArray>

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

/// Adds one element of the list of notes. One that lacks a field or is too broken to be unquoted
/// is passed over; the last one of a language wins.
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

} // namespace

std::shared_ptr<CheckUpdateResponse>
CheckUpdateResponse::getFromJson(const std::optional<QString> &reply)
{
    const BaseResponse outer(reply);
    std::optional<QString> innerJson;
    if (outer.ok() && outer.data())
        innerJson = HttpFunctionURLEncode::decode(*outer.data());
    auto response = std::make_shared<CheckUpdateResponse>(innerJson);
    response->setOk(outer.ok());
    response->setMsg(outer.msg());
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

QString CheckUpdateResponse::debugDescription() const
{
    // No comma follows the digest; that is the line's form.
    return QStringLiteral("{\"ZVUpdateVersion\":%1, \"MD5\":%2 \"ok\":%3, \"msg\":%4}")
        .arg(describe(ZVUpdateVersion_), describe(ZVMD5_),
             ok_ ? QStringLiteral("true") : QStringLiteral("false"), describe(msg_));
}
