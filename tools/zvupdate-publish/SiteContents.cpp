#include "SiteContents.h"

#include "../catalogue/Replies.h"
#include "../catalogue/Signing.h"
#include <ZVUpdate/ZVUpdate.h>
#include <ZVUpdate/release/ReleaseStatement.h>

#include <QCryptographicHash>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

QString sha256(const QByteArray &bytes)
{
    return QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex());
}

QString addReply(SiteContents *site, const QByteArray &reply)
{
    const QString name = u"/replies/"_s + sha256(reply) + u".json"_s;
    site->replyFiles.insert(name, reply);
    return name;
}

// Keeps what builds with release keys think of a release, for those who go back to this site.
void noteRefusal(SiteContents *site, const Catalogue::Product &product,
                 const Catalogue::Release &release)
{
    const auto statement = ReleaseStatement::read(release.statement);
    if (Signing::refusal(product, release))
        site->refused.append(product.id + u' ' + release.version);
    else if (!product.builds.isEmpty() && statement && statement->expires)
        site->expires = std::min(site->expires.value_or(*statement->expires), *statement->expires);
}

Result<void> addProduct(SiteContents *site, const CatalogueFile &catalogue,
                        const Catalogue::Product &product, const PieceDone &done)
{
    QString newestMd5;
    for (const Catalogue::Release &release : product.releases) {
        const auto digests = catalogue.digests(product.id, release, done);
        if (!digests)
            return Failure{digests.error()};
        newestMd5 = digests->md5;
        const QString name = u"/installers/"_s + digests->sha256;
        site->installerFiles.insert(name, {release.installerPath, digests->sha256});
        site->installerNames.insert(release.fileName, name);
    }
    const auto answer = [&](const QStringList &versions, const QByteArray &text) {
        if (versions.isEmpty())
            return;
        const QString reply = addReply(site, text);
        for (const QString &version : versions)
            site->replies.insert(HttpFunctionURLEncode::encode(u"cmd=checkupd&id="_s + product.id +
                                                               u"&ver="_s + version),
                                 reply);
    };
    if (!product.releases.isEmpty()) {
        const Catalogue::Release &newest = product.releases.last();
        answer(catalogue.outdated(product), Replies::newRelease(newest, newestMd5));
        noteRefusal(site, product, newest);
    }
    answer(catalogue.current(product), Replies::refusal(u"no newer version is known"_s));
    return {};
}

QJsonObject asJson(const QMap<QString, QString> &map)
{
    QJsonObject object;
    for (auto entry = map.begin(); entry != map.end(); ++entry)
        object.insert(entry.key(), entry.value());
    return object;
}

// Keeps the token of the current site, unless a name then means another file than it has meant.
void chooseToken(SiteContents *site, const QList<QJsonObject> &previous)
{
    const QString token = previous.value(0).value(u"token"_s).toString();
    site->token = token;
    for (const QJsonObject &record : previous) {
        if (record.value(u"token"_s).toString() != token)
            continue;
        for (const QString &member : {u"bygone"_s, u"installers"_s}) {
            const QJsonObject before = record.value(member).toObject();
            for (auto entry = before.begin(); entry != before.end(); ++entry) {
                const auto now = site->installerNames.constFind(entry.key());
                if (now == site->installerNames.constEnd())
                    site->retiredNames.insert(entry.key(), entry->toString());
                else if (*now != entry->toString())
                    site->token.clear();
            }
        }
    }
    if (!site->token.isEmpty())
        return;
    site->retiredNames.clear();
    site->token = sha256(QJsonDocument(asJson(site->installerNames)).toJson()).first(32);
}

} // namespace

Result<SiteContents> SiteContents::of(const CatalogueFile &catalogue,
                                      const QList<Catalogue::Product> &offered,
                                      const QList<QJsonObject> &previous, const PieceDone &done)
{
    SiteContents site;
    for (const Catalogue::Product &product : offered) {
        if (const auto added = addProduct(&site, catalogue, product, done); !added)
            return Failure{added.error()};
    }
    chooseToken(&site, previous);
    site.replies.insert(HttpFunctionURLEncode::encode(u"cmd=gettoken"_s),
                        addReply(&site, Replies::token(site.token)));
    site.defaultReply = addReply(&site, Replies::refusal(u"unknown product or version"_s));
    for (auto name = site.installerNames.begin(); name != site.installerNames.end(); ++name)
        site.downloads.insert(HttpFunctionURLEncode::encode(u"cmd=download&tk="_s + site.token +
                                                            u"&fn="_s + name.key()),
                              name.value());
    return site;
}

qint64 SiteContents::bytesToRead(const QList<Catalogue::Product> &offered)
{
    qint64 bytes = 0;
    for (const Catalogue::Product &product : offered) {
        for (const Catalogue::Release &release : product.releases)
            bytes += QFileInfo(release.installerPath).size();
    }
    return bytes;
}

QJsonObject SiteContents::record() const
{
    QJsonObject record{{u"token"_s, token},
                       {u"installers"_s, asJson(installerNames)},
                       {u"bygone"_s, asJson(retiredNames)},
                       {u"replies"_s, QJsonArray::fromStringList(replyFiles.keys())}};
    if (!refused.isEmpty())
        record.insert(u"refused"_s, QJsonArray::fromStringList(refused));
    if (expires)
        record.insert(u"expires"_s, expires->toUTC().toString(Qt::ISODate));
    return record;
}

QStringList SiteContents::filesOf(const QJsonObject &record)
{
    QStringList files;
    const QJsonArray replies = record.value(u"replies"_s).toArray();
    for (const auto &reply : replies)
        files.append(reply.toString());
    const QJsonObject installers = record.value(u"installers"_s).toObject();
    for (const auto &installer : installers)
        files.append(installer.toString());
    return files;
}

std::optional<QString> SiteContents::refusal(const QJsonObject &record)
{
    const auto refused = record.value(u"refused"_s).toVariant().toStringList();
    if (!refused.isEmpty())
        return u"is not signed as they demand: "_s + refused.join(u", "_s);
    const auto expires = ReleaseStatement::date(record.value(u"expires"_s).toString());
    if (expires && *expires <= QDateTime::currentDateTimeUtc())
        return u"has expired at "_s + expires->toString(Qt::ISODate);
    return std::nullopt;
}
