#pragma once

#include "../platform/Export.h"

#include <QString>

#include <optional>

/// The names that one version of a product has in the save directory and at the service.
struct ZVUPDATE_EXPORT UpdateFiles
{
    /// The name by which the service knows the installer, on every platform.
    QString serviceFileName;
    /// Where the download grows.
    QString temporaryPath;
    /// Where the verified installer lies.
    QString diskImagePath;

    /// Absent when the names would not be plain file names within the directory, so that nothing a
    /// service sends can reach outside it.
    static std::optional<UpdateFiles> named(const QString &directory, const QString &productID,
                                            const QString &version);

    /// The disk image path that belongs to a temporary path.
    static QString diskImagePathFor(const QString &temporaryPath);
};
