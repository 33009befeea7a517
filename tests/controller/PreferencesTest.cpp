#include "ControllerTest.h"

#include <QDateTime>
#include <QSettings>

#include <utility>

using namespace Qt::StringLiterals;

namespace {

const QString switchKey = u"ZVUpdateAutoUpdate"_s;
const QString dateKey = u"CorvantaAutoUpdateNextCheckDate"_s;

const QDateTime timeZero = QDateTime::fromSecsSinceEpoch(0, Qt::UTC);
const QDateTime past = QDateTime::fromSecsSinceEpoch(1000000000, Qt::UTC);
const QDateTime future = QDateTime::fromSecsSinceEpoch(32503680000, Qt::UTC);
const QString digest = Offer::digestOf(Offer::installer());

/// A way through a check that is let happen, and what it writes.
struct Path
{
    Offer offer;
    const QString ControllerTest::*complete; ///< The file that is complete already; or null.
    int64_t result;
    bool isDateKept; ///< Else the next-check date is the current one afterwards.
    QString digestBefore, digestAfter;
    qsizetype requests;
};

const Path paths[] = {
    {{.ok = false}, nullptr, 3, false, u"0123"_s, u"0123"_s, 1},
    {{.tokenOk = false}, nullptr, 3, false, u"0123"_s, digest.toLower(), 2},
    {{}, &ControllerTest::diskImage, 2, true, u"0123"_s, u"0123"_s, 1},
    {{}, &ControllerTest::temporary, 2, true, digest, digest, 3},
    {{}, nullptr, 1, true, u"0123"_s, digest.toLower(), 4},
};

class CheckPath : public ControllerTest
{
public:
    void checkOnce(const Path &path, const QVariant &on, const QVariant &date)
    {
        QVariantMap expected = {{u"HostsOwn"_s, u"kept"_s}, {digestKey, path.digestBefore}};
        if (on.isValid())
            expected.insert(switchKey, on);
        if (date.isValid())
            expected.insert(dateKey, date);
        startAfresh(expected);
        service.setOffer(path.offer);
        if (path.complete)
            place(this->*path.complete, good);
        // The two rows for checks that do not happen come first, and what they write.
        const bool happens = on.isValid() ? on.toBool() : date != future;
        expected.insert(switchKey, on.isValid() ? on.toString() : u"true"_s);
        if (on.isValid() || happens)
            expected.insert(dateKey, timeZero);
        if (happens)
            expected.insert(digestKey, path.digestAfter);
        Host formerHost;
        controller->setDelegate(&formerHost);
        const auto formerRequests = service.requests().size();
        const QDateTime start = QDateTime::currentDateTimeUtc();

        EXPECT_EQ(check(), happens ? path.result : 6);
        const QVariantMap after = storedPreferences();
        if (happens && !path.isDateKept) {
            const QDateTime now = after.value(dateKey).toDateTime();
            EXPECT_TRUE(start <= now && now <= QDateTime::currentDateTimeUtc());
            expected.insert(dateKey, now);
        }
        EXPECT_EQ(after, expected);
        EXPECT_EQ(controller->delegate(), happens ? &host : &formerHost);
        EXPECT_EQ(controller->mLastCheckUpdateResponse() != nullptr, happens);
        EXPECT_EQ(controller->mCurrentDownloadUpdateLogic() != nullptr, happens);
        EXPECT_EQ(QFileInfo(saveDirectory).isDir(), happens || path.complete);
        EXPECT_TRUE(!happens || waitForDownload());
        EXPECT_EQ(service.requests().size() - formerRequests, happens ? path.requests : 0);
    }
};

TEST_F(CheckPath, WritesWhatItMustAndNothingElse)
{
    const QVariant absent;
    for (const Path &path : paths)
        for (const QVariant &on : {absent, QVariant(true), QVariant(false)})
            for (const QVariant &date : {absent, QVariant(past), QVariant(future)}) {
                SCOPED_TRACE(testing::Message() << &path - paths << qPrintable(on.toString())
                                                << qPrintable(date.toString()));
                checkOnce(path, on, date);
            }
}

TEST_F(ControllerTest, TouchesNothingWhileItIsNotConfigured)
{
    using Text = std::optional<QString>;
    startAfresh({{switchKey, true}, {dateKey, future}});
    const QVariantMap before = storedPreferences();
    Host formerHost;
    controller->setDelegate(&formerHost);
    const Text set = u"x"_s;
    for (const auto &[id, version, directory] :
         {std::tuple(Text(), set, set), {set, {}, set}, {set, set, {}}, {{}, {}, {}}}) {
        controller->setProductID(id, version, directory);
        EXPECT_EQ(check(), 4);
    }
    EXPECT_EQ(storedPreferences(), before);
    EXPECT_EQ(service.requests(), QStringList());
    EXPECT_EQ(controller->delegate(), &formerHost);
}

TEST_F(ControllerTest, FetchesTheUpdateAlsoWithoutPreferences)
{
    const QString file = QSettings().fileName();
    QFile::remove(file);
    ASSERT_TRUE(QDir().mkpath(file)) << "It can be neither read nor written.";
    EXPECT_EQ(check(), 1);
    EXPECT_TRUE(waitForDownload());
    EXPECT_EQ(host.heard, QStringList(diskImage));
    EXPECT_TRUE(QDir().rmdir(file));
}

TEST_F(ControllerTest, ReadsTheSwitchUnderTheKeyThatTheHostHasChosen)
{
    const char *const former = std::exchange(kZVAutoUpdateOnOffKey, "HostsSwitch");
    startAfresh({{switchKey, false}});
    EXPECT_EQ(check(), 1);
    EXPECT_EQ(storedPreferences().value(u"HostsSwitch"_s), u"true"_s);
    kZVAutoUpdateOnOffKey = former;
    EXPECT_EQ(check(), 6);
}

} // namespace
