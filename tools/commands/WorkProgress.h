#pragma once

#include <QElapsedTimer>
#include <QString>

class Console;

/// Shows people who watch on a terminal how far a long work on many bytes has come. Of work that
/// ends at once nothing is seen. One thread at a time.
class WorkProgress
{
public:
    /// Of work called that, on so many bytes. Without isWanted nothing is shown, as when the
    /// output is for programs.
    WorkProgress(Console &console, const QString &name, qint64 total, bool isWanted);

    /// So many bytes more are done.
    void advance(qint64 bytes);

private:
    Console &console_;
    const QString name_;
    const qint64 total_;
    const bool isShown_;
    qint64 done_ = 0;
    qint64 nextLine_; // In milliseconds since the beginning.
    QElapsedTimer sinceBeginning_;
};
