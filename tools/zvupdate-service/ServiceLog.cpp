#include "ServiceLog.h"

#include "HttpMessages.h"

#include <QDateTime>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype longestText = 1000;

// One write a line, so that lines of several threads do not mix.
void writeLine(const QByteArray &line)
{
    const QByteArray time = QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs).toLatin1();
    const QByteArray text = time + ' ' + line + '\n';
    std::fwrite(text.constData(), 1, static_cast<size_t>(text.size()), stderr);
}

QString escaped(char32_t c)
{
    if (c == U'"' || c == U'\\')
        return u'\\' + QString(QChar(c));
    if (!QChar::isPrint(c))
        return u"\\u%1"_s.arg(uint(c), 4, 16, QChar(u'0'));
    return QString::fromUcs4(&c, 1);
}

} // namespace

void ServiceLog::exchange(const QByteArray &peer, const QByteArray &method, const Reply &reply,
                          bool complete)
{
    const qint64 bytes = reply.file ? reply.file->length : reply.body.size();
    QByteArray line = peer + ' ' + method + " \"" + escaped(reply.command).toUtf8() + "\" " +
                      QByteArray::number(reply.status) + ' ' + QByteArray::number(bytes);
    if (!reply.remark.isEmpty())
        line += " (" + escaped(reply.remark).toUtf8() + ')';
    if (!complete)
        line += " broken off";
    writeLine(line);
}

void ServiceLog::note(const QString &text)
{
    writeLine(text.toUtf8());
}

QString ServiceLog::escaped(const QString &text)
{
    QString result;
    for (const uint c : text.left(longestText).toUcs4())
        result += ::escaped(char32_t(c));
    if (text.size() > longestText)
        result += u'…';
    return result;
}
