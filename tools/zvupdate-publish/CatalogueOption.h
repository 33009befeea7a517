#pragma once

#include "../commands/Command.h"

#include <QLockFile>

#include <memory>

/// The options that several commands have, and what goes with them.
namespace CatalogueOption {

CommandOption catalogue();
CommandOption productId();
CommandOption version();
CommandOption json();
CommandOption dryRun();
CommandOption allowUnsigned();

/// Keeps others from changing a folder as long as the lock lives.
ZVPlatform::Result<std::unique_ptr<QLockFile>> lock(const QString &directory);

} // namespace CatalogueOption
