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

} // namespace

TEST(DoctorCommandTest, NamesWhatIsWrongAndChangesNothing)
{
    const QString overridePath = QDir::homePath() + u"/Documents/ConsoleZVUpdate.mac"_s;
    const QString settingsPath = QDir::homePath() + u"/.config/ZVUpdate/zvupdate.conf"_s;
    const QTemporaryDir root;
    const QString newPath = root.filePath(u"new"_s);
    const QString directory = newPath + u"/updates"_s;
    const QString digest = Offer::digestOf(Offer::installer()).toLower();
    using Preparation = std::function<void()>;
    const auto file = [&directory](const QString &name, const QByteArray &bytes) {
        return [=] {
            QDir().mkpath(directory);
            writeFile(directory + u'/' + name, bytes);
        };
    };
    const auto downloaded = [&](const QByteArray &bytes) {
        return [=, write = file(u"P_2.bin"_s, bytes)] {
            QDir().mkpath(QFileInfo(settingsPath).path());
            writeFile(settingsPath, "[General]\nZVLAST_DOWNLOAD_MD5=" + digest.toLatin1());
            write();
        };
    };
    const auto folder = [](const QString &path) { return [=] { QDir().mkpath(path); }; };
    const auto address = [=](const char *text) { return [=] { writeFile(overridePath, text); }; };
    const auto preference = [](const char *option, const char *value) {
        return [=] { Tool::run({u"preferences"_s, QLatin1String(option), QLatin1String(value)}); };
    };
    using Reply = ScriptedServer::Reply;
    const QByteArray html = "Content-Type: text/html";
    ScriptedServer other{Reply()};
    const auto page = [&](const ScriptedServer::Handler &answer) {
        return [&, answer] {
            other.setHandler(answer);
            writeFile(overridePath, other.baseUrl().toUtf8());
        };
    };
    const auto always = [&](const Reply &reply) {
        return page([reply](const auto &) { return reply; });
    };
    const auto moved = page([&](const ScriptedServer::Request &request) {
        QByteArray host = request.header("Host");
        return host.startsWith("localhost")
                   ? Reply::whole(200, "<p>", {html})
                   : Reply::whole(302, {},
                                  {"Location: http://" + host.replace("127.0.0.1", "localhost")});
    });
    const Offer huge = {.sizeReply = Reply().send(
                            "HTTP/1.1 200 OK\r\nContent-Length: 1152921504606846976\r\n\r\n")};
    const struct
    {
        const char *what;
        Offer offer;
        Preparation prepare;
        const char *wrong;
        const char *said;
    } cases[] = {
        {"all is well", {}, {}, "", "offers version 2"},
        {"no newer version", {.ok = false}, {}, "", "says: M"},
        {"no digest", {.digest = {}}, {}, "service", "not which"},
        {"odd digest", {.digest = u"abc"_s}, {}, "service", "abc"},
        {"odd version", {.version = u"../2"_s}, {}, "service", "../2"},
        {"no token", {.tokenOk = false}, {}, "token", "log"},
        {"no size", {.sizeReply = Reply::whole(404, "page")}, {}, "size", "HEAD"},
        {"nobody there", {}, address("http://127.0.0.1:1/?dt="), "service", "not be reached"},
        {"no such name", {}, address("http://no-such-name.test/?dt="), "service", "name server"},
        {"a proxy that is dead",
         {},
         [] { qputenv("http_proxy", "http://a:b@127.0.0.1:1"); },
         "service",
         "Check the network, and the proxy that http_proxy names"},
        {"a proxy that is not asked",
         {},
         [] {
             qputenv("http_proxy", "http://127.0.0.1:1");
             qputenv("no_proxy", "example.com, 127.0.0.1");
         },
         "",
         "without a proxy"},
        {"no proxy's address",
         {},
         [] { qputenv("http_proxy", "http:/usr:SECRET@127.0.0.1:1"); },
         "proxy service",
         "is not the address"},
        {"a page", {}, always(Reply::whole(200, "<p>", {html})), "service", "log in"},
        {"a page elsewhere", {}, moved, "service", "text/html, from http://localhost"},
        {"a network's login", {}, always(Reply::whole(511, "<p>", {html})), "service", "log in"},
        {"forbidden", {}, always(Reply::whole(403, "<p>")), "service", "HTTP status 403"},
        {"a proxy's login", {}, always(Reply::whole(407)), "service", "NAME:PASSWORD"},
        {"unknown product",
         {},
         always(Reply::whole(200, R"({"ok":false,"msg":"unknown product"})")),
         "service",
         "--product-id"},
        {"line end in the address", {}, address("http://a.test/?dt=\n"), "address", "line end"},
        {"no address", {}, [&] { QFile::remove(overridePath); }, "address", "ZVUPDATE_SERVICE_URL"},
        {"switched off",
         {},
         preference("--automatic-updating", "off"),
         "automatic-updating",
         "--automatic-updating on"},
        {"not yet",
         {},
         preference("--next-check", "2999-01-01"),
         "automatic-updating",
         "2999-01-01"},
        {"no preferences", {}, folder(settingsPath), "preferences", "zvupdate.conf"},
        {"no directory", {}, [&] { writeFile(newPath, ""); }, "directory", "not a directory"},
        {"no room", huge, {}, "room", "1.0 EiB"},
        {"no need of room", huge, file(u"P_2.dmg"_s, Offer::installer()), "", "verified"},
        {"a folder for an installer", {}, folder(directory + u"/P_2.dmg"_s), "files", "no file"},
        {"a part", {}, downloaded("iii"), "", "resumes"},
        {"a part of another", {}, file(u"P_2.bin"_s, "iii"), "", "removes"},
        {"wrong to its end", {}, downloaded(Offer::installer('w')), "files", "Remove it"},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.what);
        UpdateService service;
        service.setOffer(each.offer);
        if (each.prepare)
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
        EXPECT_FALSE(output.contains(u"SECRET"_s));
        qunsetenv("http_proxy");
        qunsetenv("no_proxy");
        QDir(newPath).removeRecursively();
        QFile::remove(newPath);
        QDir(QFileInfo(settingsPath).path()).removeRecursively();
    }
}
