#pragma once

#include <QElapsedTimer>
#include <QHash>
#include <QObject>

class QKeyEvent;
class QWidget;

namespace ZVPlatform {

/// Keeps keys that were meant for another window from a window that has come up under the user's
/// fingers: a key counts only when it goes down after the window has been active for half a second.
/// One that was held down before must be let go of first, however often it repeats. Main thread
/// only.
class KeyGuard final : public QObject
{
    Q_OBJECT

public:
    /// Guards a window and all that it holds by now; the window owns its guard.
    explicit KeyGuard(QWidget *window);

    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    bool counts(const QKeyEvent &key);

    QElapsedTimer activeFor_;
    QHash<int, bool> held_;   // Keys that are down, and whether they count.
    quint64 lastRelease_ = 0; // Its time stamp.
};

} // namespace ZVPlatform
