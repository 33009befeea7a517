#pragma once

#include "Faults.h"
#include "SocketAddress.h"

#include <QString>
#include <QStringList>

#include <chrono>
#include <optional>

/// What the command line asks for.
struct ServiceOptions
{
    bool help = false;
    bool version = false;
    QString directory;
    std::optional<SocketAddress> address;
    bool writeOverride = false;
    std::chrono::seconds tokenLifetime{};
    Faults faults;

    /// Reads the arguments, the program's name first. Absent when something is wrong with them;
    /// error is then one line that names the argument and the remedy.
    static std::optional<ServiceOptions> parse(const QStringList &arguments, QString *error);

    /// The text of --help.
    static QString helpText();
};
