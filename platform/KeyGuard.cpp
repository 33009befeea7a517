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
        if (counts(key->key(), key->isAutoRepeat()))
            return false;
        event->accept();
        return true;
    }
    case QEvent::KeyRelease: {
        const auto *key = static_cast<QKeyEvent *>(event);
        return !key->isAutoRepeat() && !held_.take(key->key());
    }
    default:
        return false;
    }
}

// Decided when the key is seen for the first time, and for as long as it is down.
bool KeyGuard::counts(int key, bool isAutoRepeat)
{
    const auto known = held_.constFind(key);
    if (known != held_.constEnd())
        return *known;
    const bool hasSettled = activeFor_.isValid() && activeFor_.hasExpired(settlingTime);
    return *held_.insert(key, hasSettled && !isAutoRepeat);
}

} // namespace ZVPlatform
