#include "Tool.h"

#include "../controller/UpdateService.h"
#include "support/TestFiles.h"

#include <QDir>
#include <QDirIterator>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <functional>

using namespace Qt::StringLiterals;

namespace {

void setPreference(const QString &option, const QString &value)
{
    EXPECT_EQ(Tool::run({u"preferences"_s, option, value}).status, 0);
}

QStringList everythingIn(const QString &directory)
{
    QStringList list;
    QDirIterator all(directory, QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot,
                     QDirIterator::Subdirectories);
    while (all.hasNext()) {
        const QString path = all.next();
        list.append(all.fileInfo().isFile() ? path + QString::fromLatin1(readFile(path)) : path);
    }
    list.sort();
    return list;
}

Offer offering(const std::function<void(Offer &)> &change)
{
    Offer offer;
    change(offer);
    return offer;
}

} // namespace

TEST(DoctorCommandTest, NamesWhatIsWrongAndChangesNothing)
{
    const QString overridePath = QDir::homePath() + u"/Documents/ConsoleZVUpdate.mac"_s;
    const QString settingsPath = QDir::homePath() + u"/.config/ZVUpdate/zvupdate.conf"_s;
    const QTemporaryDir root;
    const QString directory = root.filePath(u"new/updates"_s);
    const QString digest = Offer::digestOf(Offer::installer()).toLower();
    const auto write = [&directory](const QString &name, const QByteArray &bytes) {
        QDir().mkpath(directory);
        writeFile(directory + u'/' + name, bytes);
    };
    const auto rememberDownload = [&] {
        QDir().mkpath(QFileInfo(settingsPath).path());
        writeFile(settingsPath, "[General]\nZVLAST_DOWNLOAD_MD5=" + digest.toLatin1());
    };
    struct Case
    {
        const char *what;
        Offer offer;
        std::function<void()> prepare;
        const char *wrong;
        const char *said;
    };
    const auto nothing = [] {};
    const Offer huge = offering([](Offer &o) {
        o.sizeReply = ScriptedServer::Reply().send(
            "HTTP/1.1 200 OK\r\nContent-Length: 1152921504606846976\r\n\r\n");
    });
    const Case cases[] = {
        {"all is well", {}, nothing, "", "offers version 2"},
        {"no newer version", offering([](Offer &o) { o.ok = false; }), nothing, "", "says: M"},
        {"no digest", offering([](Offer &o) { o.digest.reset(); }), nothing, "service",
         "not which"},
        {"odd digest", offering([](Offer &o) { o.digest = u"abc"_s; }), nothing, "service", "abc"},
        {"odd version", offering([](Offer &o) { o.version = u"../2"_s; }), nothing, "service",
         "../2"},
        {"no token", offering([](Offer &o) { o.tokenOk = false; }), nothing, "token", "log"},
        {"no size", offering([](Offer &o) { o.sizeReply = ScriptedServer::Reply::whole(404, ""); }),
         nothing, "size", "HEAD"},
        {"nobody there",
         {},
         [&] { writeFile(overridePath, "http://127.0.0.1:1/?dt="); },
         "service",
         "could not be reached"},
        {"line end in the address",
         {},
         [&] { writeFile(overridePath, "http://a.test/?dt=\n"); },
         "address",
         "line end"},
        {"no address of a service",
         {},
         [&] { QFile::remove(overridePath); },
         "address",
         "ZVUPDATE_SERVICE_URL"},
        {"switched off",
         {},
         [] { setPreference(u"--automatic-updating"_s, u"off"_s); },
         "automatic-updating",
         "--automatic-updating on"},
        {"not yet",
         {},
         [] { setPreference(u"--next-check"_s, u"2999-01-01"_s); },
         "automatic-updating",
         "2999-01-01"},
        {"no preferences",
         {},
         [&] { QDir().mkpath(settingsPath); },
         "preferences",
         "zvupdate.conf"},
        {"a file for a directory",
         {},
         [&] { writeFile(root.filePath(u"new"_s), ""); },
         "directory",
         "not a directory"},
        {"no room", huge, nothing, "room", "1.0 EiB"},
        {"no room, and no need of it", huge, [&] { write(u"P_2.dmg"_s, Offer::installer()); }, "",
         "verified"},
        {"a folder for an installer",
         {},
         [&] { QDir().mkpath(directory + u"/P_2.dmg"_s); },
         "files",
         "no file"},
        {"a part",
         {},
         [&] {
             rememberDownload();
             write(u"P_2.bin"_s, "iii");
         },
         "",
         "resumes"},
        {"a part of another", {}, [&] { write(u"P_2.bin"_s, "iii"); }, "", "removes"},
        {"wrong to its end",
         {},
         [&] {
             rememberDownload();
             write(u"P_2.bin"_s, Offer::installer('w'));
         },
         "files",
         "Remove it"},
    };
    for (const Case &each : cases) {
        SCOPED_TRACE(each.what);
        UpdateService service;
        service.setOffer(each.offer);
        each.prepare();
        const QStringList before = everythingIn(root.path()) + everythingIn(QDir::homePath());
        const auto [status, output, errors] =
            Tool::run({u"doctor"_s, u"--product-id"_s, u"P"_s, u"--product-version"_s, u"1"_s,
                       u"--directory"_s, directory, u"--json"_s});
        EXPECT_EQ(everythingIn(root.path()) + everythingIn(QDir::homePath()), before);
        EXPECT_TRUE(service.requests().filter(u"GET "_s).isEmpty());

        QStringList wrong;
        QString said;
        const auto findings = eventsIn(output);
        for (const QJsonObject &finding : findings) {
            EXPECT_EQ(finding[u"ok"].toBool(), finding[u"remedy"].isNull());
            if (!finding[u"ok"].toBool())
                wrong.append(finding[u"name"].toString());
            said += finding[u"message"].toString() + finding[u"remedy"].toString();
        }
        EXPECT_EQ(wrong.join(u' '), QLatin1String(each.wrong)) << qPrintable(output);
        EXPECT_TRUE(said.contains(QLatin1String(each.said))) << qPrintable(output);
        EXPECT_EQ(status, wrong.isEmpty() ? 0 : 1);
        EXPECT_EQ(errors, QString());
        QDir(root.filePath(u"new"_s)).removeRecursively();
        QFile::remove(root.filePath(u"new"_s));
        QDir(QFileInfo(settingsPath).path()).removeRecursively();
    }
}
