#include "Tool.h"
#include "support/TestData.h"

using namespace Qt::StringLiterals;

namespace {

#ifdef ZVUPDATE_HAS_WINDOW
constexpr bool hasWindow = true;
#else
constexpr bool hasWindow = false;
#endif

QStringList words(const char *text)
{
    return QString::fromUtf8(text).split(u' ', Qt::SkipEmptyParts);
}

} // namespace

TEST(ArgumentsTest, WrongOnesAreRefusedInOneLineThatNamesThem)
{
    QList<std::pair<QStringList, QString>> cases = {
        {{}, u"--help"_s}, {{u"two\nlines"_s}, u"two lines"_s}, {{u"seal"_s, u""_s}, u"TEXT"_s}};
    for (const QStringList &row : testRows("zvupdate/wrong-arguments.tsv", 2))
        if (hasWindow || !row[0].contains(u"--show-window"))
            cases.append({row[0].split(u' '), row[1]});
    for (const auto &[arguments, named] : cases)
        Tool::expectRefusal(arguments, named);
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
    for (const auto &[given, shown] :
         {std::pair("--next-check 2030-01-31T12:00:00+02:00", "2030-01-31T10:00:00Z"),
          {"--next-check 2030-01-31T12:00:00", "2030-01-31T12:00:00Z"},
          {"--next-check 2030-01-31", "2030-01-31T00:00:00Z"}}) {
        preferences(given);
        EXPECT_EQ(preferences("")[nextCheck], QLatin1String(shown));
    }
    EXPECT_EQ(preferences("")[automatic], QJsonValue(true));
    EXPECT_EQ(preferences("--application Example/Player"), empty);
    EXPECT_EQ(Tool::run({u"preferences"_s}).output, u"Automatic updating:    on\n"
                                                    "Next check not before: 2030-01-31T00:00:00Z\n"
                                                    "Last download's MD5:   unset\n"_s);
    EXPECT_EQ(preferences("--automatic-updating unset --next-check unset"), empty);
}

TEST(SmallCommandsTest, AnswerInOneLine)
{
    const QTemporaryDir directory;
    const QString file = directory.filePath(u"file"_s);
    writeFile(file, "abc");
    const QString token = u"7D4470DA8E2DCE6836729BBA61EC3DBB"_s;
    const QString check = u"cmd=checkupd&id=更新&ver=1"_s;
    const QString sealed = u"05F8E49D41C8799F7C6018C1CAE44CB41077E93D3C98DA237EEEF387F6791F9E"_s;
    const struct
    {
        QStringList arguments;
        QString output; ///< Empty for a failure.
        QString locale = u"zh_TW.UTF-8"_s;
    } cases[] = {
        {{u"language"_s}, u"zh-TW"_s},
        {{u"language"_s}, u"en"_s, u"C"_s},
        {{u"seal"_s, check}, sealed},
        {{u"unseal"_s, sealed}, check},
        {{u"unseal"_s, token}, u"cmd=gettoken"_s},
        {{u"unseal"_s, token.chopped(1) + u'C'}, {}},
        {{u"digest"_s, file}, u"900150983cd24fb0d6963f7d28e17f72"_s},
        {{u"digest"_s, directory.path()}, {}},
        {{u"digest"_s, file + u'x'}, {}},
        {{u"digest"_s, u"/dev/null"_s}, {}},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(qPrintable(each.arguments.join(u' ')));
        const auto [status, output, errors] = Tool(each.arguments, -1, each.locale).end();
        EXPECT_EQ(status, each.output.isEmpty() ? 1 : 0);
        EXPECT_EQ(output, each.output.isEmpty() ? QString() : each.output + u'\n');
        EXPECT_EQ(errors.count(u'\n'), each.output.isEmpty() ? 1 : 0) << qPrintable(errors);
        const bool isFile = each.arguments[0] == u"digest";
        EXPECT_TRUE(status == 0 || !isFile || errors.contains(each.arguments[1]));
    }
}
