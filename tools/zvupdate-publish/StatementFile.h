#pragma once

#include "CatalogueFile.h"

#include <ZVUpdate/release/ReleaseStatement.h>

/// What the maker signs of a release: a file beside its installer.
namespace StatementFile {

/// Writes the file of a release with that record, and enters it there; signatures of what it was
/// before go. Never writes over one that is there, since "undo" may bring back its signatures. With
/// isDryRun nothing is written.
ZVPlatform::Result<void> write(const CatalogueFile &catalogue, const ReleaseStatement &statement,
                               bool isDryRun, QJsonObject *record);

} // namespace StatementFile
