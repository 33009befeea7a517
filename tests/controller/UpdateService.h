#pragma once

#include "../support/ScriptedServer.h"

#include <QStringList>

#include <functional>
#include <memory>
#include <optional>

/// What the update service has to offer: as it stands, version 2 of an installer.
struct Offer
{
    static QByteArray installer(char filler = 'i') { return QByteArray(400000, filler) + "end"; }
    /// The digest of bytes as the service announces it, in upper case.
    static QString digestOf(const QByteArray &bytes);
    /// The answer that a file is larger than any disk.
    static ScriptedServer::Reply hugeSize()
    {
        return ScriptedServer::Reply().send(
            "HTTP/1.1 200 OK\r\nContent-Length: 1152921504606846976\r\n\r\n");
    }

    bool ok = true;
    std::optional<QString> version = QStringLiteral("2");
    std::optional<QString> digest = digestOf(installer());
    bool tokenOk = true;
    QString tokenId = QStringLiteral("T");
    QByteArray file = installer();
    /// Where a download from the start stops after the first half.
    std::shared_ptr<Gate> gate = nullptr;
    /// The answer to the question for an update, unless it is made from what stands above.
    std::optional<QByteArray> reply = std::nullopt;
    /// The answer to a question for the size, unless it is what the file needs.
    std::optional<ScriptedServer::Reply> sizeReply = std::nullopt;
    /// What happens on the server's thread while a check waits for its reply.
    std::function<void()> meanwhile = [] {};
    /// What becomes of each reply, given as its bytes, on its way.
    std::function<ScriptedServer::Reply(const ScriptedServer::Request &, const QByteArray &)>
        onItsWay = nullptr;
};

/// The update service, to which the library is directed through the developer's override file for
/// as long as it lives.
class UpdateService
{
public:
    UpdateService();
    ~UpdateService();

    QString baseUrl() const { return server_.baseUrl(); }
    void setOffer(const Offer &offer);
    /// The requests up to now: method, command and, if there is one, the Range.
    QStringList requests() const;

private:
    ScriptedServer server_{ScriptedServer::Reply()};
};
