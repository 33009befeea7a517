#include "../controller/UpdateService.h"
#include "Desktop.h"
#include "support/TestData.h"

using namespace Qt::StringLiterals;

namespace {

/// A screen, a service, and a desktop that has a program for each type, through the opener that
/// there is.
class DesktopsTest : public Desktop, public testing::WithParamInterface<const char *>
{
public:
    ~DesktopsTest() override
    {
        screen_.kill();
        screen_.waitForFinished();
    }

protected:
    DesktopsTest()
    {
        screen_.start(u"Xvfb"_s, {u"-displayfd"_s, u"1"_s, u"-nolisten"_s, u"tcp"_s});
        hasScreen_ = screen_.waitForStarted() && screen_.waitForReadyRead();
        qputenv("DISPLAY", ":" + screen_.readLine().trimmed());
        qputenv("QT_QPA_PLATFORM", "xcb");
        qputenv("XDG_CURRENT_DESKTOP", GetParam());
        qputenv("KDE_SESSION_VERSION", "5");
        qputenv("DBUS_SESSION_BUS_ADDRESS", "disabled:"); // That of whoever runs the tests.
        for (const char *theirs :
             {"DESKTOP_SESSION", "GNOME_DESKTOP_SESSION_ID", "KDE_FULL_SESSION",
              "LXQT_SESSION_CONFIG", "MATE_DESKTOP_SESSION_ID"})
            qunsetenv(theirs);
        addProgram("xdg-mime", "exec \"$(dirname \"$(command -v xdg-open)\")/xdg-mime\" \"$@\"\n");
        addProgram("kde-open5", "exec note kde-open5 \"$1\"\n");
        addProgram("mimetype", "exit 1\n"); // Where it is there, it takes the place of file.
        addProgram("note", "echo \"$1 ${2##*/}\" >>\"$HOME/programs/opened\"\n");
        addProgram("host", "exec zvupdate check --json --product-id SampleApp --product-version 1 "
                           "--directory \"$HOME/updates\" --show-window --product-name Sample\n");

        const QString applications = QDir::homePath() + u"/data/applications/"_s;
        QDir().mkpath(applications);
        QByteArray defaults = "[Default Applications]\n";
        for (const QByteArray type :
             {"vnd.debian.binary-package", "x-rpm", "vnd.appimage", "vnd.flatpak", "x-shellscript",
              "zip", "x-xz-compressed-tar", "x-xz", "x-apple-diskimage", "octet-stream"}) {
            defaults += "application/" + type + "=" + type + ".desktop\n";
            writeFile(applications + QLatin1String(type) + u".desktop"_s,
                      "[Desktop Entry]\nType=Application\nName=Note\nExec=note " + type + " %f\n");
        }
        writeFile(applications + u"mimeapps.list"_s, defaults);
    }

    const QString directory_ = QDir::homePath() + u"/updates"_s;
    const QString opened_ = programs_ + u"/opened"_s;
    const QByteArray host_ = QFile::encodeName(programs_ + u"/host"_s);
    QProcess screen_;
    bool hasScreen_ = false;
    UpdateService service_;
};

} // namespace

TEST_P(DesktopsTest, OpensEachKindUnderTheNameOfItsKind)
{
    if (ZVUPDATE_SANITIZED)
        GTEST_SKIP() << "what libraries of a screen keep is not of interest here";
    for (const char *needed : {"Xvfb", "xdg-open", "gio", "file"}) {
        if (QStandardPaths::findExecutable(QLatin1String(needed)).isEmpty())
            GTEST_SKIP() << "there is no " << needed;
    }
    ASSERT_TRUE(hasScreen_);
    const QByteArray desktop = GetParam();
    for (const QStringList &row : testRows("zvupdate-apply/kinds.tsv", 5)) {
        if (row[3].isEmpty())
            continue;
        SCOPED_TRACE(qPrintable(row[2]));
        Offer offer;
        offer.file = QByteArray::fromPercentEncoding(row[0].toLatin1());
        offer.digest = Offer::digestOf(offer.file);
        service_.setOffer(offer);
        QDir(directory_).removeRecursively();
        QFile::remove(opened_);
        // KDE's opener is asked about any of them.
        const QString type = desktop == "KDE" ? u"kde-open5"_s : row[desktop == "GNOME" ? 3 : 4];
        const QString suffix = row[1].isEmpty() ? u".dmg"_s : row[1];
        const QString expected =
            type.isEmpty() ? QString() : type + u" SampleApp_2"_s + suffix + u'\n';
        Host host({"Check", "", host_.constData()}, "Update");
        EXPECT_EQ(host.end(), 0);
        const QString action = expected.isEmpty() ? u"\"closed\""_s : u"\"update\""_s;
        EXPECT_TRUE(host.output().contains(action));
        EXPECT_TRUE(waitFor([&] { return readFile(opened_) == expected.toUtf8(); }))
            << qPrintable(expected) << readFile(opened_).constData();
    }
}

INSTANTIATE_TEST_SUITE_P(Of, DesktopsTest, testing::Values("GNOME", "KDE", ""));
