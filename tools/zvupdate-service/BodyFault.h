#pragma once

#include <QtGlobal>

#include <optional>

/// How the sending of a file goes wrong.
struct BodyFault
{
    enum class End { StandStill, Disconnect };

    /// How many bytes are sent before the end comes; absent when all are.
    std::optional<qint64> bytes;
    End end = End::Disconnect;
    /// Absent for as many as there is room for.
    std::optional<qint64> bytesPerSecond;
    bool announcesLength = true;
};
