#include "AskingTest.h"

#include <QElapsedTimer>

using namespace Qt::StringLiterals;
using Reply = ScriptedServer::Reply;

namespace {

/// Checks in the background, with downloads in both modes.
class BackgroundCheck : public AskingTest, public InBothModes
{
};

TEST_P(BackgroundCheck, TellsWhatCameOfIt)
{
    EXPECT_EQ(ask(), loaded);
    EXPECT_EQ(ask(), QStringList({u"installer-ready"_s, diskImage}));

    const std::pair<Offer, QStringList> cases[] = {
        {{.ok = false}, {u"nothing-newer"_s}},
        {{.version = std::nullopt}, {u"not-a-service"_s}},
        {{.version = u"../2"_s}, {u"unsafe-name"_s}},
        {{.tokenOk = false}, {u"no-token"_s}},
        {{.sizeReply = Offer::hugeSize()}, {u"disk-full"_s}},
        {{.file = wrong}, {u"download-started"_s, u"failed: wrong-digest"_s}},
    };
    for (const auto &[offer, expected] : cases) {
        startAfresh();
        service.setOffer(offer);
        EXPECT_EQ(ask(), expected) << qPrintable(expected.constLast());
        EXPECT_FALSE(host.latest->message.isEmpty());
    }

    startAfresh();
    service.setOffer({});
    controller->setMSaveFileDirectory(std::nullopt);
    EXPECT_EQ(ask(), QStringList(u"not-configured"_s));
    controller->setMSaveFileDirectory(u"/proc"_s + saveDirectory);
    EXPECT_EQ(ask(), QStringList(u"directory-not-writable"_s));
}

TEST_P(BackgroundCheck, HeedsAndChangesTheUsersSettingsOnlyWhenItIsScheduled)
{
    const QString switchKey = u"ZVUpdateAutoUpdate"_s;
    const QString dateKey = u"CorvantaAutoUpdateNextCheckDate"_s;
    const QDateTime later = QDateTime::currentDateTimeUtc().addDays(9);
    for (const auto &[preferences, expected] :
         {std::pair(QVariantMap{{switchKey, false}}, u"switched-off"_s),
          {{{dateKey, later}}, u"not-yet"_s}}) {
        startAfresh(preferences);
        EXPECT_EQ(ask(Reason::AskedByUser), loaded);
        auto kept = storedPreferences();
        kept.remove(digestKey);
        EXPECT_EQ(kept.keys(), preferences.keys());
        EXPECT_EQ(ask(Reason::Scheduled), QStringList(expected));
    }
    startAfresh();
    EXPECT_EQ(ask(Reason::Scheduled), loaded);
    EXPECT_EQ(storedPreferences().value(switchKey), u"true"_s);
    EXPECT_TRUE(storedPreferences().contains(dateKey));
}

TEST_P(BackgroundCheck, StartsOverWhereNothingCanComeOfTheTemporaryFile)
{
    const Offer withoutSize{.sizeReply = Reply().send("HTTP/1.1 200 OK\r\n\r\n").close()};
    // Only where no size is told must the service be asked to learn that it has no more. The
    // requests that resume are counted from the first row on.
    for (const auto &[useless, offer, resumed] : {std::tuple(wrong, Offer(), 1),
                                                  {wrong + wrong, Offer(), 2},
                                                  {wrong + wrong, withoutSize, 4}}) {
        startAfresh({{digestKey, digest}});
        service.setOffer(offer);
        place(temporary, useless);
        EXPECT_EQ(ask(Reason::Scheduled).constLast(), u"failed: http-status"_s);
        EXPECT_EQ(contentOf(temporary), useless);
        EXPECT_EQ(ask(Reason::AskedByUser), loaded);
        EXPECT_EQ(service.requests().filter(u"bytes="_s).size(), resumed);
    }
}

TEST_P(BackgroundCheck, KeepsAPartWhenTheSizeIsThatOfAnErrorsPage)
{
    startAfresh({{digestKey, digest}});
    place(temporary, good.left(1000));
    QDir().mkpath(diskImage); // Which is no wrong installer either.
    service.setOffer({.sizeReply = Reply::whole(503, QByteArray(100, 'p'))});
    EXPECT_EQ(ask(), loaded);
    EXPECT_EQ(service.requests().filter(u"bytes=1000-"_s).size(), 1);
}

TEST_P(BackgroundCheck, TellsOfProgressTenTimesASecondAtMost)
{
    service.setOffer({.file = wrong});
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(ask().constLast(), u"failed: wrong-digest"_s) << "Each is a download of its own.";
    const auto gate = std::make_shared<Gate>();
    service.setOffer({.gate = gate});
    QElapsedTimer time;
    time.start();
    const int before = host.looks;
    EXPECT_TRUE(controller->startCheck(Reason::AskedByUser, &host));
    EXPECT_TRUE(waitFor([&] { return host.looks >= before + 4; }));
    EXPECT_LE(host.looks - before, time.elapsed() / 100 + 2) << "a late timer makes them fewer";
    gate->open();
}

TEST_P(BackgroundCheck, IsStoppedWhileTheServiceIsSilent)
{
    const auto gate = std::make_shared<Gate>();
    const auto isSilent = std::make_shared<std::atomic<bool>>(false);
    const auto silence = [isSilent] {
        *isSilent = true;
        waitFor([&] { return !*isSilent; }, Meanwhile::Sleep);
        *isSilent = false;
    };
    const std::pair<Offer, QStringList> cases[] = {
        {{.sizeReply = Reply().wait(gate)}, {u"stopped"_s}},
        {{.gate = gate}, {u"download-started"_s, u"failed: stopped"_s}},
        {{.meanwhile = silence}, {u"stopped"_s}},
        {{.meanwhile = silence}, {}}, // By the end of the controller.
    };
    for (const auto &row : cases) {
        const Offer &offer = row.first;
        const QStringList &expected = row.second;
        startAfresh();
        service.setOffer(offer);
        host.heard.clear();
        const qsizetype asked = service.requests().size();
        EXPECT_TRUE(controller->startCheck(Reason::AskedByUser, &host));
        // The last request of the case has arrived, which for a download has come halfway.
        const qsizetype requests = offer.gate ? 4 : offer.sizeReply ? 3 : 1;
        EXPECT_TRUE(waitFor([&] {
            return service.requests().size() == asked + requests && (requests > 1 || *isSilent) &&
                   (!offer.gate || host.received > 0);
        }));
        expected.isEmpty() ? controller.reset() : controller->stopUpdate();
        EXPECT_TRUE(waitFor([&] { return host.heard.size() == expected.size(); }));
        EXPECT_EQ(host.heard, expected);
        EXPECT_FALSE(controller && controller->isChecking());
        EXPECT_EQ(isSilent->exchange(false), requests == 1) << "The service was waited for.";
    }
    gate->open();
}

INSTANTIATE_TEST_SUITE_P(, BackgroundCheck, bothModes, testing::PrintToStringParamName());

} // namespace
