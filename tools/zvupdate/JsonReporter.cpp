#include "CheckReporter.h"

#include "../commands/Console.h"
#include "../commands/JsonLine.h"
#include "Advice.h"

#include <utility>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// The state of the interface that docs/helper-process.md describes. One more with every addition to
// it; nothing is ever taken away.
constexpr int interfaceVersion = 2;

QJsonValue number(uint64_t value)
{
    return static_cast<qint64>(value);
}

QJsonValue textOrNull(const std::optional<QString> &text)
{
    return text ? QJsonValue(*text) : QJsonValue(QJsonValue::Null);
}

QString failedEvent(const CheckFailure &failure)
{
    return jsonLine({{u"event"_s, u"failed"_s},
                     {u"reason"_s, failure.reason},
                     {u"outcome"_s, UpdateOutcome::word(failure.outcome)}});
}

/// The events that docs/helper-process.md describes.
class JsonReporter final : public CheckReporter
{
public:
    explicit JsonReporter(Console &console) : console_(console) {}

    void asking(const CheckSettings & /*settings*/) override
    {
        console_.print(jsonLine({{u"event"_s, u"start"_s},
                                 {u"interface"_s, interfaceVersion},
                                 {u"program"_s, QStringLiteral(ZVUPDATE_VERSION)}}));
    }

    void answered(const CheckAnswer &answer) override
    {
        console_.print(jsonLine({{u"event"_s, u"result"_s},
                                 {u"code"_s, qint64(answer.result)},
                                 {u"outcome"_s, UpdateOutcome::word(answer.outcome.kind)},
                                 {u"message"_s, sentenceFor(answer.outcome)}}));
        if (!answer.isOffer())
            return;
        const QString language = std::make_shared<ZVUpdateProc>()->getDefaultLangID();
        console_.print(
            jsonLine({{u"event"_s, u"offer"_s},
                      {u"version"_s, textOrNull(answer.reply->ZVUpdateVersion())},
                      {u"notes"_s, textOrNull(answer.reply->getUpdateMessageWithLang(language))}}));
    }

    void progressed(const UpdateDownloadProgress &progress) override
    {
        const QJsonValue total =
            progress.total ? number(*progress.total) : QJsonValue(QJsonValue::Null);
        const QString event = jsonLine({{u"event"_s, u"progress"_s},
                                        {u"received"_s, number(progress.received)},
                                        {u"total"_s, total},
                                        {u"rate"_s, number(progress.bytesPerSecond)}});
        if (std::exchange(lastProgress_, event) != event)
            console_.print(event);
    }

    void ready(const QString &path) override
    {
        console_.print(jsonLine({{u"event"_s, u"ready"_s}, {u"path"_s, path}}));
    }

    void windowEnded(WindowAction action) override
    {
        const QString name = action == WindowAction::Update   ? u"update"_s
                             : action == WindowAction::Cancel ? u"cancel"_s
                                                              : u"closed"_s;
        console_.print(jsonLine({{u"event"_s, u"window"_s}, {u"action"_s, name}}));
    }

    void failed(const CheckFailure &failure) override { console_.print(failedEvent(failure)); }

    QByteArray lastWords(const CheckFailure &failure) const override
    {
        return failedEvent(failure).toUtf8() + '\n';
    }

    int lastWordsDescriptor() const override { return STDOUT_FILENO; }

private:
    Console &console_;
    QString lastProgress_;
};

} // namespace

std::unique_ptr<CheckReporter> makeJsonReporter(Console &console)
{
    return std::make_unique<JsonReporter>(console);
}
