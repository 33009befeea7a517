#include "CheckReporter.h"

#include "../commands/Console.h"
#include "../commands/ProgressLine.h"
#include "Advice.h"

#include <QUrl>

#include <utility>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// The service's address for people: without the path and the query, which mean nothing to them.
QString serviceName()
{
    const QUrl url(UpdateLogicFunc().mBaseURL().trimmed());
    const QString name = url.toString(QUrl::RemovePath | QUrl::RemoveQuery | QUrl::RemoveUserInfo);
    return name.isEmpty() ? u"the update service"_s : name;
}

QString complaint(const CheckFailure &failure)
{
    return u"zvupdate check: "_s + failure.reason + u' ' + failure.remedy;
}

class TextReporter final : public CheckReporter
{
public:
    explicit TextReporter(Console &console) : console_(console), isTerminal_(Console::isTerminal())
    {
    }

    void asking(const CheckSettings &settings) override
    {
        console_.say(u"Asking %1 for a version of %2 newer than %3"_s.arg(
            serviceName(), settings.productID, settings.productVersion));
    }

    void answered(const CheckAnswer &answer) override
    {
        using Kind = UpdateOutcome::Kind;
        const UpdateOutcome &outcome = answer.outcome;
        if (answer.isOffer()) {
            const QString version = answer.reply->ZVUpdateVersion().value_or(QString());
            const bool isHere = outcome.kind == Kind::InstallerReady;
            console_.say(u"Version %1 is available"_s.arg(version) +
                         (isHere ? u" and has been downloaded already"_s : QString()));
            if (outcome.kind == Kind::DownloadStarted)
                console_.say(u"Downloading it to %1"_s.arg(answer.temporaryPath));
        } else if (outcome.kind == Kind::NothingNewer) {
            console_.say(sentenceFor(outcome));
        } else if (answer.result == ZVUpdateProc::ZVSkipped) {
            console_.say(outcome.message + u' ' + remedyFor(outcome));
        } else {
            failed({outcome.kind, sentenceFor(outcome), remedyFor(outcome)});
        }
    }

    void progressed(const UpdateDownloadProgress &progress) override
    {
        if (!std::exchange(hasBegun_, true) && progress.resumedAt > 0)
            console_.say(u"Resuming at %1"_s.arg(ProgressLine::size(progress.resumedAt)));
        if (isTerminal_ && progress.received == progress.total)
            console_.showProgress(u"Verifying ..."_s);
        else if (isTerminal_)
            console_.showProgress(
                ProgressLine::text({progress.received, progress.total, progress.bytesPerSecond},
                                   Console::width() - 1));
    }

    void ready(const QString &path) override { console_.say(u"Verified; ready at %1"_s.arg(path)); }

    void windowEnded(WindowAction action) override
    {
        if (action == WindowAction::Update)
            console_.say(u"\"Update\" was chosen"_s);
        else if (action == WindowAction::Cancel)
            console_.say(u"\"Not now\" was chosen"_s);
        else
            console_.say(u"The window was closed without a choice"_s);
    }

    void failed(const CheckFailure &failure) override { console_.complain(complaint(failure)); }

    QByteArray lastWords(const CheckFailure &failure) const override
    {
        return complaint(failure).toUtf8() + '\n';
    }

    int lastWordsDescriptor() const override { return STDERR_FILENO; }

private:
    Console &console_;
    const bool isTerminal_;
    bool hasBegun_ = false; // Whether bytes have been asked for and are coming.
};

} // namespace

std::unique_ptr<CheckReporter> makeTextReporter(Console &console)
{
    return std::make_unique<TextReporter>(console);
}
