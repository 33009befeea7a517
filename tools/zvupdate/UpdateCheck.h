#pragma once

#include "../commands/Command.h"
#include "CheckReporter.h"
#include "StopSignals.h"

#include <QElapsedTimer>
#include <QTimer>

#include <memory>
#include <optional>

class Console;

/// One update check from the question to the end of the download, with the shared controller and
/// the application's event loop. Main thread.
class UpdateCheck final : private ZVUpdateProcDelegate
{
public:
    UpdateCheck(const CheckSettings &settings, CheckReporter &reporter, const Console &console,
                StopSignals &signals);
    ~UpdateCheck() override;

    UpdateCheck(const UpdateCheck &) = delete;
    UpdateCheck &operator=(const UpdateCheck &) = delete;

    /// Runs the check and returns the program's exit status.
    int run();

private:
    /// That the check is to be stopped: the exit status, and what is to be told, if anything.
    struct Stop
    {
        int status;
        QString reason;
    };

    void updateCheckEnded(const UpdateOutcome &outcome) override;
    void UpdateFileReady(const QString &path) override;
    void updateDownloadFailed(const UpdateOutcome &outcome) override;
    bool installUpdate(const QString &path, ZVPlatform::InstallerKind kind) override;
    void windowClosedUpdateAction() override { windowAction_ = WindowAction::Update; }
    void windowClosedCancelAction() override { windowAction_ = WindowAction::Cancel; }

    void takeSignals();
    void stop(const Stop &stop);
    void look();
    void reportProgress();
    void downloadEnded();
    void ready(const QString &path);
    void showWindow();
    void windowEnded();
    void tellFailure(const CheckFailure &failure);
    void fail(const CheckFailure &failure);
    void finish(int status);

    CheckFailure interrupted(UpdateOutcome::Kind kind, const QString &reason) const;
    CheckFailure explained(const UpdateOutcome &failure) const;
    std::optional<CheckFailure> unfit(const QString &path) const;
    std::optional<UpdateFiles> files() const;
    std::optional<QString> verifiedFile() const;
    bool isAsAnnounced(const QString &path) const;

    const CheckSettings settings_;
    CheckReporter &reporter_;
    const Console &console_;
    std::shared_ptr<ZVUpdateProc> controller_;
    StopSignals &signals_;
    QTimer timer_; // Runs while a download does.
    QElapsedTimer sinceProgress_;
    std::optional<Stop> stop_;
    bool isWindowOpen_ = false;
    WindowAction windowAction_ = WindowAction::Closed;
    bool isOver_ = false;
    int status_ = Success; // With which it is over.
};
