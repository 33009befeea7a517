#pragma once

#include "../support/TestFiles.h"

#include <ui/UpdateInfoWindowControllerDelegate.h>

#include <QDesktopServices>
#include <QEvent>
#include <QSettings>
#include <QStringList>
#include <QUrl>

/// Writes down, in order, what the user's choice in a prompt window brings about: "opened NAME" for
/// a file, "hidden" for the window, "told N" for the delegate. " (off)" follows once automatic
/// updating stands switched off in the preferences file. One at a time.
class WindowEvents final : public QObject, public UpdateInfoWindowControllerDelegate
{
    Q_OBJECT

public:
    WindowEvents() { QDesktopServices::setUrlHandler(QStringLiteral("file"), this, "open"); }
    ~WindowEvents() override { QDesktopServices::unsetUrlHandler(QStringLiteral("file")); }

    void watch(QObject *window) { window->installEventFilter(this); }
    const QStringList &list() const { return list_; }
    /// The whole path of the file that was opened last.
    const QString &openedPath() const { return openedPath_; }

    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::Hide)
            add(QStringLiteral("hidden"));
        return false;
    }

    void infoWindowClosedActions(uint64_t action) override
    {
        add(QStringLiteral("told %1").arg(action));
    }

public Q_SLOTS:
    void open(const QUrl &url)
    {
        openedPath_ = url.toLocalFile();
        add(QStringLiteral("opened ") + url.fileName());
    }

private:
    void add(const QString &event)
    {
        const bool isOff = readFile(QSettings().fileName()).contains("ZVUpdateAutoUpdate=false");
        list_.append(isOff ? event + QStringLiteral(" (off)") : event);
    }

    QStringList list_;
    QString openedPath_;
};
