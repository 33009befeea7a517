#include "UpdateService.h"

#include "../../service/HttpFunctionURLEncode.h"
#include "../support/TestFiles.h"

#include <QCryptographicHash>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>

using namespace Qt::StringLiterals;
using Reply = ScriptedServer::Reply;
using Request = ScriptedServer::Request;

namespace {

QString overridePath()
{
    return QDir::homePath() + u"/Documents/ConsoleZVUpdate.mac"_s;
}

// A text as JSON has it.
QString quoted(const QString &text)
{
    const QByteArray list = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(list.mid(1, list.size() - 2));
}

QByteArray checkReply(const Offer &offer)
{
    QString inner = u"{\"ZVMemo\":{\"datas\":[{\"language\":\"zh-TW\",\"memo\":\"zh-TW notes\"},"
                    "{\"language\":\"en\",\"memo\":\"en notes\"}]}"_s;
    if (offer.version)
        inner += u",\"ZVUpdVersion\":"_s + quoted(*offer.version);
    if (offer.digest)
        inner += u",\"ZVMD5\":"_s + quoted(*offer.digest);
    return u"{\"ok\":%1,\"msg\":\"M\",\"data\":\"%2\"}"_s.arg(offer.ok)
        .arg(HttpFunctionURLEncode::encode(inner + u'}'))
        .toUtf8();
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
        const QString id =
            offer.tokenId.isNull() ? QString() : u",\"id\":"_s + quoted(offer.tokenId);
        return Reply::whole(200, u"{\"ok\":%1%2}"_s.arg(offer.tokenOk).arg(id).toUtf8());
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
