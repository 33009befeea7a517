#include "Archives.h"
#include "Installation.h"

#include <QProcess>
#include <QThread>

#include <archive.h>
#include <dlfcn.h>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

/// A process that runs until it is told to end.
class OtherProcess : public QProcess
{
public:
    explicit OtherProcess(const QString &argument = {})
    {
        start(u"sh"_s, {u"-c"_s, u"read -r _"_s, argument});
        EXPECT_TRUE(waitForStarted());
    }
    ~OtherProcess() override { end(); }

    QString id() const { return QString::number(processId()); }
    void end()
    {
        closeWriteChannel();
        waitForFinished();
    }
};

class Apply : public Installation
{
protected:
    Apply()
    {
        qputenv("OUT", QFile::encodeName(path("ran")));
        qputenv("MARK", "mark:");
        QDir::setCurrent(folder_.path());
    }

    QByteArray ran() const { return readFile(path("ran")); }
    void remove(const char *name) const
    {
        if (!QFile::remove(path(name)))
            QDir(path(name)).removeRecursively();
    }
};

TEST_F(Apply, ReplacesAFileAndKeepsNamePermissionsAndLinks)
{
    write("new", program("new"));
    write("Sample-1.0.AppImage", "old", true);
    chmod(QFile::encodeName(path("Sample-1.0.AppImage")).constData(), 0710);
    QFile::link(u"Sample-1.0.AppImage"_s, path("Sample"));
    for (const QByteArray &old : {QByteArray("old"), program("new")}) { // Once over a previous one.
        const auto end = replace("new", "Sample");
        EXPECT_EQ(end.status, 0) << qPrintable(end.errors);
        EXPECT_EQ(readFile(path("Sample-1.0.AppImage")), program("new"));
        EXPECT_EQ(readFile(path("Sample-1.0.AppImage.previous")), old);
    }
    // As it is left where names cannot be exchanged.
    remove("Sample-1.0.AppImage.previous");
    QFile::rename(path("Sample-1.0.AppImage"), path("Sample-1.0.AppImage.previous"));
    EXPECT_EQ(replace("new", "Sample").status, 0);
    EXPECT_TRUE(QFileInfo(path("Sample")).isSymLink());
    struct stat status = {};
    stat(QFile::encodeName(path("Sample")).constData(), &status);
    EXPECT_EQ(status.st_mode & 07777, 0710);
    EXPECT_EQ(tree().size(), 4);
}

TEST_F(Apply, ReplacesAFolderFromEachKindOfArchive)
{
    const QList<Item> items{{"./top", Item::Folder, "", 0700},
                            {"./top/bin/run", Item::File, "new", 0700},
                            {"top/libß/data", Item::File, QByteArray(300'000, 'x'), 0600},
                            {"top/libß/up", Item::Link, "../bin/run"}};
    for (const char *format : {"tar", "gzip", "xz", "zstd", "zip"}) {
        SCOPED_TRACE(format);
        remove("app");
        remove("app.previous");
        write("app/old", "old");
        write("new", archiveOf(items, format));
        const auto end = replace("new", "app", {u"--strip-top-folder"_s});
        EXPECT_EQ(end.status, 0) << qPrintable(end.errors);
        EXPECT_EQ(readFile(path("app/libß/up")), "new");
        EXPECT_TRUE(QFileInfo(path("app/bin/run")).isExecutable());
        EXPECT_FALSE(QFileInfo(path("app/libß/data")).permissions() & QFile::ExeOwner);
        EXPECT_EQ(readFile(path("app/libß/data")).size(), 300'000);
        EXPECT_EQ(readFile(path("app.previous/old")), "old");
        EXPECT_EQ(
            QDir(folder_.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
            (QStringList{u"app"_s, u"app.previous"_s, u"new"_s}));
    }
    write("app/second", "");
    write("new", archiveOf({{"a", Item::File, "one"}, {"b", Item::SecondName, "a"}}));
    EXPECT_EQ(replace("new", "app").status, 0);
    EXPECT_EQ(readFile(path("app/b")), "one");
}

// In the same environment and folder, with its arguments as they are; on probation the old one
// comes back.
TEST_F(Apply, RestartsTheNewOneOrElseTheOldOne)
{
    const QByteArray where = ' ' + folder_.path().toUtf8() + " mark:";
    const struct
    {
        QByteArray installer;
        QStringList arguments;
        int status;
        QByteArray ran;
    } cases[] = {
        {program("new"), {u"--help"_s, u""_s, u"ä b"_s}, 0, "new" + where + " --help  ä b\n"},
        {program("bad", "exit 3"), {u"x"_s}, 1, "bad" + where + " x\nold" + where + " x\n"},
        {program("bad", "kill -9 $$"), {}, 1, "bad" + where + "\nold" + where + "\n"},
        {"#!/nowhere/no-shell\n", {}, 1, "old" + where + "\n"},
    };
    for (const auto &[installer, arguments, status, expectedRuns] : cases) {
        const QByteArray expected = expectedRuns;
        for (const bool isFolder : {false, true}) {
            remove("ran");
            remove("app");
            write(isFolder ? "app/run" : "app", program("old"), true);
            write("new", isFolder ? archiveOf({{"run", Item::File, installer, 0755}}) : installer);
            const QStringList more{u"--program"_s, u"run"_s};
            const auto end =
                replace("new", "app",
                        (isFolder ? more : QStringList()) +
                            QStringList{u"--probation"_s, u"1"_s, u"--restart"_s} + arguments);
            EXPECT_EQ(end.status, status) << qPrintable(end.errors);
            EXPECT_TRUE(waitFor([&] { return ran() == expected; })) << ran().constData();
            EXPECT_EQ(readFile(path(isFolder ? "app/run" : "app")),
                      status == 0 ? installer : program("old"));
            EXPECT_EQ(QFile::exists(path("app.previous")), status == 0);
            remove("app.previous");
        }
    }
}

TEST_F(Apply, WaitsForTheEndOfTheHostAndOfNoOther)
{
    write("new", program("new"));
    write("app", program("old"), true);
    OtherProcess host;
    const QStringList waiting{u"--wait-for"_s, host.id()};
    EXPECT_EQ(replace("new", "app", waiting + QStringList{u"--patience"_s, u"0"_s, u"--restart"_s})
                  .status,
              1);
    EXPECT_EQ(ran(), "");

    Tool tool(QStringList{u"--installer"_s, path("new"), u"--replace"_s, path("app")} + waiting);
    ASSERT_TRUE(tool.waitForOutput(u"ready\n"_s));
    const auto other = replace("new", "app");
    EXPECT_EQ(other.status, 1);
    EXPECT_TRUE(other.errors.contains(u"another process"_s)) << qPrintable(other.errors);
    EXPECT_EQ(readFile(path("app")), program("old"));
    host.end();
    EXPECT_EQ(tool.end().status, 0);
    EXPECT_EQ(readFile(path("app")), program("new"));
}

// A process that is younger than the program cannot be the one that has started it.
TEST_F(Apply, DoesNotTakeAnotherProcessForTheHost)
{
    write("new", program("new"));
    write("app", program("old"), true);
    QProcess tool;
    tool.start(u"sh"_s,
               {u"-c"_s,
                u"read pid; exec \"$0\" --installer \"$1\" --replace \"$2\" --wait-for $pid"_s,
                QStringLiteral(ZVUPDATE_PROGRAM), path("new"), path("app")});
    ASSERT_TRUE(tool.waitForStarted());
    QThread::msleep(50); // The system counts in hundredths of a second.
    const OtherProcess other;
    tool.write(other.id().toLatin1() + '\n');
    EXPECT_TRUE(tool.waitForFinished());
    EXPECT_EQ(tool.exitCode(), 0);
    EXPECT_EQ(other.state(), QProcess::Running);
}

// From a folder that it replaces, while in one that goes with it; and from an AppImage that is one.
// Each has a library of its own there.
TEST_F(Apply, LeavesWhatItReplaces)
{
    write("new", program("new"));
    write("new.tar", archiveOf({{"run", Item::File, program("new"), 0755}}));
    write("file", program("old"), true);
    for (const bool isFolder : {true, false}) {
        remove("app");
        write("app/run", program("old"), true);
        remove("ran");
        ASSERT_TRUE(QFile::copy(QStringLiteral(ZVUPDATE_PROGRAM), path("app/apply")));
        Dl_info library = {};
        dladdr(reinterpret_cast<const void *>(&archive_version_number), &library);
        const QString libraryPath = QFile::decodeName(library.dli_fname);
        ASSERT_TRUE(QFile::copy(libraryPath, path("app/") + QFileInfo(libraryPath).fileName()));
        OtherProcess host(path("app/run")); // As an interpreter.

        QProcess tool;
        auto environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"LD_LIBRARY_PATH"_s, path("app"));
        if (!isFolder) {
            environment.insert(u"APPIMAGE"_s, path("file"));
            environment.insert(u"APPDIR"_s, path("app"));
        }
        tool.setProcessEnvironment(environment);
        QStringList arguments{u"--installer"_s, path(isFolder ? "new.tar" : "new"),
                              u"--replace"_s,   path(isFolder ? "app" : "file"),
                              u"--wait-for"_s,  host.id(),
                              u"--probation"_s, u"1"_s};
        if (isFolder) {
            arguments += {u"--program"_s, u"run"_s};
            QDir().mkpath(path("app/gone"));
            tool.setWorkingDirectory(path("app/gone"));
        }
        tool.start(path("app/apply"), arguments + QStringList{u"--restart"_s, u"x"_s});
        ASSERT_TRUE(tool.waitForStarted());
        const QString work = path(isFolder ? ".app.zvupdate-apply" : ".file.zvupdate-apply");
        EXPECT_TRUE(waitFor([&] { return QFile::exists(work + u"/new"_s); }));
        const QByteArray maps = readFile(u"/proc/%1/maps"_s.arg(tool.processId()));
        EXPECT_FALSE(maps.contains(QFile::encodeName(path("app/")))) << maps.constData();
        EXPECT_TRUE(maps.contains(QFile::encodeName(work + u"/program/libarchive"_s)));
        host.end();
        EXPECT_TRUE(tool.waitForFinished());
        EXPECT_EQ(tool.exitCode(), 0) << tool.readAllStandardError().constData();
        const QString where = isFolder ? path("app") : folder_.path();
        EXPECT_EQ(ran(), "new " + where.toUtf8() + " mark:" + path("app").toUtf8() + " x\n");
        EXPECT_FALSE(QFile::exists(work));
    }
}

} // namespace
