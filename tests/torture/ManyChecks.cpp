#include <ZVUpdate/ZVUpdate.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>

#include <chrono>
#include <cstdio>
#include <cstdlib>

#include <malloc.h>

namespace {

constexpr std::chrono::seconds patience(60);

/// A host that checks over and over, with a download each time.
class ManyChecks : public ZVUpdateProcDelegate
{
public:
    explicit ManyChecks(const QString &directory)
    {
        controller_->setProductID(QStringLiteral("P1"), QStringLiteral("1"), directory);
    }

    ~ManyChecks() override
    {
        retire();
        ZVUpdateProc::releaseSharedZVUpdateProc();
    }

    ManyChecks(const ManyChecks &) = delete;
    ManyChecks &operator=(const ManyChecks &) = delete;

    /// False when one of them did not bring an installer.
    bool run(int checks)
    {
        for (int i = 0; i < checks; ++i) {
            if (controller_->updateWithDelegate(this) != ZVUpdateProc::ZVDownloadStarted)
                return false;
            const auto deadline = std::chrono::steady_clock::now() + patience;
            while (ready_.isEmpty() && std::chrono::steady_clock::now() < deadline)
                QCoreApplication::processEvents(QEventLoop::AllEvents, 100);
            controller_->mCurrentDownloadUpdateLogic()->waitOne();
            if (!QFile::remove(std::exchange(ready_, QString())))
                return false;
        }
        return true;
    }

    void UpdateFileReady(const QString &path) override { ready_ = path; }
    void windowClosedUpdateAction() override {}
    void windowClosedCancelAction() override {}

private:
    const std::shared_ptr<ZVUpdateProc> controller_ = ZVUpdateProc::getSharedZVUpdateProc();
    QString ready_;
};

qsizetype entries(const QString &directory)
{
    return QDir(directory).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size();
}

// What the process has held of memory at most, in bytes: by its own file of figures, since
// getrusage() counts what the program that started this one held.
qint64 highestMemory()
{
    QFile file(QStringLiteral("/proc/self/status"));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray status = file.readAll();
    const QByteArray rest = status.mid(status.indexOf("VmHWM:") + 6).trimmed();
    return rest.left(rest.indexOf(' ')).toLongLong() * 1024;
}

// One line: what the process holds of threads, descriptors and bytes from malloc(), and the most
// that it has held of memory.
void printHoldings()
{
    const struct mallinfo2 heap = mallinfo2();
    std::printf("%lld %lld %zu %lld\n",
                static_cast<long long>(entries(QStringLiteral("/proc/self/task"))),
                static_cast<long long>(entries(QStringLiteral("/proc/self/fd"))),
                heap.uordblks + heap.hblkhd, static_cast<long long>(highestMemory()));
}

} // namespace

/// many-checks DIRECTORY session|connection NUMBER...: makes so many checks, step by step, and
/// prints what the process holds after each. In the first checks things are made that are kept.
int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("ZVUpdate"));
    QCoreApplication::setApplicationName(QStringLiteral("zvupdate"));
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() < 4) {
        std::fputs("usage: many-checks DIRECTORY session|connection NUMBER...\n", stderr);
        return 2;
    }
    if (arguments[2] == QLatin1String("connection"))
        kZVAppKitVersionNumber = 1342.0;

    ManyChecks checks(arguments[1]);
    for (const QString &step : arguments.mid(3)) {
        if (!checks.run(step.toInt()))
            return EXIT_FAILURE;
        printHoldings();
    }
    return EXIT_SUCCESS;
}
