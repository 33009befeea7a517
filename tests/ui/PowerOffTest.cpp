#include "../support/Testing.h"
#include "WindowEvents.h"

#include <ui/UpdateInfoWindowController.h>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDialog>
#include <QProcess>

using namespace Qt::Literals::StringLiterals;

namespace {

// A message bus that this process takes for the system's. It is there before the first test, since
// whether there is a system bus is found out only once.
class PrivateBus final : public testing::Environment
{
public:
    void SetUp() override
    {
        // A session's bus is one on which everybody may do everything.
        process_.start(u"dbus-daemon"_s, {u"--session"_s, u"--nofork"_s, u"--print-address"_s});
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

    QDBusConnection connect(const QString &name) const
    {
        return QDBusConnection::connectToBus(QString::fromLatin1(address_), name);
    }

private:
    QProcess process_;
    QByteArray address_;
};

auto *const bus = static_cast<PrivateBus *>(testing::AddGlobalTestEnvironment(new PrivateBus));

// Returns when the signal has arrived: what is asked of the bus is answered in order.
void announceShutdown(const QDBusConnection &sender, bool starts)
{
    sender.send(QDBusMessage::createSignal(u"/org/freedesktop/login1"_s,
                                           u"org.freedesktop.login1.Manager"_s,
                                           u"PrepareForShutdown"_s)
                << starts);
    for (const QDBusConnection &connection : {sender, QDBusConnection::systemBus()})
        connection.interface()->isServiceRegistered(u"org.freedesktop.DBus"_s);
    QCoreApplication::processEvents();
}

TEST(PowerOffTest, ClosesTheWindowAndTellsNobody)
{
    QDBusConnection logind = bus->connect(u"logind"_s);
    ASSERT_TRUE(logind.isConnected()) << "is dbus-daemon installed?";
    ASSERT_TRUE(logind.registerService(u"org.freedesktop.login1"_s));

    WindowEvents events;
    UpdateInfoWindowController controller(u"UpdateInfoWindowController"_s);
    controller.setDelegate(&events);
    controller.showWindow();
    events.watch(controller.window());

    announceShutdown(bus->connect(u"stranger"_s), true);
    announceShutdown(logind, false);
    EXPECT_TRUE(controller.window()->isVisible());
    announceShutdown(logind, true);
    EXPECT_TRUE(waitFor([&controller] { return !controller.window()->isVisible(); }));
    EXPECT_EQ(events.list(), QStringList{u"hidden"_s});
}

} // namespace
