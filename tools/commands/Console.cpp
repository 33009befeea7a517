#include "Console.h"

#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

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

void Console::print(const QString &line)
{
    const std::lock_guard lock(mutex_);
    eraseProgress();
    write(line.toUtf8() + '\n');
}

void Console::say(const QString &line)
{
    print(withoutControls(line));
}

void Console::complain(const QString &line)
{
    const std::lock_guard lock(mutex_);
    eraseProgress();
    std::fputs((withoutControls(line).toUtf8() + '\n').constData(), stderr);
}

void Console::showProgress(const QString &line)
{
    const std::lock_guard lock(mutex_);
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
    const std::lock_guard lock(mutex_);
    return failure_;
}

void Console::write(const QByteArray &bytes)
{
    if (failure_)
        return;
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stdout);
    if (std::fflush(stdout) != 0 || std::ferror(stdout))
        failure_ = QString::fromStdString(std::generic_category().message(errno));
}

void Console::eraseProgress()
{
    if (const qsizetype length = std::exchange(progressLength_, 0))
        write('\r' + QByteArray(length, ' ') + '\r');
}
