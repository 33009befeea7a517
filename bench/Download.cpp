// bench-download MODE BASE-URL FILE [verify]: fetches a file through the library's download, in the
// mode "session" or "connection", and has its digest computed if asked to. Prints as JSON how long
// each took, by the clock and of the processor, and the peak of resident memory that the download
// left.
#include <ZVUpdate/ZVUpdate.h>

#include <QCoreApplication>
#include <QFile>

#include <chrono>
#include <cstdio>
#include <ctime>

namespace {

class Stopwatch
{
public:
    double seconds() const { return std::chrono::duration<double>(Clock::now() - start_).count(); }
    double processorSeconds() const
    {
        return static_cast<double>(std::clock() - processorStart_) / CLOCKS_PER_SEC;
    }

private:
    using Clock = std::chrono::steady_clock;

    const Clock::time_point start_ = Clock::now();
    const std::clock_t processorStart_ = std::clock();
};

long peakKiB()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray text = status.readAll();
    return text.mid(text.indexOf("VmHWM:") + 6).trimmed().split(' ').first().toLong();
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() < 4) {
        std::fputs("bench-download: give a mode, a base URL and a file\n", stderr);
        return 2;
    }
    if (arguments[1] == QLatin1String("connection"))
        kZVAppKitVersionNumber = 1342.0;

    const Stopwatch download;
    UpdateLogicFunc client;
    client.setMBaseURL(arguments[2]);
    client.doStartDownload(QStringLiteral("token"), QStringLiteral("installer.exe"), arguments[3]);
    client.waitOne();
    if (const auto failure = client.doGetDownloadProgress().failure) {
        std::fprintf(stderr, "bench-download: %s\n", qPrintable(*failure));
        return 1;
    }
    const double downloadTime = download.seconds();
    const double downloadProcessorTime = download.processorSeconds();
    const long peak = peakKiB();

    const Stopwatch digest;
    if (arguments.value(4) == QLatin1String("verify"))
        ZVMisc::getFileMD5(arguments[3]);
    std::printf("{\"peakKiB\": %ld, \"download\": [%.6f, %.6f], \"digest\": [%.6f, %.6f]}\n", peak,
                downloadTime, downloadProcessorTime, digest.seconds(), digest.processorSeconds());
    return 0;
}
