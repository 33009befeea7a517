#include "Console.h"

#include <cstdio>
#include <utility>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

constexpr int usualWidth = 80;

QString withoutControls(QString text)
{
    for (QChar &character : text) {
        if (character.category() == QChar::Other_Control)
            character = QLatin1Char(' ');
    }
    return text;
}

} // namespace

// A standard stream that was closed by whoever started the program would give its number to the
// next file opened, which would then get what is meant for the stream.
Console::Console()
{
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(stream, F_GETFD) == -1) [[maybe_unused]]
            const int opened = open("/dev/null", O_RDWR);
    }
}

void Console::print(const QString &line)
{
    const ZVPlatform::MutexLock lock(mutex_);
    eraseProgress();
    write(line.toUtf8() + '\n');
}

void Console::say(const QString &line)
{
    print(withoutControls(line));
}

void Console::complain(const QString &line)
{
    const ZVPlatform::MutexLock lock(mutex_);
    eraseProgress();
    std::fputs((withoutControls(line).toUtf8() + '\n').constData(), stderr);
}

void Console::showProgress(const QString &line)
{
    const ZVPlatform::MutexLock lock(mutex_);
    // Spaces rather than an escape sequence, which not every terminal knows.
    const qsizetype length = std::exchange(progressLength_, line.size());
    write('\r' + line.leftJustified(length).toUtf8());
}

bool Console::isTerminal()
{
    return isatty(STDOUT_FILENO) == 1;
}

int Console::width()
{
    winsize size = {};
    const bool isKnown = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return isKnown ? size.ws_col : usualWidth;
}

std::optional<QString> Console::failure() const
{
    const ZVPlatform::MutexLock lock(mutex_);
    return failure_;
}

void Console::write(const QByteArray &bytes)
{
    if (failure_)
        return;
    isWithinLine = true;
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stdout);
    if (std::fflush(stdout) != 0 || std::ferror(stdout))
        failure_ = qt_error_string();
    isWithinLine = false;
}

void Console::eraseProgress()
{
    if (const qsizetype length = std::exchange(progressLength_, 0))
        write('\r' + QByteArray(length, ' ') + '\r');
}
