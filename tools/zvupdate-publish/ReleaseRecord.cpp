#include "ReleaseRecord.h"

#include "../catalogue/RegularFile.h"
#include "../catalogue/Replies.h"
#include "../commands/Arguments.h"
#include "../commands/Console.h"
#include "../commands/JsonLine.h"
#include "../commands/ReleaseKeyFiles.h"
#include <ZVUpdate/ZVUpdate.h>
#include <ZVUpdate/platform/settings/VersionOrder.h>
#include <ZVUpdate/release/ReleaseStatement.h>

#include <QFileInfo>
#include <QJsonArray>
#include <QStringDecoder>

#include <utility>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

QStringList languages()
{
    return {QString::fromUtf8(kZVLanguageCode_EN), QString::fromUtf8(kZVLanguageCode_zh_TW),
            QString::fromUtf8(kZVLanguageCode_zh_CN)};
}

QString tooLong()
{
    return u"--notes: with these notes clients would refuse the reply, which may have %1 bytes; "
           "shorten them"_s.arg(Replies::longest);
}

Result<QString> textIn(const QString &path)
{
    if (QFileInfo(path).size() > Replies::longest)
        return Failure{tooLong()};
    const auto bytes = RegularFile::read(path);
    if (!bytes)
        return Failure{u"--notes: %1 cannot be read; give a file"_s.arg(path)};
    QStringDecoder decoder(QStringDecoder::Utf8);
    QString text = QString(decoder(*bytes)).trimmed();
    if (decoder.hasError())
        return Failure{u"--notes: %1 is not UTF-8; convert it"_s.arg(path)};
    if (text.isEmpty())
        return Failure{
            u"--notes: %1 is empty; write something into it, or leave it out"_s.arg(path)};
    return text;
}

} // namespace

CommandOption ReleaseRecord::notesOption()
{
    return {.name = u"notes"_s,
            .valueName = u"LANGUAGE=FILE"_s,
            .help = u"Release notes, a file in UTF-8 for each language: en, zh-TW and zh-CN."_s};
}

CommandOption ReleaseRecord::supersedesOption()
{
    return {.name = u"supersedes"_s,
            .valueName = u"VERSION"_s,
            .help = u"An older version that users have and that is not in the catalogue. A static "
                    "site answers only versions that it knows. May be given several times."_s};
}

CommandOption ReleaseRecord::releaseKeyOption()
{
    return {.name = u"release-key"_s,
            .valueName = u"FILE"_s,
            .help = u"A public key that this build has, of signify, minisign or openssl: from then "
                    "on newer releases have to be signed. May be given up to eight times, of which "
                    "builds demand one."_s};
}

CommandOption ReleaseRecord::expiresOption()
{
    return {.name = u"expires"_s,
            .valueName = u"DATE"_s,
            .help = u"From when on builds with keys refuse this release, such as "
                    "2027-01-31T00:00:00Z, or \"never\", which is usual. It stands in what is "
                    "signed."_s};
}

Result<QJsonObject, CommandFailure> ReleaseRecord::readNotes(const Arguments &arguments)
{
    const QStringList values = arguments.values(u"notes"_s);
    for (const QString &value : values) {
        if (value.indexOf(u'=') < 1)
            return wrongArguments(
                u"--notes: \"%1\" is not LANGUAGE=FILE; give, say, en=notes.txt"_s.arg(value));
    }
    QJsonObject notes;
    for (const QString &value : values) {
        const QString language = value.section(u'=', 0, 0);
        const auto text = textIn(value.section(u'=', 1));
        if (!text)
            return Failure{text.error()};
        if (notes.contains(language))
            return Failure{u"--notes: %1 is given twice; give one file for it"_s.arg(language)};
        notes.insert(language, *text);
    }
    return notes;
}

QList<Catalogue::Note> ReleaseRecord::notesOf(const QJsonObject &notes)
{
    QList<Catalogue::Note> result;
    for (auto note = notes.begin(); note != notes.end(); ++note)
        result.append({note.key(), note->toString()});
    return result;
}

// Each client gets the notes in all languages.
Result<void> ReleaseRecord::checkNotes(const QString &version, const QJsonObject &notes)
{
    const Catalogue::Release release{version, {}, {}, notesOf(notes)};
    const QString digest(32, u'0'); // As long as every MD5.
    if (Replies::newRelease(release, digest).size() > Replies::longest)
        return Failure{tooLong()};
    return {};
}

Result<QStringList> ReleaseRecord::readSupersedes(const Arguments &arguments,
                                                  const QString &version)
{
    QStringList superseded = arguments.values(u"supersedes"_s);
    for (const QString &old : std::as_const(superseded)) {
        if (!hasNumber(old) || compareVersions(old, version) >= 0)
            return Failure{
                u"--supersedes: \"%1\" is not older than %2; leave it out"_s.arg(old, version)};
    }
    superseded.removeDuplicates();
    return superseded;
}

Result<QJsonArray> ReleaseRecord::readReleaseKeys(const Arguments &arguments)
{
    const auto texts = readReleaseKeyFiles(arguments.values(u"release-key"_s));
    if (!texts)
        return Failure{texts.error()};
    QJsonArray keys;
    // The keys alone: what else stands in those files is not for everybody who gets the catalogue.
    for (const QByteArray &text : *texts)
        keys.append(QString::fromUtf8(ReleaseKey::read(text)->text()));
    return keys;
}

Result<std::optional<QDateTime>> ReleaseRecord::readExpires(const Arguments &arguments)
{
    const QString text = arguments.value(u"expires"_s).value_or(u"never"_s);
    const auto date = ReleaseStatement::date(text);
    if (!date && text != u"never"_s)
        return Failure{u"--expires: \"%1\" is no date; give one such as 2027-01-31T00:00:00Z, or "
                       "\"never\""_s.arg(text)};
    if (date && *date <= QDateTime::currentDateTimeUtc())
        return Failure{u"--expires: %1 has passed; give a later date"_s.arg(text)};
    return date;
}

QStringList ReleaseRecord::superseded(const QJsonObject &record)
{
    return record.value(u"supersedes"_s).toVariant().toStringList();
}

QStringList ReleaseRecord::warningsOf(const QJsonObject &notes)
{
    QStringList warnings;
    for (auto note = notes.begin(); note != notes.end(); ++note) {
        if (asClientsTakeIt(note->toString()) != note->toString())
            warnings.append(quotesWarning(note.key()));
        if (!languages().contains(note.key()))
            warnings.append(u"no client asks for notes in \"%1\"; they ask for %2"_s.arg(
                note.key(), languages().join(u", "_s)));
    }
    for (const QString &language : languages()) {
        if (!notes.contains(language))
            warnings.append(
                u"there are no notes in \"%1\", and nothing stands in for them"_s.arg(language));
    }
    return warnings;
}

QString ReleaseRecord::asClientsTakeIt(const QString &memo)
{
    const bool isQuoted = memo.startsWith(u'"') && memo.endsWith(u'"');
    return isQuoted ? memo.mid(1).chopped(memo.size() > 1 ? 1 : 0) : memo;
}

QString ReleaseRecord::quotesWarning(const QString &language)
{
    return u"clients take off the quotes around the notes in \"%1\""_s.arg(language);
}

void ReleaseRecord::report(const QString &productId, const QJsonObject &record,
                           const QStringList &warnings, const QString &line,
                           const Arguments &arguments, Console &console)
{
    for (const QString &warning : warnings)
        console.complain(arguments.command() + u": warning: "_s + warning);
    if (arguments.isSet(u"json"_s))
        console.print(jsonLine({{u"product"_s, productId},
                                {u"release"_s, record},
                                {u"warnings"_s, QJsonArray::fromStringList(warnings)},
                                {u"dryRun"_s, arguments.isSet(u"dry-run"_s)}}));
    else
        console.say(line);
}
