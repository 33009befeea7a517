#include "tools/catalogue/Catalogue.h"
#include "platform/settings/VersionOrder.h"

#include "support/TestData.h"

using namespace testing;

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
    EXPECT_TRUE(Catalogue::parse(served(), "").error().contains(QStringLiteral(":1:1: ")));
    for (const QStringList &row : testRows("zvupdate-service/catalogue-errors.tsv", 3)) {
        QByteArray json = row[2].toUtf8().replace("\\n", "\n");
        if (json.startsWith('"'))
            json = R"({"products": [{"id": "P1", "releases": [
                       {"version": "1", "installer": "files/a.bin"}, {)" +
                   json + "}]}]}";
        SCOPED_TRACE(json.constData());
        const auto products = Catalogue::parse(served(), json);
        ASSERT_FALSE(products);
        EXPECT_THAT(products.error().toStdString(),
                    AllOf(StartsWith((Catalogue::path(served()) + row[0]).toStdString()),
                          HasSubstr(row[1].toStdString()), Not(HasSubstr("\n"))));
    }
}

TEST(VersionOrder, ComparesNumberByNumber)
{
    for (const QStringList &row : testRows("zvupdate-service/versions.tsv", 3)) {
        SCOPED_TRACE(qPrintable(row.join(u' ')));
        const auto order =
            row[1] == u"<" ? std::strong_ordering::less : std::strong_ordering::equal;
        EXPECT_EQ(ZVPlatform::compareVersions(row[0], row[2]), order);
        EXPECT_EQ(ZVPlatform::compareVersions(row[2], row[0]), 0 <=> order);
    }
}
