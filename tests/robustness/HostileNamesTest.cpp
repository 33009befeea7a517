#include "../controller/ControllerTest.h"
#include "../support/Campaign.h"
#include "../support/WaitFor.h"

#include <QDir>
#include <QSettings>

using namespace Qt::StringLiterals;

namespace {

/// A text that a service or a host uses in a file name, and whether a file can have such a name.
struct Name
{
    QString text;
    bool isPlain;
};

QList<Name> names()
{
    const QString zero(1, QChar());
    const QString rightToLeft = u"\u202E"_s;
    return {
        {u"../victim"_s, false},
        {u"x/../../victim"_s, false},
        {u"x/y"_s, false},
        {u"/victim"_s, false},
        {u"/etc/passwd"_s, false},
        {u"/"_s, false},
        {u"2/"_s, false},
        {u"./2"_s, false},
        {u"2/.."_s, false},
        {u"x/../victim_2"_s, false},
        {zero, false},
        {u"2"_s + zero, false},
        {u"2"_s + zero + u"/../victim"_s, false},
        {zero + u"2"_s, false},
        {QString(300, u'9'), false},
        {QString(100, u'\u7248'), false}, // 300 bytes
        {QString(100000, u'9'), false},
        {u"file:///etc/passwd"_s, false},
        {u"."_s, true},
        {u".."_s, true},
        {u"..."_s, true},
        {u".2"_s, true},
        {u"2."_s, true},
        {u"1.2.3"_s, true},
        {u"2.dmg"_s, true},
        {u"2.bin"_s, true},
        {u"2.exe"_s, true},
        {u" "_s, true},
        {u" 2 "_s, true},
        {u"2\n"_s, true},
        {u"\r\n2"_s, true},
        {u"\t\u0007\u001B[31m"_s, true},
        {u"2\\..\\victim"_s, true},
        {u"C:\\2"_s, true},
        {u"-rf"_s, true},
        {u"~"_s, true},
        {u"$HOME;`id`"_s, true},
        {u"%s%n%2$s%@"_s, true},
        {u"%2E%2E%2Fvictim"_s, true},
        {u"*?[a]"_s, true},
        {u"2&fn=other"_s, true},
        {rightToLeft + u"gmd.2"_s, true},
        {u"\u200B\uFEFF"_s, true},
        {u"\u7248\u672C"_s, true},
        {u"\U0001F600"_s, true},
        {QString(200, u'9'), true},
        {u"con"_s, true},
    };
}

/// A save directory with good files beside and within it that hostile names aim at.
class HostileNames : public ControllerTest
{
public:
    HostileNames()
    {
        for (const QString &victim : {u"../victim"_s, u"../victim_2"_s, u"P_x/y"_s, u"P_1"_s})
            for (const QString &extension : {u".dmg"_s, u".bin"_s}) {
                QDir().mkpath(saved(u"P_x"_s));
                place(saved(victim + extension), "victim");
            }
        before_ = tree();
    }

    void expectRefused(const QString &product, const Offer &offer)
    {
        SCOPED_TRACE(testing::Message()
                     << "product " << qPrintable(product.left(60)) << ", version "
                     << qPrintable(offer.version.value_or(u"none"_s).left(60)));
        service.setOffer(offer);
        controller->setMProductID(product);
        EXPECT_EQ(check(), 3);
        EXPECT_TRUE(service.requests().constLast().startsWith("POST cmd=checkupd&"_L1));
        EXPECT_FALSE(storedPreferences().contains(digestKey));
        EXPECT_EQ(tree(), before_);
    }

    void expectPlainFile(const QString &product, const QString &version)
    {
        const QString name = product + u'_' + version;
        SCOPED_TRACE(qPrintable(name));
        service.setOffer({.version = version});
        controller->setMProductID(product);
        EXPECT_EQ(check(), 1);
        EXPECT_TRUE(waitForDownload());
        EXPECT_EQ(service.requests().constLast(),
                  u"GET cmd=download&tk=T&fn="_s + name + u".exe"_s);
        auto expected = before_;
        expected.insert(saved(name + u".dmg"_s), good);
        EXPECT_EQ(tree(), expected);
        QFile::remove(saved(name + u".dmg"_s));
        QFile::remove(saved(name + u".bin"_s));
    }

private:
    QMap<QString, QByteArray> before_;
};

TEST_F(HostileNames, LeadToPlainFilesOrNowhere)
{
    int tried = 0;
    for (const auto &[text, isPlain] : names()) {
        for (const bool asVersion : {true, false}) {
            const QString product = asVersion ? u"P"_s : text;
            const QString version = asVersion ? text : u"2"_s;
            QSettings().remove(digestKey);
            if (isPlain)
                expectPlainFile(product, version);
            else
                expectRefused(product, {.version = version});
            ++tried;
        }
    }
    QSettings().remove(digestKey);
    // No version and no digest are no names at all.
    using Text = std::optional<QString>;
    for (const auto &[version, announced] :
         {std::pair(Text(), Text(digest)), {QString(), digest}, {u"2"_s, {}}, {u"2"_s, QString()}})
        expectRefused(u"P"_s, {.version = version, .digest = announced});
    Campaign::tried(tried + 4);
}

} // namespace
