#include "WorkProgress.h"

#include "Console.h"
#include "ProgressLine.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

// In milliseconds.
constexpr qint64 firstLine = 100;
constexpr qint64 betweenLines = 100;

} // namespace

WorkProgress::WorkProgress(Console &console, const QString &name, qint64 total, bool isWanted)
    : console_(console),
      name_(name + u"  "_s),
      total_(total),
      isShown_(isWanted && Console::isTerminal()),
      nextLine_(firstLine)
{
    sinceBeginning_.start();
}

void WorkProgress::advance(qint64 bytes)
{
    done_ += bytes;
    const qint64 now = sinceBeginning_.elapsed();
    if (!isShown_ || now < nextLine_)
        return;
    nextLine_ = now + betweenLines;
    const auto perSecond = static_cast<uint64_t>(done_) * 1000 / static_cast<uint64_t>(now);
    const int width = Console::width() - 1;
    const QString bar =
        ProgressLine::text({static_cast<uint64_t>(done_), static_cast<uint64_t>(total_), perSecond},
                           std::max(0, width - static_cast<int>(name_.size())));
    console_.showProgress((name_ + bar).left(width));
}
