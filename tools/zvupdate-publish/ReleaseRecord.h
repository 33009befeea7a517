#pragma once

#include "../commands/Command.h"

#include <QJsonObject>

class Arguments;
class Console;

/// What the catalogue says of a release, as far as people write it: notes by language, and the
/// versions that it supersedes.
namespace ReleaseRecord {

CommandOption notesOption();
CommandOption supersedesOption();

/// The texts of --notes LANGUAGE=FILE by language.
ZVPlatform::Result<QJsonObject, CommandFailure> readNotes(const Arguments &arguments);

/// Fails when clients would refuse a reply with a release's notes.
ZVPlatform::Result<void> checkNotes(const QString &version, const QJsonObject &notes);

/// The versions of --supersedes, each older than the release's.
ZVPlatform::Result<QStringList> readSupersedes(const Arguments &arguments, const QString &version);

/// The versions that a release's record names.
QStringList superseded(const QJsonObject &record);

/// What users would find odd about notes.
QStringList warningsOf(const QJsonObject &notes);

/// What a client makes of a release's notes in one language, and a warning when that is less.
QString asClientsTakeIt(const QString &memo);
QString quotesWarning(const QString &language);

/// Tells what has become of a release, or would with --dry-run: warnings, and JSON or that line.
void report(const QString &productId, const QJsonObject &record, const QStringList &warnings,
            const QString &line, const Arguments &arguments, Console &console);

} // namespace ReleaseRecord
