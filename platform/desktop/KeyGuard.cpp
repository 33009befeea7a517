#include "KeyGuard.h"

#include <QKeyEvent>
#include <QWidget>

namespace ZVPlatform {

namespace {

constexpr qint64 settlingTime = 500; // milliseconds

} // namespace

KeyGuard::KeyGuard(QWidget *window) : QObject(window)
{
    window->installEventFilter(this);
    const auto children = window->findChildren<QWidget *>();
    for (QWidget *child : children)
        child->installEventFilter(this);
}

bool KeyGuard::eventFilter(QObject *watched, QEvent *event)
{
    switch (event->type()) {
    case QEvent::WindowActivate:
        if (watched == parent()) {
            activeFor_.start();
            held_.clear();
        }
        return false;
    // Comes before the key itself; to accept it keeps the shortcuts from being looked up.
    case QEvent::ShortcutOverride:
    case QEvent::KeyPress: {
        const auto *key = static_cast<QKeyEvent *>(event);
        if (counts(*key))
            return false;
        event->accept();
        return true;
    }
    case QEvent::KeyRelease: {
        const auto *key = static_cast<QKeyEvent *>(event);
        if (key->isAutoRepeat())
            return false;
        lastRelease_ = key->timestamp();
        return !held_.take(key->key());
    }
    default:
        return false;
    }
}

// Decided when the key is seen for the first time, and for as long as it is down. X sends a release
// and a press of the same time for each repetition, which Qt takes for a new press when they do not
// arrive together.
bool KeyGuard::counts(const QKeyEvent &key)
{
    const auto known = held_.constFind(key.key());
    if (known != held_.constEnd())
        return *known;
    const bool hasSettled = activeFor_.isValid() && activeFor_.hasExpired(settlingTime);
    const bool isRepeated =
        key.isAutoRepeat() || (lastRelease_ != 0 && key.timestamp() == lastRelease_);
    return *held_.insert(key.key(), hasSettled && !isRepeated);
}

} // namespace ZVPlatform
