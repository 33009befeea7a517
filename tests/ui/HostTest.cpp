#include "../support/TestData.h"

#include <QProcess>
#include <QSize>

using namespace Qt::Literals::StringLiterals;

namespace {

// What a host says with an installer at hand, on a machine without a system bus.
QString runHost(const QString &kind, const QString &locale, const QString &preferredLanguages,
                const QSize &screen = {800, 600}, const QString &scale = u"1"_s)
{
    const QTemporaryDir directory;
    writeFile(directory.filePath(u"P1_2103.dmg"_s), "installer");
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove(u"LC_ALL"_s);
    environment.remove(u"LC_MESSAGES"_s);
    environment.insert(u"LC_NUMERIC"_s, u"C"_s); // How to write numbers says nothing of words.
    environment.insert(u"LANG"_s, locale);
    environment.insert(u"LANGUAGE"_s, preferredLanguages);
    writeFile(directory.filePath(u"screen.json"_s),
              QStringLiteral(R"({"screens":[{"name":"one","x":0,"y":0,"width":%1,"height":%2,)"
                             R"("logicalDpi":96,"logicalBaseDpi":96,"dpr":1}]})")
                  .arg(screen.width())
                  .arg(screen.height())
                  .toUtf8());
    environment.insert(u"QT_QPA_PLATFORM"_s,
                       u"offscreen:configfile="_s + directory.filePath(u"screen.json"_s));
    environment.insert(u"QT_SCALE_FACTOR"_s, scale);
    environment.insert(u"DBUS_SYSTEM_BUS_ADDRESS"_s, u"unix:path=/nonexistent/bus"_s);
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(QStringLiteral(ZVUPDATE_WINDOW_HOST), {kind, directory.path()});
    EXPECT_TRUE(process.waitForFinished() && process.exitStatus() == QProcess::NormalExit)
        << qPrintable(process.errorString());
    return QString::fromUtf8(process.readAll());
}

// The labels follow the languages that the user prefers, the notes the region.
TEST(HostTest, ShowsLabelsAndNotesInTheUsersLanguages)
{
    for (const QStringList &row : testRows("ui/languages.tsv", 3))
        EXPECT_EQ(runHost(u"widgets"_s, row[0], row[1]).replace(u"\n"_s, u" | "_s), row[2])
            << qPrintable(row[0]);
}

// On each with three fonts, light and dark.
TEST(HostTest, FitsTheScreenWithoutCuttingALabel)
{
    for (const QSize &screen : {QSize(800, 600), QSize(1366, 768)}) {
        for (const QString &scale : {u"1"_s, u"1.5"_s, u"2"_s}) {
            for (const QString &language : {u"en_US.UTF-8"_s, u"zh_TW.UTF-8"_s, u"zh_CN.UTF-8"_s})
                EXPECT_EQ(runHost(u"fit"_s, language, u""_s, screen, scale), QString())
                    << screen.width() << " at " << qPrintable(scale + u' ' + language);
        }
    }
}

TEST(HostTest, WithoutWidgetsGetsTheResultAndNoWindow)
{
    EXPECT_EQ(runHost(u"core"_s, u"en_US.UTF-8"_s, u""_s), u"0"_s);
    EXPECT_EQ(runHost(u"gui"_s, u"en_US.UTF-8"_s, u""_s), u"0"_s);
}

} // namespace
