#include "SiteVerification.h"

#include "../catalogue/VersionOrder.h"
#include <ZVUpdate/ZVUpdate.h>

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QThread>

#include <algorithm>
#include <limits>

using namespace Qt::StringLiterals;

namespace {

/// How many bytes are left to be fetched when a download is resumed.
constexpr qint64 resumedBytes = 65536;

// Versions for which there is nothing newer: the newest, withdrawn ones above it, and one that
// nobody has published.
QStringList current(const CatalogueFile &catalogue, const Catalogue::Product &product)
{
    QStringList versions = catalogue.withdrawn(product.id);
    const QStringList outdated = catalogue.outdated(product);
    versions.removeIf([&outdated](const QString &version) { return outdated.contains(version); });
    if (product.releases.isEmpty())
        return versions;
    const QString newest = product.releases.last().version;
    return QStringList{newest, newest + u"999"_s} + versions;
}

QString shown(const std::optional<QString> &text)
{
    return text ? u"\"%1\""_s.arg(*text) : u"nothing"_s;
}

QStringList compareNotes(const CheckUpdateResponse &reply, const Catalogue::Release &release)
{
    const auto notes = reply.mUpdateMsgDict().value_or(CheckUpdateResponse::UpdateMessages());
    QStringList differences;
    for (const Catalogue::Note &note : release.notes) {
        if (notes.value(note.language) != note.memo)
            differences.append(u"other notes in \"%1\" than the catalogue's"_s.arg(note.language));
    }
    return differences;
}

} // namespace

SiteVerification::SiteVerification(const QString &baseUrl, const CatalogueFile &catalogue)
    : baseUrl_(baseUrl), catalogue_(catalogue)
{
}

std::optional<QString> SiteVerification::run(const std::function<void(const Finding &)> &tell)
{
    if (!folder_.isValid())
        return folder_.errorString();
    UpdateLogicFunc client;
    client.setMBaseURL(baseUrl_);
    const auto reply = client.doGetToken();
    token_ = reply->ID().value_or(QString());
    if (!reply->ok() || token_.isEmpty())
        return u"%1 gives no token; see whether it is the base URL, with its query key, and "
               "whether the server runs"_s.arg(baseUrl_);
    for (const Catalogue::Product &product : catalogue_.products()) {
        for (const QString &version : catalogue_.outdated(product))
            tell({product.id, version, u"check"_s, check(product, version, true)});
        for (const QString &version : current(catalogue_, product))
            tell({product.id, version, u"check"_s, check(product, version, false)});
        for (const Catalogue::Release &release : product.releases)
            tell({product.id, release.version, u"download"_s, download(product, release)});
    }
    return std::nullopt;
}

// What is wrong with the reply to a client of that version.
QStringList SiteVerification::check(const Catalogue::Product &product, const QString &version,
                                    bool isOffered) const
{
    UpdateLogicFunc client;
    client.setMBaseURL(baseUrl_);
    const auto reply = client.doCheckUpdate(product.id, version);
    if (!isOffered && reply->ok())
        return {
            u"is offered %1, and should be offered nothing"_s.arg(shown(reply->ZVUpdateVersion()))};
    // A refusal says why; what says nothing is a page of the server's, or no answer.
    if (!isOffered && !reply->msg())
        return {u"gets no answer that clients understand, and should be told that there is nothing "
                "newer"_s};
    if (!isOffered)
        return {};
    const Catalogue::Release &newest = product.releases.last();
    if (!reply->ok())
        return {u"is offered nothing, and should be offered \"%1\"; the service said %2"_s.arg(
            newest.version, shown(reply->msg()))};
    const auto offered = reply->ZVUpdateVersion();
    if (offered != newest.version)
        return {u"is offered %1, and should be offered \"%2\"; a cache may be stale, or the server "
                "has not read its configuration again"_s.arg(shown(offered), newest.version)};
    QStringList differences = compareNotes(*reply, newest);
    const QString md5 = ZVMisc::getFileMD5(newest.installerPath);
    if (reply->ZVMD5().value_or(QString()).toLower() != md5)
        differences.append(
            u"is told the MD5 %1; the installer's is %2"_s.arg(shown(reply->ZVMD5()), md5));
    return differences;
}

// What is wrong with a release's installer as it is handed out.
QStringList SiteVerification::download(const Catalogue::Product &product,
                                       const Catalogue::Release &release)
{
    const QString name = Catalogue::clientFileName(product.id, release.version);
    const qint64 size = QFileInfo(release.installerPath).size();
    QStringList differences;
    UpdateLogicFunc client;
    client.setMBaseURL(baseUrl_);
    const uint64_t announced = client.doGetFileSize(token_, name);
    if (announced == 0 || announced == std::numeric_limits<uint64_t>::max())
        differences.append(u"HEAD tells no length; it should be %1"_s.arg(size));
    else if (announced != static_cast<uint64_t>(size))
        differences.append(u"HEAD tells the length %1; it should be %2"_s.arg(announced).arg(size));

    const QString local = folder_.filePath(u"installer"_s);
    QFile::remove(local);
    if (const auto failure = fetch(name, local, size))
        return differences + QStringList(u"GET: "_s + *failure);
    const QStringList whole = compare(local, release, u"GET"_s);
    if (!whole.isEmpty())
        return differences + whole;

    // One byte at least has to be here, or all would be asked for.
    const qint64 here = std::max<qint64>(size - resumedBytes, size > 1 ? 1 : size);
    if (here == size || !QFile::resize(local, here))
        return differences;
    // The whole installer, behind what is here, is what an ignored Range brings.
    if (const auto failure = fetch(name, local, here + size))
        return differences + QStringList(u"GET with Range: "_s + *failure);
    if (QFileInfo(local).size() == here + size)
        return differences + QStringList(u"Range is ignored: the whole installer came again"_s);
    return differences + compare(local, release, u"GET with Range"_s);
}

QStringList SiteVerification::compare(const QString &local, const Catalogue::Release &release,
                                      const QString &what) const
{
    const qint64 size = QFileInfo(local).size();
    const qint64 expected = QFileInfo(release.installerPath).size();
    if (size != expected)
        return {u"%1 brings %2 bytes; it should be %3"_s.arg(what).arg(size).arg(expected)};
    const QString md5 = ZVMisc::getFileMD5(local);
    const QString expectedMd5 = ZVMisc::getFileMD5(release.installerPath);
    if (md5 != expectedMd5)
        return {u"%1 brings a file with the MD5 %2; it should be %3"_s.arg(what, md5, expectedMd5)};
    return {};
}

// Why the file did not come, if so. One that grows past the longest that it may be is not waited
// for: it may have no end.
std::optional<QString> SiteVerification::fetch(const QString &fileName, const QString &local,
                                               qint64 longest) const
{
    UpdateLogicFunc client;
    client.setMBaseURL(baseUrl_);
    client.doStartDownload(token_, fileName, local);
    // Looked at more often than waitOne() does, which would make many small installers slow.
    bool isTooLong = false;
    while (!client.doCheckDownloadStop()) {
        isTooLong |= client.doGetDownloadProgress().received > static_cast<uint64_t>(longest);
        if (isTooLong)
            client.doStopDownload();
        QCoreApplication::processEvents();
        QThread::msleep(1);
    }
    if (isTooLong)
        return u"brings more than the installer, and was stopped"_s;
    return client.doGetDownloadProgress().failure;
}
