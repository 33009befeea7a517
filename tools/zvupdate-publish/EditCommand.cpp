#include "CatalogueFile.h"
#include "CatalogueOption.h"
#include "Commands.h"
#include "ReleaseRecord.h"
#include "StatementFile.h"

#include "../catalogue/Signing.h"
#include "../commands/Arguments.h"

#include <QFileInfo>
#include <QJsonArray>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

Outcome editNotes(const Arguments &arguments, QJsonObject *record)
{
    const auto given = ReleaseRecord::readNotes(arguments);
    if (!given)
        return Failure{given.error()};
    QJsonObject notes = record->value(u"notes"_s).toObject();
    for (const QString &language : arguments.values(u"remove-notes"_s)) {
        if (given->contains(language))
            return wrongArguments(
                u"--remove-notes: %1 is given to --notes, too; give one of both"_s.arg(language));
        if (notes.take(language).isUndefined())
            return Failure{u"--remove-notes: there are no notes in \"%1\"; give one of %2"_s.arg(
                language, notes.isEmpty() ? u"none"_s : notes.keys().join(u", "_s))};
    }
    for (auto note = given->begin(); note != given->end(); ++note)
        notes.insert(note.key(), note.value());
    record->insert(u"notes"_s, notes);
    const auto checked = ReleaseRecord::checkNotes(record->value(u"version"_s).toString(), notes);
    return checked ? Outcome(Success) : Failure{checked.error()};
}

Outcome editSupersedes(const Arguments &arguments, QJsonObject *record)
{
    const auto given =
        ReleaseRecord::readSupersedes(arguments, record->value(u"version"_s).toString());
    if (!given)
        return Failure{given.error()};
    QStringList superseded = ReleaseRecord::superseded(*record);
    for (const QString &version : arguments.values(u"remove-supersedes"_s)) {
        if (given->contains(version))
            return wrongArguments(u"--remove-supersedes: %1 is given to --supersedes, too; give "
                                  "one of both"_s.arg(version));
        if (superseded.removeAll(version) == 0)
            return Failure{
                u"--remove-supersedes: the release does not name \"%1\"; see \"zvupdate-publish "
                "show\""_s.arg(version)};
    }
    superseded += *given;
    superseded.removeDuplicates();
    record->insert(u"supersedes"_s, QJsonArray::fromStringList(superseded));
    return Success;
}

QString lineOf(const QString &id, const QJsonObject &record, bool isChanged, bool isDryRun)
{
    const QString verb = !isChanged ? u"%1 %2 is so already: %3; %4%5"_s
                         : isDryRun ? u"Would edit %1 %2: %3; %4%5"_s
                                    : u"Edited %1 %2: %3; %4%5"_s;
    const qsizetype keys = record.value(u"releaseKeys"_s).toArray().size();
    const QStringList languages = record.value(u"notes"_s).toObject().keys();
    const QStringList superseded = ReleaseRecord::superseded(record);
    return verb.arg(id, record.value(u"version"_s).toString(),
                    languages.isEmpty() ? u"no notes"_s : u"notes in "_s + languages.join(u", "_s),
                    superseded.isEmpty() ? u"supersedes nothing"_s
                                         : u"supersedes "_s + superseded.join(u", "_s),
                    keys == 0 ? QString() : u"; release keys: %1"_s.arg(keys));
}

// What has been stated of a release, or can be.
Result<ReleaseStatement> statementOf(const CatalogueFile &catalogue, const QString &productId,
                                     const Catalogue::Release &release)
{
    if (!release.statement.isEmpty()) {
        const auto statement = ReleaseStatement::read(release.statement);
        return statement ? statement
                         : Failure{u"the statement of version %1 %2"_s.arg(release.version,
                                                                           statement.error())};
    }
    const auto digests = catalogue.digests(productId, release);
    if (!digests)
        return Failure{digests.error()};
    return ReleaseStatement{productId, release.version, digests->md5,
                            QByteArray::fromHex(digests->sha256.toLatin1()),
                            static_cast<quint64>(QFileInfo(release.installerPath).size())};
}

Outcome editKeys(const Arguments &arguments, QJsonObject *record)
{
    const auto keys = ReleaseRecord::readReleaseKeys(arguments);
    if (!keys)
        return Failure{keys.error()};
    if (!keys->isEmpty())
        record->insert(u"releaseKeys"_s, *keys);
    return Success;
}

// Keys, and what is to be signed when that has changed.
Outcome editStatement(const Arguments &arguments, const CatalogueFile &catalogue,
                      const Catalogue::Release &release, QJsonObject *record)
{
    if (auto edited = editKeys(arguments, record); !edited)
        return edited;
    const auto expires = ReleaseRecord::readExpires(arguments);
    if (!expires)
        return Failure{expires.error()};
    const QString id = *arguments.value(u"product-id"_s);
    const bool isStated = !release.statement.isEmpty();
    if (!isStated && !record->contains(u"releaseKeys"_s))
        return arguments.isSet(u"expires"_s)
                   ? Outcome(Failure{u"--expires: the release has no keys, so that it is not "
                                     "signed; give --release-key, too"_s})
                   : Success;
    const QJsonValue notes = catalogue.record(id, release.version).value(u"notes"_s);
    if (isStated && notes == record->value(u"notes"_s) && !arguments.isSet(u"expires"_s))
        return Success;
    auto statement = statementOf(catalogue, id, release);
    if (!statement)
        return Failure{statement.error()};
    if (arguments.isSet(u"expires"_s))
        statement->expires = *expires;
    const auto written =
        StatementFile::write(catalogue, *statement, arguments.isSet(u"dry-run"_s), record);
    return written ? Outcome(Success) : Failure{written.error()};
}

Outcome editRelease(const Arguments &arguments, const CatalogueFile &catalogue,
                    const Catalogue::Release &release, QJsonObject *record)
{
    Outcome edited = editNotes(arguments, record);
    if (edited)
        edited = editSupersedes(arguments, record);
    if (edited)
        edited = editStatement(arguments, catalogue, release, record);
    return edited;
}

Outcome edit(const Arguments &arguments, Console &console)
{
    const QStringList changes{u"notes"_s,       u"remove-notes"_s,
                              u"supersedes"_s,  u"remove-supersedes"_s,
                              u"release-key"_s, u"expires"_s};
    QStringList given = changes;
    given.removeIf([&arguments](const QString &change) { return !arguments.isSet(change); });
    if (given.isEmpty())
        return wrongArguments(
            u"there is nothing to change; give --%1"_s.arg(changes.join(u", --"_s)));
    auto catalogue = CatalogueFile::open(arguments);
    if (!catalogue)
        return Failure{catalogue.error()};
    const QString id = *arguments.value(u"product-id"_s);
    const QString version = *arguments.value(u"version"_s);
    const auto release = catalogue->release(id, version);
    // A build that is no release any more has its users, and its keys.
    const bool isOfWithdrawn =
        catalogue->withdrawn(id).contains(version) && given == QStringList(u"release-key"_s);
    if (!release && !isOfWithdrawn)
        return Failure{release.error()};

    const QJsonObject before = catalogue->record(id, version);
    QJsonObject record = before;
    record.insert(u"version"_s, version); // Of a withdrawn one nothing else may be known.
    if (auto edited = release ? editRelease(arguments, *catalogue, **release, &record)
                              : editKeys(arguments, &record);
        !edited)
        return edited;
    const bool isDryRun = arguments.isSet(u"dry-run"_s);
    QStringList warnings;
    if (release)
        warnings = ReleaseRecord::warningsOf(record.value(u"notes"_s).toObject());
    if (before.contains(u"signatures"_s) && !record.contains(u"signatures"_s))
        warnings.append(u"the signatures are void, as they are of what the release said before"_s);
    if (record != before && !isDryRun) {
        catalogue->setRecord(id, version, record);
        if (const auto saved = catalogue->save(); !saved)
            return Failure{saved.error()};
        if (const auto after = CatalogueFile::read(catalogue->directory()))
            warnings += Signing::newlyRefused(catalogue->products(), after->products());
    }
    ReleaseRecord::report(id, record, warnings, lineOf(id, record, record != before, isDryRun),
                          arguments, console);
    return Success;
}

} // namespace

Command editCommand()
{
    return {
        .name = u"edit"_s,
        .summary = u"Changes the notes of a release, what it supersedes, or its keys"_s,
        .details =
            {u"The version and the installer stay: clients take them for granted. For others, "
             "withdraw the release and add a higher version."_s,
             u"The notes are signed, too: when they change, the signatures go, and the release is "
             "to be signed again."_s,
             u"A version that was withdrawn can be given its keys, and nothing else."_s,
             u"zvupdate-service sees the change at once, a static site when it is made "
             "anew."_s},
        .options = {CatalogueOption::catalogue(),
                    CatalogueOption::productId(),
                    CatalogueOption::version(),
                    ReleaseRecord::notesOption(),
                    {.name = u"remove-notes"_s,
                     .valueName = u"LANGUAGE"_s,
                     .help = u"Takes the notes in that language away. May be given several "
                             "times."_s},
                    ReleaseRecord::supersedesOption(),
                    {.name = u"remove-supersedes"_s,
                     .valueName = u"VERSION"_s,
                     .help = u"The opposite of --supersedes."_s},
                    ReleaseRecord::releaseKeyOption(),
                    ReleaseRecord::expiresOption(),
                    CatalogueOption::dryRun(),
                    CatalogueOption::json()},
        .exitStatuses = {u"0 changed, or so already, 1 refused, 2 wrong arguments."_s},
        .examples = {u"edit --catalogue releases --product-id P1 --version 2103 --notes "
                     "en=notes.txt"_s},
        .run = edit,
    };
}
