#include "../support/TestFiles.h"

#include <controller/ZVUpdateProc.h>
#include <ui/UpdateInfoWindowController.h>

#include <QApplication>
#include <QDialog>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

#include <gmock/gmock.h>

#include <thread>

namespace {

class PresentationTest : public testing::Test
{
public:
    PresentationTest()
    {
        updater->setProductID(QStringLiteral("P1"), QStringLiteral("2100"), directory.path());
        updater->setMLastCheckUpdateResponse(response);
        offer(QStringLiteral("2103"));
    }

    void offer(const QString &version)
    {
        response->setOk(true);
        response->setZVUpdateVersion(version);
        writeFile(directory.filePath(QStringLiteral("P1_%1.dmg").arg(version)), "installer");
    }

    int64_t show() { return updater->showDefaultUpdateWindowWithProductName(product); }

    static int visibleWindows()
    {
        int count = 0;
        const QWidgetList windows = QApplication::topLevelWidgets();
        for (const QWidget *window : windows)
            count += window->isVisible();
        return count;
    }

    const QString product = QStringLiteral("Sample App");
    const QTemporaryDir directory;
    const std::shared_ptr<CheckUpdateResponse> response = std::make_shared<CheckUpdateResponse>();
    std::shared_ptr<ZVUpdateProc> updater = std::make_shared<ZVUpdateProc>();
};

TEST_F(PresentationTest, FillsTheWindow)
{
    EXPECT_EQ(show(), 0);
    const auto window = updater->mUpdateInfoWindowCtrl();
    EXPECT_EQ(window->mProductName(), product);
    EXPECT_EQ(window->mUpdateProductVersion(), QStringLiteral("v2.1.0.3"));
    EXPECT_EQ(window->mUpdateFilePath(), directory.filePath(QStringLiteral("P1_2103.dmg")));
    EXPECT_EQ(window->mUpdateInfo(), std::nullopt);
    EXPECT_EQ(window->delegate(), updater.get());
    EXPECT_EQ(visibleWindows(), 1);
}

TEST_F(PresentationTest, DotsTheVersion)
{
    const QList<std::pair<QString, QString>> versions = {
        {QStringLiteral("2103"), QStringLiteral("v2.1.0.3")},
        {QStringLiteral("7"), QStringLiteral("v7")},
        {QString(), QStringLiteral("v")},
        {QStringLiteral("2.1"), QStringLiteral("v2...1")}};
    for (const auto &[version, display] : versions) {
        offer(version);
        EXPECT_EQ(show(), 0);
        EXPECT_EQ(updater->mUpdateInfoWindowCtrl()->mUpdateProductVersion(), display);
    }
    EXPECT_EQ(visibleWindows(), 1) << "each window takes the place of the former one";
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
    QFile::remove(directory.filePath(QStringLiteral("P1_2103.dmg")));
    EXPECT_EQ(show(), 5);
    EXPECT_EQ(updater->mUpdateInfoWindowCtrl(), nullptr);

    QDir(directory.path()).mkdir(QStringLiteral("P1_2103.dmg"));
    EXPECT_EQ(show(), 0) << "a directory counts as present";
}

TEST_F(PresentationTest, OffersNothingOutsideTheDirectory)
{
    QDir(directory.path()).mkpath(QStringLiteral("P1_/sub"));
    QDir(directory.path()).mkdir(QStringLiteral("save"));
    writeFile(directory.filePath(QStringLiteral("outside.dmg")), "installer");
    for (const auto &version :
         {std::optional(QStringLiteral("/../outside")),
          std::optional(directory.filePath(QStringLiteral("outside"))), std::optional<QString>()}) {
        response->setZVUpdateVersion(version);
        EXPECT_EQ(show(), 5);
    }
    offer(QStringLiteral("2103"));
    updater->setMSaveFileDirectory(std::nullopt);
    EXPECT_EQ(show(), 5);
    EXPECT_EQ(visibleWindows(), 0);
}

TEST_F(PresentationTest, OnAnotherThreadShowsNothing)
{
    int64_t result = -1;
    std::thread([this, &result] {
        result = show();
        EXPECT_EQ(updater->mUpdateInfoWindowCtrl()->window(), nullptr);
    }).join();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(visibleWindows(), 0);
}

// Shows the window again in the middle of the first choice, and lets the controller go in the
// middle of the second.
TEST_F(PresentationTest, MayBeReplacedAndDestroyedByItsChoice)
{
    class Host final : public ZVUpdateProcDelegate
    {
    public:
        explicit Host(PresentationTest &test) : test_(test) {}
        void UpdateFileReady(const QString &) override {}
        void windowClosedUpdateAction() override {}
        void windowClosedCancelAction() override
        {
            if (++declined == 1)
                EXPECT_EQ(test_.show(), 0);
            else
                test_.updater = nullptr;
        }

        int declined = 0;

    private:
        PresentationTest &test_;
    } host(*this);
    updater->setDelegate(&host);

    show();
    for (int choice = 1; choice <= 2; ++choice) {
        QPushButton *notNow = updater->mUpdateInfoWindowCtrl()->notNowButton();
        QTest::mouseClick(notNow, Qt::LeftButton);
        EXPECT_EQ(host.declined, choice);
        EXPECT_EQ(visibleWindows(), 2 - choice);
    }
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_EQ(QApplication::topLevelWidgets(), QWidgetList());
}

} // namespace
