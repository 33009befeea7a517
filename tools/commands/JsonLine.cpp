#include "JsonLine.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QStringList>

namespace {

// Qt writes whole documents only, and objects with their members sorted.
QString textOf(const QJsonValue &value)
{
    const QByteArray array = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    const QString text = QString::fromUtf8(array.sliced(1, array.size() - 2));
    // Qt writes as they are the control characters that ASCII does not have, and the separators of
    // lines and paragraphs, which some readers take for line ends.
    QString escaped;
    for (const QChar c : text) {
        const char16_t code = c.unicode();
        if ((code >= 0x7f && code <= 0x9f) || code == 0x2028 || code == 0x2029)
            escaped += QStringLiteral("\\u%1").arg(code, 4, 16, QLatin1Char('0'));
        else
            escaped += c;
    }
    return escaped;
}

} // namespace

QString jsonLine(std::initializer_list<std::pair<QString, QJsonValue>> members)
{
    QStringList texts;
    for (const auto &[name, value] : members)
        texts.append(textOf(name) + QLatin1Char(':') + textOf(value));
    return QLatin1Char('{') + texts.join(QLatin1Char(',')) + QLatin1Char('}');
}
