#pragma once

#include "../../platform/Result.h"

#include <QString>
#include <QStringList>

#include <chrono>

/// A program to be started, in the environment that this one has and in a folder by its name, which
/// may be another folder by then, or else in the program's own.
struct Launch
{
    QString program; ///< Absolute.
    QStringList arguments;
    QString folder;

    /// Starts it, detached from this process and its session. Its standard input is empty, and what
    /// goes to pipes, whose other end goes with the host, is dropped. Fails, with a sentence for
    /// people, when it cannot be started or ends within the probation.
    ZVPlatform::Result<void> start(std::chrono::seconds probation) const;
};
