#include "CatalogueFile.h"
#include "CatalogueOption.h"
#include "Commands.h"
#include "ReleaseRecord.h"

#include "../catalogue/InstallerDigests.h"
#include "../catalogue/Signing.h"
#include "../commands/Arguments.h"
#include "../commands/Console.h"
#include "../commands/JsonLine.h"
#include "../commands/ReleaseKeyFiles.h"
#include "../commands/WorkProgress.h"
#include <ZVUpdate/ZVUpdate.h>
#include <ZVUpdate/platform/settings/VersionOrder.h>

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QTemporaryDir>
#include <QThread>

#include <algorithm>
#include <functional>
#include <limits>
#include <utility>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

// How many bytes are left to be fetched when a download is resumed.
constexpr qint64 resumedBytes = 65536;

/// What one client met.
struct Finding
{
    QString productId;
    QString version;
    /// "check" or "download".
    QString exchange;
    /// Empty when all is as it should be.
    QStringList differences;
};

QString shown(const std::optional<QString> &text)
{
    return text ? u"\"%1\""_s.arg(*text) : u"nothing"_s;
}

QStringList compareNotes(const CheckUpdateResponse &reply, const Catalogue::Release &release)
{
    const auto notes = reply.mUpdateMsgDict().value_or(CheckUpdateResponse::UpdateMessages());
    QStringList differences;
    for (const Catalogue::Note &note : release.notes) {
        if (notes.value(note.language) != ReleaseRecord::asClientsTakeIt(note.memo))
            differences.append(u"other notes in \"%1\" than the catalogue's"_s.arg(note.language));
    }
    return differences;
}

/// What is expected of a service.
struct Demands
{
    const CatalogueFile &catalogue;
    /// Its products, with the releases that are to be offered.
    QList<Catalogue::Product> offered;
    /// By which clients tell the maker's signature; those that the catalogue gives them when there
    /// are none.
    std::optional<ReleaseKeys> keys;
};

// The keys of a version, if it has any. One that the catalogue does not know may have none.
std::optional<ReleaseKeys> keysOf(const Catalogue::Product &product, const QString &version)
{
    std::optional<ReleaseKeys> keys;
    for (const Catalogue::Build &build : product.builds) {
        if (compareVersions(build.version, version) <= 0)
            keys = build.keys;
    }
    return keys;
}

/// Plays clients of a service, with the library itself, and compares what they are given with what
/// the catalogue says. Needs an event loop's thread.
class Verification
{
public:
    /// Shows how far a long download has come, if that is wanted.
    Verification(const QString &baseUrl, const Demands &demands, Console &console,
                 bool showsProgress)
        : demands_(demands), console_(console), showsProgress_(showsProgress)
    {
        client_.setMBaseURL(baseUrl);
    }

    /// Tells each finding as it is made. Fails when not all can be looked at.
    Result<void> run(const std::function<void(const Finding &)> &tell)
    {
        if (!folder_.isValid())
            return Failure{folder_.errorString()};
        const auto reply = client_.doGetToken();
        token_ = reply->ID().value_or(QString());
        if (!reply->ok() || token_.isEmpty())
            return Failure{
                u"%1 gives no token; see whether it is the base URL, with its query key, and "
                "whether the server runs"_s.arg(client_.mBaseURL())};
        for (const Catalogue::Product &product : demands_.offered) {
            for (const QString &version : demands_.catalogue.outdated(product))
                tell({product.id, version, u"check"_s, check(product, version, true)});
            QStringList current = demands_.catalogue.current(product);
            if (!product.releases.isEmpty()) // And one that nobody has published.
                current += product.releases.last().version + u"999"_s;
            for (const QString &version : current)
                tell({product.id, version, u"check"_s, check(product, version, false)});
            for (const Catalogue::Release &release : product.releases)
                tell({product.id, release.version, u"download"_s, download(release)});
        }
        return {};
    }

private:
    // What is wrong with the reply to a client of that version.
    QStringList check(const Catalogue::Product &product, const QString &version, bool isOffered)
    {
        const auto reply = client_.doCheckUpdate(product.id, version);
        if (!isOffered && reply->ok())
            return {u"is offered %1, and should be offered nothing"_s.arg(
                shown(reply->ZVUpdateVersion()))};
        // A refusal says why; what says nothing is a page of the server's, or no answer.
        if (!isOffered && !reply->msg())
            return {
                u"gets no answer that clients understand, and should be told that there is nothing "
                "newer"_s};
        if (!isOffered)
            return {};
        const Catalogue::Release &newest = product.releases.last();
        if (!reply->ok())
            return {u"is offered nothing, and should be offered \"%1\"; the service said %2"_s.arg(
                newest.version, shown(reply->msg()))};
        const auto offered = reply->ZVUpdateVersion();
        if (offered != newest.version)
            return {
                u"is offered %1, and should be offered \"%2\"; a cache may be stale, or the server "
                "has not read its configuration again"_s.arg(shown(offered), newest.version)};
        QStringList differences = compareNotes(*reply, newest);
        const QString md5 = md5Of(newest.installerPath, digests_);
        if (reply->ZVMD5().value_or(QString()).toLower() != md5)
            differences.append(
                u"is told the MD5 %1; the installer's is %2"_s.arg(shown(reply->ZVMD5()), md5));
        if (reply->signatures() != newest.signatures)
            differences.append(u"is not sent the catalogue's signatures"_s);
        const auto keys = demands_.keys ? demands_.keys : keysOf(product, version);
        // One that is offered all the same is known to be refused.
        if (!keys || Signing::refusal(product, newest))
            return differences;
        if (const auto taken = reply->signedRelease(*keys, product.id, version); !taken)
            differences.append(u"would refuse it: "_s + taken.error().message);
        return differences;
    }

    // What is wrong with a release's installer as it is handed out.
    QStringList download(const Catalogue::Release &release)
    {
        const QString name = release.fileName;
        const qint64 size = QFileInfo(release.installerPath).size();
        QStringList differences;
        const uint64_t announced = client_.doGetFileSize(token_, name);
        if (announced == 0 || announced == std::numeric_limits<uint64_t>::max())
            differences.append(u"HEAD tells no length; it should be %1"_s.arg(size));
        else if (announced != static_cast<uint64_t>(size))
            differences.append(
                u"HEAD tells the length %1; it should be %2"_s.arg(announced).arg(size));

        const QString local = folder_.filePath(u"installer"_s);
        QFile::remove(local);
        if (const auto fetched = fetch(name, local, size); !fetched)
            return differences + QStringList(u"GET: "_s + fetched.error());
        const QStringList whole = compare(local, release, u"GET"_s);
        if (!whole.isEmpty())
            return differences + whole;

        // One byte at least has to be here, or all would be asked for.
        const qint64 here = std::max<qint64>(size - resumedBytes, size > 1 ? 1 : size);
        if (here == size || !QFile::resize(local, here))
            return differences;
        // The whole installer, behind what is here, is what an ignored Range brings.
        if (const auto fetched = fetch(name, local, here + size); !fetched)
            return differences + QStringList(u"GET with Range: "_s + fetched.error());
        if (QFileInfo(local).size() == here + size)
            return differences + QStringList(u"Range is ignored: the whole installer came again"_s);
        return differences + compare(local, release, u"GET with Range"_s);
    }

    QStringList compare(const QString &local, const Catalogue::Release &release,
                        const QString &what)
    {
        const qint64 size = QFileInfo(local).size();
        const qint64 expected = QFileInfo(release.installerPath).size();
        if (size != expected)
            return {u"%1 brings %2 bytes; it should be %3"_s.arg(what).arg(size).arg(expected)};
        InstallerDigests ofThis; // Another file has had the name before.
        if (const auto statement = ReleaseStatement::read(release.statement);
            statement && sha256Of(local) != statement->sha256)
            return {u"%1 brings a file that is not the one stated, by its SHA-256"_s.arg(what)};
        const QString md5 = md5Of(local, ofThis);
        const QString expectedMd5 = md5Of(release.installerPath, digests_);
        if (md5 != expectedMd5)
            return {
                u"%1 brings a file with the MD5 %2; it should be %3"_s.arg(what, md5, expectedMd5)};
        return {};
    }

    QString md5Of(const QString &path, InstallerDigests &digests)
    {
        WorkProgress progress(console_, u"Reading"_s, QFileInfo(path).size(), showsProgress_);
        return digests
            .md5(QFileInfo(path).canonicalFilePath(),
                 [&progress](qint64 bytes) { progress.advance(bytes); })
            .value_or(QString());
    }

    QByteArray sha256Of(const QString &path)
    {
        WorkProgress progress(console_, u"Reading"_s, QFileInfo(path).size(), showsProgress_);
        const auto digests =
            InstallerDigests::both(QFileInfo(path).canonicalFilePath(),
                                   [&progress](qint64 bytes) { progress.advance(bytes); });
        return digests ? QByteArray::fromHex(digests->sha256.toLatin1()) : QByteArray();
    }

    // A file that grows past the longest that it may be is not waited for: it may have no end.
    Result<void> fetch(const QString &fileName, const QString &local, qint64 longest)
    {
        client_.doStartDownload(token_, fileName, local);
        // Looked at more often than waitOne() does, which would make many small installers slow.
        bool isTooLong = false;
        WorkProgress progress(console_, u"Downloading"_s, longest, showsProgress_);
        uint64_t received = 0;
        while (!client_.doCheckDownloadStop()) {
            const uint64_t before =
                std::exchange(received, client_.doGetDownloadProgress().received);
            progress.advance(static_cast<qint64>(received - before));
            isTooLong |= received > static_cast<uint64_t>(longest);
            if (isTooLong)
                client_.doStopDownload();
            QCoreApplication::processEvents();
            QThread::msleep(1);
        }
        if (isTooLong)
            return Failure{u"brings more than the installer, and was stopped"_s};
        if (const auto failure = client_.doGetDownloadProgress().failure)
            return Failure{*failure};
        return {};
    }

    UpdateLogicFunc client_;
    const Demands &demands_;
    Console &console_;
    const bool showsProgress_;
    InstallerDigests digests_; // Of the catalogue's installers.
    const QTemporaryDir folder_;
    QString token_;
};

void printRow(const Finding &finding, Console &console)
{
    const auto row = u"%1  %2  %3  %4"_s.arg(finding.productId, -16)
                         .arg(finding.version, -10)
                         .arg(finding.exchange, -8);
    if (finding.differences.isEmpty())
        console.say(row.arg(u"ok"_s));
    for (const QString &difference : finding.differences)
        console.say(row.arg(u"WRONG: "_s + difference));
}

void printJson(const Finding &finding, Console &console)
{
    console.print(jsonLine({{u"product"_s, finding.productId},
                            {u"version"_s, finding.version},
                            {u"exchange"_s, finding.exchange},
                            {u"differences"_s, QJsonArray::fromStringList(finding.differences)}}));
}

// The service is not to blame for them.
void warnOfQuotes(const CatalogueFile &catalogue, const Arguments &arguments, Console &console)
{
    for (const auto &product : catalogue.products()) {
        const auto notes =
            product.releases.isEmpty() ? QList<Catalogue::Note>() : product.releases.last().notes;
        for (const Catalogue::Note &note : notes) {
            if (note.memo != ReleaseRecord::asClientsTakeIt(note.memo))
                console.complain(u"%1: warning: %2 %3: %4"_s.arg(
                    arguments.command(), product.id, product.releases.last().version,
                    ReleaseRecord::quotesWarning(note.language)));
        }
    }
}

Result<std::optional<ReleaseKeys>> keysIn(const Arguments &arguments)
{
    const auto texts = readReleaseKeyFiles(arguments.values(u"release-key"_s));
    if (!texts)
        return Failure{texts.error()};
    if (texts->isEmpty())
        return std::optional<ReleaseKeys>();
    const auto keys = ReleaseKeys::read(*texts);
    return keys ? Result(std::optional(*keys)) : Failure{keys.error()};
}

Outcome verify(const Arguments &arguments, Console &console)
{
    const auto catalogue = CatalogueFile::read(*arguments.value(u"catalogue"_s));
    if (!catalogue)
        return Failure{catalogue.error()};
    const auto keys = keysIn(arguments);
    if (!keys)
        return Failure{keys.error()};
    const auto offers =
        Signing::offers(catalogue->products(), arguments.isSet(u"allow-unsigned"_s));
    for (const QString &refused : offers.refused)
        console.complain(arguments.command() + u": warning: "_s + refused);
    const Demands demands{*catalogue, offers.products, *keys};
    const bool isJson = arguments.isSet(u"json"_s);
    warnOfQuotes(*catalogue, arguments, console);
    int looked = 0;
    int wrong = 0;
    Verification verification(arguments.operand(), demands, console, !isJson);
    const auto done = verification.run([&](const Finding &finding) {
        ++looked;
        wrong += finding.differences.isEmpty() ? 0 : 1;
        isJson ? printJson(finding, console) : printRow(finding, console);
    });
    if (!done)
        return Failure{done.error()};
    if (isJson)
        console.print(jsonLine({{u"looked"_s, looked}, {u"wrong"_s, wrong}}));
    else
        console.say(u"%1 looked at, %2 wrong"_s.arg(looked).arg(wrong));
    return wrong == 0 ? Success : Failed;
}

} // namespace

Command verifyCommand()
{
    return {
        .name = u"verify"_s,
        .summary = u"Plays clients of all versions, and checks what they are given"_s,
        .details = {u"A client of every version in the catalogue asks the service at BASE-URL, as "
                    "well as one that nobody has published; and every installer is asked for its "
                    "size, downloaded, resumed and compared with the catalogue's. What differs is "
                    "a stale cache, another file or digest, a HEAD without the length or a Range "
                    "that is ignored."_s,
                    u"Clients that have keys look at the signatures as the library does."_s},
        .operandName = u"BASE-URL"_s,
        .options = {CatalogueOption::catalogue(),
                    {.name = u"release-key"_s,
                     .valueName = u"FILE"_s,
                     .help = u"A public key that all clients are to have, in place of those that "
                             "the catalogue gives them. May be given several times."_s},
                    CatalogueOption::allowUnsigned(),
                    CatalogueOption::json()},
        .exitStatuses = {u"0 all is as the catalogue says, 1 something is not, or nothing could be "
                         "looked at, 2 wrong arguments."_s},
        .examples = {u"verify --catalogue releases "
                     "'https://updates.example.com/Update/ZVDLCtl.dll?dt='"_s},
        .run = verify,
    };
}
