#pragma once

#include "../../platform/Mutex.h"

#include <QString>

#include <atomic>
#include <optional>

/// The program's standard output and standard error. What is written is UTF-8 and goes out at once.
/// May be used on any thread.
class Console
{
public:
    /// To be made before any file is opened: gives standard streams that are missing something
    /// harmless to stand for them.
    Console();

    /// A line on standard output, as it is.
    void print(const QString &line);

    /// A line for people on standard output. Control characters, which may come from the update
    /// service, are replaced, so that they cannot make further lines or steer a terminal.
    void say(const QString &line);

    /// A line for people on standard error.
    void complain(const QString &line);

    /// Shows a line until the next one, of whatever kind, takes its place. For terminals only.
    void showProgress(const QString &line);

    /// Whether people watch standard output on a terminal.
    static bool isTerminal();

    /// The terminal's width in columns.
    static int width();

    /// Why standard output could not be written; absent while all is well.
    std::optional<QString> failure() const;

    /// Whether a line on standard output may have been begun and not ended, for handlers of
    /// signals.
    static inline std::atomic<bool> isWithinLine = false;

private:
    void write(const QByteArray &bytes) ZVUPDATE_REQUIRES(mutex_);
    void eraseProgress() ZVUPDATE_REQUIRES(mutex_);

    mutable ZVPlatform::Mutex mutex_;
    std::optional<QString> failure_ ZVUPDATE_GUARDED_BY(mutex_);
    // 0 when no progress is shown.
    qsizetype progressLength_ ZVUPDATE_GUARDED_BY(mutex_) = 0;
};
