#pragma once

#include "../../platform/Result.h"

#include <QByteArray>
#include <QList>
#include <QStringList>

/// The texts of the files of --release-key, each with a public key. Fails for any other, and for
/// more than a host can have.
ZVPlatform::Result<QList<QByteArray>> readReleaseKeyFiles(const QStringList &paths);
