#include "../support/TestFiles.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <gmock/gmock.h>

namespace {

using Texts = QMap<QString, QString>;

struct Host
{
    QJsonObject report;
    QByteArray errors;
};

// Runs a host with an installer at hand, on a machine without a system bus.
Host runHost(const char *kind, const char *locale, const char *preferredLanguages)
{
    const QTemporaryDir directory;
    writeFile(directory.filePath(QStringLiteral("P1_2103.dmg")), "installer");
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove(QStringLiteral("LC_ALL"));
    environment.insert(QStringLiteral("LANG"), QString::fromLatin1(locale));
    environment.insert(QStringLiteral("LANGUAGE"), QString::fromLatin1(preferredLanguages));
    environment.insert(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"),
                       QStringLiteral("unix:path=") + directory.filePath(QStringLiteral("none")));

    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral(ZVUPDATE_WINDOW_HOST),
                  {QString::fromLatin1(kind), directory.path()});
    EXPECT_TRUE(process.waitForFinished()) << qPrintable(process.errorString());
    EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
    return {QJsonDocument::fromJson(process.readAllStandardOutput()).object(),
            process.readAllStandardError()};
}

struct Language
{
    const char *locale;
    const char *preferred;
    const char *labels;
    const char *notes;
};

void PrintTo(const Language &language, std::ostream *out)
{
    *out << language.locale << " " << language.preferred;
}

QJsonObject labels(const QString &language)
{
    const QMap<QString, QStringList> tables = {
        {QStringLiteral("en"),
         {QStringLiteral("Sample App Update"),
          QStringLiteral("The latest version Sample App v2.1.0.3 is ready to install now."),
          QStringLiteral("What's new ?"), QStringLiteral("Do not update.  Don't ask me again."),
          QStringLiteral("Not now"), QStringLiteral("Update")}},
        {QStringLiteral("zh-Hant"),
         {QStringLiteral("Sample App 更新"),
          QStringLiteral("最新版本 Sample App v2.1.0.3 現在可以安裝。"),
          QStringLiteral("有哪些新內容？"), QStringLiteral("不更新，並且不再詢問我。"),
          QStringLiteral("稍後再說"), QStringLiteral("更新")}},
        {QStringLiteral("zh-Hans"),
         {QStringLiteral("Sample App 更新"),
          QStringLiteral("最新版本 Sample App v2.1.0.3 现在可以安装。"),
          QStringLiteral("有哪些新内容？"), QStringLiteral("不更新，并且不再询问我。"),
          QStringLiteral("以后再说"), QStringLiteral("更新")}}};
    const QStringList texts = tables.value(language);
    return {{QStringLiteral("title"), texts[0]},   {QStringLiteral("headline"), texts[1]},
            {QStringLiteral("heading"), texts[2]}, {QStringLiteral("checkBox"), texts[3]},
            {QStringLiteral("notNow"), texts[4]},  {QStringLiteral("update"), texts[5]}};
}

class HostLanguageTest : public testing::TestWithParam<Language>
{
};

// The labels follow the languages that the user prefers, the notes the region.
TEST_P(HostLanguageTest, ShowsLabelsAndNotes)
{
    const Host host = runHost("widgets", GetParam().locale, GetParam().preferred);
    QJsonObject expected = labels(QString::fromLatin1(GetParam().labels));
    expected[QStringLiteral("notes")] = QString::fromLatin1(GetParam().notes);
    expected[QStringLiteral("result")] = 0;
    EXPECT_EQ(host.report, expected) << QJsonDocument(host.report).toJson().constData();
    EXPECT_EQ(host.errors, QByteArray());
}

INSTANTIATE_TEST_SUITE_P(Languages, HostLanguageTest,
                         testing::Values(Language{"en_US.UTF-8", "", "en", "notes in English"},
                                         Language{"C", "", "en", "notes in English"},
                                         Language{"zh_TW.UTF-8", "", "zh-Hant", "notes for Taiwan"},
                                         Language{"zh_HK.UTF-8", "", "zh-Hant", "notes in English"},
                                         Language{"zh_CN.UTF-8", "", "zh-Hans", "notes for China"},
                                         Language{"fr_FR.UTF-8", "", "en", "notes in English"},
                                         Language{"en_US.UTF-8", "fr:zh_TW:en", "zh-Hant",
                                                  "notes in English"},
                                         Language{"zh_TW.UTF-8", "en", "en", "notes for Taiwan"}));

TEST(HostTest, WithoutWidgetsGetsTheResultAndNoWindow)
{
    for (const char *kind : {"core", "gui"}) {
        const Host host = runHost(kind, "en_US.UTF-8", "");
        EXPECT_EQ(host.report, (QJsonObject{{QStringLiteral("result"), 0}})) << kind;
        EXPECT_EQ(host.errors, QByteArray()) << kind;
    }
}

} // namespace
