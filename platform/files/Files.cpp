#include "Files.h"

#include "LockedFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringDecoder>

#include <limits>

#include <sys/stat.h>
#include <sys/statvfs.h>

namespace ZVPlatform {

namespace {

constexpr qint64 longestText = 1 << 20; // bytes

constexpr int longestName = 255; // bytes; the limit of every common file system

} // namespace

bool Files::isExpressible(const QString &path)
{
    return !path.isEmpty() && !path.contains(QChar(QChar::Null));
}

QString Files::join(const QString &directory, const QString &name)
{
    const QChar separator = QLatin1Char('/');
    // Without a directory the name is relative; a separator would make it one of the root's.
    if (directory.isEmpty() || directory.endsWith(separator))
        return directory + name;
    return directory + separator + name;
}

QString Files::replaceExtension(const QString &path, const QString &extension)
{
    const qsizetype nameStart = path.lastIndexOf(QLatin1Char('/')) + 1;
    const qsizetype dot = path.lastIndexOf(QLatin1Char('.'));
    const QString stem = dot > nameStart ? path.left(dot) : path;
    return stem + QLatin1Char('.') + extension;
}

bool Files::isPlainName(const QString &name)
{
    return isExpressible(name) && !name.contains(QLatin1Char('/')) && name != QLatin1String(".") &&
           name != QLatin1String("..") && QFile::encodeName(name).size() <= longestName;
}

bool Files::exists(const QString &path)
{
    return isExpressible(path) && QFileInfo::exists(path);
}

bool Files::isDirectory(const QString &path)
{
    return isExpressible(path) && QFileInfo(path).isDir();
}

void Files::createDirectory(const QString &path)
{
    if (isExpressible(path))
        QDir().mkpath(path);
}

quint64 Files::size(const QString &path)
{
    struct stat status = {};
    if (!isExpressible(path) || lstat(QFile::encodeName(path).constData(), &status) != 0)
        return 0;
    return S_ISREG(status.st_mode) ? static_cast<quint64>(status.st_size) : 0;
}

bool Files::isInWritableDirectory(const QString &path)
{
    const QFileInfo directory(QFileInfo(path).path());
    return directory.isDir() && directory.isWritable() && directory.isExecutable();
}

quint64 Files::room(const QString &path)
{
    struct statvfs status = {};
    const QByteArray directory = QFile::encodeName(QFileInfo(path).path());
    const bool isKnown = statvfs(directory.constData(), &status) == 0 && status.f_blocks > 0;
    return isKnown ? quint64(status.f_bavail) * status.f_frsize
                   : std::numeric_limits<quint64>::max();
}

void Files::remove(const QString &path, const std::function<bool()> &stopped)
{
    LockedFile(path, stopped).remove();
}

std::optional<QString> Files::readText(const QString &path)
{
    QFile file(path);
    if (!isExpressible(path) || !QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QByteArray bytes = file.read(longestText + 1);
    if (file.error() != QFileDevice::NoError || bytes.size() > longestText)
        return std::nullopt;
    // Stateless, so that a character cut off at the end counts as an error.
    QStringDecoder decode(QStringConverter::encodingForData(bytes).value_or(QStringConverter::Utf8),
                          QStringConverter::Flag::Stateless);
    const QString text = decode(bytes);
    if (decode.hasError())
        return std::nullopt;
    return text;
}

QString Files::expandTilde(const QString &path)
{
    return path.startsWith(QLatin1String("~/")) ? QDir::homePath() + path.mid(1) : path;
}

} // namespace ZVPlatform
