#pragma once

#include "../platform/Export.h"
#include "../platform/Result.h"
#include "../service/CheckUpdateResponse.h"
#include "../service/UpdateLogicFunc.h"
#include "../service/UpdateLogicFuncDelegate.h"
#include "../service/UpdateOutcome.h"
#include "../ui/UpdateInfoWindowControllerDelegate.h"
#include "ZVUpdateProcDelegate.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <cstdint>
#include <memory>
#include <optional>

class UpdateInfoWindowController;

/// The update controller: a host's one point of contact. The host tells it what product and version
/// it is and where update files may be kept, then asks it to update; the controller finds, fetches
/// and verifies a newer installer and tells the host's delegate.
///
/// Usually the shared controller; others may be made, too. One that std::shared_ptr owns stays
/// until a notification that is on its way has been made; any other takes that with it, and is to
/// be destroyed on the main thread. Its functions are to be called from one thread, in practice the
/// main thread, unless they say otherwise; the getters of properties may be called from any thread.
/// An absent text (std::nullopt) counts as not configured.
///
/// The host needs an application object (QCoreApplication or one derived from it), made before the
/// first check, and a loop on its thread that dispatches its events: Qt's, or a GLib main loop
/// where Qt uses GLib. Without the object everything else happens, but nobody is told, which the
/// log says.
class ZVUPDATE_EXPORT ZVUpdateProc final : public UpdateLogicFuncDelegate,
                                           public UpdateInfoWindowControllerDelegate,
                                           public std::enable_shared_from_this<ZVUpdateProc>
{
public:
    /// What updateWithDelegate() and the call that shows the prompt window answer.
    enum Result : int64_t {
        /// The prompt window was shown.
        ZVWindowShown = 0,
        /// The download of a new installer has been started in the background.
        ZVDownloadStarted = 1,
        /// A verified installer for the offered version is on disk already.
        ZVInstallerReady = 2,
        /// There is nothing to fetch, or the service could not be asked.
        ZVNoUpdate = 3,
        /// Product identifier, version or directory is missing.
        ZVNotConfigured = 4,
        /// The installer is not where it should be.
        ZVInstallerMissing = 5,
        /// The user has switched automatic updating off, or it is not yet time for a check.
        ZVSkipped = 6,
    };

    /// The process's shared controller, created unconfigured by the first call.
    static std::shared_ptr<ZVUpdateProc> getSharedZVUpdateProc();

    /// Lets the shared controller go, which destroys it unless somebody else holds it, too. The
    /// next getSharedZVUpdateProc() creates another. Without one, does nothing.
    static void releaseSharedZVUpdateProc();

    /// A controller that is not configured, has no delegate and does not log.
    ZVUpdateProc();

    /// Stops the latest check's download, and the verification of a file, and waits until they have
    /// ended, running the calling thread's event loop while a transfer ends, unless somebody else
    /// holds its client: then it goes on. Files stay as they are, to be resumed by a later check.
    /// Downloads of earlier checks go on to their end, but nobody verifies their files.
    ~ZVUpdateProc() override;

    ZVUpdateProc(const ZVUpdateProc &) = delete;
    ZVUpdateProc &operator=(const ZVUpdateProc &) = delete;

    /// Configures the controller: the product's identifier at the update service, the version that
    /// is running, and the directory for update files, which is created when it is missing. Nothing
    /// is validated here.
    void setProductID(const std::optional<QString> &productID,
                      const std::optional<QString> &productVersion,
                      const std::optional<QString> &productSaveDirectory);

    /// Has every check demand that what is offered is signed by the maker, under any of these keys:
    /// one to eight, in the form of signify, minisign or PEM, see ReleaseKey. To be called before
    /// the first check, with keys that are built into the host. A reply without such a signature is
    /// no offer; of a signed release the file must have the signed size and SHA-256 digest as well,
    /// when it has been fetched or found, and again when the user chooses "Update" in the prompt
    /// window.
    ///
    /// Fails with a sentence that says what is wrong with the keys, or that it is too late. From
    /// then on nothing is accepted. Without this call no signature is looked at.
    ZVPlatform::Result<void> setReleaseKeys(const QList<QByteArray> &keys);

    /// Switches diagnostic messages in the system log on or off; changes nothing else.
    void setDebugMode(bool debug);

    /// Checks for an update and, when there is one, has the verified installer on disk already or
    /// starts its download. Blocks for up to three short exchanges with the service and for
    /// digesting files, without running the event loop.
    ///
    /// Returns ZVDownloadStarted, ZVInstallerReady, ZVNoUpdate, ZVNotConfigured or ZVSkipped. With
    /// the first two the delegate's UpdateFileReady() follows, once the installer is verified; a
    /// download that fails or brings a wrong file is not reported, and the next check deals with
    /// it. Without a delegate (null) the file is fetched all the same and stays under its temporary
    /// name until a check with a delegate. The delegate is not owned; with the last two results the
    /// former one stays. Otherwise it hears from now on what earlier checks' downloads bring, too:
    /// null during a download takes that download's delegate away.
    int64_t updateWithDelegate(ZVUpdateProcDelegate *delegate);

    /// Why a check is made.
    enum class CheckReason {
        /// It is time for one: the user's switch and the next-check date are heeded and kept up, as
        /// by updateWithDelegate().
        Scheduled,
        /// The user asks for it: neither holds it back, nor is changed by it. A temporary file of
        /// which nothing can come is discarded and the download starts over.
        AskedByUser,
    };

    /// Starts a check on a thread of the library's, and returns at once: the delegate's
    /// updateCheckEnded() follows in any case, once, and after a started download UpdateFileReady()
    /// or updateDownloadFailed(). False when a check is running already, which goes on as it is.
    ///
    /// Unlike updateWithDelegate() these checks look whether the directory can be written to and
    /// has room for the download before they start it, and a download ends when its disk is full.
    /// The delegate is not owned; it hears from now on what earlier checks' downloads bring, too.
    /// On the main thread, of a host that has an application object.
    bool startCheck(CheckReason reason, ZVUpdateProcDelegate *delegate);

    /// What came of the latest check that has ended, of either kind; absent before the first. Any
    /// thread.
    std::optional<UpdateOutcome> lastOutcome() const;

    /// What updateWithDelegate() answers when that comes of its check.
    static Result resultFor(UpdateOutcome::Kind outcome);

    /// Whether a check that startCheck() has started has yet to tell its outcome. On the main
    /// thread.
    bool isChecking() const;

    /// Stops a running check, whatever it is waiting for, and the latest check's download, and
    /// returns at once; the delegate hears of their end as UpdateOutcome::Kind::Stopped, unless
    /// that was on its way already. What has been received is kept. On the main thread.
    void stopUpdate();

    /// Shows the library's own window for the update that the latest check has found: what is new,
    /// "Update", which opens the installer, and "Not now". The product's name is shown as it is.
    /// The delegate hears of the user's choice; closing the window otherwise is none. Where the
    /// host has set an application display name, desktops may add that to the window's title.
    ///
    /// Returns ZVWindowShown; ZVNoUpdate when no successful check is held, and then leaves an
    /// earlier window alone; ZVInstallerMissing when the installer is not in the directory. In the
    /// last case and when another window is shown, an earlier one is gone. A host that is no Qt
    /// Widgets application gets the same answers, and no window. On the main thread.
    ///
    /// Defined in the library ZVUpdate::ZVUpdate: a host that links ZVUpdate::Core alone cannot
    /// call it.
    int64_t showDefaultUpdateWindowWithProductName(const QString &productName);

    /// The language code, of the three that the service knows, for the user's current locale.
    QString getDefaultLangID() const;

    /// The release notes of the latest check for a language code; absent when there are none. Any
    /// thread.
    std::optional<QString> getUpdateMessageWithLang(const std::optional<QString> &code) const;

    // From the service client, on its download's thread, and from the prompt window.
    void downloadFinishWithFilePath(const QString &path) override;
    void downloadFailed(const UpdateOutcome &outcome) override;
    void infoWindowClosedActions(uint64_t action) override;
    void infoWindowRefusedInstaller() override;
    bool infoWindowInstalls(const QString &path) override;

    ///@{
    /// The host's receiver of notifications; null when there is none or it has been destroyed.
    ZVUpdateProcDelegate *delegate() const;
    void setDelegate(ZVUpdateProcDelegate *delegate);
    ///@}

    ///@{
    /// The reply of the latest check; null before the first.
    std::shared_ptr<CheckUpdateResponse> mLastCheckUpdateResponse() const;
    void setMLastCheckUpdateResponse(const std::shared_ptr<CheckUpdateResponse> &response);
    ///@}

    ///@{
    /// The service client of the latest check, through which its download can be followed and
    /// stopped; null before the first.
    std::shared_ptr<UpdateLogicFunc> mCurrentDownloadUpdateLogic() const;
    void setMCurrentDownloadUpdateLogic(const std::shared_ptr<UpdateLogicFunc> &client);
    ///@}

    ///@{
    /// The prompt window that was shown last; null when there is none.
    std::shared_ptr<UpdateInfoWindowController> mUpdateInfoWindowCtrl() const;
    void setMUpdateInfoWindowCtrl(const std::shared_ptr<UpdateInfoWindowController> &controller);
    ///@}

    ///@{
    /// What setProductID() and setDebugMode() have set.
    std::optional<QString> mProductID() const;
    void setMProductID(const std::optional<QString> &id);
    std::optional<QString> mProductVersion() const;
    void setMProductVersion(const std::optional<QString> &v);
    std::optional<QString> mSaveFileDirectory() const;
    void setMSaveFileDirectory(const std::optional<QString> &d);
    bool mDebug() const;
    void setMDebug(bool debug);
    ///@}

private:
    bool accepts(const CheckUpdateResponse &reply) const;

    class ZVUPDATE_NO_EXPORT Private;
    const std::unique_ptr<Private> d_;
};
