#include "SignatureText.h"

#include <QList>

#include <algorithm>

std::optional<QByteArray> SignatureText::bytes(const QByteArray &text)
{
    const QList<QByteArray> lines = text.split('\n');
    for (const QByteArray &line : lines) {
        const QByteArray content = line.trimmed();
        if (content.isEmpty() || content.contains("comment:"))
            continue;
        auto decoded =
            QByteArray::fromBase64Encoding(content, QByteArray::AbortOnBase64DecodingErrors);
        return decoded ? std::optional(std::move(*decoded)) : std::nullopt;
    }
    return std::nullopt;
}

QString SignatureText::numberName(const QByteArray &number)
{
    QByteArray digits = number;
    std::reverse(digits.begin(), digits.end());
    return QString::fromLatin1(digits.toHex().toUpper());
}
