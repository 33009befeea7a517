#include "JsonLine.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QStringList>

namespace {

// Qt writes whole documents only, and objects with their members sorted.
QString textOf(const QJsonValue &value)
{
    const QByteArray array = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(array.sliced(1, array.size() - 2));
}

} // namespace

QString jsonLine(std::initializer_list<std::pair<QString, QJsonValue>> members)
{
    QStringList texts;
    for (const auto &[name, value] : members)
        texts.append(textOf(name) + QLatin1Char(':') + textOf(value));
    return QLatin1Char('{') + texts.join(QLatin1Char(',')) + QLatin1Char('}');
}
