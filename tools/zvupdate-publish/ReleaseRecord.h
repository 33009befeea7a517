#pragma once

#include "../catalogue/Catalogue.h"
#include "../commands/Command.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonObject>

#include <optional>

class Arguments;
class Console;

/// What the catalogue says of a release, as far as people write it: notes by language, the versions
/// that it supersedes, and the keys that it has.
namespace ReleaseRecord {

CommandOption notesOption();
CommandOption supersedesOption();
CommandOption releaseKeyOption();
CommandOption expiresOption();

/// The texts of --notes LANGUAGE=FILE by language.
ZVPlatform::Result<QJsonObject, CommandFailure> readNotes(const Arguments &arguments);

/// Notes by language as a release has them.
QList<Catalogue::Note> notesOf(const QJsonObject &notes);

/// Fails when clients would refuse a reply with a release's notes.
ZVPlatform::Result<void> checkNotes(const QString &version, const QJsonObject &notes);

/// The versions of --supersedes, each older than the release's.
ZVPlatform::Result<QStringList> readSupersedes(const Arguments &arguments, const QString &version);

/// The texts of the keys of --release-key; empty when it is not given.
ZVPlatform::Result<QJsonArray> readReleaseKeys(const Arguments &arguments);

/// The date of --expires, which has to come yet; absent for "never", and when it is not given.
ZVPlatform::Result<std::optional<QDateTime>> readExpires(const Arguments &arguments);

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
