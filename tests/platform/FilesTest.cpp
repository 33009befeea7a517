#include "platform/Files.h"
#include "support/TestFiles.h"
#include "support/WaitFor.h"

#include <QDir>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include <sys/stat.h>

using ZVPlatform::FileGuard;
using ZVPlatform::Files;

namespace {

class FilesTest : public testing::Test
{
protected:
    QString path(const char *name) const { return directory_.filePath(QString::fromUtf8(name)); }
    QByteArray content(const char *name) const { return readFile(path(name)); }

    const QTemporaryDir directory_;
};

QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

} // namespace

TEST_F(FilesTest, NamesArePutTogetherWithoutBeingNormalised)
{
    EXPECT_EQ(Files::join(text("/a/b"), text("c")), text("/a/b/c"));
    EXPECT_EQ(Files::join(text("/a/b/"), text("c")), text("/a/b/c"));
    EXPECT_EQ(Files::join(text("a/../b//"), text("./c")), text("a/../b//./c"));
    EXPECT_EQ(Files::join(text("/"), text("c")), text("/c"));

    const char *const rows[][2] = {
        {"/d/P1_2.1.dmg", "/d/P1_2.1.bin"}, {"/d/P1_2", "/d/P1_2.bin"},
        {"/d.x/P1", "/d.x/P1.bin"},         {"P1.dmg", "P1.bin"},
        {"/d/.dmg", "/d/.dmg.bin"},         {"/d/P1.", "/d/P1.bin"},
    };
    for (const auto &[from, to] : rows)
        EXPECT_EQ(Files::replaceExtension(text(from), text("bin")), text(to)) << from;
}

TEST_F(FilesTest, OnlyOneFileNameIsAPlainName)
{
    for (const QString &name : {text("a"), text("..."), text(".a"), text("a\\b"), text("a\nb"),
                                text("-"), text("更新 1.dmg"), QString(255, u'x')})
        EXPECT_TRUE(Files::isPlainName(name)) << qPrintable(name);
    for (const QString &name :
         {QString(), text("."), text(".."), text("/"), text("a/b"), text("../a"), text("/a"),
          text("a") + QChar(QChar::Null), QString(256, u'x'), QString(86, u'\u66F4')})
        EXPECT_FALSE(Files::isPlainName(name)) << qPrintable(name);
}

TEST_F(FilesTest, AMoveReplacesNothing)
{
    writeFile(path("from"), "new");
    writeFile(path("taken"), "old");
    ASSERT_TRUE(QFile::link(path("nowhere"), path("dangling")));
    ASSERT_TRUE(QDir().mkdir(path("directory")));
    for (const char *taken : {"taken", "dangling", "directory"})
        EXPECT_FALSE(Files::move(path("from"), path(taken))) << taken;
    EXPECT_FALSE(Files::move(path("missing"), path("to")));
    EXPECT_FALSE(Files::move(path("from"), path("no/such/directory")));
    EXPECT_FALSE(Files::move(path("from"), path("to") + QChar(QChar::Null)));
    EXPECT_EQ(content("from"), "new");
    EXPECT_EQ(content("taken"), "old");
    const auto all = QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot;
    EXPECT_EQ(QDir(directory_.path()).entryList(all).size(), 4) << "Nothing was made.";

    EXPECT_TRUE(Files::move(path("from"), path("to")));
    EXPECT_EQ(content("to"), "new");
    EXPECT_FALSE(Files::exists(path("from")));
}

TEST_F(FilesTest, AnAppendGoesToARegularFileOrNowhere)
{
    Files::append(path("file"), "a");
    Files::append(path("file"), QByteArray(100'000, 'b'));
    Files::append(path("file"), {});
    EXPECT_EQ(content("file"), 'a' + QByteArray(100'000, 'b'));
    EXPECT_EQ(Files::size(path("file")), 100'001u);

    writeFile(path("outside"), "old");
    ASSERT_TRUE(QFile::link(path("outside"), path("link")));
    ASSERT_TRUE(QFile::link(path("nowhere"), path("dangling")));
    ASSERT_EQ(::mkfifo(qPrintable(path("pipe")), 0600), 0);
    for (const QString &target :
         {path("link"), path("dangling"), path("pipe"), directory_.path(),
          path("no/such/directory"), QString(), QString(path("file") + QChar(QChar::Null))})
        Files::append(target, "x");
    EXPECT_EQ(content("outside"), "old");
    EXPECT_FALSE(Files::exists(path("nowhere")));
    EXPECT_EQ(Files::size(path("file")), 100'001u);
    EXPECT_EQ(Files::size(path("link")), 0u) << "A link is no regular file.";
    EXPECT_EQ(Files::size(directory_.path()), 0u);
}

TEST_F(FilesTest, ARemovalLeavesDirectoriesAndTheTargetsOfLinks)
{
    writeFile(path("file"), "content");
    ASSERT_TRUE(QFile::link(path("file"), path("link")));
    Files::remove(path("link"));
    Files::remove(directory_.path());
    Files::remove(path("file") + QChar(QChar::Null));
    EXPECT_EQ(content("file"), "content");
    EXPECT_FALSE(QFileInfo(path("link")).isSymLink());
    Files::remove(path("file"));
    EXPECT_FALSE(Files::exists(path("file")));
}

TEST_F(FilesTest, AGuardedFileIsAppendedToAfterwards)
{
    for (const bool isMoved : {false, true}) {
        writeFile(path("file"), "old");
        auto guard = std::make_unique<FileGuard>(path("file"));
        std::atomic<bool> hasAppended = false;
        std::thread appender([&] {
            Files::append(path("file"), "+new");
            hasAppended = true;
        });
        // Long enough for an append that nothing holds up.
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(50);
        ASSERT_TRUE(
            waitFor([&] { return hasAppended || std::chrono::steady_clock::now() >= end; }));
        EXPECT_FALSE(hasAppended);
        EXPECT_EQ(content("file"), "old");
        EXPECT_EQ(isMoved && Files::move(path("file"), path("verified")), isMoved);
        guard.reset();
        appender.join();
        EXPECT_EQ(content("file"), isMoved ? "+new" : "old+new");
    }
    EXPECT_EQ(content("verified"), "old") << "What was moved away stays as it was.";
    const FileGuard nothing(path("missing"));
    EXPECT_FALSE(Files::exists(path("missing")));
}

TEST_F(FilesTest, TextIsReadInTheEncodingThatItShows)
{
    const struct
    {
        QByteArray bytes;
        std::optional<QString> text;
    } rows[] = {
        {"plain\r\n", text("plain\r\n")},
        {"", QString()},
        {"\xE6\x9B\xB4", text("更")},
        {"\xEF\xBB\xBFwith a mark", text("with a mark")},
        {QByteArrayLiteral("\xFF\xFE\xF4\x66"), text("更")},
        {QByteArrayLiteral("\xFE\xFF\x66\xF4"), text("更")},
        {"caf\xE9", std::nullopt},
    };
    for (const auto &row : rows) {
        writeFile(path("text"), row.bytes);
        EXPECT_TRUE(Files::readText(path("text")) == row.text) << row.bytes.toHex().data();
    }
    EXPECT_EQ(Files::readText(path("missing")), std::nullopt);
    EXPECT_EQ(Files::readText(directory_.path()), std::nullopt);
}
