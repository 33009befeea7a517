#pragma once

#include "../../platform/Result.h"
#include "Target.h"

#include <QString>

/// Where this program is run from when it lies in what it replaces: there it would go, with the
/// libraries that lie beside it, while it still runs.
namespace SelfCopy {

/// Whether this process runs from the target.
bool isNeeded(const Target &target);

/// Copies the program, with the libraries that it has from the target, into a folder, and goes on
/// there from the beginning with the same arguments. Returns only the reason why it cannot.
ZVPlatform::Failure<QString> run(const Target &target, const QString &folder);

/// To be called first: gives the copy the environment that the program was started with.
void restoreEnvironment();

} // namespace SelfCopy
