#include "../commands/Arguments.h"
#include "../commands/Console.h"
#include "Commands.h"

#include <ZVUpdate/ZVUpdate.h>

#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace {

// The library answers the digest of nothing for a file that it cannot read, which is right for
// comparing and wrong for showing.
std::optional<QString> whyUnreadable(const QString &path)
{
    const QFileInfo info(path);
    QFile file(path);
    if (!info.exists())
        return u"there is no such file; check the path"_s;
    if (!info.isFile())
        return u"it is not a regular file; give one"_s;
    if (!file.open(QIODevice::ReadOnly))
        return u"%1; make the file readable"_s.arg(file.errorString());
    return std::nullopt;
}

int digest(const Arguments &arguments, Console &console)
{
    const QString &path = arguments.operand();
    if (const auto reason = whyUnreadable(path)) {
        console.complain(u"zvupdate digest: %1: %2"_s.arg(path, *reason));
        return Failure;
    }
    console.print(ZVMisc::getFileMD5(path));
    return Success;
}

} // namespace

Command digestCommand()
{
    return {
        .name = u"digest"_s,
        .summary = u"Prints a file's MD5 digest as an update service announces it"_s,
        .details = {u"Of a file of 4 GiB or more, only the first (size modulo 4 GiB) bytes count, "
                    "here as in the check of an installer."_s},
        .operandName = u"FILE"_s,
        .exitStatuses = {u"0 done, 1 the file cannot be read, 2 wrong arguments."_s},
        .examples = {u"digest P1_2103.exe"_s},
        .run = digest,
    };
}
