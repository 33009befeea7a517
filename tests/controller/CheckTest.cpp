#include "ControllerTest.h"

#include "../../controller/UpdateFiles.h"
#include "../../platform/files/PartialFile.h"
#include "../support/LogCapture.h"

#include <QSettings>

#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using Reply = ScriptedServer::Reply;

namespace {

ino_t inode(const QString &path)
{
    struct stat status = {};
    return stat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_ino : 0;
}

/// The check's rules about what lies in the save directory, as a model of their own.
class SaveDirectory : public ControllerTest
{
public:
    void checkOnce(const Content &image, const Content &part, const QString &stored, bool hasHost)
    {
        startAfresh(stored.isEmpty() ? QVariantMap() : QVariantMap{{digestKey, stored}});
        place(diskImage, image);
        place(temporary, part);
        controller->setDebugMode(hasHost); // Which makes no difference here.
        const bool isSame = stored.toUpper() == digest;
        const bool isReady = image == good;
        const Content kept = isSame && image != wrong ? part : std::nullopt;
        const bool isComplete = !isReady && kept == good;
        // The service refuses to resume a wrong file that is complete; it stays as it is.
        const bool isStuck = !isReady && kept == wrong;
        QStringList requests = {u"POST cmd=checkupd&id=P&ver=1"_s};
        if (!isReady)
            requests += {u"POST cmd=gettoken"_s, u"HEAD cmd=download&tk=T&fn=P_2.exe"_s};
        if (!isReady && !isComplete)
            requests += u"GET cmd=download&tk=T&fn=P_2.exe"_s +
                        (kept ? u" bytes=%1-"_s.arg(kept->size()) : QString());
        const auto formerRequests = service.requests().size();
        const ino_t partInode = inode(temporary);

        EXPECT_EQ(controller->updateWithDelegate(hasHost ? &host : nullptr),
                  isReady || isComplete ? 2 : 1);
        EXPECT_EQ(host.heard, QStringList()) << "inside the call";
        EXPECT_TRUE(waitForDownload());

        const Content newPart = hasHost ? std::nullopt : Content(good);
        EXPECT_EQ(service.requests().mid(formerRequests), requests);
        EXPECT_EQ(contentOf(temporary), isReady || isStuck ? part : newPart);
        EXPECT_EQ(contentOf(diskImage),
                  isReady || (hasHost && !isStuck) ? Content(good) : std::nullopt);
        EXPECT_EQ(host.heard, hasHost && !isStuck ? QStringList(diskImage) : QStringList());
        EXPECT_EQ(storedPreferences().value(digestKey).toString(),
                  isReady || isSame ? stored : digest.toLower());
        EXPECT_TRUE(!isComplete || !hasHost || inode(diskImage) == partInode) << "copied";
    }
};

TEST_F(SaveDirectory, IsUsedAsFarAsItCanBe)
{
    const Content absent;
    for (const Content &image : {absent, Content(good), Content(wrong)})
        for (const Content &part : {absent, Content(good.left(999)), Content(good), Content(wrong)})
            for (const QString &stored : {QString(), digest.toLower(), digest, u"0123"_s})
                for (const bool hasHost : {true, false}) {
                    SCOPED_TRACE(testing::Message()
                                 << "disk image " << image.value_or("no").right(4).constData()
                                 << ", part " << part.value_or("no").right(4).constData() << ", "
                                 << qPrintable(stored) << ", host " << hasHost);
                    checkOnce(image, part, stored, hasHost);
                }
}

// Each part of a name must leave it a plain one.
TEST(UpdateFilesTest, HavePlainNamesInTheirDirectoryOrNone)
{
    const auto named = [](const QString &text, bool isVersion) {
        return UpdateFiles::named(u"/d"_s, isVersion ? u"P"_s : text, isVersion ? text : u"2"_s);
    };
    for (const bool isVersion : {true, false}) {
        for (const QString &hostile : {u"x/../../victim"_s, u"/"_s, u"./2"_s, u"2/.."_s,
                                       u"2"_s + QChar(), QString(100, u'\u7248')}) // 300 bytes.
            EXPECT_FALSE(named(hostile, isVersion)) << qPrintable(hostile);
        for (const QString &text : {u".."_s, u"2.dmg"_s, u" \r\n\u001B[31m"_s, u"..\\victim"_s,
                                    u"%2E%2E%2F"_s, u"2&fn=x"_s, QString(200, u'9')}) {
            const QString name = isVersion ? u"P_"_s + text : text + u"_2"_s;
            const auto files = named(text, isVersion);
            ASSERT_TRUE(files) << qPrintable(name);
            EXPECT_EQ(files->serviceFileName, name + u".exe"_s);
            EXPECT_EQ(files->temporaryPath, u"/d/"_s + name + u".bin"_s);
            EXPECT_EQ(files->diskImagePath, u"/d/"_s + name + u".dmg"_s);
        }
    }
}

TEST_F(ControllerTest, FindsNoUpdateWithoutANameOrADigest)
{
    using Text = std::optional<QString>;
    QDir().mkpath(saved(u"P_x"_s));
    place(root.filePath(u"above/victim.dmg"_s), "victim");
    const auto before = treeOf(root.path());
    for (const auto &[product, version, announced] :
         {std::tuple(u"P"_s, Text(u"x/../../victim"_s), Text(digest)),
          {u"P_x/../../victim"_s, u"2"_s, digest},
          {u"P"_s, {}, digest},
          {u"P"_s, u"2"_s, QString()}}) {
        SCOPED_TRACE(qPrintable(product + u' ' + version.value_or(u"none"_s)));
        service.setOffer({.version = version, .digest = announced});
        controller->setMProductID(product);
        EXPECT_EQ(check(), 3);
        EXPECT_TRUE(service.requests().constLast().startsWith("POST cmd=checkupd&"_L1));
        EXPECT_FALSE(storedPreferences().contains(digestKey));
        EXPECT_EQ(treeOf(root.path()), before);
    }
}

TEST_F(ControllerTest, TouchesNothingBehindWhatIsInThePlaceOfItsFiles)
{
    const QByteArray outside = QFile::encodeName(root.filePath(u"outside"_s));
    const std::function<int(const char *)> obstacles[] = {
        [](const char *path) { return ::symlink("/nowhere/at/all", path); },
        [&](const char *path) { return ::symlink(outside.constData(), path); },
        [](const char *path) { return ::symlink(path, path); },
        [&](const char *path) { return ::link(outside.constData(), path); },
        [](const char *path) { return ::mkdir(path, 0700); },
        [](const char *path) { return ::mkfifo(path, 0600); },
    };
    for (const QString &obstructed : {temporary, diskImage})
        for (const auto &put : obstacles) {
            SCOPED_TRACE(testing::Message() << &put - obstacles << qPrintable(obstructed));
            startAfresh({{digestKey, digest}});
            place(root.filePath(u"outside"_s), "treasure");
            ASSERT_EQ(put(QFile::encodeName(obstructed).constData()), 0);
            check();
            EXPECT_TRUE(waitForDownload());
            EXPECT_EQ(readFile(root.filePath(u"outside"_s)), "treasure");
            EXPECT_FALSE(QFileInfo(temporary).isSymLink());
            EXPECT_TRUE(!QFileInfo(diskImage).isFile() || contentOf(diskImage) == good);
        }
}

TEST_F(ControllerTest, DownloadsUnlessThereIsAFileOfTheRightSize)
{
    startAfresh({{digestKey, digest}});
    place(temporary, good);
    service.setOffer({.sizeReply = Reply().close()});
    EXPECT_EQ(check(), 1);
    EXPECT_TRUE(waitForDownload());
    EXPECT_EQ(contentOf(temporary), good);

    service.setOffer({.digest = Offer::digestOf({}), .file = {}});
    EXPECT_EQ(check(), 1) << "the missing file has the size and the digest of an empty one";
    EXPECT_TRUE(waitForDownload());
    EXPECT_EQ(host.heard, QStringList());
}

TEST_F(ControllerTest, DoesNotGoOnWithAFileThatWasBegunInTheMiddle)
{
    startAfresh({{digestKey, digest}});
    place(temporary, good.left(1000));
    ZVPlatform::PartialFile lost(temporary);
    QFile::remove(temporary);
    EXPECT_TRUE(lost.append(good.left(500)));
    EXPECT_EQ(check(), 1);
    EXPECT_TRUE(waitForDownload());
    EXPECT_EQ(contentOf(diskImage), good);
}

TEST_F(ControllerTest, KeepsWhatTheLatestCheckHasFound)
{
    service.setOffer({.tokenId = {}});
    EXPECT_EQ(check(), 1);
    EXPECT_TRUE(waitForDownload());
    EXPECT_EQ(service.requests().last(), u"GET cmd=download&tk=&fn=P_2.exe");
    EXPECT_EQ(controller->updateWithDelegate(nullptr), 2);
    EXPECT_EQ(controller->delegate(), nullptr);
    const auto reply = controller->mLastCheckUpdateResponse();
    const auto client = controller->mCurrentDownloadUpdateLogic();
    EXPECT_TRUE(reply && client);
    QSettings().setValue(QLatin1String(kZVAutoUpdateOnOffKey), false);
    EXPECT_EQ(check(), 6);
    EXPECT_EQ(controller->mLastCheckUpdateResponse(), reply);
    EXPECT_EQ(controller->mCurrentDownloadUpdateLogic(), client);
}

TEST_F(ControllerTest, GoesOnWithItsOwnClient)
{
    const auto gate = std::make_shared<Gate>();
    service.setOffer({.gate = gate, .meanwhile = [this] {
                          controller->setMCurrentDownloadUpdateLogic(nullptr); // As another's does.
                      }});
    EXPECT_EQ(check(), 1);
    gate->open();
    EXPECT_TRUE(waitFor([&] { return !host.heard.isEmpty(); }));
    EXPECT_EQ(contentOf(diskImage), good);
}

TEST_F(ControllerTest, TakesAnEmptyDirectoryForTheWorkingDirectory)
{
    const QString former = QDir::currentPath();
    place(diskImage, good);
    ASSERT_TRUE(QDir::setCurrent(saveDirectory));
    controller->setMSaveFileDirectory(QString());
    EXPECT_EQ(check(), 2);
    runMainQueue();
    EXPECT_EQ(host.heard, QStringList(u"P_2.dmg"_s));
    QDir::setCurrent(former);
}

class DebugMode : public ControllerTest
{
public:
    using Kind = UpdateOutcome::Kind;

    const QString wrongFile = u"MD5 錯誤!! 重新下載"_s;

    void expectLog(const Content &image, const Content &part, const QString &stored,
                   const QStringList &lines)
    {
        startAfresh(stored.isEmpty() ? QVariantMap() : QVariantMap{{digestKey, stored}});
        place(diskImage, image);
        place(temporary, part);
        const LogCapture log;
        controller->setDebugMode(true);
        check();
        EXPECT_TRUE(waitForDownload());
        EXPECT_EQ(log.lines(), lines);
        const auto failure = controller->mCurrentDownloadUpdateLogic()->lastFailure();
        EXPECT_EQ(lines.contains(wrongFile), failure && failure->kind == Kind::WrongDigest);
    }
};

TEST_F(DebugMode, LogsWhatTheCheckAndItsDownloadCameTo)
{
    const QString checked =
        u"checkUpdate OK ... {\"ZVUpdateVersion\":2, \"MD5\":%1 \"ok\":true, \"msg\":M}"_s.arg(
            digest);
    const QString token = u"doGetToken OK ... {\"id\":T, \"ok\":true, \"msg\":(null)}"_s;
    const QString other = u"正在下載的暫存檔 MD5 與 Server 的不同"_s;
    const QString server = u"server MD5 = "_s + digest;
    const QString finished = u"ZVUpdateProc downloadFinishWithFilePath:"_s + temporary;

    expectLog(good, {}, {}, {checked, u"下載好，與線上的MD5相同"_s});
    expectLog({}, good, digest, {checked, token});
    expectLog(wrong, {}, u"0A1b"_s,
              {checked, u"下載好，與線上的MD5不相同，重新下載"_s, other, u"local MD5 = 0A1b"_s,
               server, token, u"fileSize ... 400003"_s, finished});
    service.setOffer({.sizeReply = Reply().close()});
    expectLog({}, {}, digest, {checked, token, u"fileSize ... 0"_s, finished});
    service.setOffer({.file = wrong, .sizeReply = Reply().send("HTTP/1.1 200 OK\r\n\r\n").close()});
    expectLog({}, {}, digest,
              {checked, token, u"fileSize ... -1"_s, Offer::digestOf(wrong).toLower(),
               digest.toLower(), wrongFile});
    service.setOffer({.tokenOk = false});
    expectLog({}, {}, {}, {checked, other, u"local MD5 = (null)"_s, server});
    service.setOffer({.ok = false});
    expectLog({}, {}, {}, {});
}

} // namespace
