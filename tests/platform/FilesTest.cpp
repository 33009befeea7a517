#include "platform/files/Files.h"
#include "platform/files/LockedFile.h"
#include "platform/files/PartialFile.h"
#include "support/Testing.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <memory>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

using ZVPlatform::FileError;
using ZVPlatform::Files;
using ZVPlatform::LockedFile;
using ZVPlatform::PartialFile;

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

TEST_F(FilesTest, AMoveReplacesNothingButALinkToNowhere)
{
    using Moved = LockedFile::Moved;
    writeFile(path("from"), "new");
    writeFile(path("taken"), "old");
    ASSERT_TRUE(QFile::link(path("taken"), path("link")));
    ASSERT_TRUE(QDir().mkdir(path("directory")));
    LockedFile file(path("from"));
    for (const char *taken : {"taken", "link", "directory"})
        EXPECT_EQ(file.moveTo(path(taken)), Moved::No) << taken;
    EXPECT_EQ(file.moveTo(path("no/such/directory")), Moved::No);
    EXPECT_EQ(file.moveTo(path("to") + QChar(QChar::Null)), Moved::No);
    EXPECT_EQ(content("from"), "new");
    EXPECT_EQ(content("taken"), "old");
    const auto all = QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot;
    EXPECT_EQ(QDir(directory_.path()).entryList(all).size(), 4) << "Nothing was made.";

    ASSERT_TRUE(QFile::link(path("nowhere"), path("dangling")));
    EXPECT_EQ(file.moveTo(path("dangling")), Moved::Yes);
    EXPECT_EQ(content("dangling"), "new");
    EXPECT_FALSE(Files::exists(path("from")));
}

TEST_F(FilesTest, WhatHasTakenTheNameIsNeitherMovedNorRemoved)
{
    writeFile(path("file"), "verified");
    LockedFile file(path("file"));
    ASSERT_TRUE(QFile::remove(path("file")));
    writeFile(path("file"), "another");
    EXPECT_EQ(file.moveTo(path("to")), LockedFile::Moved::NotThisFile);
    file.remove();
    EXPECT_EQ(content("file"), "another");
    EXPECT_FALSE(Files::exists(path("to")));
}

TEST_F(FilesTest, ADownloadGrowsARegularFileOrStops)
{
    PartialFile file(path("file"));
    EXPECT_TRUE(file.append("a"));
    EXPECT_TRUE(file.append(QByteArray(100'000, 'b')));
    EXPECT_TRUE(file.append({}));
    EXPECT_EQ(content("file"), 'a' + QByteArray(100'000, 'b'));
    EXPECT_EQ(Files::size(path("file")), 100'001u);
    EXPECT_EQ(file.size(), 100'001u);
    const auto rights = QFile(path("file")).permissions();
    EXPECT_FALSE(rights & (QFile::ReadGroup | QFile::ReadOther)) << rights;
    // Missing it begins anew, wherever the download is by then.
    ASSERT_TRUE(QFile::remove(path("file")));
    EXPECT_TRUE(file.append("c"));
    EXPECT_TRUE(file.append("d"));
    EXPECT_EQ(content("file"), "cd");
    EXPECT_TRUE(PartialFile::beginsInTheMiddle(path("file")));
    EXPECT_FALSE(PartialFile(path("file")).append("e"))
        << "That one would take it for a beginning.";

    writeFile(path("outside"), "old");
    writeFile(path("once"), "old");
    ASSERT_EQ(::link(qPrintable(path("once")), qPrintable(path("twice"))), 0);
    ASSERT_TRUE(QFile::link(path("outside"), path("link")));
    ASSERT_TRUE(QFile::link(path("nowhere"), path("dangling")));
    ASSERT_EQ(::mkfifo(qPrintable(path("pipe")), 0600), 0);
    const std::pair<QString, std::optional<FileError>> rows[] = {
        {path("link"), std::nullopt},
        {path("dangling"), std::nullopt},
        {path("pipe"), std::nullopt},
        {path("twice"), std::nullopt},
        {directory_.path(), FileError::IsDirectory},
        {path("no/such/directory"), std::nullopt},
        {QString(), std::nullopt},
        {path("file") + QChar(QChar::Null), std::nullopt},
    };
    for (const auto &[target, error] : rows) {
        const auto found = PartialFile(target).append("x");
        EXPECT_EQ(found ? 0 : found.error().code, error ? static_cast<int>(*error) : 0)
            << qPrintable(target);
        EXPECT_TRUE(found || !found.error().localizedDescription.isEmpty());
    }
    EXPECT_EQ(content("once"), "old");
    EXPECT_FALSE(Files::exists(path("nowhere")));
    EXPECT_EQ(content("file"), "cd");
    EXPECT_EQ(Files::size(path("link")), 0u) << "A link is no regular file.";
    EXPECT_EQ(Files::size(directory_.path()), 0u);
    for (const QString &removed :
         {path("link"), directory_.path(), path("file") + QChar(QChar::Null)})
        Files::remove(removed);
    EXPECT_FALSE(QFileInfo(path("link")).isSymLink());
    EXPECT_EQ(content("outside"), "old");
    EXPECT_EQ(content("file"), "cd");
    Files::remove(path("file"));
    EXPECT_FALSE(Files::exists(path("file")));
}

TEST_F(FilesTest, OfTwoDownloadsIntoOneFileOneGoesOn)
{
    writeFile(path("file"), "part");
    PartialFile first(path("file"));
    PartialFile second(path("file"));
    PartialFile missing(path("new"));
    PartialFile faster(path("new"));
    EXPECT_TRUE(first.append("+1"));
    EXPECT_FALSE(second.append("+2"));
    EXPECT_TRUE(first.append("+3"));
    EXPECT_EQ(content("file"), "part+1+3");
    EXPECT_TRUE(faster.append("1"));
    EXPECT_FALSE(missing.append("2"));
    EXPECT_EQ(content("new"), "1");
}

TEST_F(FilesTest, ALockKeepsOtherWritersAway)
{
    writeFile(path("file"), "old");
    auto file = std::make_unique<LockedFile>(path("file"));
    PartialFile download(path("file"));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(download.append("+new"));
    const auto waited = std::chrono::steady_clock::now() - begin;
    EXPECT_TRUE(waited >= std::chrono::seconds(1) && waited < std::chrono::seconds(10));
    Files::remove(path("file"));
    EXPECT_EQ(content("file"), "old");
    int asked = 0;
    EXPECT_EQ(LockedFile(path("file"), [&] { return ++asked == 2; }).state(),
              LockedFile::State::InUse);
    EXPECT_EQ(asked, 2) << "A stop ends the wait.";

    ASSERT_EQ(file->moveTo(path("verified")), LockedFile::Moved::Yes);
    file.reset();
    EXPECT_TRUE(download.append("+new"));
    EXPECT_EQ(content("file"), "+new");
    EXPECT_EQ(content("verified"), "old") << "What was moved away stays as it was.";
    EXPECT_EQ(LockedFile(path("missing")).error(), ENOENT);
    EXPECT_FALSE(Files::exists(path("missing")));
}

TEST_F(FilesTest, WhoOnlyReadsAFileLocksNobodyOut)
{
    writeFile(path("file"), "old");
    const int reader = ::open(qPrintable(path("file")), O_RDONLY | O_CLOEXEC);
    struct flock whole = {};
    whole.l_type = F_RDLCK;
    ASSERT_EQ(::flock(reader, LOCK_EX), 0);
    ASSERT_EQ(::fcntl(reader, F_SETLK, &whole), 0);
    ASSERT_EQ(::fcntl(reader, F_OFD_SETLK, &whole), 0);
    EXPECT_TRUE(PartialFile(path("file")).append("+new"));
    EXPECT_EQ(content("file"), "old+new");
    EXPECT_FALSE(QFile(path("file")).permissions() & (QFile::ReadGroup | QFile::ReadOther));
    EXPECT_EQ(LockedFile(path("file")).moveTo(path("to")), LockedFile::Moved::Yes);
    Files::remove(path("to"));
    EXPECT_FALSE(Files::exists(path("to")));
    ::close(reader);
}

// As on a full disk: a beginning is kept, and a copy has no name before it is whole.
TEST_F(FilesTest, WithoutRoomIsNeitherWrittenNorCopiedInPart)
{
    const QTemporaryDir elsewhere(QStringLiteral("/dev/shm/ZVUpdateTests-XXXXXX"));
    const QString target = elsewhere.filePath(text("to"));
    const QByteArray verified(150'000, 'v');
    writeFile(path("from"), verified);
    LockedFile from(path("from"));
    PartialFile download(path("file"));
    EXPECT_TRUE(download.append("a"));

    rlimit former = {};
    getrlimit(RLIMIT_FSIZE, &former);
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit full = {100'000, former.rlim_max};
    setrlimit(RLIMIT_FSIZE, &full);
    EXPECT_TRUE(download.append(QByteArray(150'000, 'b')))
        << "There may be room for what comes next.";
    const auto moved = from.moveTo(target);
    setrlimit(RLIMIT_FSIZE, &former);

    EXPECT_EQ(content("file"), 'a' + QByteArray(99'999, 'b'));
    EXPECT_EQ(moved, LockedFile::Moved::No) << "/dev/shm is another file system.";
    EXPECT_TRUE(QDir(elsewhere.path()).isEmpty());
    EXPECT_EQ(content("from"), verified);
    EXPECT_EQ(from.moveTo(target), LockedFile::Moved::Yes);
    EXPECT_EQ(readFile(target), verified);
    EXPECT_FALSE(Files::exists(path("from")));
}

TEST_F(FilesTest, TextIsReadInTheEncodingThatItShows)
{
    const std::pair<QByteArray, std::optional<QString>> rows[] = {
        {"plain\r\n", text("plain\r\n")},
        {"", QString()},
        {"\xEF\xBB\xBFwith a mark", text("with a mark")},
        {QByteArrayLiteral("\xFF\xFE\xF4\x66"), text("更")},
        {QByteArrayLiteral("\xFE\xFF\x66\xF4"), text("更")},
        {"caf\xE9", std::nullopt},
    };
    for (const auto &[bytes, expected] : rows) {
        writeFile(path("text"), bytes);
        EXPECT_EQ(Files::readText(path("text")), expected) << bytes.toHex().data();
    }
    EXPECT_EQ(Files::readText(path("missing")), std::nullopt);
    EXPECT_EQ(Files::readText(directory_.path()), std::nullopt);
}
