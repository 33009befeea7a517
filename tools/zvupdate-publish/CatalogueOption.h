#pragma once

#include "../commands/Command.h"

#include <QLockFile>

#include <memory>
#include <optional>

/// The options that several commands have, and what goes with them.
namespace CatalogueOption {

CommandOption catalogue();
CommandOption productId();
CommandOption json();
CommandOption dryRun();

/// Keeps others from changing the catalogue as long as it lives. Null when that cannot be had;
/// error is then one line.
std::unique_ptr<QLockFile> lock(const QString &directory, QString *error);

} // namespace CatalogueOption
