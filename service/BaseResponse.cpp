#include "BaseResponse.h"

#include "../platform/settings/Json.h"
#include "../platform/settings/Text.h"

#include <QJsonArray>

using namespace ZVPlatform;

namespace {

bool isTrue(const QJsonValue &value)
{
    if (value.isString())
        return truthValue(value.toString());
    return value.toBool() || value.toDouble() != 0;
}

QStringList textsOf(const QJsonValue &list)
{
    QStringList texts;
    const QJsonArray elements = list.toArray();
    for (const QJsonValueConstRef element : elements)
        texts.append(element.toString());
    return texts;
}

} // namespace

BaseResponse::BaseResponse(const std::optional<QString> &json)
{
    const QJsonObject reply = jsonObject(json);
    ok_ = isTrue(reply.value(u"ok"));
    msg_ = textField(reply, u"msg");
    ID_ = textField(reply, u"id");
    data_ = textField(reply, u"data");
    signatures_ = textsOf(reply.value(u"sigs"));
}

QString BaseResponse::debugDescription() const
{
    return QStringLiteral("{\"id\":%1, \"ok\":%2, \"msg\":%3}")
        .arg(describe(ID_), ok_ ? QStringLiteral("true") : QStringLiteral("false"), describe(msg_));
}
