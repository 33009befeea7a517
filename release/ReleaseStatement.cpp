#include "ReleaseStatement.h"

#include "../platform/settings/Json.h"
#include "../platform/settings/Text.h"

#include <QRegularExpression>

using namespace ZVPlatform;

namespace {

constexpr QStringView typeName = u"zvupdate-release-1";
constexpr qsizetype md5Digits = 32;
constexpr qsizetype sha256Digits = 64;

// The bytes of so many hexadecimal digits; absent when the text is anything else.
std::optional<QByteArray> digest(const QString &text, qsizetype digits)
{
    static const QRegularExpression hexadecimal(QStringLiteral("\\A[0-9A-Fa-f]*\\z"));
    return text.size() == digits && hexadecimal.match(text).hasMatch()
               ? std::optional(QByteArray::fromHex(text.toLatin1()))
               : std::nullopt;
}

} // namespace

Result<ReleaseStatement> ReleaseStatement::read(const QByteArray &bytes)
{
    const auto text = textFromUtf8(bytes);
    const QJsonObject object = jsonObject(text);
    if (object.isEmpty() || hasRepeatedKeys(*text, object))
        return Failure{QStringLiteral("is no JSON object in which every key stands once")};
    const QJsonObject fields = object.value(member).toObject();
    if (fields.value(u"type").toString() != typeName)
        return Failure{
            QStringLiteral("has no \"%1\" of the type \"%2\"").arg(QStringView(member), typeName)};

    ReleaseStatement statement;
    statement.product = fields.value(u"product").toString();
    statement.version = textField(object, u"ZVUpdVersion").value_or(QString());
    statement.md5 = textField(object, u"ZVMD5").value_or(QString()).toLower();
    const auto sha256 = digest(fields.value(u"sha256").toString(), sha256Digits);
    const qint64 size = fields.value(u"size").toInteger();
    const QJsonValue expires = fields.value(u"expires");
    if (expires.isString())
        statement.expires = date(expires.toString());
    if (statement.product.isEmpty() || statement.version.isEmpty() ||
        !digest(statement.md5, md5Digits) || !sha256 || size <= 0 ||
        statement.expires.has_value() == expires.isUndefined())
        return Failure{QStringLiteral("lacks a product, a version, digests or a size, or has an "
                                      "end that is no date")};
    statement.sha256 = *sha256;
    statement.size = static_cast<quint64>(size);
    return statement;
}

QJsonObject ReleaseStatement::signedMember() const
{
    QJsonObject fields{{QStringLiteral("type"), typeName.toString()},
                       {QStringLiteral("product"), product},
                       {QStringLiteral("size"), static_cast<qint64>(size)},
                       {QStringLiteral("sha256"), QString::fromLatin1(sha256.toHex())}};
    if (expires)
        fields.insert(QStringLiteral("expires"), expires->toUTC().toString(Qt::ISODate));
    return fields;
}

std::optional<QDateTime> ReleaseStatement::date(const QString &text)
{
    static const QRegularExpression form(
        QStringLiteral("\\A[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}Z\\z"));
    const QDateTime date = QDateTime::fromString(text, Qt::ISODate);
    return form.match(text).hasMatch() && date.isValid() ? std::optional(date) : std::nullopt;
}
