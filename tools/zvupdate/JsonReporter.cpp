#include "JsonReporter.h"

#include "Console.h"
#include "JsonLine.h"

#include <utility>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

QJsonValue number(uint64_t value)
{
    return static_cast<qint64>(value);
}

QString failedEvent(const CheckFailure &failure)
{
    return jsonLine({{u"event"_s, u"failed"_s}, {u"reason"_s, failure.reason}});
}

} // namespace

void JsonReporter::answered(int64_t result, const CheckUpdateResponse * /*reply*/,
                            const QString & /*temporaryPath*/)
{
    console_.print(jsonLine({{u"event"_s, u"result"_s}, {u"code"_s, qint64(result)}}));
}

void JsonReporter::progressed(const UpdateDownloadProgress &progress)
{
    const QJsonValue total =
        progress.total ? number(*progress.total) : QJsonValue(QJsonValue::Null);
    const QString event = jsonLine({{u"event"_s, u"progress"_s},
                                    {u"received"_s, number(progress.received)},
                                    {u"total"_s, total}});
    if (std::exchange(lastProgress_, event) != event)
        console_.print(event);
}

void JsonReporter::ready(const QString &path)
{
    console_.print(jsonLine({{u"event"_s, u"ready"_s}, {u"path"_s, path}}));
}

void JsonReporter::windowEnded(WindowAction action)
{
    const QString name = action == WindowAction::Update   ? u"update"_s
                         : action == WindowAction::Cancel ? u"cancel"_s
                                                          : u"closed"_s;
    console_.print(jsonLine({{u"event"_s, u"window"_s}, {u"action"_s, name}}));
}

void JsonReporter::failed(const CheckFailure &failure)
{
    console_.print(failedEvent(failure));
}

QByteArray JsonReporter::lastWords(const CheckFailure &failure) const
{
    return failedEvent(failure).toUtf8() + '\n';
}

int JsonReporter::lastWordsDescriptor() const
{
    return STDOUT_FILENO;
}
