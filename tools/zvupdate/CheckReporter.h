#pragma once

#include <ZVUpdate/ZVUpdate.h>

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <memory>
#include <optional>

class Console;

/// What a check is about.
struct CheckSettings
{
    QString productID;
    QString productVersion;
    /// Absolute.
    QString directory;
    /// Whether there is somebody to tell; without, a file stays under its temporary name.
    bool withDelegate = true;
    /// Whether the user asks, so that neither switch nor date holds the check back.
    bool isAskedFor = false;
    bool debug = false;
    /// The keys under which releases are to be signed; empty when none need be.
    QList<QByteArray> releaseKeys = {};
    /// The name under which the prompt window shows the product; absent when it is not to be shown.
    std::optional<QString> productName = {};
    /// What is done instead of opening the installer when the user chooses "Update".
    std::optional<QString> onUpdate = {};
};

/// How the prompt window went: the user chose, or closed it without a choice.
enum class WindowAction { Update, Cancel, Closed };

/// Why a check brought no installer.
struct CheckFailure
{
    UpdateOutcome::Kind outcome;
    /// A sentence.
    QString reason;
    /// What can be done about it: a sentence.
    QString remedy;
};

/// What a check has answered.
struct CheckAnswer
{
    UpdateOutcome outcome;
    /// The result code, which is the exit status where nothing follows.
    int64_t result;
    /// Null when no reply was asked for.
    std::shared_ptr<CheckUpdateResponse> reply;
    /// Where the file that the reply offers grows; empty when there is none.
    QString temporaryPath;

    /// Whether there is something newer, which is said in an offer.
    bool isOffer() const
    {
        return result == ZVUpdateProc::ZVDownloadStarted ||
               result == ZVUpdateProc::ZVInstallerReady;
    }
};

/// Tells its audience how a check goes. Called on the main thread, in the order of the functions.
class CheckReporter
{
public:
    virtual ~CheckReporter() = default;

    /// The service is about to be asked.
    virtual void asking(const CheckSettings &settings) = 0;

    /// The check has answered.
    virtual void answered(const CheckAnswer &answer) = 0;

    /// The download has come this far.
    virtual void progressed(const UpdateDownloadProgress &progress) = 0;

    /// The end, one way: the complete and verified file lies at path.
    virtual void ready(const QString &path) = 0;

    /// After ready(): the prompt window has gone.
    virtual void windowEnded(WindowAction action) = 0;

    /// The end, the other way.
    virtual void failed(const CheckFailure &failure) = 0;

    /// What failed() would write, for a moment in which it cannot be called.
    virtual QByteArray lastWords(const CheckFailure &failure) const = 0;

    /// Where the last words go.
    virtual int lastWordsDescriptor() const = 0;
};

/// For people: a line a step, and a progress bar where standard output is a terminal.
std::unique_ptr<CheckReporter> makeTextReporter(Console &console);

/// For programs: one JSON object a line on standard output, as docs/helper-process.md describes.
std::unique_ptr<CheckReporter> makeJsonReporter(Console &console);
