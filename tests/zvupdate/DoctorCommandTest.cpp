#include "Tool.h"
#include "support/Testing.h"

#include "../controller/UpdateService.h"

#include <functional>

using namespace Qt::StringLiterals;

TEST(DoctorCommandTest, NamesWhatIsWrongAndChangesNothing)
{
    const QString overridePath = QDir::homePath() + u"/Documents/ConsoleZVUpdate.mac"_s;
    const QString settingsPath = QDir::homePath() + u"/.config/ZVUpdate/zvupdate.conf"_s;
    const QTemporaryDir root;
    const auto everything = [&] { return QList{treeOf(root.path()), treeOf(QDir::homePath())}; };
    const QString newPath = root.filePath(u"new"_s);
    const QString directory = newPath + u"/updates"_s;
    const QString digest = Offer::digestOf(Offer::installer()).toLower();
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
    const auto proxy = [](const char *url, const char *except = "") {
        return [=] {
            qputenv("http_proxy", url);
            qputenv("no_proxy", except);
        };
    };
    using Reply = ScriptedServer::Reply;
    const QByteArray html = "Content-Type: text/html";
    ScriptedServer other{Reply()};
    // Only what asks for this machine by its name is answered at once.
    const auto answers = [&](const Reply &reply, bool isElsewhere = false) {
        return [&, reply, isElsewhere] {
            other.setHandler([=](const ScriptedServer::Request &request) {
                QByteArray host = request.header("Host");
                if (!isElsewhere || host.startsWith("localhost"))
                    return reply;
                host.replace("127.0.0.1", "localhost");
                return Reply::whole(302, {}, {"Location: http://" + host});
            });
            writeFile(overridePath, other.baseUrl().toUtf8());
        };
    };
    const auto unknown = Reply::whole(200, R"({"ok":false,"msg":"unknown product"})");
    const Offer huge = {.sizeReply = Offer::hugeSize()};
    const struct
    {
        Offer offer;
        std::function<void()> prepare;
        const char *wrong;
        const char *said;
    } cases[] = {
        {{}, {}, "", "offers version 2"},
        {{.ok = false}, {}, "", "says: M"},
        {{.digest = {}}, {}, "service", "not which"},
        {{.digest = u"abc"_s}, {}, "service", "abc"},
        {{.version = u"../2"_s}, {}, "service", "../2"},
        {{.tokenOk = false}, {}, "token", "log"},
        {{.sizeReply = Reply::whole(404, "page")}, {}, "size", "HEAD"},
        {{}, address("http://127.0.0.1:1/?dt="), "service", "not be reached"},
        {{}, address("http://no-such-name.test/?dt="), "service", "name server"},
        {{}, proxy("http://a:b@127.0.0.1:1"), "service", "proxy that http_proxy names"},
        {{}, proxy("http://127.0.0.1:1", "a.com, 127.0.0.1"), "", "without a proxy"},
        {{}, proxy("http:/u:SECRET@127.0.0.1:1"), "proxy service", "is not the address"},
        {{}, answers(Reply::whole(200, "<p>", {html})), "service", "log in"},
        {{}, answers(Reply::whole(200, "<p>", {html}), true), "service", "http://localhost"},
        {{}, answers(Reply::whole(511, "<p>", {html})), "service", "log in"},
        {{}, answers(Reply::whole(403, "<p>")), "service", "HTTP status 403"},
        {{}, answers(Reply::whole(407)), "service", "NAME:PASSWORD"},
        {{}, answers(unknown), "service", "--product-id"},
        {{}, address("http://a.test/?dt=\n"), "address", "line end"},
        {{}, [&] { QFile::remove(overridePath); }, "address", "ZVUPDATE_SERVICE_URL"},
        {{}, preference("--automatic-updating", "off"), "automatic-updating", "updating on"},
        {{}, preference("--next-check", "2999-01-01"), "automatic-updating", "2999-01-01"},
        {{}, folder(settingsPath), "preferences", "zvupdate.conf"},
        {{}, [&] { writeFile(newPath, ""); }, "directory", "not a directory"},
        {huge, {}, "room", "1.0 EiB"},
        {huge, file(u"P_2.dmg"_s, Offer::installer()), "", "verified"},
        {{}, folder(directory + u"/P_2.dmg"_s), "files", "no file"},
        {{}, downloaded("iii"), "", "resumes"},
        {{}, file(u"P_2.bin"_s, "iii"), "", "removes"},
        {{}, downloaded(Offer::installer('w')), "files", "Remove it"},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(&each - cases);
        UpdateService service;
        service.setOffer(each.offer);
        if (each.prepare)
            each.prepare();
        const auto before = everything();
        const auto [status, output, errors] =
            Tool::run({u"doctor"_s, u"--product-id"_s, u"P"_s, u"--product-version"_s, u"1"_s,
                       u"--directory"_s, directory, u"--json"_s});
        EXPECT_EQ(everything(), before);
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
