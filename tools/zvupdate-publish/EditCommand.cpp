#include "CatalogueFile.h"
#include "CatalogueOption.h"
#include "Commands.h"
#include "ReleaseRecord.h"

#include "../commands/Arguments.h"

#include <QJsonArray>

#include <algorithm>

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
    const QString verb = !isChanged ? u"%1 %2 is so already: %3; %4"_s
                         : isDryRun ? u"Would edit %1 %2: %3; %4"_s
                                    : u"Edited %1 %2: %3; %4"_s;
    const QStringList languages = record.value(u"notes"_s).toObject().keys();
    const QStringList superseded = ReleaseRecord::superseded(record);
    return verb.arg(id, record.value(u"version"_s).toString(),
                    languages.isEmpty() ? u"no notes"_s : u"notes in "_s + languages.join(u", "_s),
                    superseded.isEmpty() ? u"supersedes nothing"_s
                                         : u"supersedes "_s + superseded.join(u", "_s));
}

Outcome edit(const Arguments &arguments, Console &console)
{
    const QStringList changes{u"notes"_s, u"remove-notes"_s, u"supersedes"_s,
                              u"remove-supersedes"_s};
    if (std::none_of(changes.begin(), changes.end(),
                     [&arguments](const QString &change) { return arguments.isSet(change); }))
        return wrongArguments(
            u"there is nothing to change; give --%1"_s.arg(changes.join(u", --"_s)));
    auto catalogue = CatalogueFile::open(arguments);
    if (!catalogue)
        return Failure{catalogue.error()};
    const QString id = *arguments.value(u"product-id"_s);
    const QString version = *arguments.value(u"version"_s);
    if (const auto release = catalogue->release(id, version); !release)
        return Failure{release.error()};

    const QJsonObject before = catalogue->record(id, version);
    QJsonObject record = before;
    Outcome edited = editNotes(arguments, &record);
    if (edited)
        edited = editSupersedes(arguments, &record);
    if (!edited)
        return edited;
    const bool isDryRun = arguments.isSet(u"dry-run"_s);
    if (record != before) {
        catalogue->setRecord(id, version, record);
        if (const auto saved = isDryRun ? Result<void>() : catalogue->save(); !saved)
            return Failure{saved.error()};
    }
    ReleaseRecord::report(id, record,
                          ReleaseRecord::warningsOf(record.value(u"notes"_s).toObject()),
                          lineOf(id, record, record != before, isDryRun), arguments, console);
    return Success;
}

} // namespace

Command editCommand()
{
    return {
        .name = u"edit"_s,
        .summary = u"Changes the notes of a release, or what it supersedes"_s,
        .details =
            {u"The version and the installer stay: clients take them for granted. For others, "
             "withdraw the release and add a higher version."_s,
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
                    CatalogueOption::dryRun(),
                    CatalogueOption::json()},
        .exitStatuses = {u"0 changed, or so already, 1 refused, 2 wrong arguments."_s},
        .examples = {u"edit --catalogue releases --product-id P1 --version 2103 --notes "
                     "en=notes.txt"_s},
        .run = edit,
    };
}
