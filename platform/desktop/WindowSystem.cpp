#include "WindowSystem.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDBusPendingCallWatcher>
#include <QDesktopServices>
#include <QFileInfo>
#include <QInputMethodQueryEvent>
#include <QLayout>
#include <QMimeDatabase>
#include <QProcess>
#include <QScreen>
#include <QStandardPaths>
#include <QStyle>
#include <QThread>
#include <QUrl>
#include <QWidget>
#include <QWindow>

#include <algorithm>
#include <optional>

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

// What the screen has for a window, within such a frame as it will be given.
QRect roomFor(const QWidget *window)
{
    const int title = window->style()->pixelMetric(QStyle::PM_TitleBarHeight, nullptr, window);
    const int edge = window->style()->pixelMetric(QStyle::PM_MdiSubWindowFrameWidth);
    return window->screen()->availableGeometry().adjusted(edge, title, -edge, -edge);
}

QSize leastSize(QLayout *layout, int width)
{
    const QSize least = layout->totalMinimumSize();
    const int wanted = std::max(width, least.width());
    const int height = layout->totalMinimumHeightForWidth(wanted);
    return {wanted, std::max(least.height(), height)};
}

// A window is never smaller than what its layout needs. Where the screen does not hold even that,
// smaller letters are better than buttons out of reach.
void fitToScreen(QWidget *window)
{
    QLayout *layout = window->layout();
    if (!layout)
        return;
    constexpr qreal smallestFont = 6; // points
    const QSize room = roomFor(window).size();
    const int width = std::min(window->width(), room.width());
    window->ensurePolished();
    layout->activate();
    QSize least = leastSize(layout, width);
    QFont font = window->font();
    while ((least.width() > room.width() || least.height() > room.height()) &&
           font.pointSizeF() > smallestFont) {
        font.setPointSizeF(font.pointSizeF() - 1);
        window->setFont(font);
        layout->activate();
        least = leastSize(layout, width);
    }
    const int wanted = layout->totalHeightForWidth(least.width());
    const int usual = std::min(window->height(), room.height());
    window->resize(least.width(), std::max(least.height(), std::min(wanted, usual)));
}

void keepOnScreen(QWidget *window)
{
    const QRect room = window->screen()->availableGeometry();
    const QSize size = window->frameGeometry().size();
    window->move(std::max(room.left(), std::min(window->x(), room.right() + 1 - size.width())),
                 std::max(room.top(), std::min(window->y(), room.bottom() + 1 - size.height())));
}

// What the desktop answers to a question about types of files; absent when it cannot be asked.
std::optional<QString> answerOf(const QString &asker, const char *question, const QString &about)
{
    constexpr int patience = 2000; // ms; the user has pressed a button.
    constexpr int noAsker = 3;     // What xdg-mime needs itself is missing.
    QProcess process;
    process.setStandardErrorFile(QProcess::nullDevice());
    process.start(asker, {QStringLiteral("query"), QLatin1String(question), about},
                  QIODevice::ReadOnly);
    if (!process.waitForFinished(patience) || process.exitStatus() != QProcess::NormalExit ||
        process.exitCode() == noAsker)
        return std::nullopt;
    return QString::fromLocal8Bit(process.readAllStandardOutput()).trimmed();
}

// What the desktop may look for a program for, once it sees a file. Where it is no desktop that
// xdg-open knows, that goes by the content in its own way, and not by the name.
QStringList typesOf(const QString &asker, const QString &path)
{
    const QMimeDatabase database;
    const auto seen = answerOf(asker, "filetype", path).value_or(QString()).section(u';', 0, 0);
    const QMimeType type =
        seen.isEmpty() ? database.mimeTypeForFile(path) : database.mimeTypeForName(seen);
    QStringList names =
        QStringList(seen.isEmpty() ? type.name() : seen) + type.aliases() + type.allAncestors();
    // What opens any bytes or any text does not install.
    names.removeAll(QStringLiteral("application/octet-stream"));
    names.removeAll(QStringLiteral("text/plain"));
    return names;
}

// Asked before, as what opens a file may find out that nothing does when nobody listens any more.
bool hasProgramFor(const QString &path)
{
    const QString asker = QStandardPaths::findExecutable(QStringLiteral("xdg-mime"));
    const bool isSandboxed =
        QFileInfo::exists(QStringLiteral("/.flatpak-info")) || qEnvironmentVariableIsSet("SNAP");
    if (asker.isEmpty() || isSandboxed) // In a sandbox, what is outside opens files.
        return true;
    const QStringList names = typesOf(asker, path);
    return std::any_of(names.begin(), names.end(), [&](const QString &name) {
        return answerOf(asker, "default", name) != QString();
    });
}

} // namespace

bool WindowSystem::isAvailable()
{
    const auto *application = qobject_cast<QApplication *>(QCoreApplication::instance());
    return application && application->thread() == QThread::currentThread();
}

void WindowSystem::show(QWidget *window)
{
    const bool mayActivate =
        QGuiApplication::applicationState() == Qt::ApplicationActive && !isUserTyping();
    window->setAttribute(Qt::WA_ShowWithoutActivating, !mayActivate);
    const bool mayBeCovered = window->isVisible();
    window->setWindowState(window->windowState() & ~Qt::WindowMinimized);
    const bool isNew = !window->windowHandle();
    if (isNew)
        fitToScreen(window);
    // A window that was moved, or shown before, has its place; others get one from the desktop.
    if (!mayBeCovered && (!isNew || window->testAttribute(Qt::WA_Moved)))
        keepOnScreen(window);
    window->show();
    if (mayBeCovered)
        window->raise();
    if (mayActivate)
        window->activateWindow();
    else
        QApplication::alert(window);
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

bool WindowSystem::openFile(const QString &path)
{
    if (!hasProgramFor(path))
        return false;
    // The desktop shortens "..", which behind a symbolic link leads to another place than here.
    const QFileInfo file(path);
    const QString directory = QFileInfo(file.path()).canonicalFilePath();
    return QDesktopServices::openUrl(
        QUrl::fromLocalFile(directory + QLatin1Char('/') + file.fileName()));
}

void WindowSystem::showInFileManager(const QString &path)
{
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.FileManager1"),
        QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
    const QUrl file = QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath());
    call << QStringList(file.toString(QUrl::FullyEncoded)) << QString();
    const auto openFolder = [path] {
        QDesktopServices::openUrl(QUrl::fromLocalFile(QFileInfo(path).absolutePath()));
    };
    const QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return openFolder();
    auto *answer = new QDBusPendingCallWatcher(bus.asyncCall(call), qApp);
    QObject::connect(answer, &QDBusPendingCallWatcher::finished, answer, [answer, openFolder] {
        answer->deleteLater();
        if (answer->isError())
            openFolder();
    });
}

} // namespace ZVPlatform
