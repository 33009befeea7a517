#pragma once

#include "../commands/Command.h"

#include <QByteArray>

class Arguments;

/// What a host tells the library, as the options of a command.
struct HostOptions
{
    QString productID;
    QString productVersion;
    /// Absolute.
    QString directory;
    /// The texts of the keys under which releases are to be signed; empty when none need be.
    QList<QByteArray> releaseKeys;

    /// Those of the three above, further ones, and the one of the application.
    static QList<CommandOption> with(const QList<CommandOption> &further);
    /// Chooses whose preferences are meant.
    static CommandOption application();

    /// Reads them all, and takes on the name of the application.
    static ZVPlatform::Result<HostOptions> read(const Arguments &arguments);
    /// Takes on the name of the application that the arguments choose, or the program's own.
    static ZVPlatform::Result<void> chooseApplication(const Arguments &arguments);
};
