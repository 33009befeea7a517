// The smallest host, without the library or (WITH_ZVUPDATE) with its configured controller. Prints
// as JSON what it took from main() to there, and what it then has: time, threads, files, memory.
#ifdef WITH_ZVUPDATE
#include <ZVUpdate/ZVUpdate.h>
#else
#include <curl/curl.h>
#endif

#include <QCoreApplication>
#include <QDir>
#include <QFile>

#include <chrono>
#include <cstdio>

namespace {

qsizetype entries(const char *folder)
{
    return QDir(QLatin1String(folder))
        .entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot)
        .size();
}

long residentKiB()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray text = status.readAll();
    return text.mid(text.indexOf("VmRSS:") + 6).trimmed().split(' ').first().toLong();
}

} // namespace

int main(int argc, char **argv)
{
    const auto start = std::chrono::steady_clock::now();
    QCoreApplication application(argc, argv);
#ifdef WITH_ZVUPDATE
    const auto controller = ZVUpdateProc::getSharedZVUpdateProc();
    controller->setProductID(QStringLiteral("Bench"), QStringLiteral("1"), QDir::tempPath());
#else
    // Named, so that the linker keeps the library; what is compared has it loaded.
    [[maybe_unused]] const auto volatile loaded = &curl_easy_init;
#endif
    const std::chrono::duration<double, std::milli> elapsed =
        std::chrono::steady_clock::now() - start;

    const long resident = residentKiB(); // First, as the rest takes memory, too.
    std::printf("{\"milliseconds\": %.4f, \"residentKiB\": %ld, \"threads\": %lld, \"files\": "
                "%lld}\n",
                elapsed.count(), resident, static_cast<long long>(entries("/proc/self/task")),
                static_cast<long long>(entries("/proc/self/fd")));
    return 0;
}
