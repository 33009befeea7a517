#include "../controller/UpdateService.h"
#include "Desktop.h"

using namespace Qt::StringLiterals;

namespace {

/// An installer, and what desktops have for it. KDE's opener is asked about any of them.
struct Kind
{
    QByteArray content;
    const char *suffix;
    const char *gnome; ///< The type whose program opens it.
    const char *none;  ///< The same where it is no desktop that is known; empty for nothing.
};

const Kind kinds[] = {
    {"!<arch>\ndebian-binary   1410122664  0     0     100644  4         `\n2.0\n", ".deb",
     "vnd.debian.binary-package", "vnd.debian.binary-package"},
    {QByteArrayLiteral("\xed\xab\xee\xdb\3\0"), ".rpm", "x-rpm", "x-rpm"},
    {QByteArrayLiteral("\x7f"
                       "ELF\2\1\1\0AI\2\0\0\0\0\0\2\0\x3e\0\1\0\0\0"),
     ".AppImage", "vnd.appimage", ""},
    {QByteArrayLiteral("flatpak\0\1\0\x89\xe5"), ".flatpak", "vnd.flatpak", ""},
    {"#!/bin/sh\nexit 0\n", ".run", "x-shellscript", ""},
    {QByteArrayLiteral("PK\3\4\x14\0\0\0") + QByteArray(50, '\0'), ".zip", "zip", "zip"},
    {QByteArrayLiteral("\xfd"
                       "7zXZ\0\0"),
     ".tar.xz", "x-xz-compressed-tar", "x-xz"},
    {QByteArray(1024, '\1') + "koly" + QByteArray(508, '\0'), ".dmg", "x-apple-diskimage", ""},
    {QByteArrayLiteral("\1\2\3"), ".dmg", "x-apple-diskimage", ""},
};

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

    /// "TYPE NAME"; empty when it is not opened.
    static QByteArray expectedOf(const Kind &kind)
    {
        const QByteArray desktop = GetParam();
        const QByteArray type = desktop == "GNOME" ? kind.gnome
                                : desktop == "KDE" ? "kde-open5"
                                                   : kind.none;
        return type.isEmpty() ? "" : type + " SampleApp_2" + kind.suffix + '\n';
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
    for (const Kind &kind : kinds) {
        Offer offer;
        offer.file = kind.content;
        offer.digest = Offer::digestOf(kind.content);
        service_.setOffer(offer);
        QDir(directory_).removeRecursively();
        QFile::remove(opened_);
        const QByteArray expected = expectedOf(kind);
        Host host({"Check", "", host_.constData()}, "Update");
        EXPECT_EQ(host.end(), 0);
        const QString action = expected.isEmpty() ? u"\"closed\""_s : u"\"update\""_s;
        EXPECT_TRUE(host.output().contains(action)) << kind.suffix;
        EXPECT_TRUE(waitFor([&] { return readFile(opened_) == expected; }))
            << expected.constData() << readFile(opened_).constData();
    }
}

INSTANTIATE_TEST_SUITE_P(Of, DesktopsTest, testing::Values("GNOME", "KDE", ""));
