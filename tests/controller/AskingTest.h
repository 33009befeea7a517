#pragma once

#include "../support/WaitFor.h"
#include "ControllerTest.h"

using Reason = ZVUpdateProc::CheckReason;

/// A host that remembers the words of what came of its checks and downloads, too.
class AskingHost : public Host
{
public:
    ~AskingHost() override { retire(); }

    void updateCheckEnded(const UpdateOutcome &outcome) override
    {
        latest = outcome;
        hear(UpdateOutcome::word(outcome.kind));
    }
    void updateDownloadProgressed(const UpdateDownloadProgress &progress) override
    {
        received = progress.received;
        ++looks;
    }
    void updateDownloadFailed(const UpdateOutcome &outcome) override
    {
        latest = outcome;
        hear(QStringLiteral("failed: ") + UpdateOutcome::word(outcome.kind));
    }

    std::optional<UpdateOutcome> latest;
    uint64_t received = 0;
    int looks = 0; ///< How often it has heard of progress.
};

/// Checks in the background, and what the host hears of them.
class AskingTest : public ControllerTest
{
public:
    /// Runs a check and what follows to its end; what the host hears.
    QStringList ask(Reason reason = Reason::AskedByUser)
    {
        host.heard.clear();
        EXPECT_TRUE(controller->startCheck(reason, &host));
        EXPECT_TRUE(controller->isChecking());
        EXPECT_FALSE(controller->startCheck(reason, &host)) << "One is running.";
        EXPECT_EQ(host.heard, QStringList()) << "Nothing is told before the event loop runs.";
        EXPECT_TRUE(waitFor([this] { return !controller->isChecking() && isDone(); }));
        return host.heard;
    }

    AskingHost host;
    const QStringList loaded{QStringLiteral("download-started"), diskImage};

private:
    bool isDone() const
    {
        const QStringList withMore{QStringLiteral("download-started"),
                                   QStringLiteral("installer-ready")};
        return host.heard.size() == (withMore.contains(host.heard.value(0)) ? 2 : 1);
    }
};
