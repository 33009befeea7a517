#include "OverrideFile.h"

#include "../catalogue/RegularFile.h"
#include "ServiceLog.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 longestRead = 4096; // No address written here is as long.

std::optional<QByteArray> read(const QString &path)
{
    const FileDescriptor opened = RegularFile::open(path);
    QFile file;
    if (!opened.isOpen() || !file.open(opened.get(), QIODevice::ReadOnly))
        return std::nullopt;
    return file.read(longestRead);
}

} // namespace

OverrideFile::~OverrideFile()
{
    if (!contents_.isEmpty() && read(path()) == contents_)
        QFile::remove(path());
}

std::optional<QString> OverrideFile::write(const QString &baseUrl)
{
    const QByteArray contents = baseUrl.toUtf8();
    QFile file(path());
    if (file.exists()) {
        const auto present = read(path());
        if (!present)
            return u"%1 exists and is no file that can be read; remove it"_s.arg(path());
        if (present == contents) {
            contents_ = contents; // left behind by a run that was killed
            return std::nullopt;
        }
        return u"%1 exists and holds \"%2\"; remove it if it is no longer needed"_s.arg(
            path(), ServiceLog::escaped(QString::fromUtf8(*present)));
    }
    QDir().mkpath(QFileInfo(path()).path());
    if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly) ||
        file.write(contents) != contents.size() || !file.flush())
        return u"%1 cannot be written: %2"_s.arg(path(), file.errorString());
    contents_ = contents;
    return std::nullopt;
}

QString OverrideFile::path()
{
    return QDir::homePath() + u"/Documents/ConsoleZVUpdate.mac"_s;
}
