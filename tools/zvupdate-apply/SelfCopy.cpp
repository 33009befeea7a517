#include "SelfCopy.h"

#include "../../platform/files/Files.h"
#include "ProgramWords.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringList>

#include <link.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

constexpr char libraryPath[] = "LD_LIBRARY_PATH";
constexpr char formerLibraryPath[] = "ZVUPDATE_APPLY_LIBRARY_PATH";

QString ownProgram()
{
    return QFileInfo(u"/proc/self/exe"_s).canonicalFilePath();
}

// By the names under which they were found, which are those they will be looked for by.
QStringList libraries()
{
    QStringList paths;
    dl_iterate_phdr(
        [](dl_phdr_info *library, size_t, void *list) {
            static_cast<QStringList *>(list)->append(QFile::decodeName(library->dlpi_name));
            return 0;
        },
        &paths);
    return paths;
}

} // namespace

bool SelfCopy::isNeeded(const Target &target)
{
    return target.holds(ownProgram());
}

Failure<QString> SelfCopy::run(const Target &target, const QString &folder)
{
    const QString program = Files::join(folder, QFileInfo(ownProgram()).fileName());
    bool isCopied = QDir().mkpath(folder) && QFile::copy(ownProgram(), program);
    for (const QString &library : libraries()) {
        const QFileInfo info(library);
        if (!library.isEmpty() && target.holds(info.canonicalFilePath()))
            isCopied = isCopied && QFile::copy(library, Files::join(folder, info.fileName()));
    }
    const QByteArray former = qgetenv(libraryPath);
    qputenv(formerLibraryPath, former);
    qputenv(libraryPath, QFile::encodeName(folder) + (former.isEmpty() ? "" : ":") + former);
    const ProgramWords words(program, QCoreApplication::arguments().sliced(1));
    if (isCopied)
        execv(words.program(), words.all());
    return {u"it lies in what it is to replace, and no copy of it can be run from \"%1\": %2"_s.arg(
        folder, qt_error_string())};
}

void SelfCopy::restoreEnvironment()
{
    if (!qEnvironmentVariableIsSet(formerLibraryPath))
        return;
    const QByteArray former = qgetenv(formerLibraryPath);
    if (former.isEmpty())
        qunsetenv(libraryPath);
    else
        qputenv(libraryPath, former);
    qunsetenv(formerLibraryPath);
}
