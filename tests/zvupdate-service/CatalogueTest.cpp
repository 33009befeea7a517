#include "tools/catalogue/Catalogue.h"
#include "platform/settings/VersionOrder.h"

#include "support/TestFiles.h"

#include <QDir>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

/// A folder with two installers, an empty one, and a link that leads out of it.
class CatalogueTest : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(QDir(root_.path()).mkpath(QStringLiteral("served/files")));
        writeFile(root_.filePath(QStringLiteral("outside.bin")), "outside");
        writeFile(served(QStringLiteral("files/a.bin")), "a");
        writeFile(served(QStringLiteral("files/b.bin")), "b");
        writeFile(served(QStringLiteral("files/empty.bin")), "");
        ASSERT_TRUE(QFile::link(root_.filePath(QStringLiteral("outside.bin")),
                                served(QStringLiteral("files/link.bin"))));
    }

    QString served(const QString &name = {}) const
    {
        return root_.filePath(QStringLiteral("served/") + name);
    }

    void expectFailure(const QByteArray &json, const char *where, const char *reason) const
    {
        SCOPED_TRACE(json.toStdString());
        const auto products = Catalogue::parse(served(), json);
        ASSERT_FALSE(products);
        const QString &error = products.error();
        EXPECT_TRUE(error.startsWith(Catalogue::path(served()) + QString::fromUtf8(where)) &&
                    error.contains(QString::fromUtf8(reason)) && !error.contains(u'\n'))
            << error.toStdString();
    }

    QTemporaryDir root_;
};

} // namespace

TEST_F(CatalogueTest, KeepsReleasesOldestFirstWithTheirNotes)
{
    const auto products = Catalogue::parse(served(), R"({"products": [{"id": "P1", "releases": [
        {"version": "1.10", "installer": "files/b.bin", "notes": {"en": "New.", "zh-TW": "新。"}},
        {"version": "1.9", "installer": "files/../files/a.bin", "superseded": true}]},
        {"id": "P&2", "releases": []}]})");
    ASSERT_TRUE(products) << products.error().toStdString();
    ASSERT_EQ(products->size(), 2);
    const auto releases = products->first().releases;
    ASSERT_EQ(releases.size(), 2);
    EXPECT_EQ(releases.first().version, QStringLiteral("1.9"));
    EXPECT_EQ(releases.first().fileName, QStringLiteral("P1_1.9.exe"));
    EXPECT_EQ(releases.first().installerPath, served(QStringLiteral("files/a.bin")));
    EXPECT_TRUE(releases.first().notes.isEmpty());
    ASSERT_EQ(releases.last().notes.size(), 2);
    EXPECT_EQ(releases.last().notes.last().language, QStringLiteral("zh-TW"));
    EXPECT_EQ(releases.last().notes.last().memo, QStringLiteral("新。"));
}

TEST_F(CatalogueTest, SaysWhereAndWhatIsWrong)
{
    EXPECT_TRUE(Catalogue::load(served()).error().startsWith(Catalogue::path(served()) + u':'));
    const struct
    {
        const char *json;
        const char *where;
        const char *reason;
    } cases[] = {
        {"", ":1:1: ", ""},
        {"{\n\n  \"新\": !", ":3:8: ", ""},
        {"[]", ": the file ", "object"},
        {"{}", ": \"products\" is missing", ""},
        {R"({"products": {}})", ": products: ", "list"},
        {R"({"products": [7]})", ": products[0]: ", "object"},
        {R"({"products": [{"releases": []}]})", ": products[0]: ", "\"id\" is missing"},
        {R"({"products": [{"id": ""}]})", ": products[0].id: ", "not empty"},
        {R"({"products": [{"id": "A", "releases": []}, {"id": "A"}]})",
         ": products[1].id: ", "twice"},
        {R"({"products": [
            {"id": "A", "releases": [{"version": "1_2", "installer": "files/a.bin"}]},
            {"id": "A_1", "releases": [{"version": "2", "installer": "files/a.bin"}]}]})",
         ": products[1].releases[0].version: ", "A_1_2.exe"},
    };
    for (const auto &c : cases)
        expectFailure(c.json, c.where, c.reason);

    const struct
    {
        const char *release;
        const char *member;
        const char *reason;
    } releases[] = {
        {R"("version": 2)", ".version", "in quotes"},
        {R"("version": "2")", "", "\"installer\" is missing"},
        {R"("version": "1.0", "installer": "files/b.bin")", ".version", "listed before as \"1\""},
        {R"("version": "new", "installer": "files/b.bin")", ".version", "no number"},
        {R"("version": "2/3", "installer": "files/b.bin")", ".version", "plain file name"},
        {R"("version": "2", "installer": "none.bin")", ".installer", "no file"},
        {R"("version": "2", "installer": "files")", ".installer", "not a file"},
        {R"("version": "2", "installer": "files/empty.bin")", ".installer", "is empty"},
        {R"("version": "2", "installer": "../outside.bin")", ".installer", "outside"},
        {R"("version": "2", "installer": "files/link.bin")", ".installer", "outside"},
        {R"("version": "2", "installer": "/etc/passwd")", ".installer", "relative"},
        {R"("version": "2", "installer": "files/b.bin", "statement": "none")", ".statement",
         "no file"},
        {R"("version": "2", "installer": "files/b.bin", "releaseKeys": ["Ed"])", ".releaseKeys",
         "Release key 1 is"},
        {R"("version": "2", "installer": "files/b.bin", "notes": "n")", ".notes", "by language"},
        {R"("version": "2", "installer": "files/b.bin", "notes": {"y": 1})", ".notes.y",
         "in quotes"},
    };
    for (const auto &c : releases)
        expectFailure(QByteArray(R"({"products": [{"id": "P1", "releases": [
                          {"version": "1", "installer": "files/a.bin"}, {)") +
                          c.release + "}]}]}",
                      (QByteArray(": products[0].releases[1]") + c.member + ": ").constData(),
                      c.reason);
}

TEST(VersionOrder, ComparesNumberByNumber)
{
    const struct
    {
        const char16_t *left;
        const char16_t *right;
        std::strong_ordering order;
    } cases[] = {
        {u"2103", u"2100", std::strong_ordering::greater},
        {u"999", u"1000", std::strong_ordering::less},
        {u"1.10", u"1.9", std::strong_ordering::greater},
        {u"1.9.1", u"1.9", std::strong_ordering::greater},
        {u"1.0", u"1", std::strong_ordering::equal},
        {u"1.01", u"1.1", std::strong_ordering::equal},
        {u"v2.1", u"2-1", std::strong_ordering::equal},
        {u"1.2", u"1.0.9", std::strong_ordering::greater},
        {u"", u"1", std::strong_ordering::less},
        {u"", u"none", std::strong_ordering::equal},
        {u"20240101123456789012345", u"20240101123456789012344", std::strong_ordering::greater},
        {u"2.1.0-beta1", u"2.1.0", std::strong_ordering::less},
        {u"2.1.0-beta1", u"2.0.9", std::strong_ordering::greater},
        {u"2104-beta", u"2104.0", std::strong_ordering::less},
        {u"1.0.0-alpha", u"1.0.0-alpha.1", std::strong_ordering::less},
        {u"1.0.0-alpha.1", u"1.0.0-alpha.beta", std::strong_ordering::less},
        {u"1.0.0-alpha.beta", u"1.0.0-beta", std::strong_ordering::less},
        {u"1.0.0-beta.2", u"1.0.0-beta.11", std::strong_ordering::less},
        {u"1.0.0-beta9", u"1.0.0-beta10", std::strong_ordering::less},
        {u"1.0.0-beta.11", u"1.0.0-rc.1", std::strong_ordering::less},
        {u"2.1.0-1", u"2.1.0", std::strong_ordering::greater},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(QString::fromUtf16(c.left).toStdString() + " against " +
                     QString::fromUtf16(c.right).toStdString());
        EXPECT_EQ(ZVPlatform::compareVersions(c.left, c.right), c.order);
        EXPECT_EQ(ZVPlatform::compareVersions(c.right, c.left), 0 <=> c.order);
    }
}
