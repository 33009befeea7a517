#pragma once

#include "../../platform/Result.h"

#include <QString>

#include <optional>

/// What goes wrong on purpose, for hosts that are to be seen on a bad day.
struct Faults
{
    /// How each download is interrupted.
    struct Interruption
    {
        /// It stands still; otherwise the connection ends.
        bool isStall = false;
        /// Before this byte of the file; half way when absent.
        std::optional<qint64> byte = {};
    };

    bool hasWrongDigest = false;
    std::optional<Interruption> interruption;

    /// Takes one more, written NAME or NAME=BYTE.
    ZVPlatform::Result<void> add(const QString &text);
};
