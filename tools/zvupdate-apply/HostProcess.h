#pragma once

#include <QStringList>
#include <QtGlobal>

#include <chrono>
#include <optional>

#include <sys/types.h>

/// A process whose end is waited for. It is known by its identifier and by when it was started, as
/// the system gives the identifier to another one some time after its end.
class HostProcess
{
public:
    /// The process with that identifier, as long as it is older than this one: a younger one has
    /// got the identifier from one that has ended. Absent counts as ended.
    explicit HostProcess(std::optional<pid_t> identifier);

    bool hasEnded() const;
    /// The canonical paths of its program and of those files that it was called with, of which an
    /// interpreter's script is one. Empty when it has ended.
    QStringList files() const;
    /// False when it has not ended in time.
    bool waitForEnd(std::chrono::seconds patience) const;

private:
    pid_t identifier_;
    std::optional<quint64> start_; // Absent when it has ended already.
};
