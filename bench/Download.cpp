// bench-download MODE BASE-URL FILE [verify]: fetches a file through the library's download, in the
// mode "session" or "connection", and has its digest computed if asked to. Prints as JSON how long
// each took and the peak of resident memory that the download left.
#include <ZVUpdate/ZVUpdate.h>

#include <QCoreApplication>
#include <QFile>

#include <chrono>
#include <cstdio>

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

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

    const auto start = Clock::now();
    UpdateLogicFunc client;
    client.setMBaseURL(arguments[2]);
    client.doStartDownload(QStringLiteral("token"), QStringLiteral("installer.exe"), arguments[3]);
    client.waitOne();
    if (const auto failure = client.doGetDownloadProgress().failure) {
        std::fprintf(stderr, "bench-download: %s\n", qPrintable(*failure));
        return 1;
    }
    const double download = secondsSince(start);
    const long peak = peakKiB();

    const auto startOfDigest = Clock::now();
    if (arguments.value(4) == QLatin1String("verify"))
        ZVMisc::getFileMD5(arguments[3]);
    std::printf("{\"peakKiB\": %ld, \"download\": %.6f, \"digest\": %.6f}\n", peak, download,
                secondsSince(startOfDigest));
    return 0;
}
