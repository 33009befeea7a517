#include "CatalogueFile.h"
#include "CatalogueOption.h"
#include "Commands.h"

#include "../catalogue/RegularFile.h"
#include "../catalogue/Signing.h"
#include "../commands/Arguments.h"
#include "../commands/Console.h"
#include "../commands/JsonLine.h"
#include <ZVUpdate/release/ReleaseSignature.h>

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QProcess>
#include <QProcessEnvironment>
#include <QTemporaryDir>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

constexpr qint64 longestSignatureFile = 1024 * 1024; // bytes; no signature is as long

using Signatures = QList<ReleaseSignature>;

Result<ReleaseSignature> signatureIn(const QString &path, const QString &name)
{
    if (QFileInfo(path).size() > longestSignatureFile)
        return Failure{u"%1 is too long for a signature"_s.arg(name)};
    const auto bytes = RegularFile::read(path);
    if (!bytes)
        return Failure{u"%1 cannot be read: %2"_s.arg(name, bytes.error())};
    const auto signature = ReleaseSignature::read(*bytes);
    return signature ? signature : Failure{u"%1 %2"_s.arg(name, signature.error())};
}

Result<const Catalogue::Release *> statedRelease(const CatalogueFile &catalogue,
                                                 const Arguments &arguments)
{
    const QString id = *arguments.value(u"product-id"_s);
    const auto release = catalogue.release(id, *arguments.value(u"version"_s));
    if (release && (*release)->statement.isEmpty())
        return Failure{
            u"--version: there is nothing to sign of %1 %2, as it has no keys; give it "
            "those that it has by \"edit --release-key\""_s.arg(id, (*release)->version)};
    // A signature vouches for what users get.
    if (const auto digests = release ? catalogue.digests(id, **release) : Failure{release.error()};
        !digests)
        return Failure{digests.error()};
    return release;
}

// The release with its signatures and these. Fails when one of them is of no use, or when all
// together are not enough.
Result<Catalogue::Release> signedRelease(const Catalogue::Product &product,
                                         const Catalogue::Release &release,
                                         const Signatures &signatures)
{
    Catalogue::Release result = release;
    for (qsizetype i = 0; i < signatures.size(); ++i) {
        result.signatures = {signatures.at(i).toBase64()};
        if (Signing::signers(product, result).isEmpty())
            return Failure{u"signature %1 of %2 is not of what is to be signed of %3 %4, or by a "
                           "key that no build has; nothing is changed"_s.arg(i + 1)
                               .arg(signatures.size())
                               .arg(product.id, release.version)};
    }
    result.signatures = release.signatures;
    for (const ReleaseSignature &signature : signatures)
        result.signatures.append(signature.toBase64());
    result.signatures.removeDuplicates();
    if (const auto refused = Signing::refusal(product, result))
        return Failure{
            u"%1; nothing is changed: sign under one key of each at once"_s.arg(*refused)};
    return result;
}

Outcome enter(const Arguments &arguments, const Signatures &signatures, Console &console)
{
    auto catalogue = CatalogueFile::open(arguments);
    if (!catalogue)
        return Failure{catalogue.error()};
    const auto release = statedRelease(*catalogue, arguments);
    if (!release)
        return Failure{release.error()};
    const Catalogue::Product &product = *catalogue->product(*arguments.value(u"product-id"_s));
    const auto signedOne = signedRelease(product, **release, signatures);
    if (!signedOne)
        return Failure{signedOne.error()};
    const QStringList signers = Signing::signers(product, *signedOne);
    QJsonObject record = catalogue->record(product.id, signedOne->version);
    record.insert(u"signatures"_s, QJsonArray::fromStringList(signedOne->signatures));
    const bool isDryRun = arguments.isSet(u"dry-run"_s);
    if (!isDryRun) {
        catalogue->setRecord(product.id, signedOne->version, record);
        if (const auto saved = catalogue->save(); !saved)
            return Failure{saved.error()};
    }
    if (arguments.isSet(u"json"_s))
        console.print(jsonLine({{u"product"_s, product.id},
                                {u"release"_s, record},
                                {u"signedBy"_s, QJsonArray::fromStringList(signers)},
                                {u"dryRun"_s, isDryRun}}));
    else
        console.say((isDryRun ? u"Would sign %1 %2, under %3"_s : u"Signed %1 %2, under %3"_s)
                        .arg(product.id, signedOne->version, signers.join(u", "_s)));
    return Success;
}

Outcome attach(const Arguments &arguments, Console &console)
{
    Signatures signatures;
    for (const QString &path : arguments.values(u"signature"_s)) {
        const auto signature = signatureIn(path, u"--signature: "_s + path);
        if (!signature)
            return Failure{signature.error()};
        signatures.append(*signature);
    }
    return enter(arguments, signatures, console);
}

// Runs the maker's tool, which may ask at the terminal for what it needs.
Result<ReleaseSignature> runTool(const QString &command, const QByteArray &statement)
{
    const QTemporaryDir folder; // For nobody else's eyes.
    QFile file(folder.filePath(u"statement"_s));
    const QString signature = folder.filePath(u"signature"_s);
    if (!file.open(QIODevice::WriteOnly) || file.write(statement) != statement.size() ||
        !file.flush())
        return Failure{u"%1: cannot be written: %2"_s.arg(file.fileName(), file.errorString())};
    QString script = command;
    script.replace(u"{statement}"_s, u"\"$ZVUPDATE_STATEMENT\""_s)
        .replace(u"{signature}"_s, u"\"$ZVUPDATE_SIGNATURE\""_s);
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"ZVUPDATE_STATEMENT"_s, file.fileName());
    environment.insert(u"ZVUPDATE_SIGNATURE"_s, signature);
    QProcess tool;
    tool.setProcessEnvironment(environment);
    tool.setProcessChannelMode(QProcess::ForwardedChannels);
    tool.setInputChannelMode(QProcess::ForwardedInputChannel);
    // Standard output is for what this program says.
    tool.start(u"/bin/sh"_s, {u"-c"_s, u"exec 1>&2\n"_s + script});
    constexpr int asLongAsItTakes = -1;
    if (!tool.waitForFinished(asLongAsItTakes) || tool.exitStatus() != QProcess::NormalExit)
        return Failure{u"--with: the command did not come to its end: %1"_s.arg(command)};
    if (tool.exitCode() != 0)
        return Failure{u"--with: the command ended with the status %1: %2"_s.arg(
            QString::number(tool.exitCode()), command)};
    return signatureIn(signature, u"--with: what the command was to write to {signature}"_s);
}

Outcome sign(const Arguments &arguments, Console &console)
{
    const QStringList commands = arguments.values(u"with"_s);
    for (const QString &command : commands) {
        if (!command.contains(u"{statement}"_s) || !command.contains(u"{signature}"_s))
            return wrongArguments(u"--with: \"%1\" does not have both {statement} and "
                                  "{signature}; give them where the command takes the file to "
                                  "sign, and the one to write"_s.arg(command));
    }
    // Not locked while people look for their passphrases; what changes meanwhile is not signed.
    const auto catalogue = CatalogueFile::read(*arguments.value(u"catalogue"_s));
    if (!catalogue)
        return Failure{catalogue.error()};
    const auto release = statedRelease(*catalogue, arguments);
    if (!release)
        return Failure{release.error()};
    Signatures signatures;
    for (const QString &command : commands) {
        const auto signature = runTool(command, (*release)->statement);
        if (!signature)
            return Failure{signature.error()};
        signatures.append(*signature);
    }
    return enter(arguments, signatures, console);
}

QList<CommandOption> optionsWith(const CommandOption &special, const CommandOption &dryRun)
{
    return {CatalogueOption::catalogue(),
            CatalogueOption::productId(),
            CatalogueOption::version(),
            special,
            dryRun,
            CatalogueOption::json()};
}

QString whatIsAccepted()
{
    return u"Accepted are signatures of signify and minisign, and the 64 bytes of \"openssl "
           u"pkeyutl -sign "
           "-rawin\". Each older release in the catalogue that has keys, withdrawn ones too, has "
           "to find "
           "one under a key of its own, among these and those that were entered before; otherwise "
           "nothing "
           "is changed. To replace a key, sign under the old and the new one in one run."_s;
}

} // namespace

Command signCommand()
{
    return {
        .name = u"sign"_s,
        .summary = u"Has a release signed by a tool of your own"_s,
        .details = {u"The tool signs what \"add\" has written beside the installer. This program "
                    "sees no secret key, only the signature, which it tries as users' builds do."_s,
                    whatIsAccepted()},
        .options = optionsWith(
            {.name = u"with"_s,
             .valueName = u"COMMAND"_s,
             .help = u"A command for /bin/sh, in which {statement} stands for the file to sign and "
                     "{signature} for the one to write, without quotes around them. Both are in a "
                     "private folder, which goes when this command ends, unless it is killed. May "
                     "be given several times, once for each key."_s,
             .isRequired = true},
            {.name = u"dry-run"_s,
             .help = u"Says what would be done, and enters nothing; the tools do run, since their "
                     "signatures are tried."_s}),
        .exitStatuses = {u"0 signed, 1 refused, 2 wrong arguments."_s},
        .examples = {u"sign --catalogue releases --product-id P1 --version 2103 --with "
                     "'signify-openbsd -S -s maker.sec -m {statement} -x {signature}'"_s},
        .run = sign,
    };
}

Command attachCommand()
{
    return {
        .name = u"attach"_s,
        .summary = u"Enters signatures of a release that were made elsewhere"_s,
        .details = {u"On another machine, say, or in a hardware module: of the file that \"add\" "
                    "has written beside the installer, as it is. \"show\" says where it is."_s,
                    whatIsAccepted()},
        .options = optionsWith({.name = u"signature"_s,
                                .valueName = u"FILE"_s,
                                .help = u"A signature. May be given several times."_s,
                                .isRequired = true},
                               CatalogueOption::dryRun()),
        .exitStatuses = {u"0 entered, 1 refused, 2 wrong arguments."_s},
        .examples = {u"attach --catalogue releases --product-id P1 --version 2103 --signature "
                     "P1_2103.sig"_s},
        .run = attach,
    };
}
