#include <QAccessible>
#include <QDesktopServices>
#include <QGenericPlugin>
#include <QGuiApplication>
#include <QMouseEvent>
#include <QProcess>
#include <QTimer>
#include <QUrl>
#include <QWindow>

namespace {

/// The button with that text in what assistive technology sees of a window; null without.
QAccessibleInterface *findButton(QAccessibleInterface *element, const QString &text)
{
    if (!element || element->state().invisible)
        return nullptr;
    const QObject *object = element->object();
    if (element->role() == QAccessible::Button && object && object->property("text") == text)
        return element;
    for (int i = 0; i < element->childCount(); ++i) {
        if (auto *found = findButton(element->child(i), text))
            return found;
    }
    return nullptr;
}

/// Stands in for the user: clicks the button that the environment variable ZVUPDATE_TEST_CHOICE
/// names as soon as it is shown, or closes the window for "close". And off-screen for the desktop,
/// which Qt does not know there: files are opened in the way in which Qt has them opened on one.
class PromptChooser : public QObject
{
    Q_OBJECT

public:
    PromptChooser()
    {
        if (QGuiApplication::platformName() == QLatin1String("offscreen"))
            QDesktopServices::setUrlHandler(QStringLiteral("file"), this, "open");
        timer_.callOnTimeout([] { look(); });
        timer_.start(10);
    }

    ~PromptChooser() override { QDesktopServices::unsetUrlHandler(QStringLiteral("file")); }

    Q_INVOKABLE void open(const QUrl &url)
    {
        QProcess::startDetached(QStringLiteral("xdg-open"), {url.toLocalFile()});
    }

private:
    // Goes on until the window has gone, as a click may come too early for it.
    static void look()
    {
        QAccessible::setActive(true); // Heeded by those controls only that are there already.
        const QString choice = qEnvironmentVariable("ZVUPDATE_TEST_CHOICE");
        const auto windows = QGuiApplication::topLevelWindows();
        for (QWindow *window : windows) {
            auto *content = window->accessibleRoot();
            if (auto *button = findButton(content, choice))
                return click(window, button->rect().center());
            // All that is left when no program opens the installer.
            const bool isToldThePlace = findButton(content, QStringLiteral("Show in folder"));
            if (choice == QLatin1String("close") || isToldThePlace)
                window->close();
        }
    }

    static void click(QWindow *window, const QPointF &place)
    {
        for (const auto type : {QEvent::MouseButtonPress, QEvent::MouseButtonRelease}) {
            const auto buttons = type == QEvent::MouseButtonPress ? Qt::LeftButton : Qt::NoButton;
            QMouseEvent event(type, window->mapFromGlobal(place), place, Qt::LeftButton, buttons,
                              Qt::NoModifier);
            QCoreApplication::sendEvent(window, &event);
        }
    }

    QTimer timer_;
};

} // namespace

/// Brings the chooser into a program that is none of the tests' own, which Qt does for one that is
/// started with this plugin's key in QT_QPA_GENERIC_PLUGINS.
class PromptChooserPlugin : public QGenericPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID QGenericPluginFactoryInterface_iid FILE "PromptChooser.json")

public:
    QObject *create(const QString & /*key*/, const QString & /*settings*/) override
    {
        return new PromptChooser; // Owned by the caller.
    }
};

#include "PromptChooser.moc"
