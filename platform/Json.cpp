#include "Json.h"

#include <QJsonDocument>
#include <QVariant>

namespace ZVPlatform {

QJsonObject jsonObject(const std::optional<QString> &text)
{
    if (!text)
        return {};
    return QJsonDocument::fromJson(text->toUtf8()).object();
}

std::optional<QString> textField(const QJsonObject &object, QStringView key)
{
    const QJsonValue value = object.value(key);
    if (value.isString())
        return value.toString();
    // By way of the variant, which keeps whole numbers apart: as a floating-point number a long
    // identifier would lose its last digits.
    if (value.isDouble())
        return value.toVariant().toString();
    return std::nullopt;
}

} // namespace ZVPlatform
