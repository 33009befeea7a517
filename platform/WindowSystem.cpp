#include "WindowSystem.h"

#include <QApplication>
#include <QDesktopServices>
#include <QFileInfo>
#include <QInputMethodQueryEvent>
#include <QThread>
#include <QUrl>
#include <QWidget>

namespace ZVPlatform {

namespace {

// Whoever takes text input has the keyboard; it may be a widget, or an item of a Quick scene.
bool isUserTyping()
{
    QObject *receiver = QGuiApplication::focusObject();
    if (!receiver)
        return false;
    QInputMethodQueryEvent query(Qt::ImEnabled | Qt::ImReadOnly);
    QCoreApplication::sendEvent(receiver, &query);
    return query.value(Qt::ImEnabled).toBool() && !query.value(Qt::ImReadOnly).toBool();
}

} // namespace

bool WindowSystem::isAvailable()
{
    const auto *application = qobject_cast<QApplication *>(QCoreApplication::instance());
    return application && application->thread() == QThread::currentThread();
}

void WindowSystem::show(QWidget *window)
{
    const bool isTyping = isUserTyping();
    window->setAttribute(Qt::WA_ShowWithoutActivating, isTyping);
    const bool mayBeCovered = window->isVisible();
    window->setWindowState(window->windowState() & ~Qt::WindowMinimized);
    window->show();
    if (mayBeCovered)
        window->raise();
    if (isTyping)
        QApplication::alert(window);
    else
        window->activateWindow();
}

void WindowSystem::discard(QWidget *window)
{
    // A window that is left when the application has gone cannot be destroyed any more.
    if (!QCoreApplication::instance())
        return;
    if (isAvailable())
        window->hide();
    window->deleteLater();
}

void WindowSystem::openFile(const QString &path)
{
    // The desktop shortens "..", which behind a symbolic link leads to another place than here.
    const QFileInfo file(path);
    const QString directory = QFileInfo(file.path()).canonicalFilePath();
    QDesktopServices::openUrl(QUrl::fromLocalFile(directory + QLatin1Char('/') + file.fileName()));
}

} // namespace ZVPlatform
