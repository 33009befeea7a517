#include "Text.h"

#include <QStringDecoder>

namespace ZVPlatform {

bool truthValue(const QString &text)
{
    QStringView rest = QStringView(text).trimmed();
    if (rest.startsWith(u'+') || rest.startsWith(u'-'))
        rest = rest.sliced(1);
    while (rest.startsWith(u'0'))
        rest = rest.sliced(1);
    return !rest.isEmpty() && QStringView(u"YyTt123456789").contains(rest.front());
}

QString describe(const std::optional<QString> &text)
{
    return text.value_or(QStringLiteral("(null)"));
}

std::optional<QString> textFromUtf8(const QByteArray &utf8)
{
    using Flag = QStringConverter::Flag;
    // Stateless, so that a character cut off at the end counts as an error at once.
    QStringDecoder decoder(QStringConverter::Utf8, Flag::Stateless | Flag::ConvertInitialBom);
    const QString text = decoder(utf8);
    if (decoder.hasError())
        return std::nullopt;
    return text;
}

} // namespace ZVPlatform
