#pragma once

#include <QString>

#include <cstdint>
#include <optional>

/// What shows on a terminal how far a download has come, or other work on many bytes.
namespace ProgressLine {

struct State
{
    uint64_t done = 0;
    /// Absent while that is unknown.
    std::optional<uint64_t> total;
    /// 0 as long as that cannot be said.
    uint64_t bytesPerSecond = 0;
};

/// The line for a state, at most width columns long: how much is done, how fast it goes and how
/// long it will take.
QString text(const State &state, int width);

/// A number of bytes for people, such as "12.3 MiB".
QString size(uint64_t bytes);

} // namespace ProgressLine
