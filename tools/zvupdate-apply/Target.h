#pragma once

#include "../../platform/Result.h"

#include <QString>

#include <sys/types.h>

/// What is to be replaced: a file or a folder that this user may replace, and that nobody else
/// looks after.
struct Target
{
    /// Finds it behind the links that may lead to it, and brings it back from previous() if it has
    /// been moved there and nothing has taken its place. Fails with the reason why it cannot or
    /// must not be replaced.
    static ZVPlatform::Result<Target> find(const QString &path);

    QString given; ///< As it is called by whoever starts it; absolute.
    QString path;  ///< Its own.
    bool isFolder = false;
    mode_t mode = 0; ///< Its permissions.

    /// Where the old one is kept.
    QString previous() const { return path + QStringLiteral(".previous"); }
    /// The folder beside it for all that is not finished.
    QString workFolder() const;
    /// Whether the environment says that it is the AppImage which runs. It may be another one's, as
    /// what a program from an AppImage starts has that from it.
    bool isNamedAppImage() const;
    /// Whether something is it, or lies in it or in what an AppImage shows while it runs.
    bool holds(const QString &canonicalPath) const;

private:
    ZVPlatform::Result<void> isOurs() const;
};
