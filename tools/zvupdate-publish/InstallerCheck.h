#pragma once

#include "CatalogueFile.h"

/// Whether a file is the installer that its maker means to publish.
namespace InstallerCheck {

/// Fails for what can be no installer, and for what clients could not verify.
ZVPlatform::Result<void> check(const QString &path);

/// What speaks for a mistake, one sentence's end each, beginning with "is": the installer of
/// another version of the product, or one that differs much from that of the release before.
QStringList doubts(const QString &path, const QString &md5, const QString &version,
                   const CatalogueFile &catalogue, const Catalogue::Product &product);

} // namespace InstallerCheck
