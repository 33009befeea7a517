#include "../controller/ControllerTest.h"

using namespace Qt::StringLiterals;

namespace {

// The most memory that the process has held since it was reset, in bytes.
qint64 highestMemory()
{
    const QByteArray status = readFile(u"/proc/self/status"_s);
    const QByteArray rest = status.mid(status.indexOf("VmHWM:") + 6).trimmed();
    return rest.left(rest.indexOf(' ')).toLongLong() * 1024;
}

qsizetype entries(const QString &directory)
{
    return QDir(directory).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size();
}

/// What a process holds after checks with their downloads.
class Holdings : public ControllerTest
{
public:
    void checkAndDownload()
    {
        startAfresh();
        EXPECT_EQ(check(), 1);
        EXPECT_TRUE(waitForDownload());
        EXPECT_EQ(host.heard, QStringList(diskImage));
        controller.reset();
    }
};

TEST_F(Holdings, OfMemoryDoNotGrowWithTheInstaller)
{
    if (ZVUPDATE_SANITIZED)
        GTEST_SKIP() << "a sanitizer keeps memory of its own";
    const QByteArray file(64 << 20, 'x');
    service.setOffer({.digest = Offer::digestOf(file), .file = file});
    writeFile(u"/proc/self/clear_refs"_s, "5");
    const qint64 before = highestMemory();
    checkAndDownload();
    EXPECT_LT(highestMemory() - before, file.size() / 4);
}

TEST_F(Holdings, OfThreadsAndDescriptorsDoNotGrowWithTheChecks)
{
    const auto held = [] {
        return std::pair(entries(u"/proc/self/task"_s), entries(u"/proc/self/fd"_s));
    };
    checkAndDownload();
    const auto before = held();
    for (int i = 0; i < 20; ++i)
        checkAndDownload();
    EXPECT_EQ(held(), before);
}

} // namespace
