#include "CheckReporter.h"

#include "../commands/Console.h"
#include "ProgressLine.h"

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

    void answered(int64_t result, const CheckUpdateResponse *reply,
                  const QString &temporaryPath) override
    {
        const QString version = reply ? reply->ZVUpdateVersion().value_or(QString()) : QString();
        if (result == ZVUpdateProc::ZVDownloadStarted) {
            console_.say(u"Version %1 is available"_s.arg(version));
            progressLine_.begin();
            console_.say(u"Downloading it to %1"_s.arg(temporaryPath));
        } else if (result == ZVUpdateProc::ZVInstallerReady) {
            console_.say(u"Version %1 is available and has been downloaded already"_s.arg(version));
        } else if (result == ZVUpdateProc::ZVSkipped) {
            console_.say(
                u"Skipped: automatic updating is switched off, or the next check is set to a "
                "later date. \"zvupdate preferences\" shows and changes both."_s);
        } else if (reply) {
            tellNoUpdate(*reply);
        }
    }

    void progressed(const UpdateDownloadProgress &progress) override
    {
        if (!std::exchange(hasBegun_, true) && progress.resumedAt > 0)
            console_.say(u"Resuming at %1"_s.arg(ProgressLine::size(progress.resumedAt)));
        if (isTerminal_ && progress.received == progress.total)
            console_.showProgress(u"Verifying ..."_s);
        else if (isTerminal_)
            console_.showProgress(progressLine_.text(progress, Console::width() - 1));
    }

    void ready(const QString &path) override { console_.say(u"Verified; ready at %1"_s.arg(path)); }

    void windowEnded(WindowAction action) override
    {
        if (action == WindowAction::Update)
            console_.say(u"\"Update\" was chosen, and the installer opened"_s);
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
    // The check's result code does not tell a service that has nothing newer from one that cannot
    // be reached; its reply does.
    void tellNoUpdate(const CheckUpdateResponse &reply)
    {
        const QString reason = reply.msg().value_or(QString());
        if (reply.ok() && reply.ZVUpdateVersion())
            failed({u"The service offers version %1 but hands nothing out."_s.arg(
                        *reply.ZVUpdateVersion()),
                    u"Try again later."_s});
        else if (!reply.ok() && !reason.isEmpty())
            console_.say(u"There is no update; the service says: "_s + reason);
        else
            failed({u"The service could not be asked, or its answer makes no sense."_s,
                    u"Check the network and the service's address, and try again."_s});
    }

    Console &console_;
    const bool isTerminal_;
    bool hasBegun_ = false; // Whether bytes have been asked for and are coming.
    ProgressLine progressLine_;
};

} // namespace

std::unique_ptr<CheckReporter> makeTextReporter(Console &console)
{
    return std::make_unique<TextReporter>(console);
}
