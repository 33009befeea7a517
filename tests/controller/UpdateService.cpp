#include "UpdateService.h"

#include "../../service/HttpFunctionURLEncode.h"
#include "../support/TestFiles.h"

#include <QCryptographicHash>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;
using Reply = ScriptedServer::Reply;
using Request = ScriptedServer::Request;

namespace {

QString overridePath()
{
    return QDir::homePath() + u"/Documents/ConsoleZVUpdate.mac"_s;
}

QByteArray json(const QJsonObject &object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QByteArray checkReply(const Offer &offer)
{
    QJsonArray notes;
    for (const QString &language : {u"zh-TW"_s, u"en"_s})
        notes += QJsonObject{{u"language"_s, language}, {u"memo"_s, language + u" notes"_s}};
    QJsonObject inner{{u"ZVMemo"_s, QJsonObject{{u"datas"_s, notes}}}};
    if (offer.version)
        inner[u"ZVUpdVersion"] = *offer.version;
    if (offer.digest)
        inner[u"ZVMD5"] = *offer.digest;
    const QString data = HttpFunctionURLEncode::encode(QString::fromUtf8(json(inner)));
    return json({{u"ok"_s, offer.ok}, {u"msg"_s, u"M"_s}, {u"data"_s, data}});
}

Reply fileReply(const Offer &offer, const Request &request)
{
    if (request.method == "HEAD" && offer.sizeReply)
        return *offer.sizeReply;
    if (request.method == "HEAD" || !offer.gate || !request.header("Range").isEmpty())
        return Reply::file(request, offer.file);
    const qsizetype half = offer.file.size() / 2;
    return Reply()
        .send("HTTP/1.1 200 OK\r\nContent-Length: " + QByteArray::number(offer.file.size()) +
              "\r\n\r\n" + offer.file.left(half))
        .wait(offer.gate)
        .send(offer.file.mid(half));
}

Reply answer(const Offer &offer, const Request &request)
{
    if (request.command().startsWith("cmd=checkupd&"_L1)) {
        offer.meanwhile();
        return Reply::whole(200, offer.reply.value_or(checkReply(offer)));
    }
    if (request.command() == "cmd=gettoken"_L1) {
        QJsonObject token{{u"ok"_s, offer.tokenOk}};
        if (!offer.tokenId.isNull())
            token[u"id"] = offer.tokenId;
        return Reply::whole(200, json(token));
    }
    return fileReply(offer, request);
}

} // namespace

QString Offer::digestOf(const QByteArray &bytes)
{
    const QByteArray digest = QCryptographicHash::hash(bytes, QCryptographicHash::Md5);
    return QString::fromLatin1(digest.toHex()).toUpper();
}

UpdateService::UpdateService()
{
    setOffer({});
    QDir::home().mkpath(u"Documents"_s);
    writeFile(overridePath(), server_.baseUrl().toUtf8());
}

UpdateService::~UpdateService()
{
    QFile::remove(overridePath());
}

void UpdateService::setOffer(const Offer &offer)
{
    server_.setHandler([offer](const Request &request) {
        const Reply reply = answer(offer, request);
        return offer.onItsWay ? offer.onItsWay(request, reply.bytes(request)) : reply;
    });
}

QStringList UpdateService::requests() const
{
    QStringList list;
    for (const Request &request : server_.requests())
        list.append((QString::fromLatin1(request.method) + u' ' + request.command() + u' ' +
                     QString::fromLatin1(request.header("Range")))
                        .trimmed());
    return list;
}
