#pragma once

#include "CatalogueFile.h"

#include <optional>

/// Whether a file is the installer that its maker means to publish.
namespace InstallerCheck {

/// Fails for what can be no installer.
ZVPlatform::Result<void> check(const QString &path);

/// What speaks against the size: that clients, but for those with release keys, verify only a part.
std::optional<QString> sizeDoubt(const QString &path);

/// What speaks for a mistake, one sentence's end each, beginning with "is": the installer of
/// another version of the product, or one that differs much from that of the release before.
QStringList doubts(const QString &path, const QString &md5, const QString &version,
                   const CatalogueFile &catalogue, const Catalogue::Product &product);

} // namespace InstallerCheck
