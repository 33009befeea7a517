#include "CommandHandler.h"

#include "../catalogue/RegularFile.h"
#include "../catalogue/Replies.h"
#include "../catalogue/VersionOrder.h"
#include "RangeHeader.h"

#include <ZVUpdate/service/HttpFunctionURLEncode.h>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

Reply json(const QByteArray &body)
{
    Reply reply;
    reply.headers.emplaceBack("Content-Type", "application/json");
    reply.body = body;
    return reply;
}

/// A command that was understood as HTTP but does not succeed: status 200, and the reason inside.
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

Reply CommandHandler::answerCommand(const Request &request, const QString &text)
{
    if (request.method != "POST" && request.method != "GET" && request.method != "HEAD") {
        Reply reply = failure(405, "commands are sent by POST, downloads by GET and HEAD");
        reply.headers.emplaceBack("Allow", "GET, HEAD, POST");
        return reply;
    }
    const auto command = Command::parse(text);
    if (!command) {
        Reply reply =
            refusal(text.isEmpty() ? u"bad command: it does not unseal"_s
                                   : u"bad command: none of checkupd, gettoken and download"_s);
        // A client that meant to download must not take the reason for its file.
        if (request.method != "POST")
            reply.status = 400;
        return reply;
    }

    if (const auto *check = std::get_if<Command::CheckUpdate>(&*command))
        return checkUpdate(*check);
    if (const auto *download = std::get_if<Command::Download>(&*command)) {
        // Only a GET may be answered in part.
        return this->download(*download, request.method == "GET" ? request.range : QByteArray());
    }
    return getToken();
}

Reply CommandHandler::checkUpdate(const Command::CheckUpdate &command)
{
    const auto newest = folder_.newestRelease(command.productId);
    if (!newest)
        return refusal(u"unknown product \"%1\""_s.arg(command.productId));
    if (compareVersions(newest->version, command.version) <= 0)
        return refusal(u"no newer version: %1 is the newest"_s.arg(newest->version));
    return json(newest->reply);
}

Reply CommandHandler::getToken()
{
    return json(Replies::token(tokens_.issue(std::chrono::steady_clock::now())));
}

Reply CommandHandler::download(const Command::Download &command, const QByteArray &range)
{
    if (!tokens_.isGood(command.token, std::chrono::steady_clock::now()))
        return failure(403, "the token is unknown or has expired; get a new one");
    const auto path = folder_.installerPath(command.fileName);
    if (!path)
        return failure(404, "no release has this file");

    FileDescriptor file = RegularFile::openWithoutLinks(*path);
    struct stat attributes = {};
    if (!file.isOpen() || ::fstat(file.get(), &attributes) != 0)
        return failure(404, "the installer cannot be read");
    return pieceOf(std::move(file), RangeHeader(range, attributes.st_size), attributes.st_size);
}
