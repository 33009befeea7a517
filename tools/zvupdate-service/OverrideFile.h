#pragma once

#include "../../platform/Result.h"
#include <ZVUpdate/service/UpdateLogicFunc.h>

#include <QString>

/// The file in the developer's home through which update clients on this machine are pointed at
/// another service. Written for as long as this object lives.
class OverrideFile
{
public:
    OverrideFile() = default;
    /// Removes the file, unless somebody has put something else there meanwhile.
    ~OverrideFile();
    OverrideFile(const OverrideFile &) = delete;
    OverrideFile &operator=(const OverrideFile &) = delete;

    /// Writes the base URL; but a file that points elsewhere is left alone, which is a failure.
    ZVPlatform::Result<void> write(const QString &baseUrl);

private:
    const QString path_ = UpdateLogicFunc::overrideFilePath();
    QByteArray contents_; // empty as long as nothing is written
};
