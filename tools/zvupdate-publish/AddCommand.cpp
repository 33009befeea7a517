#include "CatalogueFile.h"
#include "CatalogueOption.h"
#include "Commands.h"
#include "FilePlacing.h"
#include "InstallerCheck.h"
#include "ReleaseRecord.h"
#include "StatementFile.h"

#include "../catalogue/InstallerDigests.h"
#include "../catalogue/Signing.h"
#include "../commands/Arguments.h"
#include "../commands/WorkProgress.h"
#include <ZVUpdate/ZVUpdate.h>
#include <ZVUpdate/platform/settings/VersionOrder.h>

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QSet>

#include <algorithm>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

/// The release that is to be, step by step.
struct Addition
{
    QString productId;
    QString version;
    QString installer;
    QJsonObject notes;
    QStringList supersedes;
    QJsonArray releaseKeys;
    std::optional<QDateTime> expires;
    QStringList warnings;
};

// Without keys of its own a build has those of the one before, or that had its version.
QJsonArray inheritedKeys(const CatalogueFile &catalogue, const Addition &addition)
{
    const auto *product = catalogue.product(addition.productId);
    QJsonArray keys;
    for (const auto &build : product ? product->builds : QList<Catalogue::Build>()) {
        if (compareVersions(build.version, addition.version) <= 0)
            keys = catalogue.record(addition.productId, build.version)
                       .value(u"releaseKeys"_s)
                       .toArray();
    }
    return keys;
}

bool isBareDigits(const QString &version)
{
    return std::all_of(version.begin(), version.end(),
                       [](QChar c) { return c >= u'0' && c <= u'9'; });
}

// Clients name the file after both.
Result<void> checkNames(Addition *addition)
{
    const QString &productId = addition->productId;
    const QString &version = addition->version;
    const auto isPlain = [](const QString &id, const QString &of) {
        return UpdateFiles::named({}, id, of).has_value();
    };
    if (!hasNumber(version))
        return Failure{
            u"version \"%1\" has no number to order it by; give one, such as 2103"_s.arg(version)};
    if (!isPlain(productId, version) && isPlain(u"P"_s, version))
        return Failure{u"--product-id: clients would refuse what is published as \"%1\", as "
                       "\"%1_%2.exe\" is not one plain file name; choose another "
                       "identifier"_s.arg(productId, version)};
    if (!isPlain(productId, version))
        return Failure{u"clients would refuse version \"%1\" of \"%2\", as \"%2_%1.exe\" is not "
                       "one plain file name; choose another version"_s.arg(version, productId)};
    if (productId.contains(u'&') || productId.contains(u'='))
        addition->warnings.append(
            u"\"&\" and \"=\" have a meaning in the commands that clients send; a service that "
            "looks for them there finds another product than \"%1\""_s.arg(productId));
    if (!isBareDigits(version))
        addition->warnings.append(
            u"the prompt shows a dot after each character but the last: version \"%1\" as \"v%2\""_s
                .arg(version, version.split(QString(), Qt::SkipEmptyParts).join(u'.')));
    return {};
}

QSet<QByteArray> bytesOf(const QJsonArray &keys)
{
    QSet<QByteArray> bytes;
    for (const auto &text : keys) {
        if (const auto key = ReleaseKey::read(text.toString().toUtf8()))
            bytes.insert(key->bytes());
    }
    return bytes;
}

// A version that is used again has one set of keys only, and users have builds with the first.
Result<void> checkKeys(const CatalogueFile &catalogue, const Addition &addition)
{
    const QJsonArray had =
        catalogue.record(addition.productId, addition.version).value(u"releaseKeys"_s).toArray();
    if (!had.isEmpty() && bytesOf(had) != bytesOf(addition.releaseKeys))
        return Failure{u"--release-key: version %1 was withdrawn, and users may have it with other "
                       "keys; give those, or choose a higher version"_s.arg(addition.version)};
    return {};
}

Result<void> checkVersion(const CatalogueFile &catalogue, const Addition &addition, bool isForced)
{
    const QString &version = addition.version;
    if (!isForced && catalogue.withdrawn(addition.productId).contains(version))
        return Failure{
            u"version %1 was withdrawn, and caches or clients may still have it; choose a higher "
            "version, or give --force"_s.arg(version)};
    const auto *product = catalogue.product(addition.productId);
    if (!product)
        return {};
    for (const auto &release : product->releases) {
        if (compareVersions(release.version, version) == 0)
            return Failure{u"version %1 exists, as \"%2\"; choose a higher version"_s.arg(
                version, release.version)};
    }
    if (!isForced && !product->releases.isEmpty() &&
        compareVersions(version, product->releases.last().version) < 0)
        return Failure{u"version %1 is older than %2, the newest; choose a higher version, or give "
                       "--force"_s.arg(version, product->releases.last().version)};
    return {};
}

// By its size and SHA-256 digest, which the maker signs, any size is verified.
Result<void> checkSize(Addition *addition)
{
    const auto mistaken = InstallerCheck::sizeDoubt(addition->installer);
    if (mistaken && addition->releaseKeys.isEmpty())
        return Failure{u"--installer: %1; give a smaller installer, or sign releases, for which "
                       "see --release-key"_s.arg(*mistaken)};
    if (mistaken)
        addition->warnings.append(*mistaken + u", unless they have release keys"_s);
    return {};
}

// What looks like a mistake is told; without --force it is one.
Result<void> checkInstaller(const CatalogueFile &catalogue, const QString &md5, bool isForced,
                            Addition *addition)
{
    const auto *product = catalogue.product(addition->productId);
    if (!product)
        return {};
    const QString installer = addition->installer;
    QStringList doubts =
        InstallerCheck::doubts(installer, md5, addition->version, catalogue, *product);
    for (QString &doubt : doubts)
        doubt.prepend(installer + u' ');
    if (isForced)
        addition->warnings += doubts;
    else if (!doubts.isEmpty())
        return Failure{u"--installer: %1; give another, or --force if that is meant"_s.arg(
            doubts.join(u"; "_s))};
    return {};
}

// Whose installer lies at that path, if anybody's: two products' identifiers and versions may run
// together to one name.
std::optional<QString> ownerOf(const CatalogueFile &catalogue, const QString &path)
{
    for (const auto &product : catalogue.products()) {
        for (const auto &release : product.releases) {
            if (release.installerPath == path)
                return u"version %1 of \"%2\""_s.arg(release.version, product.id);
        }
    }
    return std::nullopt;
}

/// Where the installer stands in the catalogue's folder, and whether it has to be put there.
struct Place
{
    QString path;
    bool isNew = false;
};

Result<Place> placeFor(const CatalogueFile &catalogue, const Addition &addition)
{
    const QFileInfo installer(QFileInfo(addition.installer).canonicalFilePath());
    if (installer.filePath().startsWith(catalogue.directory() + u'/'))
        return Place{installer.filePath()};
    const QString name =
        u"%1/installers/%2_%3"_s.arg(catalogue.directory(), addition.productId, addition.version);
    const QString suffix = installer.suffix().isEmpty() ? QString() : u'.' + installer.suffix();
    QString path = name + suffix;
    if (const auto owner = ownerOf(catalogue, path))
        return Failure{u"%1: is the installer of %2; choose another version"_s.arg(path, *owner)};
    // One that "undo" may bring back is not written over.
    const QSet<QString> kept = QFileInfo::exists(path) ? catalogue.keptFiles() : QSet<QString>();
    for (int i = 2; kept.contains(path); ++i)
        path = u"%1-%2%3"_s.arg(name, QString::number(i), suffix);
    return Place{path, true};
}

Result<void> placeInstaller(const Addition &addition, const QString &path, const QString &sha256,
                            bool isForPrograms, Console &console)
{
    QDir().mkpath(QFileInfo(path).path());
    // Each byte is written and read again.
    WorkProgress progress(console, u"Copying"_s, 2 * QFileInfo(addition.installer).size(),
                          !isForPrograms);
    // A copy of its own: what becomes of the original is its maker's business.
    return FilePlacing::place(addition.installer, path, FilePlacing::Sharing::None, sha256,
                              [&progress](qint64 bytes) { progress.advance(bytes); });
}

// Writes what the maker is to sign of a release with keys, and enters it into the record.
Result<void> state(const CatalogueFile &catalogue, const Addition &addition,
                   const InstallerDigests::Both &digests, bool isDryRun, QJsonObject *record)
{
    if (addition.releaseKeys.isEmpty())
        return {};
    record->insert(u"releaseKeys"_s, addition.releaseKeys);
    const ReleaseStatement statement{addition.productId,
                                     addition.version,
                                     digests.md5,
                                     QByteArray::fromHex(digests.sha256.toLatin1()),
                                     static_cast<quint64>(record->value(u"size"_s).toInteger()),
                                     addition.expires};
    return StatementFile::write(catalogue, statement, isDryRun, record);
}

// Enters the release into the catalogue, which then has the record that is returned.
Result<QJsonObject> enter(CatalogueFile *catalogue, const Addition &addition,
                          const InstallerDigests::Both &digests, const Arguments &arguments,
                          Console &console)
{
    const auto place = placeFor(*catalogue, addition);
    if (!place)
        return Failure{place.error()};
    QJsonObject record{{u"version"_s, addition.version},
                       {u"installer"_s, QDir(catalogue->directory()).relativeFilePath(place->path)},
                       {u"size"_s, QFileInfo(addition.installer).size()},
                       {u"md5"_s, digests.md5},
                       {u"notes"_s, addition.notes}};
    if (!addition.supersedes.isEmpty())
        record.insert(u"supersedes"_s, QJsonArray::fromStringList(addition.supersedes));
    const bool isDryRun = arguments.isSet(u"dry-run"_s);
    const bool isPlaced = place->isNew && !isDryRun;
    if (const auto placed = isPlaced ? placeInstaller(addition, place->path, digests.sha256,
                                                      arguments.isSet(u"json"_s), console)
                                     : Result<void>();
        !placed)
        return Failure{placed.error()};
    auto done = state(*catalogue, addition, digests, isDryRun, &record);
    if (done && isDryRun)
        return record;
    if (done) {
        catalogue->add(addition.productId, record);
        done = catalogue->save();
    }
    if (!done && isPlaced)
        QFile::remove(place->path);
    return done ? Result(catalogue->record(addition.productId, addition.version))
                : Failure{done.error()};
}

// Of other releases: that this one is to be signed is told anyway.
QStringList newlyRefused(const CatalogueFile &before, const Addition &addition)
{
    const auto after = CatalogueFile::read(before.directory(), CatalogueFile::IfMissing::Empty);
    QList<Catalogue::Product> products = after ? after->products() : before.products();
    for (Catalogue::Product &product : products) {
        product.releases.removeIf([&](const Catalogue::Release &release) {
            return product.id == addition.productId && release.version == addition.version;
        });
    }
    return Signing::newlyRefused(before.products(), products);
}

QString lineOf(const Addition &addition, const QJsonObject &record, bool isDryRun)
{
    const QString statement = record.value(u"statement"_s).toString();
    return (isDryRun ? u"Would add %1 %2: %3, %4 bytes, MD5 %5%6"_s
                     : u"Added %1 %2: %3, %4 bytes, MD5 %5%6"_s)
        .arg(
            addition.productId, addition.version, record.value(u"installer"_s).toString(),
            QString::number(record.value(u"size"_s).toInteger()), record.value(u"md5"_s).toString(),
            statement.isEmpty()
                ? QString()
                : u"; it is offered when %1 is signed, by \"sign\" or \"attach\""_s.arg(statement));
}

// What can be told without the catalogue.
Outcome prepare(const Arguments &arguments, Addition *addition)
{
    const auto notes = ReleaseRecord::readNotes(arguments);
    if (!notes)
        return Failure{notes.error()};
    addition->notes = *notes;
    auto checked = ReleaseRecord::checkNotes(addition->version, *notes);
    if (checked)
        checked = InstallerCheck::check(addition->installer);
    if (checked)
        checked = checkNames(addition);
    if (!checked)
        return Failure{checked.error()};
    const auto superseded = ReleaseRecord::readSupersedes(arguments, addition->version);
    if (!superseded)
        return Failure{superseded.error()};
    addition->supersedes = *superseded;
    const auto keys = ReleaseRecord::readReleaseKeys(arguments);
    if (!keys)
        return Failure{keys.error()};
    addition->releaseKeys = *keys;
    const auto expires = ReleaseRecord::readExpires(arguments);
    if (!expires)
        return Failure{expires.error()};
    addition->expires = *expires;
    addition->warnings += ReleaseRecord::warningsOf(*notes);
    return Success;
}

Outcome add(const Arguments &arguments, Console &console)
{
    Addition addition{*arguments.value(u"product-id"_s),
                      *arguments.value(u"version"_s),
                      *arguments.value(u"installer"_s),
                      {},
                      {},
                      {},
                      {},
                      {}};
    if (auto prepared = prepare(arguments, &addition); !prepared)
        return prepared;
    auto catalogue = CatalogueFile::open(arguments, CatalogueFile::IfMissing::Empty);
    if (!catalogue)
        return Failure{catalogue.error()};
    const bool isForced = arguments.isSet(u"force"_s);
    if (addition.releaseKeys.isEmpty())
        addition.releaseKeys = inheritedKeys(*catalogue, addition);
    if (addition.expires && addition.releaseKeys.isEmpty())
        return Failure{u"--expires: no build has keys, so that nothing is signed; give "
                       "--release-key, too"_s};
    auto checked = checkVersion(*catalogue, addition, isForced);
    if (checked)
        checked = checkKeys(*catalogue, addition);
    if (checked)
        checked = checkSize(&addition);
    if (!checked)
        return Failure{checked.error()};
    const QFileInfo installer(addition.installer);
    WorkProgress progress(console, u"Reading"_s, installer.size(), !arguments.isSet(u"json"_s));
    const auto digests = InstallerDigests::both(
        installer.canonicalFilePath(), [&progress](qint64 bytes) { progress.advance(bytes); });
    if (!digests)
        return Failure{u"--installer: %1 cannot be read; give a file that nobody writes into"_s.arg(
            addition.installer)};
    checked = checkInstaller(*catalogue, digests->md5, isForced, &addition);
    if (!checked)
        return Failure{checked.error()};
    const auto record = enter(&*catalogue, addition, *digests, arguments, console);
    if (!record)
        return Failure{record.error()};
    addition.warnings += newlyRefused(*catalogue, addition);
    ReleaseRecord::report(addition.productId, *record, addition.warnings,
                          lineOf(addition, *record, arguments.isSet(u"dry-run"_s)), arguments,
                          console);
    return Success;
}

} // namespace

Command addCommand()
{
    return {
        .name = u"add"_s,
        .summary = u"Adds a release to the catalogue"_s,
        .details = {u"Size and digest are computed from the installer. One that lies outside the "
                    "catalogue's folder is copied into it, and what becomes of the original "
                    "later is not published: sign an installer before it is added. One that lies "
                    "in the folder is never to be written into, only replaced as a whole."_s,
                    u"Once a release has --release-key, the later ones have its keys, too, unless "
                    "they are given others. What is to be signed of a release with keys is written "
                    "beside its installer, and it is offered to nobody until it is signed as all "
                    "older ones demand it, or, where those have no keys, as it does itself."_s,
                    u"zvupdate-service sees the release at once, a static site when it is made "
                    "anew."_s},
        .options = {CatalogueOption::catalogue(),
                    CatalogueOption::productId(),
                    {.name = u"version"_s,
                     .valueName = u"VERSION"_s,
                     .help = u"The new version; bare digits, such as 2103, which the prompt shows "
                             "as v2.1.0.3."_s,
                     .isRequired = true},
                    {.name = u"installer"_s,
                     .valueName = u"FILE"_s,
                     .help = u"The installer."_s,
                     .isRequired = true},
                    ReleaseRecord::notesOption(),
                    ReleaseRecord::supersedesOption(),
                    ReleaseRecord::releaseKeyOption(),
                    ReleaseRecord::expiresOption(),
                    {.name = u"force"_s,
                     .help = u"Also adds a version that is older than the newest, or that was "
                             "withdrawn, and an installer that looks like the wrong file: that of "
                             "another version, one of another kind than the release before, or of "
                             "a tenth of its size."_s},
                    CatalogueOption::dryRun(),
                    CatalogueOption::json()},
        .exitStatuses =
            {u"0 added, 1 refused, 2 wrong arguments. Warnings change nothing in it."_s},
        .examples = {u"add --catalogue releases --product-id P1 --version 2103 --installer "
                     "P1-setup.run --notes en=notes.txt"_s},
        .run = add,
    };
}
