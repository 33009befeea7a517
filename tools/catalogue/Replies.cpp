#include "Replies.h"

#include <ZVUpdate/release/ReleaseStatement.h>
#include <ZVUpdate/service/HttpFunctionURLEncode.h>

#include <QJsonArray>
#include <QJsonDocument>

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

QByteArray Replies::announcement(const Catalogue::Release &release, const QString &md5,
                                 const QJsonObject &signedMember)
{
    QJsonArray notes;
    for (const Catalogue::Note &note : release.notes)
        notes.append(QJsonObject{{u"language"_s, note.language}, {u"memo"_s, note.memo}});
    QJsonObject inner{{u"ZVUpdVersion"_s, release.version},
                      {u"ZVMD5"_s, md5},
                      {u"ZVMemo"_s, QJsonObject{{u"datas"_s, notes}}}};
    if (!signedMember.isEmpty())
        inner.insert(QStringView(ReleaseStatement::member), signedMember);
    return compact(inner);
}

QByteArray Replies::newRelease(const Catalogue::Release &release, const QString &md5)
{
    const bool isSigned = !release.statement.isEmpty() && !release.signatures.isEmpty();
    const QByteArray inner = isSigned ? release.statement : announcement(release, md5);
    const QString sealed = HttpFunctionURLEncode::encode(QString::fromUtf8(inner));
    QJsonObject reply{{u"ok"_s, true}, {u"msg"_s, QString()}, {u"data"_s, sealed}};
    if (isSigned)
        reply.insert(u"sigs"_s, QJsonArray::fromStringList(release.signatures));
    return compact(reply);
}
