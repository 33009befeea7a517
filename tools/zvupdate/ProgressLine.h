#pragma once

#include <ZVUpdate/ZVUpdate.h>

#include <QString>

#include <cstdint>

/// What shows on a terminal how far a download has come.
namespace ProgressLine {

/// The line for a state of the download, at most width columns long: how much is here, how fast it
/// comes and how long it will take.
QString text(const UpdateDownloadProgress &progress, int width);

/// A number of bytes for people, such as "12.3 MiB".
QString size(uint64_t bytes);

} // namespace ProgressLine
