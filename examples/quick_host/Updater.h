#pragma once

#include <ZVUpdate/ZVUpdate.h>

#include <QObject>
#include <QQmlEngine>

#include <memory>

/// The update controller for QML. One object of it in an application.
class Updater : public QObject, public ZVUpdateProcDelegate
{
    Q_OBJECT
    QML_ELEMENT

    /// How the last check or its download stands, in a sentence; empty when there is nothing to
    /// say.
    Q_PROPERTY(QString status MEMBER status_ NOTIFY changed)
    /// How much of the download is here, from 0 to 1.
    Q_PROPERTY(double progress MEMBER progress_ NOTIFY changed)
    /// Whether a check or a download is running.
    Q_PROPERTY(bool busy MEMBER isBusy_ NOTIFY changed)
    /// The version offered, and what is new in it in the user's language; empty before ready().
    Q_PROPERTY(QString version MEMBER version_ NOTIFY changed)
    Q_PROPERTY(QString notes MEMBER notes_ NOTIFY changed)
    /// Where the verified installer lies; empty before ready().
    Q_PROPERTY(QString installer MEMBER installer_ NOTIFY changed)

public:
    Updater();

    /// Asks the update service, and fetches the installer if there is one. Returns at once; the
    /// status tells how it goes. When the user has asked, a switched-off setting does not matter.
    Q_INVOKABLE void check(bool askedByUser);
    /// Opens the installer. False, and told in the status, when nothing on this desktop does.
    Q_INVOKABLE bool install();
    /// Switches automatic updating off, so that later checks end at once.
    Q_INVOKABLE void neverAskAgain();

    // ZVUpdateProcDelegate, always on the main thread:
    void updateCheckEnded(const UpdateOutcome &outcome) override;
    void updateDownloadProgressed(const UpdateDownloadProgress &progress) override;
    void updateDownloadFailed(const UpdateOutcome &outcome) override;
    void UpdateFileReady(const QString &path) override;
    void windowClosedUpdateAction() override {} // The library's window is never shown here.
    void windowClosedCancelAction() override {}

Q_SIGNALS:
    void changed();
    /// A verified installer is here: time to ask the user.
    void ready();

private:
    void show(const QString &status, bool isBusy);

    const std::shared_ptr<ZVUpdateProc> controller_;
    bool isBusy_ = false;
    QString status_;
    double progress_ = 0;
    QString version_;
    QString notes_;
    QString installer_;
};
