#pragma once

#include <ui/UpdateInfoWindowControllerDelegate.h>

#include <QObject>
#include <QStringList>
#include <QUrl>

/// Writes down, in order, what the user's choice in a prompt window brings about: "opened NAME" for
/// a file, "hidden" for the window, "told N" for the delegate. " (off)" follows once automatic
/// updating stands switched off in the preferences file. One at a time.
class WindowEvents final : public QObject, public UpdateInfoWindowControllerDelegate
{
    Q_OBJECT

public:
    WindowEvents();
    ~WindowEvents() override;

    void watch(QObject *window) { window->installEventFilter(this); }
    const QStringList &list() const { return list_; }

    bool eventFilter(QObject *window, QEvent *event) override;
    void infoWindowClosedActions(uint64_t action) override;

public Q_SLOTS:
    void open(const QUrl &url);

private:
    void add(const QString &event);

    QStringList list_;
};
