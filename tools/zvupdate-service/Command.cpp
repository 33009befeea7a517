#include "Command.h"

using namespace Qt::StringLiterals;

std::optional<Command::Any> Command::parse(const QString &text)
{
    constexpr auto checkUpdate = "cmd=checkupd&id="_L1;
    constexpr auto version = "&ver="_L1;
    constexpr auto download = "cmd=download&tk="_L1;
    constexpr auto fileName = "&fn="_L1;

    if (text == "cmd=gettoken"_L1)
        return GetToken{};
    if (text.startsWith(checkUpdate)) {
        const QString values = text.sliced(checkUpdate.size());
        // The last one: an identifier may look like anything, a version is a number.
        const qsizetype end = values.lastIndexOf(version);
        if (end >= 0)
            return CheckUpdate{values.first(end), values.sliced(end + version.size())};
    }
    if (text.startsWith(download)) {
        const QString values = text.sliced(download.size());
        // The first one: tokens are ours and hold no ampersand, a file name may.
        const qsizetype end = values.indexOf(fileName);
        if (end >= 0)
            return Download{values.first(end), values.sliced(end + fileName.size())};
    }
    return std::nullopt;
}
