#include "CommandHandler.h"

#include "../catalogue/RegularFile.h"
#include "../catalogue/Replies.h"
#include "RangeHeader.h"

#include <ZVUpdate/platform/settings/VersionOrder.h>
#include <ZVUpdate/service/HttpFunctionURLEncode.h>

#include <sys/stat.h>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

Reply json(const QByteArray &body)
{
    Reply reply;
    reply.headers.emplaceBack("Content-Type", "application/json");
    reply.body = body;
    return reply;
}

// A command that was understood as HTTP but does not succeed: status 200, and the reason inside.
Reply refusal(const QString &reason)
{
    Reply reply = json(Replies::refusal(reason));
    reply.remark = reason;
    return reply;
}

Reply failure(int status, const QByteArray &reason)
{
    Reply reply;
    reply.status = status;
    reply.headers.emplaceBack("Content-Type", "text/plain; charset=utf-8");
    reply.body = reason + '\n';
    reply.remark = QString::fromUtf8(reason);
    return reply;
}

Reply pieceOf(FileDescriptor file, const RangeHeader &range, qint64 size)
{
    const QByteArray total = QByteArray::number(size);
    if (range.kind() == RangeHeader::Kind::Unsatisfiable) {
        Reply reply = failure(416, "the range begins past the end of the file");
        reply.headers.emplaceBack("Content-Range", "bytes */" + total);
        return reply;
    }
    Reply reply;
    reply.headers.emplaceBack("Content-Type", "application/octet-stream");
    reply.headers.emplaceBack("Accept-Ranges", "bytes");
    if (range.kind() == RangeHeader::Kind::Part) {
        const QByteArray part = QByteArray::number(range.offset()) + '-' +
                                QByteArray::number(range.offset() + range.length() - 1) + '/' +
                                total;
        reply.status = 206;
        reply.headers.emplaceBack("Content-Range", "bytes " + part);
        reply.remark = QString::fromLatin1(part);
    }
    reply.file = Reply::FilePiece{std::move(file), range.offset(), range.length()};
    return reply;
}

} // namespace

Reply CommandHandler::answer(const Request &request)
{
    if (request.path != commandPath) {
        Reply reply = failure(404, QByteArray("there is nothing here; commands go to ") +
                                       commandPath + "?dt=");
        reply.command = QString::fromUtf8(request.path);
        return reply;
    }
    const QString text = HttpFunctionURLEncode::decode(request.sealedCommand).value_or(QString());
    Reply reply = answerCommand(request, text);
    reply.command = text.isEmpty() ? request.sealedCommand : text;
    return reply;
}

// Clients put values into the text as they are, so a value may hold an ampersand; only the known
// form tells where one ends.
Reply CommandHandler::answerCommand(const Request &request, const QString &text)
{
    constexpr auto checkUpdateStart = "cmd=checkupd&id="_L1;
    constexpr auto versionStart = "&ver="_L1;
    constexpr auto downloadStart = "cmd=download&tk="_L1;
    constexpr auto fileNameStart = "&fn="_L1;

    if (request.method != "POST" && request.method != "GET" && request.method != "HEAD") {
        Reply reply = failure(405, "commands are sent by POST, downloads by GET and HEAD");
        reply.headers.emplaceBack("Allow", "GET, HEAD, POST");
        return reply;
    }
    if (text == "cmd=gettoken"_L1)
        return json(Replies::token(tokens_.issue(std::chrono::steady_clock::now())));
    // The last one: an identifier may look like anything, a version is a number.
    const qsizetype version = text.lastIndexOf(versionStart);
    if (text.startsWith(checkUpdateStart) && version >= checkUpdateStart.size())
        return checkUpdate(text.first(version).sliced(checkUpdateStart.size()),
                           text.sliced(version + versionStart.size()));
    // The first one: tokens are ours and hold no ampersand, a file name may.
    const qsizetype fileName = text.indexOf(fileNameStart, downloadStart.size());
    if (text.startsWith(downloadStart) && fileName >= 0)
        return download(text.first(fileName).sliced(downloadStart.size()),
                        text.sliced(fileName + fileNameStart.size()), request);
    Reply reply =
        refusal(text.isEmpty() ? u"bad command: it does not unseal"_s
                               : u"bad command: none of checkupd, gettoken and download"_s);
    // A client that meant to download must not take the reason for its file.
    if (request.method != "POST")
        reply.status = 400;
    return reply;
}

Reply CommandHandler::checkUpdate(const QString &productId, const QString &version)
{
    const auto newest = folder_.newestRelease(productId);
    if (!newest)
        return refusal(u"unknown product \"%1\""_s.arg(productId));
    if (ZVPlatform::compareVersions(newest->version, version) <= 0)
        return refusal(u"no newer version: %1 is the newest"_s.arg(newest->version));
    Reply reply = json(newest->reply);
    if (faults_.hasWrongDigest)
        reply.remark = u"fault: wrong-digest"_s;
    return reply;
}

Reply CommandHandler::download(const QString &token, const QString &fileName,
                               const Request &request)
{
    if (!tokens_.isGood(token, std::chrono::steady_clock::now()))
        return failure(403, "the token is unknown or has expired; get a new one");
    const auto path = folder_.installerPath(fileName);
    if (!path)
        return failure(404, "no release has this file");

    FileDescriptor file = RegularFile::openWithoutLinks(*path);
    struct stat attributes = {};
    if (!file.isOpen() || ::fstat(file.get(), &attributes) != 0)
        return failure(404, "the installer cannot be read");
    // Only a GET may be answered in part, or interrupted.
    const bool isGet = request.method == "GET";
    const RangeHeader range(isGet ? request.range : QByteArray(), attributes.st_size);
    Reply reply = pieceOf(std::move(file), range, attributes.st_size);
    if (isGet && reply.file && faults_.interruption)
        interrupt(reply, attributes.st_size);
    return reply;
}

// Lets a download get no further than a place in the file. One that begins there or later has got
// over it and goes on to its end, but none gets over the place 0.
void CommandHandler::interrupt(Reply &reply, qint64 size) const
{
    const Faults::Interruption &interruption = *faults_.interruption;
    Reply::FilePiece &piece = *reply.file;
    const qint64 place = interruption.byte.value_or(size / 2);
    const qint64 bytes = std::max<qint64>(place - piece.offset, 0);
    if ((bytes == 0 && place > 0) || bytes >= piece.length)
        return;
    piece.interruption = {bytes, interruption.isStall};
    reply.remark += (reply.remark.isEmpty() ? u"fault: %1=%2"_s : u"; fault: %1=%2"_s)
                        .arg(interruption.isStall ? u"stall"_s : u"cut"_s)
                        .arg(place);
}
