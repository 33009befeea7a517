#include "../support/TestFiles.h"
#include "../support/WaitFor.h"
#include "WindowEvents.h"

#include <ui/UpdateInfoWindowController.h>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDialog>
#include <QProcess>
#include <QTemporaryDir>

#include <gmock/gmock.h>

namespace {

// A message bus that this process takes for the system's. It is there before the first test, since
// whether there is a system bus is found out only once.
class PrivateBus final : public testing::Environment
{
public:
    void SetUp() override
    {
        const QString configuration = directory_.filePath(QStringLiteral("bus.conf"));
        writeFile(configuration,
                  "<busconfig><listen>unix:tmpdir=" + QFile::encodeName(directory_.path()) +
                      "</listen><policy context=\"default\"><allow own=\"*\"/>"
                      "<allow send_destination=\"*\"/><allow send_type=\"signal\"/>"
                      "<allow receive_type=\"method_return\"/>"
                      "<allow receive_type=\"error\"/>"
                      "<allow receive_type=\"signal\"/></policy></busconfig>");
        process_.start(QStringLiteral("dbus-daemon"),
                       {QStringLiteral("--nofork"), QStringLiteral("--print-address"),
                        QStringLiteral("--config-file=") + configuration});
        while (!process_.canReadLine() && process_.waitForReadyRead()) {
        }
        address_ = process_.readLine().trimmed();
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", address_);
    }

    void TearDown() override
    {
        process_.terminate();
        process_.waitForFinished();
    }

    QDBusConnection connect(const char *name) const
    {
        return QDBusConnection::connectToBus(QString::fromLatin1(address_),
                                             QString::fromLatin1(name));
    }

private:
    const QTemporaryDir directory_;
    QProcess process_;
    QByteArray address_;
};

auto *const bus = static_cast<PrivateBus *>(testing::AddGlobalTestEnvironment(new PrivateBus));

// What whoever is connected to the bus has sent before has arrived afterwards.
void waitUntilDelivered(const QDBusConnection &sender)
{
    sender.interface()->isServiceRegistered(QStringLiteral("org.freedesktop.DBus"));
    QDBusConnection::systemBus().interface()->isServiceRegistered(
        QStringLiteral("org.freedesktop.DBus"));
    QCoreApplication::processEvents();
}

void announceShutdown(const QDBusConnection &sender, bool starts)
{
    QDBusMessage signal = QDBusMessage::createSignal(
        QStringLiteral("/org/freedesktop/login1"), QStringLiteral("org.freedesktop.login1.Manager"),
        QStringLiteral("PrepareForShutdown"));
    signal << starts;
    sender.send(signal);
    waitUntilDelivered(sender);
}

TEST(PowerOffTest, ClosesTheWindowAndTellsNobody)
{
    QDBusConnection logind = bus->connect("logind");
    ASSERT_TRUE(logind.isConnected()) << "is dbus-daemon installed?";
    ASSERT_TRUE(logind.registerService(QStringLiteral("org.freedesktop.login1")));
    const QDBusConnection stranger = bus->connect("stranger");

    WindowEvents events;
    UpdateInfoWindowController controller(QStringLiteral("UpdateInfoWindowController"));
    controller.setDelegate(&events);
    controller.reloadWindow();
    controller.showWindow();
    events.watch(controller.window());

    announceShutdown(stranger, true);
    announceShutdown(logind, false);
    EXPECT_TRUE(controller.window()->isVisible());
    announceShutdown(logind, true);
    EXPECT_TRUE(waitFor([&controller] { return !controller.window()->isVisible(); }));
    EXPECT_EQ(events.list(), QStringList{QStringLiteral("hidden")});
}

} // namespace
