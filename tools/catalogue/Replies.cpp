#include "Replies.h"

#include <ZVUpdate/service/HttpFunctionURLEncode.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

QByteArray compact(const QJsonObject &object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

} // namespace

QByteArray Replies::refusal(const QString &reason)
{
    return compact({{u"ok"_s, false}, {u"msg"_s, reason}});
}

QByteArray Replies::token(const QString &token)
{
    return compact({{u"ok"_s, true}, {u"msg"_s, QString()}, {u"id"_s, token}});
}

QByteArray Replies::newRelease(const Catalogue::Release &release, const QString &md5)
{
    QJsonArray notes;
    for (const Catalogue::Note &note : release.notes)
        notes.append(QJsonObject{{u"language"_s, note.language}, {u"memo"_s, note.memo}});
    const QJsonObject inner{{u"ZVUpdVersion"_s, release.version},
                            {u"ZVMD5"_s, md5},
                            {u"ZVMemo"_s, QJsonObject{{u"datas"_s, notes}}}};
    const QString sealed = HttpFunctionURLEncode::encode(QString::fromUtf8(compact(inner)));
    return compact({{u"ok"_s, true}, {u"msg"_s, QString()}, {u"data"_s, sealed}});
}
