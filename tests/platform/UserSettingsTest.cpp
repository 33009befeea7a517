#include "platform/settings/Locale.h"
#include "platform/settings/Preferences.h"
#include "platform/settings/SystemLog.h"
#include "support/LogCapture.h"
#include "support/TestData.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QLockFile>
#include <QSettings>

#include <cstdio>
#include <functional>

#include <sys/stat.h>
#include <unistd.h>

using namespace ZVPlatform;
using testing::HasSubstr;

namespace {

// Runs one test of this program in a process of its own, and returns what that prints. Not
// QProcess: it shares memory with its child at first, which blinds thread sanitizer.
std::string printedByTest(const QByteArray &name, const QByteArray &environment)
{
    const QByteArray command = environment + " '" +
                               QFile::encodeName(QCoreApplication::applicationFilePath()) +
                               "' --gtest_filter=" + name;
    FILE *const output = ::popen(command.constData(), "r");
    QFile pipe;
    if (output == nullptr || !pipe.open(output, QIODevice::ReadOnly))
        qFatal("%s cannot be run", command.constData());
    const QByteArray printed = pipe.readAll();
    EXPECT_EQ(::pclose(output), 0) << printed.constData();
    return printed.toStdString();
}

} // namespace

TEST(Preferences, KeepWhatTheyAreGiven)
{
    const QString key = QStringLiteral("key");
    EXPECT_EQ(Preferences::boolean(key), std::nullopt);
    EXPECT_EQ(Preferences::date(key), std::nullopt);
    EXPECT_EQ(Preferences::text(key), std::nullopt);

    const auto date = QDateTime(QDate(2031, 1, 2), QTime(3, 4, 5), Qt::UTC);
    Preferences::setBoolean(QStringLiteral("flag"), false);
    Preferences::setDate(QStringLiteral("date"), date);
    Preferences::setText(QStringLiteral("text"), QStringLiteral("更新, \"1\""));
    EXPECT_TRUE(Preferences::synchronise());
    EXPECT_EQ(Preferences::boolean(QStringLiteral("flag")), false);
    EXPECT_EQ(Preferences::date(QStringLiteral("date")), date);
    EXPECT_EQ(Preferences::text(QStringLiteral("text")), QStringLiteral("更新, \"1\""));
    EXPECT_EQ(Preferences::date(QStringLiteral("text")), std::nullopt);

    Preferences::remove(QStringLiteral("flag"));
    EXPECT_EQ(Preferences::boolean(QStringLiteral("flag")), std::nullopt);
}

TEST(Preferences, ShowWhatAnotherProcessHasWritten)
{
    Preferences::setText(QStringLiteral("flag"), QStringLiteral("NO"));
    ASSERT_TRUE(Preferences::synchronise());
    const QString path = QSettings().fileName();
    // Qt sees a change by the time and the size of the file, so each differs in size from the last.
    const std::pair<const char *, bool> rows[] = {{"true", true}, {"0", false}, {"YES", true},
                                                  {"no", false},  {"1", true},  {"false", false},
                                                  {"\"\"", false}};
    for (const auto &[value, expected] : rows) {
        writeFile(path, QByteArray("[General]\nflag=") + value + '\n');
        ASSERT_TRUE(Preferences::synchronise());
        EXPECT_EQ(Preferences::boolean(QStringLiteral("flag")), expected) << value;
    }
    ASSERT_TRUE(QFile::remove(path));
    ASSERT_TRUE(Preferences::synchronise());
    EXPECT_EQ(Preferences::boolean(QStringLiteral("flag")), std::nullopt);
}

TEST(Preferences, AreNeverWaitedForLong)
{
    const QString file = QSettings().fileName();
    const QString lock = file + QStringLiteral(".lock");
    const auto fifo = [](const QString &path) {
        EXPECT_EQ(mkfifo(QFile::encodeName(path).constData(), 0600), 0);
    };
    const auto directory = [](const QString &path) { QDir().mkpath(path); };
    const auto linkTo = [](const char *target) {
        return [=](const QString &path) { QFile::link(QLatin1String(target), path); };
    };
    const auto content = [](const char *bytes) {
        return [=](const QString &path) { writeFile(path, bytes); };
    };
    QLockFile other(lock);
    const struct
    {
        const char *name;
        QString path;
        std::function<void(const QString &)> make;
        bool isRead;
        bool isWritten;
    } rows[] = {
        {"empty lock", lock, content(""), true, true},
        {"foreign lock", lock, content("not of Qt"), true, true},
        {"lock of another host", lock, content("1\nhost\nelsewhere\n\n\n"), true, true},
        {"lock that is held", lock, [&](const QString &) { EXPECT_TRUE(other.lock()); }, true,
         false},
        {"directory for a lock", lock, directory, true, false},
        {"pipe for a lock", lock, fifo, true, false},
        {"link for a lock", lock, linkTo("/nowhere"), true, false},
        {"directory", file, directory, false, false},
        {"pipe", file, fifo, false, false},
        {"endless file", file, linkTo("/dev/zero"), false, false},
    };
    const QString key = QStringLiteral("key");
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        Preferences::setText(key, QStringLiteral("before"));
        ASSERT_TRUE(Preferences::synchronise());
        if (row.path == file)
            QFile::remove(file);
        row.make(row.path);

        const LogCapture log;
        QElapsedTimer timer;
        timer.start();
        const auto read = Preferences::text(key);
        Preferences::setText(key, QStringLiteral("after"));
        EXPECT_EQ(Preferences::synchronise(), row.isWritten);
        EXPECT_LT(timer.elapsed(), 15000); // Qt itself waits thirty seconds or for ever.
        EXPECT_EQ(read.has_value(), row.isRead);
        EXPECT_EQ(log.lines().size(), row.isWritten ? 0 : 1);

        other.unlock();
        if (!QFile::remove(row.path))
            QDir().rmdir(row.path);
    }
    Preferences::remove(key);
    EXPECT_TRUE(Preferences::synchronise());
}

TEST(Preferences, AreNowhereWithoutAHome)
{
    if (qEnvironmentVariableIsSet("ZVUPDATE_TEST_HOME")) {
        qputenv("HOME", qgetenv("ZVUPDATE_TEST_HOME"));
        if (qEnvironmentVariableIsEmpty("ZVUPDATE_TEST_HOME"))
            qunsetenv("HOME");
        qunsetenv("XDG_CONFIG_HOME");
        const LogCapture log;
        Preferences::setBoolean(QStringLiteral("flag"), true);
        const bool isKept = Preferences::boolean(QStringLiteral("flag")).has_value();
        std::printf("<%d %d %s %s>", isKept, Preferences::synchronise(),
                    qPrintable(Preferences::path()), qPrintable(log.lines().join(u';')));
        return;
    }
    const QByteArray nowhere = "<0 0  preference flag not written: HOME names no directory>";
    const QString home = QDir::homePath();
    const QString kept = home + QStringLiteral("/.config/ZVUpdateTests/ZVUpdateTests.conf");
    for (const auto &[value, expected] :
         {std::pair(QByteArray(), nowhere),
          {"not/absolute", nowhere},
          {QFile::encodeName(home), "<1 1 " + QFile::encodeName(kept) + " >"}})
        EXPECT_THAT(printedByTest("Preferences.AreNowhereWithoutAHome",
                                  "ZVUPDATE_TEST_HOME='" + value + "'"),
                    HasSubstr(expected.toStdString()));
    EXPECT_FALSE(QFile::exists(QStringLiteral("/.config/ZVUpdateTests")));
    EXPECT_FALSE(QFile::exists(QStringLiteral("not/absolute")));
}

TEST(SystemLog, HasOneLineForEachMessage)
{
    const LogCapture log;
    systemLog(QStringLiteral("what a service\r\nzvupdate: has forged\n"));
    EXPECT_EQ(log.lines(), QStringList(QStringLiteral("what a service  zvupdate: has forged ")));
}

// The environment is read once a process, so each row has one of its own, which runs this test.
TEST(Locale, IsTheOneOfTheEnvironment)
{
    if (qEnvironmentVariableIsSet("ZVUPDATE_TEST_PRINTS_LOCALE")) {
        std::printf("<%s: %s>", qPrintable(currentLocaleIdentifier()),
                    qPrintable(preferredLanguages().join(u' ')));
        return;
    }
    const QByteArray without = "env -u LC_ALL -u LC_MESSAGES -u LC_NUMERIC -u LANG -u LANGUAGE "
                               "ZVUPDATE_TEST_PRINTS_LOCALE=1 ";
    for (const QStringList &row : testRows("platform/locales.tsv", 2))
        EXPECT_THAT(printedByTest("Locale.IsTheOneOfTheEnvironment", without + row[0].toLatin1()),
                    HasSubstr(row[1].toStdString()))
            << qPrintable(row[0]);
}
