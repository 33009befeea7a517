#include "tools/catalogue/CatalogueReader.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

void write(const QString &path, const QByteArray &contents)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    ASSERT_EQ(file.write(contents), contents.size());
}

/// A folder with two installers, an empty one, and a link that leads out of it.
class CatalogueTest : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(QDir(root_.path()).mkpath(QStringLiteral("served/files")));
        write(root_.filePath(QStringLiteral("outside.bin")), "outside");
        write(served(QStringLiteral("files/a.bin")), "a");
        write(served(QStringLiteral("files/b.bin")), "b");
        write(served(QStringLiteral("files/empty.bin")), "");
        ASSERT_TRUE(QFile::link(root_.filePath(QStringLiteral("outside.bin")),
                                served(QStringLiteral("files/link.bin"))));
    }

    QString served(const QString &name = {}) const
    {
        return root_.filePath(QStringLiteral("served/") + name);
    }

    std::optional<Catalogue> load(const QByteArray &json)
    {
        write(Catalogue::path(served()), json);
        return CatalogueReader::load(served(), &error_);
    }

    QTemporaryDir root_;
    QString error_;
};

} // namespace

TEST_F(CatalogueTest, KeepsReleasesOldestFirstWithTheirNotes)
{
    const auto catalogue = load(R"({"products": [{"id": "P1", "releases": [
        {"version": "1.10", "installer": "files/b.bin", "notes": {"en": "New.", "zh-TW": "新。"}},
        {"version": "1.9", "installer": "files/../files/a.bin", "superseded": true}]},
        {"id": "P&2", "releases": []}]})");
    ASSERT_TRUE(catalogue) << error_.toStdString();
    ASSERT_EQ(catalogue->products().size(), 2);
    const auto releases = catalogue->products().first().releases;
    ASSERT_EQ(releases.size(), 2);
    EXPECT_EQ(releases.first().version, QStringLiteral("1.9"));
    EXPECT_EQ(releases.first().installerPath, served(QStringLiteral("files/a.bin")));
    EXPECT_TRUE(releases.first().notes.isEmpty());
    ASSERT_EQ(releases.last().notes.size(), 2);
    EXPECT_EQ(releases.last().notes.last().language, QStringLiteral("zh-TW"));
    EXPECT_EQ(releases.last().notes.last().memo, QStringLiteral("新。"));
}

TEST_F(CatalogueTest, SaysWhereAndWhatIsWrong)
{
    const QByteArray head = "{\n \"products\": [{\n  \"id\": \"P1\", \"releases\": [\n";
    const QByteArray good = "   {\"version\": \"1\", \"installer\": \"files/a.bin\"}";
    const auto release = [&](const QByteArray &fields) {
        return head + good + ",\n   {" + fields + "}\n  ]\n }]\n}";
    };
    const struct
    {
        QByteArray json;
        const char *where;
        const char *reason;
    } cases[] = {
        {"", "1:1: ", ""},
        {head + good, "4:", ""},
        {"[]", "1:1: ", "object"},
        {"{\n}", "1:1: ", "\"products\" is missing"},
        {"{\n \"products\": {}}", "2:14: products: ", "list"},
        {"{\"products\": [\n7]}", "2:1: products[0]: ", "object"},
        {"{\"products\": [{\n\"releases\": []}]}", "1:15: products[0]: ", "\"id\" is missing"},
        {"{\"products\": [{\n\"id\": \"\"}]}", "2:7: products[0].id: ", "not empty"},
        {"{\"products\": [{\"id\": \"A\", \"releases\": []},\n{\"id\": \"A\"}]}",
         "2:8: products[1].id: ", "twice"},
        {release("\"version\": 2"), "5:16: products[0].releases[1].version: ", "in quotes"},
        {release("\"version\": \"2\""),
         "5:4: products[0].releases[1]: ", "\"installer\" is missing"},
        {release("\"installer\": \"files/b.bin\", \"version\": \"1.0\""),
         "5:44: products[0].releases[1].version: ", "listed before as \"1\""},
        {release("\"installer\": \"files/b.bin\", \"version\": \"new\""),
         "5:44: products[0].releases[1].version: ", "no number"},
        {release("\"installer\": \"files/b.bin\", \"version\": \"2/3\""),
         "5:44: products[0].releases[1].version: ", "plain file name"},
        {release("\"version\": \"2\", \"installer\": \"none.bin\""),
         "5:34: products[0].releases[1].installer: ", "no file"},
        {release("\"version\": \"2\", \"installer\": \"files\""),
         "5:34: products[0].releases[1].installer: ", "not a file"},
        {release("\"version\": \"2\", \"installer\": \"files/empty.bin\""),
         "5:34: products[0].releases[1].installer: ", "is empty"},
        {release("\"version\": \"2\", \"installer\": \"../outside.bin\""),
         "5:34: products[0].releases[1].installer: ", "outside"},
        {release("\"version\": \"2\", \"installer\": \"files/link.bin\""),
         "5:34: products[0].releases[1].installer: ", "outside"},
        {release("\"version\": \"2\", \"installer\": \"/etc/passwd\""),
         "5:34: products[0].releases[1].installer: ", "relative"},
        {release("\"version\": \"2\", \"installer\": \"files/b.bin\", \"notes\": \"n\""),
         "5:58: products[0].releases[1].notes: ", "by language"},
        {release("\"version\": \"2\", \"installer\": \"files/b.bin\", \"notes\": "
                 "{\"x\": \"}\\\"]\", \"y\": 1}"),
         "5:77: products[0].releases[1].notes.y: ", "in quotes"},
        {"{\"products\": [{\"id\": \"A\", \"releases\": [{\"version\": \"1_2\", "
         "\"installer\": \"files/a.bin\"}]},\n {\"id\": \"A_1\", \"releases\": [{\"version\": "
         "\"2\", \"installer\": \"files/a.bin\"}]}]}",
         "2:41: products[1].releases[0].version: ", "A_1_2.exe"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.json.toStdString());
        EXPECT_FALSE(load(c.json));
        const QString where = Catalogue::path(served()) + u':' + QString::fromUtf8(c.where);
        EXPECT_TRUE(error_.startsWith(where)) << error_.toStdString();
        EXPECT_TRUE(error_.contains(QString::fromUtf8(c.reason))) << error_.toStdString();
        EXPECT_FALSE(error_.contains(u'\n'));
    }
}

TEST_F(CatalogueTest, SaysThatThereIsNone)
{
    EXPECT_FALSE(CatalogueReader::load(served(), &error_));
    EXPECT_TRUE(error_.startsWith(Catalogue::path(served()))) << error_.toStdString();
}
