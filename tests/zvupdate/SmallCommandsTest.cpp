#include "Tool.h"

#include "support/TestFiles.h"

#include <QDir>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

QStringList words(const char *text)
{
    return QString::fromUtf8(text).split(u' ', Qt::SkipEmptyParts);
}

} // namespace

TEST(ArgumentsTest, WrongOnesAreRefusedInOneLineThatNamesThem)
{
    const QStringList right = words("check --product-id P --product-version 1 --directory d");
    struct Case
    {
        QStringList arguments;
        const char *named = nullptr;
    };
    const Case cases[] = {
        {{}, "--help"},
        {{u"chekc"_s}, "chekc"},
        {{u"two\nlines"_s}, "two lines"},
        {words("check"), "--product-id"},
        {words("check --product-id P --directory d"), "--product-version"},
        {words("check --product-id P --product-version 1"), "--directory"},
        {right + words("--directory"), "--directory"},
        {right + words("--product-id="), "--product-id"},
        {right + words("--product-id a/b"), "--product-id"},
        {right + words("--directory /dev/null"), "--directory"},
        {right + words("--mode both"), "session or connection"},
        {right + words("--json=yes"), "--json"},
        {right + words("--frobnicate"), "frobnicate"},
        {right + words("--product-name N"), "--show-window"},
#ifdef ZVUPDATE_HAS_WINDOW
        {right + words("--show-window"), "--product-name"},
        {right + words("--show-window --product-name N --no-delegate"), "--no-delegate"},
#endif
        {right + words("--on-update true"), "--show-window"},
        {right + words("more"), "more"},
        {right + words("--application Name"), "ORGANIZATION/NAME"},
        {words("doctor --product-id a/b --product-version 1 --directory d"), "--product-id"},
        {words("preferences --application /Name"), "ORGANIZATION/NAME"},
        {words("preferences --application ../Name"), "ORGANIZATION/NAME"},
        {words("preferences --application Organization/."), "ORGANIZATION/NAME"},
        {words("preferences --application Organization/Na/me"), "ORGANIZATION/NAME"},
        {words("preferences --automatic-updating maybe"), "maybe"},
        {words("preferences --next-check 2030-02-31"), "2030-02-31"},
        {words("preferences --next-check soon"), "soon"},
        {words("seal"), "TEXT"},
        {{u"seal"_s, u""_s}, "TEXT"},
        {words("unseal 00 00"), "00"},
        {words("digest"), "FILE"},
        {words("language en"), "en"},
    };
    for (const Case &each : cases) {
        const std::string what = each.arguments.join(u' ').toStdString();
        const auto [status, output, errors] = Tool::run(each.arguments);
        EXPECT_EQ(status, 2) << what;
        EXPECT_EQ(output, QString()) << what;
        EXPECT_EQ(errors.count(u'\n'), 1) << what << ": " << qPrintable(errors);
        EXPECT_TRUE(errors.startsWith(u"zvupdate"_s));
        EXPECT_TRUE(errors.contains(QString::fromUtf8(each.named)))
            << what << ": " << qPrintable(errors);
    }
}

TEST(PreferencesCommandTest, ShowsAndSetsWhatTheLibraryKeeps)
{
    const QString automatic = u"ZVUpdateAutoUpdate"_s;
    const QString nextCheck = u"CorvantaAutoUpdateNextCheckDate"_s;
    const auto preferences = [](const char *arguments) {
        const auto end = Tool::run(words("preferences --json") + words(arguments));
        EXPECT_EQ(end.status, 0) << qPrintable(end.errors);
        return eventsIn(end.output).value(0);
    };
    const QJsonObject empty = {{automatic, QJsonValue()},
                               {nextCheck, QJsonValue()},
                               {u"ZVLAST_DOWNLOAD_MD5"_s, QJsonValue()}};
    EXPECT_EQ(preferences(""), empty);

    EXPECT_EQ(preferences("--automatic-updating off")[automatic], QJsonValue(false));
    EXPECT_EQ(preferences("--automatic-updating on")[automatic], QJsonValue(true));
    const struct
    {
        const char *given;
        const char *shown;
    } dates[] = {{"2030-01-31T12:00:00Z", "2030-01-31T12:00:00Z"},
                 {"2030-01-31T12:00:00+02:00", "2030-01-31T10:00:00Z"},
                 {"2030-01-31T12:00:00", "2030-01-31T12:00:00Z"},
                 {"2030-01-31", "2030-01-31T00:00:00Z"}};
    for (const auto &date : dates) {
        preferences((QByteArray("--next-check ") + date.given).constData());
        EXPECT_EQ(preferences("")[nextCheck], QLatin1String(date.shown));
    }
    EXPECT_EQ(preferences("")[automatic], QJsonValue(true));
    EXPECT_EQ(preferences("--application Example/Player"), empty);
    EXPECT_EQ(Tool::run({u"preferences"_s}).output, u"Automatic updating:    on\n"
                                                    "Next check not before: 2030-01-31T00:00:00Z\n"
                                                    "Last download's MD5:   unset\n"_s);
    EXPECT_EQ(preferences("--automatic-updating unset --next-check unset"), empty);
}

TEST(LanguageCommandTest, FollowsTheLocaleAndSaysNothingOfIt)
{
    for (const auto &[locale, code] : {std::pair("zh_TW.UTF-8", "zh-TW\n"), {"C", "en\n"}}) {
        const auto [status, output, errors] =
            Tool({u"language"_s}, -1, QLatin1String(locale)).end();
        EXPECT_EQ(status, 0);
        EXPECT_EQ(output, QLatin1String(code));
        EXPECT_EQ(errors, QString());
    }
}

TEST(SealingCommandsTest, SealAndUnseal)
{
    const struct
    {
        QString text;
        QString sealed;
    } cases[] = {{u"cmd=gettoken"_s, u"7D4470DA8E2DCE6836729BBA61EC3DBB"_s},
                 {u"cmd=checkupd&id=更新&ver=1"_s,
                  u"05F8E49D41C8799F7C6018C1CAE44CB41077E93D3C98DA237EEEF387F6791F9E"_s}};
    for (const auto &[text, sealed] : cases) {
        EXPECT_EQ(Tool::run({u"seal"_s, text}).output, sealed + u'\n');
        EXPECT_EQ(Tool::run({u"unseal"_s, sealed}).output, text + u'\n');
    }
    const auto bad = Tool::run({u"unseal"_s, u"7D4470DA8E2DCE6836729BBA61EC3DBC"_s});
    EXPECT_EQ(bad.status, 1);
    EXPECT_EQ(bad.output, QString());
    EXPECT_EQ(bad.errors.count(u'\n'), 1);
}

TEST(DigestCommandTest, DigestsAFileAndRefusesWhatIsNone)
{
    const QTemporaryDir directory;
    const QString file = directory.filePath(u"file"_s);
    writeFile(file, "abc");
    const auto good = Tool::run({u"digest"_s, file});
    EXPECT_EQ(good.status, 0);
    EXPECT_EQ(good.output, u"900150983cd24fb0d6963f7d28e17f72\n"_s);
    for (const QString &path : {directory.path(), file + u'x', u"/dev/null"_s}) {
        const auto [status, output, errors] = Tool::run({u"digest"_s, path});
        EXPECT_EQ(status, 1);
        EXPECT_EQ(output, QString());
        EXPECT_TRUE(errors.contains(path) && errors.count(u'\n') == 1) << qPrintable(errors);
    }
}
