#include "../../platform/files/Files.h"
#include "../../platform/files/LockedFile.h"
#include "Archives.h"
#include "Installation.h"
#include "support/TestData.h"

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

class Refusals : public Installation
{
protected:
    void expectRefused(const char *installer, const char *target, const char *reason,
                       const QStringList &more = {}, int status = 1) const
    {
        const auto before = tree();
        const Tool::End end = replace(installer, target, more);
        SCOPED_TRACE(testing::Message() << reason << ": " << qPrintable(end.errors));
        EXPECT_EQ(end.status, status);
        EXPECT_TRUE(end.errors.contains(QLatin1String(reason)));
        EXPECT_EQ(tree(), before);
    }
};

TEST_F(Refusals, HostileArchivesLeaveNothingBehind)
{
    const Item file{"plain", Item::File, "x"};
    const QByteArray zip = archiveOf({{"grows", Item::File, QByteArray(100'000, 'x')}}, "zip");
    const QByteArray size("\xa0\x86\x01\x00", 4);
    ASSERT_TRUE(zip.contains(size));
    const auto tooMuch = qint64(ZVPlatform::Files::room(path("app")) * 2);
    const QByteArray whole = archiveOf({{"long", Item::File, QByteArray(100'000, 'x')}}, "xz");
    const std::pair<QByteArray, const char *> cases[] = {
        {archiveOf({file, {"/tmp/absolute"}}), "absolute name"},
        {archiveOf({file, {"../up"}}), "not a name within"},
        {archiveOf({file, {"a/../../up"}}), "not a name within"},
        {archiveOf({file, {"a/.."}}), "not a name within"},
        {archiveOf({file, {"../up", Item::File, "x"}}, "zip"), "not a name within"},
        {archiveOf({file, {QByteArray(300, 'n')}}), "not a name within"},
        {archiveOf({file, {QByteArray("d/").repeated(101) + "n"}}), "too deep"},
        {archiveOf({file, {"name\xff"}}), "not UTF-8"},
        {archiveOf({file, {"l", Item::Link, "/etc"}}), "leaves the folder"},
        {archiveOf({file, {"l", Item::Link, "../up"}}), "leaves the folder"},
        {archiveOf({file, {"a/l", Item::Link, "../../up"}}), "leaves the folder"},
        {archiveOf({file, {"d", Item::Link, "."}, {"l", Item::Link, "d/d/../.."}}),
         "leaves the folder"},
        {archiveOf({file, {"l", Item::Link, "d"}, {"l/x"}}), "comes twice"},
        {archiveOf({file, {"l", Item::Link, "d"}, {"l", Item::File, "x"}}), "comes twice"},
        {archiveOf({file, {"plain/x"}}), "comes twice"},
        {archiveOf({file, file}), "comes twice"},
        {archiveOf({file, {"second", Item::SecondName, "../treasure"}}), "not a name within"},
        {archiveOf({file, {"l", Item::Link, "plain"}, {"second", Item::SecondName, "l"}}),
         "second name of no file"},
        {archiveOf({file, {"PLAIN"}}), "but for the case"},
        {archiveOf({file, {"Ä/x"}, {"ä/y"}}), "but for the case"},
        {archiveOf({file, {"A\xcc\x88"}, {"ä"}}), "but for the case"},
        {archiveOf({file, {"device", Item::Device}}), "is a device"},
        {archiveOf({file, {"pipe", Item::Pipe}}), "is a device"},
        {archiveOf({file, {"root", Item::File, "x", 04755}}), "set-user"},
        {archiveOf({file, {"group", Item::Folder, "", 02755}}), "set-user"},
        {archiveOf({file, {"bomb", Item::File, "", 0644, tooMuch}}), "no room"},
        {QByteArray(zip).replace(size, QByteArray("\x0a\x00\x00\x00", 4)), "archive"},
        {whole.first(whole.size() - 40), "damaged"},
        {QByteArray(whole).replace(whole.size() / 2, 1, "?"), "damaged"},
        {archiveOf({{"folder", Item::Folder}}), "no file in it"},
        {QByteArray::fromHex("1f8b0800000000000003") + QByteArray(100, '\0'), "damaged"},
    };
    write("app/old", "old");
    for (const auto &[archive, reason] : cases) {
        write("new", archive);
        expectRefused("new", "app", reason);
    }
    write("new", archiveOf({{"one/x"}, {"two/x"}}));
    expectRefused("new", "app", "no one top folder", {u"--strip-top-folder"_s});
    write("new", archiveOf({{"top/l", Item::Link, "../x"}, {"top/x", Item::File, "x"}}));
    expectRefused("new", "app", "leaves the folder", {u"--strip-top-folder"_s});
}

TEST_F(Refusals, NameWhatIsWrong)
{
    write("app", "#!/bin/sh\n", true);
    write("data", "#!/bin/sh\n");
    write("new", "#!/bin/sh\necho new\n");
    write("folder/old", "old");
    write("new.tar", archiveOf({{"x", Item::File, "x"}}));
    write("new.deb", "!<arch>\ndebian-binary   1410122664  0     0     100644  4         `\n2.0\n");
    write("new.flatpak", QByteArray("flatpak\0more", 12));
    for (const QStringList &row : testRows("zvupdate-apply/refusals.tsv", 5))
        expectRefused(qPrintable(row[0]), qPrintable(row[1]), qPrintable(row[2]),
                      row[3].split(u' ', Qt::SkipEmptyParts), row[4].toInt());
    const ZVPlatform::LockedFile writer(path("new"));
    expectRefused("new", "app", "being written");
}

TEST_F(Refusals, SpareWhatOthersLookAfter)
{
    write("app", "#!/bin/sh\n", true);
    write("new", "#!/bin/sh\necho new\n");
    write("home/app", "#!/bin/sh\n", true);
    write("new.tar", archiveOf({{"x", Item::File, "x"}}));
    write("bin/dpkg-query", "#!/bin/sh\ncase $3 in */app) exit 0;; esac; exit 1\n", true);
    const auto refuses = [this](const char *variable, const QString &value, const char *installer,
                                const char *target, const char *reason) {
        const QByteArray former = qgetenv(variable);
        qputenv(variable, QFile::encodeName(value));
        const QStringList ourselves{u"--wait-for"_s, QString::number(getpid())};
        expectRefused(installer, target, reason, ourselves);
        former.isNull() ? qunsetenv(variable) : qputenv(variable, former);
    };
    refuses("SNAP", folder_.path(), "new", "app", "a snap");
    refuses("APPIMAGE", path("app"), "new", "app", "what APPIMAGE names");
    refuses("PATH", path("bin") + u":/usr/bin:/bin"_s, "new", "app", "Debian package");
    refuses("HOME", path("home"), "new.tar", "home", "no program's own");
    refuses("HOME", path("home/app"), "new.tar", "home", "no program's own");
    if (geteuid() == 0) {
        ASSERT_EQ(chown(QFile::encodeName(path("app")).constData(), 1, 1), 0);
        expectRefused("new", "app", "another user");
    }
}

} // namespace
