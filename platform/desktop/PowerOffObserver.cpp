#include "PowerOffObserver.h"

#include <QDBusConnection>
#include <QGuiApplication>

namespace ZVPlatform {

PowerOffObserver::PowerOffObserver(QObject *parent) : QObject(parent)
{
    // Without a system bus this is refused without a word.
    QDBusConnection::systemBus().connect(
        QStringLiteral("org.freedesktop.login1"), QStringLiteral("/org/freedesktop/login1"),
        QStringLiteral("org.freedesktop.login1.Manager"), QStringLiteral("PrepareForShutdown"),
        this, SLOT(prepareForShutdown(bool)));
    // Directly: when the session manager asks, there may be no later.
    connect(qGuiApp, &QGuiApplication::commitDataRequest, this, &PowerOffObserver::powerOffImminent,
            Qt::DirectConnection);
}

// False says that an announced shutdown has been called off, or is over.
void PowerOffObserver::prepareForShutdown(bool starts)
{
    if (starts)
        Q_EMIT powerOffImminent();
}

} // namespace ZVPlatform
