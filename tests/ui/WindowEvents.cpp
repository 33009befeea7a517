#include "WindowEvents.h"

#include "../support/TestFiles.h"

#include <QDesktopServices>
#include <QEvent>
#include <QSettings>

WindowEvents::WindowEvents()
{
    QDesktopServices::setUrlHandler(QStringLiteral("file"), this, "open");
}

WindowEvents::~WindowEvents()
{
    QDesktopServices::unsetUrlHandler(QStringLiteral("file"));
}

bool WindowEvents::eventFilter(QObject *, QEvent *event)
{
    if (event->type() == QEvent::Hide)
        add(QStringLiteral("hidden"));
    return false;
}

void WindowEvents::infoWindowClosedActions(uint64_t action)
{
    add(QStringLiteral("told %1").arg(action));
}

void WindowEvents::open(const QUrl &url)
{
    add(QStringLiteral("opened ") + url.fileName());
}

void WindowEvents::add(const QString &event)
{
    const bool isOff = readFile(QSettings().fileName()).contains("ZVUpdateAutoUpdate=false");
    list_.append(isOff ? event + QStringLiteral(" (off)") : event);
}
