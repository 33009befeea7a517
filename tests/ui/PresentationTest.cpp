#include "WindowEvents.h"

#include "../support/Testing.h"

#include <controller/ZVUpdateProc.h>
#include <ui/UpdateInfoWindowController.h>

#include <QApplication>
#include <QCryptographicHash>
#include <QDialog>
#include <QPushButton>
#include <QTest>

#include <thread>

using namespace Qt::Literals::StringLiterals;

namespace {

class PresentationTest : public testing::Test
{
public:
    PresentationTest()
    {
        updater->setProductID(u"P1"_s, u"2100"_s, directory.path());
        updater->setMLastCheckUpdateResponse(response);
        response->setOk(true);
        offer(u"2103"_s);
    }

    void offer(const QString &version)
    {
        response->setZVUpdateVersion(version);
        writeFile(directory.filePath(u"P1_%1.dmg"_s.arg(version)), "installer");
    }

    int64_t show() { return updater->showDefaultUpdateWindowWithProductName(u"Sample App"_s); }

    static int visibleWindows()
    {
        int count = 0;
        const QWidgetList windows = QApplication::topLevelWidgets();
        for (const QWidget *window : windows)
            count += window->isVisible();
        return count;
    }

    const QTemporaryDir directory;
    const std::shared_ptr<CheckUpdateResponse> response = std::make_shared<CheckUpdateResponse>();
    std::shared_ptr<ZVUpdateProc> updater = std::make_shared<ZVUpdateProc>();
};

// What the maker has signed is looked at again in that moment.
TEST_F(PresentationTest, OpensNoFileThatWasExchangedMeanwhile)
{
    class RefusingHost : public ZVUpdateProcDelegate
    {
    public:
        ~RefusingHost() override { retire(); }
        void UpdateFileReady(const QString & /*path*/) override {}
        void windowClosedUpdateAction() override { heard.append(u"update"_s); }
        void windowClosedCancelAction() override { heard.append(u"cancel"_s); }
        void updateDownloadFailed(const UpdateOutcome &outcome) override
        {
            heard.append(UpdateOutcome::word(outcome.kind));
        }
        bool installUpdate(const QString &path, ZVPlatform::InstallerKind /*kind*/) override
        {
            if (exchangesFile)
                writeFile(path, "#!/bin/ls\n");
            return false;
        }
        QStringList heard;
        bool exchangesFile = false;
    };
    RefusingHost host;
    const QString path = directory.filePath(u"P1_2103.dmg"_s);
    const QByteArray script = "#!/bin/sh\n";
    const auto digest = [&script](QCryptographicHash::Algorithm algorithm) {
        return QCryptographicHash::hash(script, algorithm);
    };
    updater->setDelegate(&host);
    response->setZVMD5(QString::fromLatin1(digest(QCryptographicHash::Md5).toHex()));
    response->setRelease(ReleaseStatement{.sha256 = digest(QCryptographicHash::Sha256),
                                          .size = static_cast<quint64>(script.size())});
    const std::pair<QByteArray, bool> rows[] = {
        {script, false}, {"#!/bin/ls\n", false}, {script, true}};
    for (const auto &[content, isExchangedByHost] : rows) {
        WindowEvents opened;
        host.exchangesFile = isExchangedByHost;
        writeFile(path, content);
        EXPECT_EQ(show(), 0);
        updater->mUpdateInfoWindowCtrl()->updateAction();
        const bool isRight = content == script && !isExchangedByHost;
        EXPECT_EQ(opened.list(), isRight ? QStringList(u"opened P1_2103.run"_s) : QStringList());
        EXPECT_EQ(QFile::exists(path), isRight);
        EXPECT_EQ(visibleWindows(), 0);
        EXPECT_EQ(QFile::exists(directory.filePath(u"P1_2103.run"_s)), isRight);
    }
    updater->mUpdateInfoWindowCtrl()->cancelAction(); // Nothing is under way any more.
    EXPECT_EQ(host.heard,
              QStringList({u"update"_s, u"wrong-digest"_s, u"wrong-digest"_s, u"cancel"_s}));

    // Nor the file of a reply in which nothing is signed.
    response->setRelease(std::nullopt);
    offer(u"2103"_s);
    EXPECT_EQ(show(), 0);
    EXPECT_FALSE(updater->setReleaseKeys({}));
    EXPECT_EQ(show(), ZVUpdateProc::ZVNoUpdate);
}

TEST_F(PresentationTest, FillsAWindowThatReplacesTheFormerOne)
{
    const QList<std::pair<QString, QString>> versions = {
        {u"2103"_s, u"v2.1.0.3"_s}, {u"7"_s, u"v7"_s}, {u""_s, u"v"_s}, {u"2.1"_s, u"v2...1"_s}};
    const QPoint place(13, 17);
    const auto unseen =
        std::make_shared<UpdateInfoWindowController>(u"UpdateInfoWindowController"_s);
    unseen->window()->move(place);
    updater->setMUpdateInfoWindowCtrl(unseen);
    for (const auto &[version, display] : versions) {
        offer(version);
        EXPECT_EQ(show(), 0);
        const auto shown = updater->mUpdateInfoWindowCtrl();
        EXPECT_EQ(shown->mUpdateProductVersion(), display);
        EXPECT_EQ(shown->mUpdateFilePath(), directory.filePath(u"P1_%1.dmg"_s.arg(version)));
        EXPECT_EQ(shown->mProductName(), u"Sample App"_s);
        EXPECT_EQ(shown->mUpdateInfo(), std::nullopt);
        EXPECT_EQ(shown->delegate(), updater.get());

        // Each where its predecessor was, if that was to be seen.
        QDialog *window = shown->window();
        EXPECT_EQ(window->pos() == place, version != u"2103"_s) << qPrintable(version);
        window->move(place);
    }
    EXPECT_EQ(visibleWindows(), 1);
}

TEST_F(PresentationTest, SaysWhyThereIsNoWindow)
{
    show();
    const auto first = updater->mUpdateInfoWindowCtrl();
    response->setOk(false);
    EXPECT_EQ(show(), 3);
    updater->setMLastCheckUpdateResponse(nullptr);
    EXPECT_EQ(show(), 3);
    EXPECT_EQ(updater->mUpdateInfoWindowCtrl(), first);

    response->setOk(true);
    updater->setMLastCheckUpdateResponse(response);
    QFile::remove(directory.filePath(u"P1_2103.dmg"_s));
    EXPECT_EQ(show(), 5);
    EXPECT_EQ(updater->mUpdateInfoWindowCtrl(), nullptr);
    QDir(directory.path()).mkdir(u"P1_2103.dmg"_s);
    EXPECT_EQ(show(), 0) << "a directory counts as present";
}

TEST_F(PresentationTest, OffersNothingOutsideTheDirectory)
{
    QDir(directory.path()).mkdir(u"P1_"_s);
    writeFile(directory.filePath(u"outside.dmg"_s), "installer");
    response->setZVUpdateVersion(u"/../outside"_s);
    EXPECT_EQ(show(), 5);
    response->setZVUpdateVersion(std::nullopt);
    EXPECT_EQ(show(), 5);
    offer(u"2103"_s);
    updater->setMSaveFileDirectory(std::nullopt);
    EXPECT_EQ(show(), 5);
}

TEST_F(PresentationTest, ShowsNothingOnAnotherThread)
{
    std::thread([this] {
        EXPECT_EQ(show(), 0);
        EXPECT_EQ(updater->mUpdateInfoWindowCtrl()->window(), nullptr);
    }).join();
    EXPECT_EQ(visibleWindows(), 0);
}

// Shows the window again in the middle of the first choice, and lets the controller go in the
// middle of the second.
struct RestlessHost final : ZVUpdateProcDelegate
{
    explicit RestlessHost(PresentationTest &t) : test(t) {}
    void UpdateFileReady(const QString &) override {}
    void windowClosedUpdateAction() override {}
    void windowClosedCancelAction() override
    {
        if (++declined == 1)
            test.show();
        else
            test.updater = nullptr;
    }

    PresentationTest &test;
    int declined = 0;
};

TEST_F(PresentationTest, MayBeReplacedAndDestroyedByItsChoice)
{
    RestlessHost host(*this);
    updater->setDelegate(&host);
    show();
    for (int choice = 1; choice <= 2; ++choice) {
        QTest::mouseClick(updater->mUpdateInfoWindowCtrl()->notNowButton(), Qt::LeftButton);
        EXPECT_EQ(host.declined, choice);
        EXPECT_EQ(visibleWindows(), 2 - choice);
    }
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_EQ(QApplication::topLevelWidgets(), QWidgetList());
}

} // namespace
