#include "Json.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QVariant>

#include <cmath>
#include <limits>

namespace ZVPlatform {

namespace {

// The most values of one text. Replies have some dozens; the parser's memory goes by their number
// and not by the size of the text.
constexpr int mostValues = 1 << 16;

// How many of these characters stand outside of texts.
int countOutsideTexts(const QByteArray &json, QByteArrayView characters)
{
    int count = 0;
    bool inText = false;
    for (qsizetype i = 0; i < json.size(); ++i) {
        const char character = json[i];
        if (character == '"')
            inText = !inText;
        else if (inText)
            i += character == '\\' ? 1 : 0;
        else if (characters.contains(character))
            ++count;
    }
    return count;
}

int countMembers(const QJsonValue &value)
{
    int count = 0;
    const QJsonObject object = value.toObject();
    for (const auto member : object)
        count += 1 + countMembers(member);
    const QJsonArray array = value.toArray();
    for (const auto element : array)
        count += countMembers(element);
    return count;
}

// Of such a number only one near it is left. The least of 64 bits is what the next ones below it
// are read as.
bool isBeyond64Bits(const QJsonValue &number)
{
    constexpr qint64 least = std::numeric_limits<qint64>::min();
    return number.toInteger(least) == least && std::abs(number.toDouble()) >= 0x1p63;
}

} // namespace

QJsonObject jsonObject(const std::optional<QString> &text)
{
    if (!text)
        return {};
    const QByteArray json = text->toUtf8();
    return countOutsideTexts(json, ",[{") > mostValues ? QJsonObject()
                                                       : QJsonDocument::fromJson(json).object();
}

bool hasRepeatedKeys(const QString &text, const QJsonObject &object)
{
    return countOutsideTexts(text.toUtf8(), ":") != countMembers(object);
}

std::optional<QString> textField(const QJsonObject &object, QStringView key)
{
    const QJsonValue value = object.value(key);
    if (value.isString())
        return value.toString();
    if (!value.isDouble() || isBeyond64Bits(value))
        return std::nullopt;
    // By way of the variant, which keeps whole numbers apart: as a floating-point number a long
    // identifier would lose its last digits.
    return value.toVariant().toString();
}

} // namespace ZVPlatform
