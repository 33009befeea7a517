#include "platform/files/FileDigest.h"
#include "support/Testing.h"
#include "transport/ZVMisc.h"

#include <QTemporaryFile>

#include <sys/stat.h>

TEST(Digest, IsTheOneOfTheBytesThatCount)
{
    const QTemporaryDir directory;
    const auto path = [&](const char *name) { return directory.filePath(QLatin1String(name)); };
    writeFile(path("empty"), {});
    writeFile(path("abc"), "abc");
    // A whole number of pages and a little more.
    writeFile(path("a"), QByteArray(1'000'000, 'a'));
    ASSERT_EQ(::mkfifo(qPrintable(path("pipe")), 0600), 0);
    // A file without blocks of which only size modulo 2^32 bytes count.
    writeFile(path("huge"), "abc");
    ASSERT_TRUE(QFile::resize(path("huge"), (Q_INT64_C(1) << 32) + 3));
    writeFile(path("four"), "abc");
    ASSERT_TRUE(QFile::resize(path("four"), Q_INT64_C(1) << 32));

    const QString nothing = QStringLiteral("d41d8cd98f00b204e9800998ecf8427e");
    const QString abc = QStringLiteral("900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(ZVMisc::getFileMD5(path("empty")), nothing);
    EXPECT_EQ(ZVMisc::getFileMD5(path("missing")), nothing);
    EXPECT_EQ(ZVMisc::getFileMD5(path("pipe")), nothing);
    EXPECT_EQ(ZVMisc::getFileMD5(directory.path()), nothing);
    EXPECT_EQ(ZVMisc::getFileMD5(QString()), nothing);
    EXPECT_EQ(ZVMisc::getFileMD5(path("abc") + QChar(QChar::Null)), nothing);
    EXPECT_EQ(ZVMisc::getFileMD5(path("abc")), abc);
    EXPECT_EQ(ZVMisc::getFileMD5(path("a")), QStringLiteral("7707d6ae4e027c70eea2a935c2296f21"));
    EXPECT_EQ(ZVMisc::getFileMD5(path("huge")), abc);
    EXPECT_EQ(ZVMisc::getFileMD5(path("four")), nothing);

    // All of them for the other digest.
    QFile huge(path("huge"));
    ASSERT_TRUE(huge.open(QIODevice::ReadOnly));
    const auto both = ZVPlatform::digestsOfOpenFile(huge.handle(), ZVPlatform::WithSha256::Yes, {});
    EXPECT_EQ(QString::fromLatin1(both->md5.toHex()), abc);
    EXPECT_EQ(both->sha256.toHex(),
              "865bc4c4ee0553b39c87452a033ce3ee8a8d49cf3bd315613f8bb9838ae99b30");
}

TEST(Digest, OfAFileThatIsCutOffMeanwhileIsEmptyAndAStopEndsIt)
{
    QTemporaryFile file;
    ASSERT_TRUE(file.open());
    ASSERT_TRUE(file.resize(64 << 20));
    int asked = 0;
    const auto cutOff = ZVPlatform::md5OfOpenFile(file.handle(), [&] {
        return ++asked == 2 && !file.resize(4096); // False, but shorter than what was read.
    });
    EXPECT_EQ(cutOff, QByteArray());
    ASSERT_TRUE(file.resize(64 << 20));
    asked = 0;
    EXPECT_EQ(ZVPlatform::md5OfOpenFile(file.handle(), [&] { return ++asked == 2; }), std::nullopt);
    EXPECT_EQ(asked, 2);
}
