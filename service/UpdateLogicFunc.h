#pragma once

#include "../platform/Export.h"
#include "../transport/HttpFunctionPostDelegate.h"
#include "BaseResponse.h"
#include "CheckUpdateResponse.h"
#include "UpdateLogicFuncDelegate.h"
#include "UpdateOutcome.h"

#include <QString>

#include <cstdint>
#include <memory>
#include <optional>

class HttpFunctionPost;

/// How far a service client's download has come.
struct UpdateDownloadProgress
{
    /// The size in bytes that the local file has reached, an earlier run's part included, if all of
    /// it could be written.
    uint64_t received = 0;
    /// The size in bytes of the earlier run's part; 0 for a download from the start.
    uint64_t resumedAt = 0;
    /// The size in bytes that it will have in the end; absent while that is unknown.
    std::optional<uint64_t> total;
    /// How many bytes a second have come during the last second or two, measured from one question
    /// to the next; 0 as long as that cannot be said.
    uint64_t bytesPerSecond = 0;
    /// Why the download failed, in a sentence for people; absent when it did not. One that was
    /// stopped has failed, too, and so has one whose file is not the one announced.
    std::optional<QString> failure;
};

/// The client of the update service: its four commands and the one background download.
///
/// Hosts get theirs from ZVUpdateProc, to follow or stop a download. Owned by std::shared_ptr. The
/// commands block the calling thread for one HTTP exchange each, without running its event loop,
/// and are made from one thread at a time; the other functions may be called from any thread.
class ZVUPDATE_EXPORT UpdateLogicFunc final : public HttpFunctionPostDelegate
{
public:
    /// A client of the service with the overriding base URL or, without one, of the service that
    /// the library was built for.
    UpdateLogicFunc();

    /// Stops a running download and waits until it has ended, running the calling thread's event
    /// loop meanwhile.
    ~UpdateLogicFunc() override;

    UpdateLogicFunc(const UpdateLogicFunc &) = delete;
    UpdateLogicFunc &operator=(const UpdateLogicFunc &) = delete;

    /// The file by which developers point the system at another service:
    /// "~/Documents/ConsoleZVUpdate.mac".
    static QString overrideFilePath();

    /// What that file holds, a line end included; absent when it cannot be read, and in a library
    /// that was built without ZVUPDATE_OVERRIDE_FILE.
    static std::optional<QString> overridingBaseURL();

    /// Asks for an update of a product. Never null; ok is false when there is none, and also when
    /// the service could not be reached or its reply is broken.
    std::shared_ptr<CheckUpdateResponse> doCheckUpdate(const QString &productID,
                                                       const QString &productVersion);

    /// Asks for a download token: the reply's ID, when its ok is true.
    std::shared_ptr<BaseResponse> doGetToken();

    /// Asks for the size in bytes of an update file. 0 when it cannot be learnt, all ones when the
    /// service does not say.
    uint64_t doGetFileSize(const QString &token, const QString &fileName);

    /// What a download does when a piece cannot be written, as on a full disk.
    enum WhenUnwritable {
        GoOn, ///< Lose the piece and go on.
        Stop, ///< Stop.
    };

    /// Starts downloading an update file to a local path in the background, resuming what is there,
    /// and returns 1 at once. A download that is already running goes on beside it. One that would
    /// make the file longer than mostBytes, if that is given, fails, and the file is removed.
    int64_t doStartDownload(const QString &token, const QString &fileName, const QString &localPath,
                            WhenUnwritable whenUnwritable = GoOn,
                            std::optional<uint64_t> mostBytes = std::nullopt);

    /// Whether no download is running. True before the first; once true after a download, its end
    /// has been reported and dealt with.
    bool doCheckDownloadStop() const;

    /// Stops a running transfer, whose received bytes stay in the local file, and returns 1. A
    /// download that has not begun its transfer yet is not stopped: ask again.
    int64_t doStopDownload();

    /// Ends whatever this client is doing, a command in the middle as well as a download that has
    /// not begun its transfer yet, and all that it is asked for later, as stopped. Returns at once.
    void doCancel();
    /// Whether doCancel() has been called.
    bool isCancelled() const;

    /// Whether the calling thread is telling a delegate of a finished download that was asked to
    /// stop meanwhile: then what the delegate does with the file is not wanted any more.
    static bool isStopRequestedHere();

    /// Why the current or last download failed or, before the first, the latest command; absent
    /// when it did not. Of a download the last word is there once doCheckDownloadStop() holds.
    std::optional<UpdateOutcome> lastFailure() const;

    /// How far the current or last download has come.
    UpdateDownloadProgress doGetDownloadProgress() const;

    /// Lets go of the download's transport.
    void releaseDownload();

    /// Waits until no download is running, in steps of the calling thread's event loop.
    void waitOne();

    ///@{
    /// The transport of the running or last download; null before the first.
    std::shared_ptr<HttpFunctionPost> mDownload() const;
    void setMDownload(const std::shared_ptr<HttpFunctionPost> &d);
    ///@}
    ///@{
    /// The service's base URL, which takes the sealed command at its end.
    QString mBaseURL() const;
    void setMBaseURL(const QString &url);
    ///@}
    ///@{
    /// Who hears of a finished download. Not owned; null when there is none or it has been
    /// destroyed.
    UpdateLogicFuncDelegate *delegate() const;
    void setDelegate(UpdateLogicFuncDelegate *delegate);
    ///@}

    // From the transport.
    void downloadFinishWithFilePath(const QString &path) override;
    void downloadFinishWithError(const ZVPlatform::Error &error) override;
    void downloadEnded(const HttpFunctionPost &transport) override;

private:
    struct ZVUPDATE_NO_EXPORT Private;
    const std::unique_ptr<Private> d_;
};
