#include "../controller/UpdateService.h"
#include "../support/TestFiles.h"
#include "../support/WaitFor.h"

#include <QDir>

#include <gtest/gtest.h>

#include <algorithm>

// The example as it is, in a process that can look at it.
#define main runSampleApp
#include "../../examples/sample_app/main.cpp"
#undef main

namespace {

class SampleAppTest : public testing::Test
{
public:
    ~SampleAppTest() override
    {
        ZVUpdateProc::releaseSharedZVUpdateProc();
        UpdatePreferences::setAutomaticUpdating(std::nullopt);
        UpdatePreferences::synchronise();
    }

protected:
    static bool shows(const MainWindow &window, const QString &text)
    {
        return waitFor([&] { return window.statusBar()->currentMessage() == text; });
    }

    UpdateService service;
};

TEST_F(SampleAppTest, IsAwakeWhileTheServiceIsSilentAndTellsOfTheUpdate)
{
    const auto gate = std::make_shared<Gate>();
    Offer offer;
    offer.meanwhile = [gate] { waitFor([gate] { return gate->isOpen(); }, Meanwhile::Sleep); };
    offer.gate = std::make_shared<Gate>();
    service.setOffer(offer);
    const MainWindow window;
    int beats = 0;
    QTimer heart;
    heart.callOnTimeout([&beats] { ++beats; });
    heart.start(10);
    EXPECT_TRUE(waitFor([&] { return service.requests().size() == 1; }));
    const int before = beats;
    EXPECT_TRUE(waitFor([&] { return beats > before + 20; }));
    EXPECT_TRUE(shows(window, QStringLiteral("Checking for updates…")));
    gate->open();
    EXPECT_TRUE(waitFor([&] {
        return window.statusBar()->currentMessage().startsWith(
            QStringLiteral("Downloading an update: 49 %, "));
    }));
    offer.gate->open();
    EXPECT_TRUE(shows(window, QStringLiteral("An update is ready to install.")));
}

TEST_F(SampleAppTest, SaysThatItIsUpToDateOnlyWhereThatIsKnown)
{
    const QString upToDate = QStringLiteral("You are up to date.");
    service.setOffer({.ok = false});
    UpdatePreferences::setAutomaticUpdating(false);
    const MainWindow window;
    EXPECT_TRUE(shows(window, QStringLiteral("Checking for updates…")));
    EXPECT_TRUE(shows(window, {}));
    EXPECT_EQ(service.requests(), QStringList()) << "It was switched off.";

    const auto actions = window.findChildren<QAction *>();
    const auto ask = std::find_if(actions.begin(), actions.end(), [](const QAction *action) {
        return action->text().contains(QStringLiteral("Check for"));
    });
    ASSERT_NE(ask, actions.end());
    (*ask)->trigger();
    EXPECT_TRUE(shows(window, upToDate)) << "The user asks.";

    writeFile(QDir::home().filePath(QStringLiteral("Documents/ConsoleZVUpdate.mac")),
              "http://127.0.0.1:1/?dt=");
    (*ask)->trigger();
    EXPECT_TRUE(shows(window, QStringLiteral("The server could not be reached.")));
}

} // namespace
