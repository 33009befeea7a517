#pragma once

#include "Loopback.h"

#include <QByteArray>
#include <QString>

#include <atomic>
#include <memory>

#include <openssl/ssl.h>

/// A TLS relay on a port of its own on the loopback interface, which hands what it has decrypted to
/// a server of the tests, so that those speak plain HTTP only. Its certificate is made for it; in a
/// test program that has this file the library trusts it, unless it is not to be trusted. Needs no
/// event loop; its functions may be called from any thread.
class TlsRelay
{
public:
    /// The certificate; all but Good are to be refused.
    enum Certificate { Good, Expired, Untrusted, OfAnotherHost };
    /// Whether clients come straight, or have it connect as a proxy first.
    enum Way { Direct, AsProxy };

    /// A relay to a server on the loopback interface, of which only the port of the URL counts.
    explicit TlsRelay(const QString &serverUrl, Certificate certificate = Good, Way way = Direct);

    /// "127.0.0.1:PORT".
    QString address() const { return QStringLiteral("127.0.0.1:%1").arg(acceptor_.port()); }
    QString baseUrl() const { return QStringLiteral("https://%1/?dt=").arg(address()); }

    /// How many connections were opened up to now by a request to a proxy.
    int proxied() const { return proxied_; }

private:
    void serve(int client);
    bool becomeTunnel(int client);
    void relay(SSL *client) const;

    const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context_;
    const quint16 serverPort_;
    const Way way_;
    std::atomic<int> proxied_ = 0;
    Loopback::Acceptor acceptor_{[this](int client) { serve(client); }};
};
