#include "Faults.h"

#include "Command.h"
#include "ServiceLog.h"

#include <ZVUpdate/service/HttpFunctionURLEncode.h>

#include <QJsonDocument>
#include <QJsonObject>

#include <sys/stat.h>

#include <algorithm>
#include <array>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 slowBytesPerSecond = 10'000;
constexpr auto ignoreRangeName = "ignore-range"_L1;

bool isDownload(const Reply &reply)
{
    const auto command = Command::parse(reply.command);
    return command && std::holds_alternative<Command::Download>(*command);
}

void refuse(Reply &reply, int status, const QByteArray &reason)
{
    reply.status = status;
    reply.headers = {{"Content-Type", "text/plain; charset=utf-8"}};
    reply.body = reason + '\n';
    reply.file.reset();
}

BodyFault &faultOf(Reply &reply)
{
    auto &fault = reply.file->fault;
    return fault ? *fault : fault.emplace();
}

qint64 sizeOf(const Reply::FilePiece &piece)
{
    struct stat attributes = {};
    return ::fstat(piece.file.get(), &attributes) == 0 ? attributes.st_size : 0;
}

// One function a fault. Each is given what stands after the equals sign, and returns whether it has
// done anything to the reply.

bool serverError(const QString &at, const Request &, Reply &reply)
{
    if (!at.isEmpty() && !reply.command.startsWith(u"cmd="_s + at))
        return false;
    refuse(reply, 500, "something went wrong inside the service");
    return true;
}

bool expiredToken(const QString &, const Request &, Reply &reply)
{
    if (!isDownload(reply))
        return false;
    refuse(reply, 403, "the token is unknown or has expired; get a new one");
    return true;
}

/// Announces a digest that differs from the installer's in its first digit.
bool wrongDigest(const QString &, const Request &, Reply &reply)
{
    QJsonObject outer = QJsonDocument::fromJson(reply.body).object();
    const auto text = HttpFunctionURLEncode::decode(outer[u"data"].toString());
    QJsonObject inner = QJsonDocument::fromJson(text.value_or(QString()).toUtf8()).object();
    QString digest = inner[u"ZVMD5"].toString();
    if (digest.isEmpty())
        return false;
    digest[0] = digest[0] == u'0' ? u'1' : u'0';
    inner[u"ZVMD5"] = digest;
    outer[u"data"] = HttpFunctionURLEncode::encode(
        QString::fromUtf8(QJsonDocument(inner).toJson(QJsonDocument::Compact)));
    reply.body = QJsonDocument(outer).toJson(QJsonDocument::Compact);
    return true;
}

/// Answers as if the file had another size: what is missing is not sent, and where there is nothing
/// more to send the connection ends.
bool wrongSize(const QString &at, const Request &, Reply &reply)
{
    if (!reply.file)
        return false;
    Reply::FilePiece &piece = *reply.file;
    const qint64 trueSize = sizeOf(piece);
    const qint64 size = at.isEmpty() ? trueSize + 1 : at.toLongLong();
    if (piece.offset + piece.length < trueSize)
        return false; // a part from the middle
    if (piece.offset > 0 && piece.offset >= size) {
        refuse(reply, 416, "the range begins past the end of the file");
        return true;
    }
    piece.length = size - piece.offset;
    faultOf(reply);
    for (auto &[name, text] : reply.headers) {
        if (name == "Content-Range")
            text = "bytes " + QByteArray::number(piece.offset) + '-' +
                   QByteArray::number(size - 1) + '/' + QByteArray::number(size);
    }
    return true;
}

bool noLength(const QString &, const Request &, Reply &reply)
{
    if (!reply.file)
        return false;
    faultOf(reply).announcesLength = false;
    return true;
}

bool slow(const QString &at, const Request &request, Reply &reply)
{
    if (!reply.file || request.method != "GET")
        return false;
    faultOf(reply).bytesPerSecond = at.isEmpty() ? slowBytesPerSecond : at.toLongLong();
    return true;
}

/// Lets a download get no further than a place in the file. One that begins there or later has got
/// over it and goes on to its end, but none gets over the place 0.
bool endAt(const QString &at, BodyFault::End end, const Request &request, Reply &reply)
{
    if (!reply.file || request.method != "GET")
        return false;
    const qint64 place = at.isEmpty() ? sizeOf(*reply.file) / 2 : at.toLongLong();
    const qint64 bytes = std::max<qint64>(place - reply.file->offset, 0);
    if ((bytes == 0 && place != 0) || bytes >= reply.file->length)
        return false;
    BodyFault &fault = faultOf(reply);
    if (fault.bytes && *fault.bytes <= bytes)
        return false;
    fault.bytes = bytes;
    fault.end = end;
    return true;
}

bool stall(const QString &at, const Request &request, Reply &reply)
{
    return endAt(at, BodyFault::End::StandStill, request, reply);
}

bool cut(const QString &at, const Request &request, Reply &reply)
{
    return endAt(at, BodyFault::End::Disconnect, request, reply);
}

/// The request has lost its range before it was answered.
bool ignoreRange(const QString &, const Request &, Reply &)
{
    return false;
}

bool isNumber(const QString &at)
{
    bool fits = false;
    at.toLongLong(&fits);
    return fits && at[0].isDigit();
}

bool isRate(const QString &at)
{
    return isNumber(at) && at.toLongLong() > 0;
}

bool isCommand(const QString &at)
{
    return at == "checkupd"_L1 || at == "gettoken"_L1 || at == "download"_L1;
}

bool isNothing(const QString &)
{
    return false;
}

struct Kind
{
    QLatin1String name;
    bool (*accepts)(const QString &at) = nullptr;
    /// What is accepted, for a message about what is not.
    QLatin1String remedy;
    bool (*spoil)(const QString &at, const Request &request, Reply &reply) = nullptr;
};

constexpr auto offsetHint = "give a number of bytes, such as %1=1000000"_L1;
constexpr auto bareHint = "it is written without a value: %1"_L1;

/// In the order in which they are applied: what leaves nothing to send comes first.
constexpr std::array kinds = {
    Kind{"server-error"_L1, &isCommand, "give checkupd, gettoken or download, or none for all"_L1,
         &serverError},
    Kind{"expired-token"_L1, &isNothing, bareHint, &expiredToken},
    Kind{"wrong-digest"_L1, &isNothing, bareHint, &wrongDigest},
    Kind{ignoreRangeName, &isNothing, bareHint, &ignoreRange},
    Kind{"wrong-size"_L1, &isNumber, offsetHint, &wrongSize},
    Kind{"no-length"_L1, &isNothing, bareHint, &noLength},
    Kind{"slow"_L1, &isRate, "give a number of bytes a second from 1, such as %1=10000"_L1, &slow},
    Kind{"stall"_L1, &isNumber, offsetHint, &stall},
    Kind{"cut"_L1, &isNumber, offsetHint, &cut},
};

QString written(const QString &name, const QString &at)
{
    return at.isEmpty() ? name : name + u'=' + at;
}

} // namespace

std::optional<QString> Faults::add(const QString &text)
{
    const qsizetype equals = text.indexOf(u'=');
    const QString name = text.first(equals < 0 ? text.size() : equals);
    const QString at = equals < 0 ? QString() : text.sliced(equals + 1);

    const auto *kind =
        std::find_if(kinds.begin(), kinds.end(), [&name](const Kind &k) { return k.name == name; });
    if (kind == kinds.end()) {
        QStringList names;
        for (const Kind &known : kinds)
            names.append(known.name);
        return u"\"%1\" is not a fault; the faults are %2"_s.arg(ServiceLog::escaped(name),
                                                                 names.join(u", "_s));
    }
    if (equals >= 0 && (at.isEmpty() || !kind->accepts(at))) {
        QString remedy = kind->remedy;
        return u"\"%1\" is not understood; %2"_s.arg(ServiceLog::escaped(text),
                                                     remedy.replace(u"%1"_s, name));
    }
    if (given_.contains(name))
        return u"\"%1\" is given twice; leave one of them out"_s.arg(name);
    given_.insert(name, at);
    return std::nullopt;
}

QString Faults::toString() const
{
    QStringList all;
    for (auto fault = given_.begin(); fault != given_.end(); ++fault)
        all.append(written(fault.key(), fault.value()));
    return all.isEmpty() ? u"none"_s : all.join(u", "_s);
}

Reply Faults::answer(Request request, const std::function<Reply(const Request &)> &healthy) const
{
    QStringList effective;
    if (given_.contains(ignoreRangeName) && !request.range.isEmpty()) {
        request.range.clear();
        effective.append(ignoreRangeName);
    }
    Reply reply = healthy(request);
    for (const Kind &kind : kinds) {
        const auto fault = given_.constFind(kind.name);
        if (fault != given_.constEnd() && kind.spoil(*fault, request, reply))
            effective.append(written(kind.name, *fault));
    }
    if (!effective.isEmpty())
        reply.remark +=
            (reply.remark.isEmpty() ? u"fault: "_s : u"; fault: "_s) + effective.join(u", "_s);
    return reply;
}
