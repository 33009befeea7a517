#include "platform/Locale.h"
#include "platform/Preferences.h"
#include "support/LogCapture.h"
#include "support/TestFiles.h"

#include <QCoreApplication>
#include <QSettings>

#include <gmock/gmock.h>

#include <cstdio>
#include <functional>

#include <sys/stat.h>
#include <unistd.h>

using namespace ZVPlatform;
using testing::HasSubstr;

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

TEST(Preferences, DoNotWaitForWhatIsInTheLocksPlace)
{
    const QString lock = QSettings().fileName() + QStringLiteral(".lock");
    const QByteArray path = QFile::encodeName(lock);
    const std::tuple<const char *, std::function<bool()>, bool> rows[] = {
        {"left empty", [&] { return writeFile(lock, {}), true; }, true},
        {"of another machine", [&] { return writeFile(lock, "1\nhost\nelsewhere\n"), true; }, true},
        {"directory", [&] { return mkdir(path.constData(), 0700) == 0; }, false},
        {"pipe", [&] { return mkfifo(path.constData(), 0600) == 0; }, false},
        {"link to nowhere", [&] { return symlink("nowhere", path.constData()) == 0; }, false}};
    const QString key = QStringLiteral("key");
    for (const auto &[name, place, isWritten] : rows) {
        SCOPED_TRACE(name);
        Preferences::setText(key, QStringLiteral("before"));
        EXPECT_TRUE(Preferences::synchronise());
        ASSERT_TRUE(place());
        const LogCapture log;
        Preferences::setText(key, QStringLiteral("after"));
        Preferences::remove(QStringLiteral("other"));
        EXPECT_EQ(Preferences::synchronise(), isWritten);
        EXPECT_EQ(Preferences::text(key),
                  isWritten ? QStringLiteral("after") : QStringLiteral("before"));
        EXPECT_EQ(log.lines().size(), isWritten ? 0 : 1);
        std::remove(path.constData());
    }
}

// The environment is read once a process, so each row has one of its own, which runs this test.
TEST(Locale, IsTheOneOfTheEnvironment)
{
    if (qEnvironmentVariableIsSet("ZVUPDATE_TEST_PRINTS_LOCALE")) {
        std::printf("<%s: %s>", qPrintable(currentLocaleIdentifier()),
                    qPrintable(preferredLanguages().join(u' ')));
        return;
    }
    const struct
    {
        const char *environment;
        const char *expected;
    } rows[] = {
        {"LC_ALL=zh_TW.UTF-8", "<zh_TW: zh-TW zh-Hant-TW zh-Hant zh>"},
        {"LC_ALL=zh_CN.UTF-8", "<zh_CN: zh-CN zh-Hans-CN zh-Hans zh>"},
        {"LC_ALL=zh_HK.UTF-8", "<zh_HK: zh-HK zh-Hant-HK zh-Hant zh>"},
        {"LC_ALL=en_US.UTF-8", "<en_US: en-US en-Latn-US en-Latn en>"},
        {"LANG=zh_TW.UTF-8 LC_NUMERIC=C", "<zh_TW: zh-TW zh-Hant-TW zh-Hant zh>"},
        {"LANG=en_US.UTF-8 LC_NUMERIC=zh_TW.UTF-8", "<en_US: en-US en-Latn-US en-Latn en>"},
        {"LANG=en_US.UTF-8 LC_MESSAGES=zh_TW", "<zh_TW: zh-TW zh-Hant-TW zh-Hant zh>"},
        {"LANG=zh_TW LC_MESSAGES=zh_TW LC_ALL=zh_CN", "<zh_CN: zh-CN zh-Hans-CN zh-Hans zh>"},
        {"LC_NUMERIC=zh_TW.UTF-8", "<en: "},
        {"LC_ALL=C", "<en: en>"},
        {"LC_ALL=POSIX", "<en: en>"},
        {"LC_ALL=C.UTF-8", "<en: en>"},
        {"LC_ALL=zh", "<zh_CN: zh zh-Hans-CN zh-Hans "},
        {"LC_ALL=en_TW.UTF-8 LANGUAGE=en", "<en_TW: en "},
        {"LC_ALL=en_US.UTF-8 LANGUAGE=zh_TW:de", "<en_US: zh-TW zh-Hant-TW zh-Hant zh de "},
        {"LC_ALL=C.UTF-8 LANGUAGE=zh_TW:de", "<en: zh-TW zh-Hant-TW zh-Hant zh de "},
    };
    const QByteArray program = QFile::encodeName(QCoreApplication::applicationFilePath());
    for (const auto &row : rows) {
        const QByteArray command =
            QByteArray("env -u LC_ALL -u LC_MESSAGES -u LC_NUMERIC -u LANG -u LANGUAGE ") +
            row.environment + " ZVUPDATE_TEST_PRINTS_LOCALE=1 '" + program +
            "' --gtest_filter=Locale.IsTheOneOfTheEnvironment";
        // Not QProcess: it shares memory with its child at first, which blinds thread sanitizer.
        FILE *const output = ::popen(command.constData(), "r");
        ASSERT_NE(output, nullptr);
        QFile pipe;
        ASSERT_TRUE(pipe.open(output, QIODevice::ReadOnly));
        EXPECT_THAT(pipe.readAll().toStdString(), HasSubstr(row.expected)) << command.data();
        EXPECT_EQ(::pclose(output), 0);
    }
}
