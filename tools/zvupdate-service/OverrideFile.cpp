#include "OverrideFile.h"

#include "../catalogue/RegularFile.h"
#include "ServiceLog.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

OverrideFile::~OverrideFile()
{
    if (contents_.isEmpty())
        return;
    if (const auto present = RegularFile::read(path_); present && *present == contents_)
        QFile::remove(path_);
}

Result<void> OverrideFile::write(const QString &baseUrl)
{
    const QByteArray contents = baseUrl.toUtf8();
    QFile file(path_);
    if (file.exists()) {
        const auto present = RegularFile::read(path_);
        if (!present)
            return Failure{u"%1 exists and is no file that can be read; remove it"_s.arg(path_)};
        if (*present == contents) {
            contents_ = contents; // left behind by a run that was killed
            return {};
        }
        return Failure{u"%1 exists and holds \"%2\"; remove it if it is no longer needed"_s.arg(
            path_, ServiceLog::escaped(QString::fromUtf8(*present)))};
    }
    QDir().mkpath(QFileInfo(path_).path());
    if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly) ||
        file.write(contents) != contents.size() || !file.flush())
        return Failure{u"%1 cannot be written: %2"_s.arg(path_, file.errorString())};
    contents_ = contents;
    return {};
}
